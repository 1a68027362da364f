"""The program file itself, and the layers that it is built from."""

import json
import pathlib
import re
import shlex
import subprocess

import pytest

from harness.constants import OWN_VERSION, PROJECT
from harness.driver import Build

OBJDUMP = "x86_64-w64-mingw32-objdump"

# Part of every Windows; the C runtime named here is the system's own.
WINDOWS_DLLS = {
    "advapi32.dll",
    "kernel32.dll",
    "msvcrt.dll",
    "ole32.dll",
    "shell32.dll",
    "user32.dll",
    "wininet.dll",
}


def headers(program: pathlib.Path) -> str:
    return subprocess.run([OBJDUMP, "-p", str(program)], check=True, capture_output=True, text=True).stdout


def resources(program: pathlib.Path) -> bytes:
    dump = subprocess.run(
        [OBJDUMP, "-s", "-j", ".rsrc", str(program)], check=True, capture_output=True, text=True
    ).stdout
    return bytes.fromhex("".join(re.findall(r"^ [0-9a-f]+ ((?:[0-9a-f]+ ){1,4})", dump, re.M)).replace(" ", ""))


def fixed_file_version(program: pathlib.Path) -> tuple[int, ...]:
    """The version's four numbers, as VS_FIXEDFILEINFO holds them."""
    content = resources(program)
    at = content.index(bytes.fromhex("bd04effe")) + 8
    words = [int.from_bytes(content[at + 2 * i : at + 2 * i + 2], "little") for i in range(4)]
    return (words[1], words[0], words[3], words[2])


def test_it_needs_no_dll_but_those_of_windows(build: Build):
    needed = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers(build.launcher))}
    assert needed
    assert needed <= WINDOWS_DLLS


def test_it_is_a_graphical_program_for_subsystem_version_6(build: Build):
    facts = headers(build.launcher)
    assert re.search(r"^Subsystem\s+00000002", facts, re.M)
    assert re.search(r"^MajorSubsystemVersion\s+6$", facts, re.M)
    assert re.search(r"^MinorSubsystemVersion\s+0$", facts, re.M)


def test_it_keeps_the_runtime_from_showing_a_box(build: Build):
    assert re.search(r"\b_set_error_mode\b", headers(build.launcher))


@pytest.mark.parametrize(
    "text",
    [
        "Update failed.",
        "Critical error while applying games update. Game might be corrupted. Try to update again; "
        "or start game directly inside 'bin/' folder. If problems persist, try to download the whole "
        "game again or contact the dev.",
    ],
)
def test_it_contains_the_texts_of_the_box_for_a_failure_while_applying(build: Build, text):
    """A failure while applying ends the process before anything is shown."""
    assert text.encode("utf-16-le") + b"\0\0" in build.launcher.read_bytes()


def test_its_version_resource_is_its_version(build: Build):
    assert fixed_file_version(build.launcher) == (OWN_VERSION, 0, 0, 0)


def test_its_manifest_asks_for_nothing_that_changes_its_behaviour(build: Build):
    content = resources(build.launcher)
    assert b'level="asInvoker"' in content
    assert b"Microsoft.Windows.Common-Controls" in content
    assert b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}" in content
    assert b"dpiAware" not in content
    assert b"activeCodePage" not in content


@pytest.mark.parametrize(
    ("source", "header", "compiles"),
    [
        ("core/format.cpp", "core/files.h", True),
        ("core/format.cpp", "net/download.h", False),
        ("core/format.cpp", "archive/archive_reader.h", False),
        ("net/download.cpp", "ui/progress_window.h", False),
        ("archive/archive_reader.cpp", "updater/manifest_text.h", False),
        ("updater/self_update.cpp", "net/download.h", True),
        ("updater/self_update.cpp", "launcher/game_root.h", False),
    ],
)
def test_a_source_sees_only_its_own_layer_and_those_below(build: Build, source, header, compiles):
    commands = json.loads((build.path / "compile_commands.json").read_text())
    command = next(c for c in commands if c["file"] == str(PROJECT / source))
    words = shlex.split(command["command"])
    words = words[: words.index("-o")]
    result = subprocess.run(
        [*words, "-fsyntax-only", "-x", "c++", "-"],
        input=f'#include "{header}"\n',
        cwd=command["directory"],
        capture_output=True,
        text=True,
        check=False,
    )
    assert (result.returncode == 0) == compiles, result.stderr
    if not compiles:
        assert f"{header}: No such file or directory" in result.stderr
