"""What the plugin makes of a verdict: who is told to be wrong, and what whoever reads it is told.

A stand-in for the program says what each test needs it to say, so no bench is started.
"""

from __future__ import annotations

import json
from pathlib import Path

import pytest

pytest_plugins = ["pytester"]

STAND_IN = '''#!/usr/bin/env python3
import json, os, sys
here = os.path.dirname(os.path.abspath(__file__))
if sys.argv[1] == "run":
    folder = sys.argv[sys.argv.index("--dir") + 1]
    os.makedirs(folder)
    open(folder + "/venue.log", "w").write("[kavo_me] stopped\\n")
    print(json.dumps({"pid": 1, "group": "239.0.0.1", "interface": "127.0.0.1", "feed_port": 4, "orders_port": 1,
                      "recovery_port": 2, "control_port": 3, "seed": 7, "scenario": "rough", "symbols": ["AAPL"],
                      "session": 1, "house": "HOUSE", "venue_log": folder + "/venue.log",
                      "client": folder + "/client.jsonl", "words": sys.argv}), flush=True)
    sys.stdin.read()
else:
    report = json.load(open(here + "/report.json"))
    print(json.dumps(report))
    sys.exit({"right": 0, "findings": 1, "bench": 3, "inconclusive": 4}[report["status"]])
'''

A_TEST = "def test_it(bench): pass\n"


def finding(rule: str, grade: str = "finding") -> dict[str, object]:
    texts = {"sentence": "says what is right", "page": "docs/page.md", "expected": "a login", "got": "nothing"}
    return {"rule": rule, "grade": grade, **texts, "truth": "", "belief": "", "because": "", "where": {"user": "c01"}}


@pytest.fixture
def judged(pytester: pytest.Pytester, monkeypatch: pytest.MonkeyPatch):
    """Runs a test whose run is judged so."""
    program = Path(pytester.path, "kavo")
    program.write_text(STAND_IN)
    program.chmod(0o755)
    monkeypatch.setenv("KAVO", str(program))

    def run(status: str, *findings: dict[str, object], test: str = A_TEST, more: tuple[str, ...] = ()):
        Path(pytester.path, "report.json").write_text(json.dumps({"status": status, "findings": findings}))
        pytester.makepyfile(test)
        return pytester.runpytest_inprocess("-p", "kavo_bench.plugin", "-p", "no:cacheprovider", *more)

    return run


def test_right_client_passes(judged) -> None:
    judged("right").assert_outcomes(passed=1)


def test_wrong_client_fails_its_test_and_is_told_why(judged) -> None:
    result = judged("findings", finding("session.hole"))
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(
        ["*finding: session.hole", "*says what is right*", "*got*nothing", "*seed 7, scenario 'rough'*", "*stopped"]
    )


def test_remark_fails_nothing(judged) -> None:
    judged("right", finding("session.next-number", "remark")).assert_outcomes(passed=1)


def test_bench_that_contradicts_itself_is_an_error_and_no_failure(judged) -> None:
    result = judged("bench", finding("bench.book-line", "bench"))
    result.assert_outcomes(passed=1, errors=1)
    result.stdout.fnmatch_lines(["*bench: bench.book-line"])


def test_doubt_is_an_error_and_no_failure(judged) -> None:
    judged("inconclusive", finding("session.heartbeats", "inconclusive")).assert_outcomes(passed=1, errors=1)


def test_expected_conviction_passes(judged) -> None:
    test = f"import pytest\n@pytest.mark.kavo(expect=['session.hole'])\n{A_TEST}"
    judged("findings", finding("session.hole"), test=test).assert_outcomes(passed=1)


def test_expected_conviction_that_does_not_come_fails(judged) -> None:
    test = f"import pytest\n@pytest.mark.kavo(expect=['session.hole'])\n{A_TEST}"
    judged("right", test=test).assert_outcomes(failed=1)


def test_test_that_fails_by_itself_tells_the_findings_as_well(judged) -> None:
    result = judged("findings", finding("session.hole"), test="def test_it(bench): assert False\n")
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines(["*finding: session.hole"])


def test_marker_reaches_the_bench(judged) -> None:
    words = "['--scenario', 'lapse_ms=1', '--', '--seed', '9']"
    test = (
        "import pytest\n@pytest.mark.kavo(scenario='lapse_ms=1', flags=['--seed', '9'])\n"
        f"def test_it(bench): assert bench.facts['words'][-5:] == {words}\n"
    )
    judged("right", test=test).assert_outcomes(passed=1)


def test_environment_tells_where_everything_is(judged) -> None:
    test = (
        "def test_it(bench):\n"
        "    assert (bench.env['KAVO_ORDERS'], bench.env['KAVO_FEED']) == ('127.0.0.1:1', '239.0.0.1:4')\n"
    )
    judged("right", test=test).assert_outcomes(passed=1)
