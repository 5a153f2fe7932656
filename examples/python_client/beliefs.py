"""Tells what the client believes, one JSON object a line, so that it can be held against the truth."""

from __future__ import annotations

import json
import os
import time
from typing import Any

Level = tuple[int, int]  # price in millionths, shares


def decimal(price: int) -> str:
    """189950000 is "189.95"; never less than two decimals, never a trailing zero behind them."""
    whole, rest = divmod(price, 1_000_000)
    digits = f"{rest:06}"
    return f"{whole}.{digits[:2]}{digits[2:].rstrip('0')}"


class Beliefs:
    """Appends to a file, a whole line at a time, so that several clients can share it. Without a path says nothing."""

    def __init__(self, path: str | None, user: str) -> None:
        self._file = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644) if path else None
        self._user = user
        self._write(ev="start", user=user)

    def order(self, id: str, state: str, leaves: int, executed: int, number: int) -> None:
        self._write(
            ev="order", user=self._user, id=id, state=state, leaves=leaves, executed=executed, seq=number
        )

    def fill(self, id: str, quantity: int, price: int, execution: int) -> None:
        self._write(
            ev="fill", user=self._user, id=id, quantity=quantity, price=decimal(price), execution=execution
        )

    def book(self, symbol: str, number: int, bids: list[Level], asks: list[Level], stale: bool) -> None:
        self._write(
            ev="book",
            user=self._user,
            symbol=symbol,
            seq=number,
            bids=[[decimal(price), shares] for price, shares in bids],
            asks=[[decimal(price), shares] for price, shares in asks],
            stale=stale,
        )

    def _write(self, **line: Any) -> None:
        if self._file is None:
            return
        whole = json.dumps({"t": time.time_ns(), **line}, separators=(",", ":"))
        os.write(self._file, whole.encode() + b"\n")
