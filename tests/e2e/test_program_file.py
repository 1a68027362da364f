"""The program files themselves, and the layers that they are built from."""

import pathlib
import re
import subprocess
import sys

import pytest

from harness.constants import OWN_VERSION, PROJECT
from harness.driver import Build

OBJDUMP = "x86_64-w64-mingw32-objdump"

# Part of every Windows; the C runtime named here is the system's own.
WINDOWS_DLLS = {
    "advapi32.dll",
    "comctl32.dll",
    "kernel32.dll",
    "msvcrt.dll",
    "ole32.dll",
    "shell32.dll",
    "shlwapi.dll",
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


@pytest.fixture(params=["launcher", "publish"])
def program(request, build: Build) -> pathlib.Path:
    return getattr(build, request.param)


def test_windows_may_harden_it(program):
    flags = int(re.search(r"^DllCharacteristics\s+(\w+)$", headers(program), re.M)[1], 16)
    assert flags & 0x20  # high-entropy addresses
    assert flags & 0x40  # any base address
    assert flags & 0x100  # no execution of data
    assert flags & 0x8000  # aware of terminal servers


def test_it_detects_smashed_stacks(program):
    assert b"stack smashing detected" in program.read_bytes()


def test_it_has_no_time_stamp(program):
    content = program.read_bytes()
    at = int.from_bytes(content[0x3C:0x40], "little")
    assert content[at : at + 4] == b"PE\0\0"
    assert content[at + 8 : at + 12] == bytes(4)


def test_its_manifest_allows_long_paths(program):
    assert b">true</longPathAware>" in resources(program)


def test_the_manifest_has_the_version_of_the_build(program, build: Build):
    version = (build.path / "version.txt").read_text().strip()
    assert re.search(rb'name="Velmorant\.\w+" version="%s\.0\.0\.0"' % version.encode(), resources(program))


def test_the_launchers_text_is_drawn_sharply_where_windows_scales_it(build: Build):
    assert b">true</gdiScaling>" in resources(build.launcher)


def test_publish_has_a_version_resource_and_runs_without_elevation(build: Build):
    version = int((build.path / "version.txt").read_text())
    assert fixed_file_version(build.publish) == (version, 0, 0, 0)
    assert b'level="asInvoker"' in resources(build.publish)


def test_publish_needs_no_dll_but_those_of_windows(build: Build):
    """VERSION.dll is not one of them: Windows would load one that lies beside publish.exe."""
    needed = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers(build.publish))}
    assert needed
    assert needed <= WINDOWS_DLLS


@pytest.mark.parametrize(
    ("source", "include", "problem"),
    [
        ("core/a.cpp", '"core/a.h"', None),
        ("net/a.cpp", '"core/a.h"', None),
        ("net/a.cpp", "<string>", None),
        ("net/a.h", '"ui/a.h"', "net/a.h:2: ui/a.h: net/ does not declare ui in DEPS"),
        ("net/a.cpp", "<ui/a.h>", "net/a.cpp:2: ui/a.h: net/ does not declare ui in DEPS"),
        ("net/a.cpp", '"../ui/a.h"', "net/a.cpp:2: ../ui/a.h: net/ does not declare ui in DEPS"),
        ("core/a.cpp", '"net/a.h"', "core/a.cpp:2: net/a.h: core/ does not declare net in DEPS"),
        ("core/a.cpp", '"a.h"', 'core/a.cpp:2: a.h: write "core/a.h"'),
        ("tests/unit/net/a_test.cpp", '"net/a.h"', None),
        ("tests/unit/net/a_test.cpp", '"ui/a.h"', "net/a_test.cpp:2: ui/a.h: net/ does not declare ui in DEPS"),
    ],
)
def test_an_include_of_an_undeclared_layer_is_rejected(tmp_path, source, include, problem):
    def put(name: str, text: str) -> None:
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_text(text)

    put("core/CMakeLists.txt", "ve_layer(core LIBS user32)\n")
    put("net/CMakeLists.txt", "ve_layer(net\n  DEPS core  # ui\n  LIBS wininet ui)\n")
    put("ui/CMakeLists.txt", "ve_layer(ui DEPS core)\n")
    put("tests/unit/CMakeLists.txt", "ve_unit_tests(net DEPS net core LIBS ws2_32)\n")
    for layer in ("core", "net", "ui"):
        put(f"{layer}/a.h", "#pragma once\n")
    put(source, f"// A comment.\n#include {include}\n")
    command = [sys.executable, str(PROJECT / "scripts/lib/check_includes.py"), str(tmp_path)]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == (0 if problem is None else 1), done.stderr
    if problem is None:
        assert done.stdout == ""
    else:
        assert done.stdout.splitlines()[0].endswith(problem)
