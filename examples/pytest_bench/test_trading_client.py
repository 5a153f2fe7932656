"""A trading client beside a bench of its own, as a test: copy this folder, and name your client in CLIENT.

    PYTHONPATH=python pytest -p kavo_bench.plugin examples/pytest_bench
"""

from __future__ import annotations

import os
import shlex
import sys
from pathlib import Path

import pytest
from kavo_bench import Bench, Control, Feed, Orders

EXAMPLE = [sys.executable, "-B", str(Path(__file__).parents[1] / "python_client")]
CLIENT = shlex.split(os.environ.get("CLIENT", "")) or EXAMPLE


@pytest.mark.kavo(flags=["--seed", "7"])
def test_client_trades_and_is_right_about_it(bench: Bench) -> None:
    client = bench.start([*CLIENT, "--seconds", "1", "--orders", "12"])
    assert client.wait(30) == 0


@pytest.mark.kavo(scenario="reject_every=3,disconnect_after=5")
def test_client_comes_back_when_it_is_dropped(bench: Bench, control: Control) -> None:
    client = bench.start([*CLIENT, "--seconds", "1", "--orders", "12"])
    assert client.wait(30) == 0
    assert control.stats()["logins"] >= 2


@pytest.mark.kavo(flags=["--interval-ms", "-1"])
def test_trade_shows_on_the_feed(orders: Orders, feed: Feed) -> None:
    price = feed.book("AAPL")["asks"][0][0]
    orders.buy("b1", 100, f"{price:.2f}", symbol="AAPL")
    fill = orders.wait_for(type="E1", id="b1")
    assert fill["price"] == price
    assert feed.wait_for(ev="executed", match_number=fill["match_number"])["quantity"] == fill["quantity"]
