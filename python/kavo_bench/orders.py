"""Somebody to trade with: a user of order entry that does what the test says, and tells what it hears."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

from kavo_bench.program import PATIENCE_S, Line, LineProcess, has


class Orders:
    """Commands return at once; what becomes of them is waited for.

    orders.sell("s1", 100, "189.95", symbol="AAPL")
    fill = orders.wait_for(type="E1", id="s1")
    """

    def __init__(self, kavo: str, port: int, user: str, env: Mapping[str, str]) -> None:
        command = [kavo, "trade", "--json", "--port", str(port), "--user", user]
        self._process = LineProcess(command, env)
        self.user = user
        self.wait_for(type="login_response", accepted=True)

    def buy(self, id: str, quantity: int, price: str, symbol: str | int = 1) -> None:
        """At a limit, or at "market"."""
        self._process.tell(f"buy {id} {quantity} {price} {symbol}")

    def sell(self, id: str, quantity: int, price: str, symbol: str | int = 1) -> None:
        self._process.tell(f"sell {id} {quantity} {price} {symbol}")

    def replace(self, id: str, new_id: str, total: int, price: str) -> None:
        self._process.tell(f"replace {id} {new_id} {total} {price}")

    def cancel(self, id: str, symbol: str | int = 1) -> None:
        self._process.tell(f"cancel {id} {symbol}")

    @property
    def heard(self) -> list[Line]:
        """All that the venue has said so far."""
        return [line for line in self._process.lines if line.get("ev") == "heard"]

    def wait_for(self, timeout: float = PATIENCE_S, **fields: Any) -> Line:
        """The next message from the venue with these fields, such as type="E1", id="s1". Fails when none comes."""
        return self._process.wait_for(has({"ev": "heard", **fields}), f"{self.user} to hear {fields}", timeout)

    def close(self) -> None:
        """Logs out."""
        self._process.end()
