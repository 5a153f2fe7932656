"""The feed: datagrams cut into packets, messages read, and what is asked of the retransmission service."""

from __future__ import annotations

import struct
from collections.abc import Iterator
from dataclasses import dataclass

import esesm

VERSION = "DoM1.3"

START = 1
MESSAGE = 3
HEARTBEAT = 0

_MACH = struct.Struct("<QHBB")
EVERYTHING = b"O"  # the refresh with definitions and all resting orders


@dataclass(frozen=True)
class FeedPacket:
    number: int
    kind: int
    session: int
    message: bytes


@dataclass(frozen=True)
class Definition:
    product: int
    name: str


@dataclass(frozen=True)
class Add:
    product: int
    order_id: int
    buy: bool
    price: int
    quantity: int


@dataclass(frozen=True)
class Modify:
    order_id: int
    price: int
    quantity: int


@dataclass(frozen=True)
class Delete:
    order_id: int


@dataclass(frozen=True)
class Executed:
    order_id: int
    quantity: int


Change = Definition | Add | Modify | Delete | Executed


def packets(datagram: bytes) -> Iterator[FeedPacket]:
    at = 0
    while at + _MACH.size <= len(datagram):
        number, length, kind, session = _MACH.unpack_from(datagram, at)
        if length < _MACH.size or at + length > len(datagram):
            return
        yield FeedPacket(number, kind, session, datagram[at + _MACH.size : at + length])
        at += length


def _u32(message: bytes, at: int) -> int:
    return int.from_bytes(message[at : at + 4], "little")


def _u64(message: bytes, at: int) -> int:
    return int.from_bytes(message[at : at + 8], "little")


def read(message: bytes) -> Change | None:
    """None for what changes no book and defines nothing, System Time for example."""
    m = message
    match m[0]:
        case 0x01:
            return Definition(_u32(m, 5), esesm.text(m[9:20]))
        case 0x14:
            return Add(_u32(m, 5), _u64(m, 9), m[17] == ord("B"), _u64(m, 18), _u32(m, 26))
        case 0x15:
            return Modify(_u64(m, 9), _u64(m, 17), _u32(m, 25))
        case 0x17:
            return Delete(_u64(m, 9))
        case 0x18:
            return Executed(_u64(m, 9), _u32(m, 33))
    return None


def retransmission_request(first: int, last: int) -> bytes:
    return esesm.packet(esesm.RETRANSMISSION_REQUEST, struct.pack("<QQ", first, last))


def refresh_request() -> bytes:
    return esesm.packet(esesm.UNSEQUENCED, b"R" + EVERYTHING)
