"""What a run of planecheck produced, read from its event stream."""
from __future__ import annotations

from dataclasses import dataclass, field
from typing import Optional


@dataclass
class Finding:
    """A line that fails a step (or a check finding about a file)."""
    file: str
    line: int
    step: int
    level: str
    kind: str
    text: str
    column: Optional[int] = None
    attribute: Optional[str] = None
    expected: Optional[str] = None
    received: Optional[str] = None
    # a status mismatch: each status as people read it, such as "EEXIST (17)"
    expected_status: Optional[str] = None
    received_status: Optional[str] = None

    @property
    def location(self) -> str:
        column = f":{self.column}" if self.column else ""
        return f"{self.file}:{self.line}{column}"


@dataclass
class Step:
    file: str
    number: int
    line: int
    kind: str
    label: str
    status: str
    mismatches: int
    value_errors: int
    duration: float
    table: Optional[str] = None
    records: Optional[tuple[int, int]] = None
    findings: list[Finding] = field(default_factory=list)

    @property
    def location(self) -> str:
        return f"{self.file}:{self.line}"


@dataclass
class Ended:
    """How the library ended a file's run."""
    how: str
    at: str
    step: Optional[int] = None
    last_error: Optional[str] = None


@dataclass
class FileResult:
    path: str
    index: int
    name: Optional[str] = None
    status: Optional[str] = None
    steps: list[Step] = field(default_factory=list)
    findings: list[Finding] = field(default_factory=list)
    counts: dict = field(default_factory=dict)
    duration: float = 0.0
    error: Optional[str] = None
    ended: Optional[Ended] = None
    reason: Optional[str] = None  # why it was skipped (nothing in it ran) or not run
    attempts: int = 1  # with retries: how often it ran
    failed_attempts: list[str] = field(default_factory=list)  # why each attempt before the last failed
    slow: bool = False

    @property
    def passed(self) -> bool:
        return self.status in ("passed", "flaky")  # flaky: it passed on a retry

    @property
    def flaky(self) -> bool:
        return self.status == "flaky"

    @property
    def skipped(self) -> bool:
        return self.status == "skipped"

    @property
    def failed_steps(self) -> list[Step]:
        return [step for step in self.steps if step.status not in ("passed", "not_run")]

    @property
    def all_findings(self) -> list[Finding]:
        return self.findings + [finding for step in self.steps for finding in step.findings]


@dataclass
class Run:
    """One `planecheck run` or `planecheck check`: its files in order and its totals."""
    command: list[str]
    exit_status: int
    files: list[FileResult] = field(default_factory=list)
    verdict: Optional[str] = None
    totals: dict = field(default_factory=dict)
    version: Optional[str] = None
    run_id: Optional[str] = None
    stdout: str = ""
    stderr: str = ""

    @property
    def passed(self) -> bool:
        return self.verdict == "passed"

    @property
    def findings(self) -> list[Finding]:
        return [finding for file in self.files for finding in file.all_findings]

    def file(self, path: str) -> FileResult:
        for result in self.files:
            if result.path == path:
                return result
        raise KeyError(path)
