#!/usr/bin/env python3
"""Every mistake of the trading client in a scene that brings it out, and the rule that convicts it of that.

    wrong_clients.py --client build/examples/trading_client/trading_client             all of them, two at a time
    wrong_clients.py --client ... skips-gaps waits-for-ever                            these
    wrong_clients.py --client ... --quick --jobs 8                                     those that show within seconds
    wrong_clients.py --client ... --right 200 --jobs 8                                 the right client, so many times

A mistake counts as found when its rule convicts, and no other does but those that follow from it. The right client
plays the same scenes in turn, and is to be acquitted. The program kavo is taken from $KAVO or from the PATH. Exit
status 0 when all is as it should be.
"""

from __future__ import annotations

import argparse
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Scene:
    rule: str  # that convicts
    client: str = "--seconds 2"
    bench: str = ""  # options of kavo test
    script: str = ""
    besides: frozenset[str] = frozenset()  # what cannot but follow from the mistake

    def is_quick(self) -> bool:
        """It needs no seconds of silence, nor a client that waits for something in vain."""
        return self.client == Scene.client and "command.succeeds" not in self.besides


ATTEMPTS = 3  # a run of which something could not be said has no result, and is played again

DROPPED_TWICE = "at 600ms: control disconnect\nat 1100ms: control disconnect"
QUIET = "--with '--interval-ms -1'"
LOSSES = "--with '--drop-every 5'"

# Judges allow a client its time to read, so much for each message: where seconds count, it is told little.
FEW = "--seconds 9 --orders 7"

SCENES = {
    "applies-duplicates": Scene("belief.book", bench="--with '--dup-every 3'"),
    "applies-late-datagrams": Scene("belief.book", bench="--with '--reorder-every 3'"),
    "asks-for-everything-again": Scene("recovery.exact", bench=LOSSES),
    "asks-for-what-was-only-late": Scene("recovery.not-for-late", bench="--with '--reorder-every 3'"),
    "asks-from-the-wrong-number": Scene(
        "session.next-number", client=FEW, bench=QUIET, script="at 2s: control lapse 4000"
    ),
    "believes-a-cancel-that-lost-its-race": Scene("belief.order", bench="--scenario fill_on_cancel_every=2"),
    "cancels-what-has-ended": Scene("order.cancel-of-ended"),
    "counts-a-fill-twice": Scene("belief.fill", script=DROPPED_TWICE),
    "down-means-cancelled": Scene("belief.order", script=DROPPED_TWICE),
    "forgets-fills-on-replay": Scene("belief.fill", script=DROPPED_TWICE),
    "gives-up-when-recovery-is-cut": Scene(
        "recovery.again-when-cut",
        client="--seconds 4",
        bench="--with '--interval-ms 20'",
        script="at 500ms: relay c01 recovery down half\nat 520ms: control drop 2",
        besides=frozenset({"command.succeeds"}),  # it waits for the books in vain
    ),
    "hammers-the-login": Scene(
        "session.not-too-often", client="--seconds 5", script="at 600ms: relay c01 orders abandon"
    ),
    "hit-is-filled": Scene("belief.order", bench="--scenario partial_fill_every=1"),
    "ignores-unsolicited-cancel": Scene("belief.order", bench="--scenario unsolicited_cancel_every=2"),
    "logs-in-from-zero": Scene(
        "session.next-number",
        script=DROPPED_TWICE,
        besides=frozenset({"belief.order", "belief.fill", "command.succeeds"}),  # what it missed, and waits for
    ),
    "merges-the-snapshot": Scene("belief.book", bench=LOSSES),
    "never-heartbeats": Scene("session.heartbeats", client="--seconds 5 --orders 12", bench=QUIET),
    "never-recovers-the-tail": Scene(
        "recovery.in-time",
        client="--seconds 8 --orders 20",
        bench=QUIET,
        script="at 1500ms: control drop 1\nafter 10ms: house buy h1 100 150.00 AAPL",
    ),
    "orders-survive-disconnect": Scene("belief.order", bench="--with --acod", script=DROPPED_TWICE),
    "rejected-is-working": Scene("belief.order", bench="--scenario reject_every=4"),
    "replace-size-is-leaves": Scene(
        "belief.order", bench="--scenario partial_fill_every=1 --with '--touch-hit 0.9'"
    ),
    "reuses-an-id": Scene("order.id-unique"),
    "sends-after-goodbye": Scene(
        "session.nothing-after-goodbye", client="--seconds 5", script="at 600ms: relay c01 orders abandon"
    ),
    "sends-before-login": Scene("session.nothing-before-login"),
    "skips-gaps": Scene("recovery.asks-for-what-was-lost", bench=LOSSES, besides=frozenset({"belief.book"})),
    "trusts-tcp-to-be-whole": Scene(
        "session.hole",
        client=FEW,
        bench=QUIET,
        script="when c01 rests any: relay c01 orders down swallow 1",
    ),
    "waits-for-ever": Scene(
        "session.leaves-silence", client=FEW, bench=QUIET, script="at 2s: control lapse 6500"
    ),
}


@dataclass(frozen=True)
class Outcome:
    status: str
    convictions: list[str]
    folder: Path
    first: str = ""
    doubtful: bool = False  # something could not be said: the machine was late, for example


def play(kavo: str, client: list[str], scene: Scene, fault: str, folder: Path) -> Outcome:
    """One run of `kavo test` in a folder of its own."""
    folder.mkdir(parents=True)
    command = [kavo, "test", "--quiet", "--dir", str(folder / "run"), *shlex.split(scene.bench)]
    if scene.script:
        (folder / "scene").write_text(scene.script + "\n")
        command += ["--script", str(folder / "scene")]
    command += ["--", *client, *shlex.split(scene.client), *(["--fault", fault] if fault else [])]
    ended = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
    (folder / "said").write_text(ended.stdout + ended.stderr)
    try:
        report = json.loads((folder / "run" / "verdict.json").read_text())
    except (OSError, ValueError):
        return Outcome(f"no verdict, status {ended.returncode}", [], folder, ended.stderr.strip())
    wrong = [found for found in report["findings"] if found["grade"] not in ("remark",)]
    convictions = sorted({found["rule"] for found in wrong if found["grade"] == "finding"})
    told = [f"{f['rule']}: expected {f['expected']}, got {f['got']} {f['belief']} {f['because']}" for f in wrong]
    doubtful = any(found["grade"] == "inconclusive" for found in wrong)
    return Outcome(report["status"], convictions, folder, told[0] if told else "", doubtful)


def is_convicted(scene: Scene, outcome: Outcome) -> bool:
    return outcome.status == "findings" and scene.rule in outcome.convictions and not (
        set(outcome.convictions) - scene.besides - {scene.rule}
    )


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("names", nargs="*", metavar="FAULT")
    parser.add_argument("--client", default="trading_client", help="the command of the client")
    parser.add_argument("--quick", action="store_true", help="only the mistakes that show within seconds")
    parser.add_argument("--right", type=int, default=0, metavar="N", help="play the right client so often instead")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--dir", type=Path, help="where the runs are kept; else in a temporary folder")
    given = parser.parse_args()
    if unknown := [name for name in given.names if name not in SCENES]:
        parser.error(f"no scene for {', '.join(unknown)}")
    return given


def main() -> int:
    given = arguments()
    kavo = os.environ.get("KAVO") or shutil.which("kavo") or "kavo"
    client = shlex.split(given.client)
    names = given.names or [name for name, scene in SCENES.items() if scene.is_quick() or not given.quick]
    begun = time.monotonic()
    folder = given.dir or Path(tempfile.mkdtemp(prefix="wrong-clients-"))
    runs = [(f"{i}-{names[i % len(names)]}", names[i % len(names)]) for i in range(given.right or len(names))]

    def one(run: tuple[str, str]) -> bool:
        label, name = run
        scene = SCENES[name]
        for attempt in range(ATTEMPTS):
            outcome = play(kavo, client, scene, "" if given.right else name, folder / f"{label}-{attempt}")
            well = outcome.status == "right" if given.right else is_convicted(scene, outcome)
            if well or not outcome.doubtful:
                break
        expected = "right" if given.right else scene.rule
        again = f" at attempt {attempt + 1}" if attempt else ""
        said = f"{outcome.status} {' '.join(outcome.convictions)}{again}"
        print(f"{'ok  ' if well else 'NOT '} {label:42} {expected:32} {said}", flush=True)
        if not well:
            print(f"       {outcome.first[:300]}\n       kept in {outcome.folder}", flush=True)
        else:
            for kept in folder.glob(f"{label}-*"):
                shutil.rmtree(kept)
        return well

    with ThreadPoolExecutor(given.jobs) as pool:
        well = list(pool.map(one, runs))
    print(f"{sum(well)} of {len(well)} as they should be, in {time.monotonic() - begun:.0f} s")
    return 0 if all(well) else 1


if __name__ == "__main__":
    sys.exit(main())
