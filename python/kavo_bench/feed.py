"""The feed as a right receiver has it: decoded, whole, in order, with the books that follow from it."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

from kavo_bench.program import PATIENCE_S, Line, LineProcess, has


class Feed:
    """feed.wait_for(ev="executed", quantity=100); the events and their fields are those of `kavo feed --json`."""

    def __init__(self, kavo: str, env: Mapping[str, str]) -> None:
        self._process = LineProcess([kavo, "feed", "--json", "--book"], env)
        # A receiver that comes late learns the books by a refresh: from then on nothing is missed.
        self.wait_for(ev="book")

    @property
    def events(self) -> list[Line]:
        """All that has been heard so far."""
        return self._process.lines

    def wait_for(self, timeout: float = PATIENCE_S, **fields: Any) -> Line:
        """The next event with these fields. Fails when none comes."""
        return self._process.wait_for(has(fields), f"the feed to tell {fields}", timeout)

    def wait_for_number(self, number: int, timeout: float = PATIENCE_S) -> Line:
        """The message with this number, or the first event behind it."""
        return self._process.wait_for(
            lambda line: line.get("seq", 0) >= number, f"message {number} of the feed", timeout
        )

    def book(self, symbol: str) -> Line:
        """The latest book: "seq", and up to ten [price, quantity] in "bids" and "asks", best first."""
        for line in reversed(self.events):
            if line.get("ev") == "book" and line.get("symbol") == symbol:
                return line
        raise KeyError(symbol)

    def close(self) -> None:
        self._process.terminate()
