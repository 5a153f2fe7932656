"""The control port: one datagram is one command, and gets one in reply."""

from __future__ import annotations

import re
import socket

from kavo_bench.program import BenchError

REPLY_S = 2.0
MOST_BYTES = 65536


class Control:
    def __init__(self, port: int) -> None:
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.settimeout(REPLY_S)
        self._socket.connect(("127.0.0.1", port))

    def send(self, words: str) -> str:
        """The reply, without "ok". Raises ValueError for a word that the venue does not know."""
        try:
            self._socket.send(words.encode())
            reply = self._socket.recv(MOST_BYTES).decode(errors="replace").strip()
        except OSError as error:
            raise BenchError(f"the control port does not answer '{words}': {error}") from error
        if not reply.startswith("ok"):
            raise ValueError(reply)
        return reply.removeprefix("ok").strip()

    def stats(self) -> dict[str, int]:
        """The counters of the venue, next_seq among them."""
        return {name: int(value) for name, value in re.findall(r"(\w+)=(\d+)", self.send("stats"))}

    def close(self) -> None:
        self._socket.close()
