"""Finds the planecheck command and runs it with its event stream on."""
from __future__ import annotations

import os
import shutil
import signal
import subprocess
import tempfile
from pathlib import Path
from typing import Iterable, Optional, Sequence, Union

from .events import EventError, read_events
from .model import Ended, Run

COMMAND_VARIABLE = "PLANECHECK_COMMAND"
PathLike = Union[str, os.PathLike]


class PlanecheckError(Exception):
    """planecheck could not give a result; the message is the command's own where it had one."""


class CommandNotFound(PlanecheckError, FileNotFoundError):
    pass


class UsageError(PlanecheckError):
    """The command refused its arguments before running any file (exit status 2)."""


def command_beside_package() -> Optional[Path]:
    """The command installed with this package: PREFIX/bin beside PREFIX/lib/python3*/*-packages."""
    packages = Path(__file__).resolve().parent.parent
    if packages.name not in ("dist-packages", "site-packages"):
        return None
    candidate = packages.parent.parent.parent / "bin" / "planecheck"
    return candidate if os.access(candidate, os.X_OK) else None


def find_command(explicit: Optional[PathLike] = None) -> str:
    """The command to run: the one named, then $PLANECHECK_COMMAND, then the one installed with
    this package, then `planecheck` on PATH."""
    named = explicit or os.environ.get(COMMAND_VARIABLE)
    if named:
        found = shutil.which(str(named))
        if not found:
            source = "given" if explicit else f"named by {COMMAND_VARIABLE}"
            raise CommandNotFound(f"planecheck: the command {source} is not an executable: {named}")
        return found
    beside = command_beside_package()
    if beside:
        return str(beside)
    found = shutil.which("planecheck")
    if not found:
        raise CommandNotFound("planecheck: no planecheck command on PATH; install it, or name it with "
                              f"{COMMAND_VARIABLE} or --planecheck-command")
    return found


def status_text(returncode: int) -> str:
    if returncode >= 0:
        return f"exit status {returncode}"
    number = -returncode
    try:
        return f"signal {number} ({signal.Signals(number).name})"
    except ValueError:
        return f"signal {number}"


def close_unfinished(run: Run) -> None:
    """Without -j the library's end is the command's end: the file that was running has no
    file_end, so it is marked ended here with the command's status and last error line."""
    if run.verdict is not None:
        return
    errors = [line for line in run.stderr.splitlines() if line.strip()]
    for result in run.files:
        if result.status is None:
            last = result.steps[-1] if result.steps else None
            result.status = "ended"
            result.ended = Ended(how=status_text(run.exit_status),
                                 at=last.location if last else result.path,
                                 step=last.number if last else None,
                                 last_error=errors[-1] if errors else None)


def limit_options(timeout: Optional[float] = None, retries: Optional[int] = None) -> list[str]:
    """--timeout and --retries as the command takes them: a file that runs longer than `timeout`
    seconds is timed out, a failed file runs again up to `retries` times (passing then, it is flaky)."""
    options = []
    if timeout is not None:
        options += ["--timeout", repr(float(timeout))]
    if retries is not None:
        options += ["--retries", str(int(retries))]
    return options


def invoke(subcommand: str, paths: Iterable[PathLike], options: Sequence[str],
           command: Optional[PathLike] = None) -> Run:
    argv = [find_command(command), subcommand]
    with tempfile.TemporaryDirectory(prefix="planecheck-events-") as scratch:
        events_path = os.path.join(scratch, "events.jsonl")
        argv += ["--events", events_path, *options, "--", *map(os.fspath, paths)]
        done = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              errors="replace")
        run = Run(command=argv, exit_status=done.returncode, stdout=done.stdout, stderr=done.stderr)
        try:
            with open(events_path, encoding="utf-8") as events:
                read_events(events, run)
        except FileNotFoundError:
            pass
        except EventError as error:
            raise PlanecheckError(f"planecheck: {error}") from None
    if run.version is None:
        message = done.stderr.strip() or f"planecheck {subcommand} ended with {status_text(done.returncode)}"
        raise UsageError(message)
    close_unfinished(run)
    return run
