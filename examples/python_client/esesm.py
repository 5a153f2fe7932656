"""The session protocol of both TCP services: packets, login, goodbye. Bytes only, no sockets."""

from __future__ import annotations

import struct
from collections.abc import Iterator
from dataclasses import dataclass

LOGIN_REQUEST = b"l"
LOGIN_RESPONSE = b"r"
LOGOUT = b"X"
GOODBYE = b"G"
CLIENT_HEARTBEAT = b"1"
SEQUENCED = b"s"
UNSEQUENCED = b"U"
REPLAY_COMPLETE = b"c"
RETRANSMISSION_REQUEST = b"a"

ACCEPTED = " "
ALREADY_LOGGED_IN = "L"
INVALID_SEQUENCE = "N"
INVALID_SESSION = "S"

_HEADER = struct.Struct("<Hc")
_SEQUENCED = struct.Struct("<QB")
_LOGIN = struct.Struct("<5s5s8s8sB BQ")
_RESPONSE = struct.Struct("<B cBQ")


@dataclass(frozen=True)
class Packet:
    kind: bytes
    payload: bytes


@dataclass(frozen=True)
class LoginResponse:
    status: str
    session: int
    highest: int  # last number that has been used


def packet(kind: bytes, payload: bytes = b"") -> bytes:
    return _HEADER.pack(len(payload) + 1, kind) + payload


def blanks(text: str, width: int) -> bytes:
    """A text of fixed width, filled up with blanks."""
    return text.encode("latin-1")[:width].ljust(width)


def text(field: bytes) -> str:
    return field.rstrip(b" \0").decode("latin-1")


def login(user: str, application: str, next_number: int) -> bytes:
    """A login that asks for next_number and all that follows; 0 is the end of the stream."""
    return packet(
        LOGIN_REQUEST,
        _LOGIN.pack(
            blanks("1.0", 5), blanks(user, 5), blanks("python", 8), blanks(application, 8), 1, 0, next_number
        ),
    )


def read_login_response(payload: bytes) -> LoginResponse:
    _, status, session, highest = _RESPONSE.unpack_from(payload)
    return LoginResponse(status.decode("latin-1"), session, highest)


def read_sequenced(payload: bytes) -> tuple[int, bytes]:
    """The number of a message, and the message."""
    number, _ = _SEQUENCED.unpack_from(payload)
    return number, payload[_SEQUENCED.size :]


def read_goodbye(payload: bytes) -> tuple[str, str]:
    """Reason and text."""
    return payload[:1].decode("latin-1"), text(payload[1:])


class PacketCutter:
    """Cuts what a connection brings into packets, however it was chopped on its way."""

    def __init__(self) -> None:
        self._left = bytearray()

    def feed(self, data: bytes) -> Iterator[Packet]:
        self._left += data
        while len(self._left) >= _HEADER.size:
            length, kind = _HEADER.unpack_from(self._left)
            end = 2 + length
            if length == 0 or len(self._left) < end:
                return
            payload = bytes(self._left[_HEADER.size : end])
            del self._left[:end]
            yield Packet(kind, payload)
