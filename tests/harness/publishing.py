"""Runs the publishing tool as a studio does."""

import dataclasses
import json
import os
import pathlib
import subprocess
import warnings

import jsonschema

from harness.driver import WINE, Build
from harness.game_folder import windows_path

SCHEMA = json.loads((pathlib.Path(__file__).resolve().parents[2] / "docs/publish.schema.json").read_text())
jsonschema.Draft202012Validator.check_schema(SCHEMA)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)

# The tests' own servers are asked over plain http.
OWN_URL = "http://127.0.0.1"


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


def take_plain_http_warnings(report: dict, arguments: tuple[str | pathlib.Path, ...]) -> None:
    """Removes the warnings of the tests' own servers; there is one where such a URL is an argument."""
    taken = [
        warning for warning in report["warnings"]
        if warning["message"].startswith(OWN_URL)
        and warning["message"].endswith(" is plain http: anyone between server and player can replace files")
    ]
    report["warnings"] = [warning for warning in report["warnings"] if warning not in taken]
    if any(str(argument).startswith(OWN_URL) for argument in arguments):
        assert [warning["subject"] for warning in taken].count("--url") == 1


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
        VALIDATOR.validate(report)
        if done.returncode != 2:
            take_plain_http_warnings(report, arguments)
        envelope = (report.pop("schema"), report.pop("command"), report.pop("exitCode"))
        assert envelope == (1, str(arguments[0]), done.returncode)
    return Published(done.returncode, report, done.stderr.decode())
