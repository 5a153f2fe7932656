"""The pytest plugin: fixtures, and the verdict at the end of each test that has a bench.

A client that is wrong fails its test. A bench that contradicts itself, or a machine that was too slow to tell, is an
error of the test and no failure, since it says nothing about the client.
"""

from __future__ import annotations

from collections.abc import Generator, Iterator
from pathlib import Path

import pytest

from kavo_bench.bench import Bench, BenchError
from kavo_bench.control import Control
from kavo_bench.feed import Feed
from kavo_bench.orders import Orders
from kavo_bench.verdict import BENCH, INCONCLUSIVE, Verdict

_BENCH = pytest.StashKey[Bench]()
_DOUBT = pytest.StashKey[str]()
_AUDITED = pytest.StashKey[bool]()


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line(
        "markers",
        "kavo(scenario='', flags=[], expect=[]): the bench of a test, and the rules that convict its client",
    )


@pytest.fixture
def bench(request: pytest.FixtureRequest, tmp_path: Path) -> Iterator[Bench]:
    """A bench of this test's own."""
    marker = request.node.get_closest_marker("kavo")
    options = dict(marker.kwargs) if marker else {}
    options.pop("expect", None)
    started = Bench(tmp_path / "run", **options)
    request.node.stash[_BENCH] = started
    try:
        yield started
    finally:
        started.stop()
    if doubt := request.node.stash.get(_DOUBT, ""):
        raise BenchError(doubt)


@pytest.fixture
def control(bench: Bench) -> Control:
    """The bench's control port."""
    return bench.control()


@pytest.fixture
def orders(bench: Bench) -> Orders:
    """Somebody to trade with, whom nobody judges."""
    return bench.orders()


@pytest.fixture
def feed(bench: Bench) -> Feed:
    """The feed, decoded and in order."""
    return bench.feed()


@pytest.hookimpl(trylast=True)
def pytest_runtest_call(item: pytest.Item) -> None:
    """Audits behind a test that has gone well, and as a part of it, so that findings are its failure."""
    bench = item.stash.get(_BENCH, None)
    if bench is None:
        return
    verdict = _audit(item, bench)
    if verdict is None:
        return
    if verdict.status in (BENCH, INCONCLUSIVE):
        item.stash[_DOUBT] = f"{_told(verdict, verdict.status)}\n\n{bench.story()}"
    elif wrong := _complaint(verdict, _expected(item)):
        pytest.fail(f"{wrong}\n\n{bench.story()}", pytrace=False)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[None]) -> Generator[None, None, None]:
    """Tells what an audit finds behind a test that has failed by itself: perhaps that is why."""
    bench = item.stash.get(_BENCH, None)
    if bench is not None and call.when == "call" and call.excinfo is not None and _AUDITED not in item.stash:
        verdict = _audit(item, bench)
        if verdict is not None:
            wrong = _complaint(verdict, _expected(item)) or _told(verdict, verdict.status)
            item.add_report_section("call", "kavo", f"{wrong}\n\n{bench.story()}")
    yield


def _audit(item: pytest.Item, bench: Bench) -> Verdict | None:
    item.stash[_AUDITED] = True
    try:
        return bench.audit()
    except BenchError as problem:
        item.stash[_DOUBT] = f"{problem}\n\n{bench.story()}"
        return None


def _expected(item: pytest.Item) -> set[str]:
    marker = item.get_closest_marker("kavo")
    return set(marker.kwargs.get("expect", ())) if marker else set()


def _complaint(verdict: Verdict, expected: set[str]) -> str:
    convictions = verdict.convictions()
    parts = [str(finding) for finding in verdict.of_grade("finding") if finding.rule not in expected]
    parts += [f"not convicted of {rule}, as it should be" for rule in sorted(expected - convictions)]
    return "\n\n".join(parts)


def _told(verdict: Verdict, status: str) -> str:
    return "\n\n".join([f"the run is judged '{status}'", *map(str, verdict.of_grade(status))])
