"""One exchange with the retransmission service: connect, log in, ask, take the reply. Never waits for anything."""

from __future__ import annotations

import socket

import dom
import esesm
from market import Market, Refresh, Request

SILENCE_S = 3.0  # a reply that stops for so long is given up


class Recovery:
    def __init__(self, address: tuple[str, int], user: str, request: Request, market: Market, now: float) -> None:
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.socket.setblocking(False)
        self.finished = False
        self._market = market
        self._refresh: list[bytes] = []
        self._as_of = 0
        self._whole = False  # the end of the refresh was seen
        self._cutter = esesm.PacketCutter()
        self._last_heard = now
        # Login and request may go together: the venue takes one after the other.
        question = (
            dom.refresh_request()
            if isinstance(request, Refresh)
            else dom.retransmission_request(request.first, request.last)
        )
        self.out = bytearray(esesm.login(user, dom.VERSION, 0) + question)
        market.began(request)
        self.socket.connect_ex(address)  # how it ends shows when it is used

    def due(self) -> float:
        return self._last_heard + SILENCE_S

    def writable(self, now: float) -> None:
        try:
            if self.out:
                del self.out[: self.socket.send(self.out)]
        except BlockingIOError:
            pass
        except OSError:
            self._finish(False, now)

    def readable(self, now: float) -> None:
        while not self.finished:
            try:
                data = self.socket.recv(65536)
            except BlockingIOError:
                return
            except OSError:
                data = b""
            if not data:
                self._finish(False, now)
                return
            self._last_heard = now
            for packet in self._cutter.feed(data):
                self._take(packet, now)

    def check_silence(self, now: float) -> None:
        if not self.finished and now >= self.due():
            self._finish(False, now)

    def _take(self, packet: esesm.Packet, now: float) -> None:
        if self.finished:
            return
        if packet.kind == esesm.SEQUENCED:
            self._market.recovered(*esesm.read_sequenced(packet.payload))
        elif packet.kind == esesm.UNSEQUENCED and packet.payload[:1] == b"r":
            self._as_of = int.from_bytes(packet.payload[1:9], "little")
            self._refresh.append(packet.payload[9:])
        elif packet.kind == esesm.UNSEQUENCED and packet.payload[:1] == b"E":
            self._whole = True
        elif packet.kind == esesm.GOODBYE:
            # A refresh counts when all of it is here: half a snapshot is none.
            if self._whole:
                self._market.refreshed(self._as_of, self._refresh)
            reason, _ = esesm.read_goodbye(packet.payload)
            self._finish(reason == "A", now)

    def _finish(self, served: bool, now: float) -> None:
        if not self.finished:
            self.finished = True
            self.socket.close()
            self._market.ended(served, now)
