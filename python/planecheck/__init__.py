"""Runs planecheck scenario files from Python and reads their results from the event stream.

    import planecheck
    result = planecheck.run(["examples/hello.yaml"])
    assert result.passed, result.findings
"""
from __future__ import annotations

from typing import Iterable, Optional, Sequence, Union

from .command import (COMMAND_VARIABLE, CommandNotFound, PathLike, PlanecheckError, UsageError,
                      find_command, invoke, limit_options)
from .events import EventError, read_events
from .model import Ended, FileResult, Finding, Run, Step
from .session import Session

__all__ = ["run", "check", "Session", "find_command", "read_events", "Run", "FileResult", "Step", "Finding",
           "Ended", "PlanecheckError", "UsageError", "CommandNotFound", "EventError",
           "COMMAND_VARIABLE"]


def _paths(paths: Union[PathLike, Iterable[PathLike]]) -> list:
    if isinstance(paths, (str, bytes)) or hasattr(paths, "__fspath__"):
        return [paths]
    return list(paths)


def run(paths: Union[PathLike, Iterable[PathLike]], *, jobs: Optional[int] = None,
        recorder: Optional[PathLike] = None, strict: bool = False,
        coverage: Optional[PathLike] = None, timeout: Optional[float] = None,
        retries: Optional[int] = None, extra_args: Sequence[str] = (),
        command: Optional[PathLike] = None) -> Run:
    """Runs the scenario files (`planecheck run`) and returns what each file and step gave.
    `timeout` (seconds) and `retries` are --timeout and --retries."""
    options = limit_options(timeout, retries)
    if jobs is not None:
        options += ["--jobs", str(jobs)]
    if recorder is not None:
        options += ["--recorder", str(recorder)]
    if strict:
        options.append("--strict")
    if coverage is not None:
        options += ["--coverage", str(coverage)]
    return invoke("run", _paths(paths), [*options, *extra_args], command)


def check(paths: Union[PathLike, Iterable[PathLike]], *, extra_args: Sequence[str] = (),
          command: Optional[PathLike] = None) -> Run:
    """Checks the files without running them (`planecheck check`); `.findings` lists what it found."""
    return invoke("check", _paths(paths), list(extra_args), command)
