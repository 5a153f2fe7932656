"""A private bench for each test of a trading client, and the verdict at its end."""

from kavo_bench.bench import Bench, BenchError, Client
from kavo_bench.control import Control
from kavo_bench.feed import Feed
from kavo_bench.orders import Orders
from kavo_bench.program import find_kavo
from kavo_bench.verdict import Finding, Verdict

__all__ = ["Bench", "BenchError", "Client", "Control", "Feed", "Finding", "Orders", "Verdict", "find_kavo"]
