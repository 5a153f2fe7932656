"""Order entry: requests built, responses read. Prices are millionths, quantities shares."""

from __future__ import annotations

import struct
from dataclasses import dataclass

import esesm

VERSION = "MEO2.7"
MPID = "PYCL"

_NEW = struct.Struct("<2s8x4s20sIQIHcc77x")
_REPLACE = struct.Struct("<2s8x4s20s20sIQIB12xc27x")
_CANCEL = struct.Struct("<2s8x4s20s20sI10x")

SELL = 1
_SHORT_SALE_TYPE_LONG = 1 << 1  # a sell has to say one
DAY = b"D"
IMMEDIATE = b"I"


@dataclass(frozen=True)
class NewOrderResponse:  # NR
    id: str
    product: int
    order_id: int
    price: int
    quantity: int
    reason: str

    @property
    def accepted(self) -> bool:
        return self.reason == " "


@dataclass(frozen=True)
class OrderAccepted:  # O1
    id: str
    product: int
    price: int
    quantity: int
    sell: bool


@dataclass(frozen=True)
class Execution:  # E1
    id: str
    product: int
    match: int
    execution: int
    price: int
    quantity: int
    sell: bool


@dataclass(frozen=True)
class OrderCancelled:  # XN
    id: str
    reason: str


@dataclass(frozen=True)
class ReplaceResponse:  # MR
    id: str
    original: str
    price: int
    reason: str

    @property
    def accepted(self) -> bool:
        return self.reason == " "


@dataclass(frozen=True)
class ReplaceNotification:  # MN
    id: str
    original: str
    price: int
    total: int


@dataclass(frozen=True)
class CancelResponse:  # CR
    original: str
    reason: str

    @property
    def accepted(self) -> bool:
        return self.reason == " "


@dataclass(frozen=True)
class Symbol:  # SU
    product: int
    name: str


Response = (
    NewOrderResponse
    | OrderAccepted
    | Execution
    | OrderCancelled
    | ReplaceResponse
    | ReplaceNotification
    | CancelResponse
    | Symbol
)


def _request(message: bytes) -> bytes:
    return esesm.packet(esesm.UNSEQUENCED, message)


def _id(text: str) -> bytes:
    return esesm.blanks(text, 20)


def new_order(id: str, product: int, sell: bool, quantity: int, price: int, tif: bytes) -> bytes:
    flags = SELL | _SHORT_SALE_TYPE_LONG if sell else 0
    return _request(_NEW.pack(b"N1", MPID.encode(), _id(id), product, price, quantity, flags, tif, b"1"))


def replace(original: str, id: str, product: int, price: int, total: int) -> bytes:
    """The order goes on as `id`; `total` includes what has executed."""
    return _request(_REPLACE.pack(b"M1", MPID.encode(), _id(id), _id(original), product, price, total, 0, DAY))


def cancel(request: str, original: str, product: int) -> bytes:
    return _request(_CANCEL.pack(b"CO", MPID.encode(), _id(request), _id(original), product))


def _u32(message: bytes, at: int) -> int:
    return int.from_bytes(message[at : at + 4], "little")


def _u64(message: bytes, at: int) -> int:
    return int.from_bytes(message[at : at + 8], "little")


def _text(message: bytes, at: int, width: int = 20) -> str:
    return esesm.text(message[at : at + width])


def _letter(message: bytes, at: int) -> str:
    return chr(message[at])


def read(message: bytes) -> Response | None:
    """None for what this client need not know, such as that an order has come to rest."""
    m = message
    match bytes(m[:2]):
        case b"NR":
            return NewOrderResponse(
                _text(m, 14), _u32(m, 34), _u64(m, 38), _u64(m, 46), _u32(m, 54), _letter(m, 58)
            )
        case b"O1":
            return OrderAccepted(_text(m, 22), _u32(m, 42), _u64(m, 46), _u32(m, 54), bool(m[58] & SELL))
        case b"E1":
            return Execution(
                _text(m, 18), _u32(m, 14), _u64(m, 38), _u64(m, 46), _u64(m, 56), _u32(m, 64), bool(m[68])
            )
        case b"XN":
            return OrderCancelled(_text(m, 14), _letter(m, 50))
        case b"MR":
            return ReplaceResponse(_text(m, 14), _text(m, 34), _u64(m, 70), _letter(m, 78))
        case b"MN":
            return ReplaceNotification(_text(m, 14), _text(m, 34), _u64(m, 66), _u32(m, 74))
        case b"CR":
            return CancelResponse(_text(m, 34), _letter(m, 70))
        case b"SU":
            return Symbol(_u32(m, 10), _text(m, 14, 11))
    return None
