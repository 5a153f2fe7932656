"""Where the program is, and child processes whose lines can be waited for."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import threading
import time
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import Any

Line = dict[str, Any]

PATIENCE_S = 10.0  # for what should have come long before


class BenchError(RuntimeError):
    """The bench could not do its work: says nothing about the client."""


def find_kavo() -> str:
    """What $KAVO names, or is found on PATH, or was built last in the sources around this package."""
    if named := os.environ.get("KAVO"):
        return named
    if found := shutil.which("kavo"):
        return found
    sources = Path(__file__).resolve().parents[2]
    built = [path for path in sources.glob("build/*/kavo") if path.is_file() and os.access(path, os.X_OK)]
    if built:
        return str(max(built, key=lambda path: path.stat().st_mtime))
    raise BenchError("there is no kavo: build it, and name it in the variable KAVO or put it on PATH")


class LineProcess:
    """A child process that says JSON objects, a line each, and may be told lines.

    A thread reads them, so that the process never waits for whoever reads, and no wait here is longer than it must be.
    """

    def __init__(self, command: Sequence[str], env: Mapping[str, str]) -> None:
        self._process = subprocess.Popen(
            command, env=env, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
        )
        self._lines: list[Line] = []
        self._taken = 0  # lines that wait_for has passed
        self._complaints: list[str] = []
        self._ended = False
        self._news = threading.Condition()
        self._readers = [
            threading.Thread(target=self._read_lines, daemon=True),
            threading.Thread(target=self._read_complaints, daemon=True),
        ]
        for reader in self._readers:
            reader.start()

    @property
    def lines(self) -> list[Line]:
        """All that it has said so far."""
        with self._news:
            return list(self._lines)

    def tell(self, line: str) -> None:
        assert self._process.stdin is not None
        try:
            self._process.stdin.write(line + "\n")
            self._process.stdin.flush()
        except OSError as error:
            raise BenchError(f"{self._name()} has ended: {self._last_words()}") from error

    def wait_for(self, matches: Callable[[Line], bool], what: str, timeout: float = PATIENCE_S) -> Line:
        """The next line that matches, from the one behind the last one that was waited for."""
        deadline = time.monotonic() + timeout
        with self._news:
            at = self._taken
            while True:
                for at in range(at, len(self._lines)):
                    if matches(self._lines[at]):
                        self._taken = at + 1
                        return self._lines[at]
                at = len(self._lines)
                left = deadline - time.monotonic()
                if self._ended or left <= 0:
                    raise AssertionError(self._missing(what, timeout))
                self._news.wait(left)

    def _missing(self, what: str, timeout: float) -> str:
        why = f"has ended ({self._last_words()})" if self._ended else f"has not said it in {timeout:g} s"
        heard = "\n".join(json.dumps(line) for line in self._lines[-10:]) or "nothing"
        return f"waited for {what}, but {self._name()} {why}; its last lines:\n{heard}"

    def end(self, timeout: float = PATIENCE_S) -> int:
        """Closes its input, and waits until it has gone; ends it when it does not."""
        assert self._process.stdin is not None
        try:
            self._process.stdin.close()
        except OSError:
            pass
        try:
            self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        for reader in self._readers:
            reader.join(timeout)
        return self._process.returncode

    def terminate(self) -> int:
        self._process.terminate()
        return self.end()

    def _name(self) -> str:
        command = self._process.args
        return " ".join(map(str, command[:2])) if isinstance(command, list) else str(command)

    def _last_words(self) -> str:
        return "".join(self._complaints[-3:]).strip() or "without a word"

    def _read_lines(self) -> None:
        assert self._process.stdout is not None
        for text in self._process.stdout:
            try:
                line = json.loads(text)
            except ValueError:
                line = {"ev": "text", "text": text.rstrip("\n")}
            with self._news:
                self._lines.append(line)
                self._news.notify_all()
        with self._news:
            self._ended = True
            self._news.notify_all()

    def _read_complaints(self) -> None:
        assert self._process.stderr is not None
        for text in self._process.stderr:
            self._complaints.append(text)


def has(fields: Mapping[str, Any]) -> Callable[[Line], bool]:
    """True for a line that holds all of these, as they are."""
    return lambda line: all(line.get(key) == value for key, value in fields.items())
