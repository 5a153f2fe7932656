"""One user's session on order entry, over as many connections as it takes. Bytes in, events out; no sockets.

The stream of a user runs one way and survives every connection. Messages are handed over once each and in order; when
a number is missing, the session logs in again from there on the connection that it has, because a new one would lose
the orders of this one.
"""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass

import esesm
import meo

HEARTBEAT_S = 1.0
SILENCE_S = 3.0  # a venue that says nothing for so long is left
SUSPICIOUS_S = 1.5  # silence well over a second may have swallowed messages
VAIN_LOGINS = 3  # what cannot be had after so many is lost for good


@dataclass(frozen=True)
class Message:
    number: int
    bytes: bytes
    replayed: bool


@dataclass(frozen=True)
class CaughtUp:
    """Everything up to the end of the stream, as it was at the login, has been handed over."""


@dataclass(frozen=True)
class NewVenue:
    """The venue has begun anew: nothing that it said before holds any longer."""


@dataclass(frozen=True)
class Refused:
    status: str


@dataclass(frozen=True)
class Ended:
    reason: str


Event = Message | CaughtUp | NewVenue | Refused | Ended


class Session:
    def __init__(self, user: str, fault: str = "") -> None:
        self.user = user
        self.expected = 1  # number of the next message
        self.connection = 0  # counts connections; orders belong to one
        self.caught_up = False
        self.wants_close = False
        self.out = bytearray()
        self._fault = fault
        self._venue = 0  # number of its trading session
        self._awaiting_response = False
        self._replay_end = 0
        self._vain = 0
        self._cutter = esesm.PacketCutter()
        self.heard_at = self.request_sent_at = self._sent_at = 0.0

    @property
    def ready(self) -> bool:
        """Requests may be sent, and what is known is complete."""
        return self.caught_up and not self._awaiting_response and not self.wants_close

    def connected(self, now: float) -> None:
        self.connection += 1
        self.wants_close = False
        self.out.clear()
        self._cutter = esesm.PacketCutter()
        self.heard_at = now
        self._vain = 0
        self.log_in(now)

    def disconnected(self) -> None:
        self.caught_up = self._awaiting_response = False

    def log_in(self, now: float) -> None:
        """Also on a connection that is logged in: what was missed comes again."""
        asked = self.expected
        if self._fault == "asks-from-the-wrong-number" and asked > 1:
            asked -= 1
        self._awaiting_response = True
        self.caught_up = False
        self.send(esesm.login(self.user, meo.VERSION, asked), now)

    def send(self, data: bytes, now: float) -> None:
        self.out += data
        self._sent_at = now

    def request(self, data: bytes, now: float) -> None:
        self.request_sent_at = now
        self.send(data, now)

    def log_out(self, now: float) -> None:
        self.send(esesm.packet(esesm.LOGOUT), now)
        self.caught_up = False

    def due(self) -> float:
        """When keep_alive has something to do."""
        return min(self._sent_at + HEARTBEAT_S, self.heard_at + SILENCE_S)

    def keep_alive(self, now: float) -> None:
        if now >= self.heard_at + SILENCE_S:
            self.wants_close = True
        elif now >= self._sent_at + HEARTBEAT_S and self._fault != "never-heartbeats":
            self.send(esesm.packet(esesm.CLIENT_HEARTBEAT), now)

    def receive(self, data: bytes, now: float) -> Iterator[Event]:
        silent = now - self.heard_at
        self.heard_at = now
        for packet in self._cutter.feed(data):
            yield from self._take(packet, now)
            if self.wants_close:
                return
        if silent > SUSPICIOUS_S and self.ready:
            self.log_in(now)

    def _take(self, packet: esesm.Packet, now: float) -> Iterator[Event]:
        if packet.kind == esesm.LOGIN_RESPONSE:
            yield from self._take_response(esesm.read_login_response(packet.payload), now)
        elif packet.kind == esesm.SEQUENCED:
            yield from self._take_message(*esesm.read_sequenced(packet.payload), now)
        elif packet.kind == esesm.GOODBYE:
            self.wants_close = True
            yield Ended(": ".join(esesm.read_goodbye(packet.payload)))

    def _take_response(self, response: esesm.LoginResponse, now: float) -> Iterator[Event]:
        self._awaiting_response = False
        known, self._venue = self._venue, response.session
        new_venue = response.status == esesm.INVALID_SEQUENCE or (known not in (0, response.session))
        if new_venue and self.expected > 1:
            self.expected = 1
            yield NewVenue()
            self.log_in(now)
        elif response.status != esesm.ACCEPTED:
            yield Refused(response.status)
        else:
            self._replay_end = response.highest
            yield from self._check_caught_up()

    def _take_message(self, number: int, message: bytes, now: float) -> Iterator[Event]:
        if number > self.expected and not self._is_lost(number):
            if not self._awaiting_response:
                self._vain += 1
                self.log_in(now)
            return
        if number < self.expected:
            return
        self.expected = number + 1
        self._vain = 0
        yield Message(number, message, number <= self._replay_end)
        yield from self._check_caught_up()

    def _is_lost(self, number: int) -> bool:
        """The venue keeps a part of a long stream only, and begins there without a word."""
        return self._vain >= VAIN_LOGINS and not self._awaiting_response and number <= self._replay_end

    def _check_caught_up(self) -> Iterator[Event]:
        if not self.caught_up and not self._awaiting_response and self.expected > self._replay_end:
            self.caught_up = True
            yield CaughtUp()
