"""What an audit has found, read from `kavo audit --json`."""

from __future__ import annotations

import json
from dataclasses import dataclass, field
from typing import Any

RIGHT, FINDINGS, BENCH, INCONCLUSIVE = "right", "findings", "bench", "inconclusive"


@dataclass(frozen=True)
class Finding:
    rule: str
    grade: str  # remark, finding, inconclusive, bench
    sentence: str
    page: str
    expected: str
    got: str
    truth: str
    belief: str
    because: str
    where: dict[str, Any] = field(default_factory=dict)

    def __str__(self) -> str:
        lines = [f"{self.grade}: {self.rule}", f"  rule      {self.sentence}  {self.page}"]
        for name in ("expected", "got", "truth", "belief", "because"):
            if value := getattr(self, name):
                lines.append(f"  {name:9} {value}")
        if self.where:
            lines.append("  where     " + ", ".join(f"{key} {value}" for key, value in self.where.items()))
        return "\n".join(lines)


@dataclass(frozen=True)
class Verdict:
    status: str
    findings: list[Finding]
    counts: dict[str, int]

    def of_grade(self, grade: str) -> list[Finding]:
        return [finding for finding in self.findings if finding.grade == grade]

    def convictions(self) -> set[str]:
        """Names of the rules that the client has broken."""
        return {finding.rule for finding in self.of_grade("finding")}


def read_verdict(text: str) -> Verdict:
    """Raises ValueError for what is no verdict."""
    report = json.loads(text)
    names = Finding.__dataclass_fields__
    try:
        findings = [Finding(**{name: found[name] for name in names}) for found in report["findings"]]
        return Verdict(report["status"], findings, dict(report.get("counts", {})))
    except (KeyError, TypeError) as error:
        raise ValueError(f"no verdict: {error}") from error
