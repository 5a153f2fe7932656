"""A bench of one's own: `kavo run` as a child, what it says about itself, and the audit when it has ended."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
from collections.abc import Sequence
from pathlib import Path
from types import TracebackType
from typing import Any

from kavo_bench.control import Control
from kavo_bench.feed import Feed
from kavo_bench.orders import Orders
from kavo_bench.program import PATIENCE_S, BenchError, LineProcess, find_kavo
from kavo_bench.verdict import Verdict, read_verdict

AUDIT_S = 120.0
AUDIT_STATUS = (0, 1, 3, 4)  # right, findings, bench, inconclusive


class Client:
    """The client under test, in a process group of its own. It does not outlive the bench."""

    def __init__(self, command: Sequence[str], env: dict[str, str]) -> None:
        self._process = subprocess.Popen(command, env=env, start_new_session=True)
        self.pid = self._process.pid

    def wait(self, timeout: float) -> int:
        """Its exit status. Fails when it is still running by then."""
        try:
            return self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"the client is still running after {timeout:g} s") from None

    def running(self) -> bool:
        return self._process.poll() is None

    def stop(self) -> int:
        """Ends it as a user would, and by force when that does not help."""
        for number in (signal.SIGTERM, signal.SIGKILL):
            with contextlib.suppress(ProcessLookupError):
                os.killpg(self.pid, number)
            with contextlib.suppress(subprocess.TimeoutExpired):
                return self._process.wait(5)
        return self._process.wait()


class Bench:
    """Ready when it is made, and recorded from its first moment. Everything that it starts ends before it does.

    with Bench("runs/1", scenario="reject_every=7", flags=["--seed", "7"]) as bench:
        bench.start(["./my_client"]).wait(30)
    print(bench.audit().status)
    """

    def __init__(self, folder: str | os.PathLike[str], scenario: str = "", flags: Sequence[str] = ()) -> None:
        self._kavo = find_kavo()
        self.dir = Path(folder)
        command = [self._kavo, "run", "--dir", str(self.dir), "--while-stdin"]
        command += ["--scenario", scenario] if scenario else []
        command += ["--", *flags] if flags else []
        # It ends with its standard input, so it does not outlive a test that is killed.
        self._run = LineProcess(command, dict(os.environ))
        self._started: list[Client] = []
        self._closing = contextlib.ExitStack()
        self._stopped = False
        try:
            self.facts: dict[str, Any] = self._run.wait_for(lambda line: "orders_port" in line, "a bench to be ready")
        except AssertionError as problem:
            self._run.end()
            raise BenchError(str(problem)) from None
        self.pid: int = self.facts["pid"]
        self.group: str = self.facts["group"]
        self.interface: str = self.facts["interface"]
        self.feed_port: int = self.facts["feed_port"]
        self.orders_port: int = self.facts["orders_port"]
        self.recovery_port: int = self.facts["recovery_port"]
        self.control_port: int = self.facts["control_port"]
        self.seed: int = self.facts["seed"]
        self.scenario: str = self.facts["scenario"]
        self.symbols: list[str] = self.facts["symbols"]

    @property
    def addresses(self) -> dict[str, str]:
        """Where everything is, by the names of the environment's variables."""
        return {
            "KAVO_ORDERS": f"127.0.0.1:{self.orders_port}",
            "KAVO_FEED": f"{self.group}:{self.feed_port}",
            "KAVO_IFACE": self.interface,
            "KAVO_RECOVERY": f"127.0.0.1:{self.recovery_port}",
            "KAVO_CONTROL": f"127.0.0.1:{self.control_port}",
        }

    @property
    def env(self) -> dict[str, str]:
        """The environment of this process, and with it all that a client has to know."""
        return {
            **os.environ,
            **self.addresses,
            "KAVO_DIR": str(self.dir),
            "KAVO_CLIENT_LOG": str(self.facts["client"]),
            "KAVO_SYMBOLS": ",".join(self.symbols),
            "KAVO_SESSION": str(self.facts["session"]),
            "KAVO_SEED": str(self.seed),
            "KAVO_SCENARIO": self.scenario,
        }

    def start(self, command: Sequence[str]) -> Client:
        """Starts a client that is told where the bench is."""
        client = Client(command, self.env)
        self._started.append(client)
        return client

    def control(self) -> Control:
        control = Control(self.control_port)
        self._closing.callback(control.close)
        return control

    def orders(self, user: str | None = None) -> Orders:
        """Somebody to trade with. Without a name it is the house, whom nobody judges."""
        orders = Orders(self._kavo, self.orders_port, user or self.facts["house"], self.env)
        self._closing.callback(orders.close)
        return orders

    def feed(self) -> Feed:
        feed = Feed(self._kavo, self.env)
        self._closing.callback(feed.close)
        return feed

    def stop(self) -> None:
        """Ends what was started, then the bench in good order, so that everything is written. Once is enough."""
        if self._stopped:
            return
        self._stopped = True
        for client in self._started:
            if client.running():
                client.stop()
        self._closing.close()
        if self._run.end(2 * PATIENCE_S) != 0:
            raise BenchError("the bench did not end in good order:\n" + self.last_lines())

    def audit(self) -> Verdict:
        """Holds the run against the rules. The bench is stopped first."""
        self.stop()
        command = [self._kavo, "audit", str(self.dir), "--json"]
        ended = subprocess.run(command, capture_output=True, text=True, timeout=AUDIT_S, check=False)
        if ended.returncode not in AUDIT_STATUS:
            raise BenchError(f"kavo audit ended with {ended.returncode}: {ended.stderr.strip()}")
        try:
            return read_verdict(ended.stdout)
        except ValueError as problem:
            raise BenchError(f"kavo audit: {problem}: {ended.stderr.strip()}") from problem

    def last_lines(self, count: int = 15) -> str:
        """What the venue said last."""
        try:
            lines = Path(self.facts["venue_log"]).read_bytes().splitlines()
        except OSError as problem:
            return str(problem)
        return "\n".join(line.decode(errors="backslashreplace") for line in lines[-count:])

    def story(self) -> str:
        """All that somebody needs to look at the run again."""
        ports = ", ".join(f"{name.removeprefix('KAVO_').lower()} {where}" for name, where in self.addresses.items())
        return (
            f"seed {self.seed}, scenario '{self.scenario}', {ports}\n"
            f"kept in {self.dir}: kavo show {self.dir}; kavo audit {self.dir}\n"
            f"last lines of the venue:\n{self.last_lines()}"
        )

    def __enter__(self) -> Bench:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.stop()
