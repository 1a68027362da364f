"""Runs the publishing tool as a studio does."""

import dataclasses
import json
import os
import pathlib
import subprocess
import warnings

from harness.driver import WINE, Build
from harness.game_folder import windows_path


@dataclasses.dataclass
class Published:
    """How one run of the tool ended."""

    code: int
    report: dict
    stderr: str

    @property
    def errors(self) -> list[str]:
        return [f"{error['subject']}: {error['message']}" for error in self.report["errors"]]

    @property
    def warnings(self) -> list[str]:
        return [f"{warning['subject']}: {warning['message']}" for warning in self.report["warnings"]]


def command_line(program: pathlib.Path, *arguments: str | pathlib.Path) -> list[str]:
    """A call of the tool; paths become Windows paths."""
    texts = [windows_path(a) if isinstance(a, pathlib.Path) else a for a in arguments]
    return [str(WINE), str(program), *texts]


def publish(build: Build, *arguments: str | pathlib.Path, program: pathlib.Path | None = None) -> Published:
    """A run with --json. Checks what all reports have, and returns the rest."""
    for _ in range(2):
        done = subprocess.run(
            [*command_line(program or build.publish, *arguments), "--json"],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=os.environ,
            timeout=600,
            check=False,
        )
        if (done.returncode, done.stdout, done.stderr) != (1, b"", b""):
            break
        # With code 1 the tool always has a report: Wine has failed to start it, which happens where
        # addresses are randomised (see scripts/lib/common.sh).
        warnings.warn("Wine did not start the publishing tool; started again.")
    report = json.loads(done.stdout) if done.stdout else {}
    if report:
        envelope = (report.pop("schema"), report.pop("command"), report.pop("exitCode"))
        assert envelope == (1, str(arguments[0]), done.returncode)
    return Published(done.returncode, report, done.stderr.decode())
