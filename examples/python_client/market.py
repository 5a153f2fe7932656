"""The feed put in order: what is there already is skipped, what came early waits, what is missing is asked for.

No sockets and no clock of its own: datagrams and replies go in, and `wanted` tells what is to be asked for.
"""

from __future__ import annotations

from dataclasses import dataclass

import dom
from books import Books

LATE_S = 0.010  # what is only late comes within this
SILENCE_S = 2.0  # the feed is never quiet for so long
REPEAT_S = 0.05  # before asking again; doubled each time that nothing came
LONGEST_REPEAT_S = 1.0


@dataclass(frozen=True)
class Retransmission:
    first: int
    last: int


@dataclass(frozen=True)
class Refresh:
    pass


Request = Retransmission | Refresh


class Market:
    def __init__(self, fault: str = "") -> None:
        self.books = Books()
        self.expected = 1  # number of the next message
        self.synchronised = False  # the books are those of `expected - 1`
        self._early: dict[int, bytes] = {}
        self._published = 0  # largest number known to exist
        self._ask_at: float | None = None
        self._asking: Request | None = None
        self._in_vain = 0
        self._history_lost = False  # the venue does not hold any more what is missing
        self._session = 0
        self._last_heard = 0.0
        self._fault = fault

    def begin(self, now: float) -> None:
        """To be called when the feed can be heard: what is kept from then on makes the refresh complete."""
        self._last_heard = now
        self._ask_at = now

    @property
    def complete(self) -> bool:
        return self.synchronised and self.expected > self._published

    def stale(self, now: float) -> bool:
        return not self.complete or now - self._last_heard > SILENCE_S

    def take_datagram(self, datagram: bytes, now: float) -> None:
        self._last_heard = now
        for packet in dom.packets(datagram):
            if self._is_new_venue(packet):
                self._start_over(now)
            self._session = packet.session
            if packet.kind == dom.MESSAGE:
                self._take_message(packet.number, packet.message)
            if packet.kind == dom.HEARTBEAT and packet.number > self._published:
                self._published = packet.number
                self._notice(now)
        self._apply_early()
        if not self.complete:
            self._notice(now + LATE_S)

    def wanted(self, now: float) -> Request | None:
        """What to ask for now. Answered by began(), reply messages and ended()."""
        if self._asking is not None or self._ask_at is None or now < self._ask_at:
            return None
        if not self.synchronised or self._history_lost:
            return Refresh()
        missing = self._missing()
        return Retransmission(missing[0], missing[-1]) if missing else None

    def due(self) -> float | None:
        return self._ask_at if self._asking is None else None

    def began(self, request: Request) -> None:
        self._asking, self._ask_at = request, None

    def recovered(self, number: int, message: bytes) -> None:
        """A message of a retransmission."""
        self._take_message(number, message)
        self._apply_early()

    def refreshed(self, as_of: int, messages: list[bytes]) -> None:
        """All of a refresh. It takes the place of what was known."""
        self.books.clear()
        for message in messages:
            self.books.apply(message)
        self.expected = as_of + 1
        self._early = {number: m for number, m in self._early.items() if number > as_of}
        self._published = max([as_of, *self._early])
        self.synchronised, self._history_lost = True, False
        self._apply_early()

    def ended(self, served: bool, now: float) -> None:
        """The exchange is over; `served` when the venue said that this was all."""
        asked, self._asking = self._asking, None
        if self.complete:
            self._in_vain = 0
            return
        brought = self.synchronised and not (isinstance(asked, Retransmission) and self.expected <= asked.first)
        self._history_lost = served and not brought and isinstance(asked, Retransmission)
        self._in_vain = 0 if brought else self._in_vain + 1
        self._ask_at = now + min(REPEAT_S * 2**self._in_vain, LONGEST_REPEAT_S)

    def _is_new_venue(self, packet: dom.FeedPacket) -> bool:
        known = self.expected > 1 or self._early
        if not known:
            return False
        begins = packet.kind == dom.START or (packet.kind == dom.HEARTBEAT and packet.number < self.expected - 1)
        return begins or packet.session != self._session

    def _start_over(self, now: float) -> None:
        self.books.clear()
        self._early.clear()
        self.expected, self._published, self.synchronised = 1, 0, False
        self._ask_at = now

    def _take_message(self, number: int, message: bytes) -> None:
        self._published = max(self._published, number)
        if number >= self.expected:
            self._early[number] = message

    def _apply_early(self) -> None:
        if not self.synchronised:
            return
        if self._fault == "skips-gaps" and self._early and self.expected not in self._early:
            self.expected = min(self._early)
        while (message := self._early.pop(self.expected, None)) is not None:
            self.books.apply(message)
            self.expected += 1
        if self.complete:
            self._ask_at = None

    def _missing(self) -> list[int]:
        return [n for n in range(self.expected, self._published + 1) if n not in self._early]

    def _notice(self, at: float) -> None:
        if self._asking is None:
            self._ask_at = at if self._ask_at is None else min(self._ask_at, at)
