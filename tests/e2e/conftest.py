"""The environment of the end-to-end tests.

Wine prefix and display are the caller's (WINEPREFIX, DISPLAY). What is missing of them is made for
this run, below the build directory, and removed afterwards.
"""

import collections
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import pytest

from harness.constants import BUILD_DIR, TIMEOUT
from harness.driver import WINE, Build, Watcher
from harness.game_folder import windows_path
from harness.nginx_server import FolderServer
from harness.scene import Scene
from harness.scripted_server import ScriptedServer

WINE_SERVER = "/usr/lib/wine/wineserver64"


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    """Leaves the long tests out, unless they are asked for."""
    if os.environ.get("LAUNCHER_LONG_TESTS"):
        return
    long = [item for item in items if item.get_closest_marker("long")]
    config.hook.pytest_deselected(items=long)
    items[:] = [item for item in items if item not in long]


def pytest_terminal_summary(terminalreporter) -> None:
    """Prints what the tests of faults saw: each reports it by properties named "seen" and "cell"."""
    seen: dict[str, collections.Counter] = collections.defaultdict(collections.Counter)
    tables: dict[str, dict[tuple[str, str], str]] = collections.defaultdict(dict)
    for report in terminalreporter.getreports("passed"):
        for name, value in report.user_properties:
            if name == "seen":
                seen[value[0]][value[1]] += value[2]
            elif name == "cell":
                table, row, column, text = value
                tables[table][row, column] = text
    for what, counts in sorted(seen.items()):
        terminalreporter.write_sep("-", f"{what}: {counts.total()}")
        for state, count in sorted(counts.items()):
            terminalreporter.write_line(f"{count:6} {state}")
    for title, cells in sorted(tables.items()):
        terminalreporter.write_sep("-", f"{title}: {len(cells)}")
        for (row, column), text in sorted(cells.items()):
            terminalreporter.write_line(f"{row} | {column} | {text}")


class TestEnvironment:
    """A display and a Wine prefix for callers that have none."""

    def __init__(self, build: pathlib.Path) -> None:
        self._display: subprocess.Popen | None = None
        self._wine_server: subprocess.Popen | None = None
        self._prefix: str | None = None
        # The C runtime takes a TZ of the host for local time; this side has to see the same time.
        os.environ.pop("TZ", None)
        time.tzset()
        os.environ.setdefault("WINEDEBUG", "-all")
        os.environ.setdefault("WINEDLLOVERRIDES", "mscoree,mshtml,winemenubuilder.exe=")
        if "DISPLAY" not in os.environ:
            self._start_display()
        if "WINEPREFIX" not in os.environ:
            self._make_prefix(build)

    def _start_display(self) -> None:
        read_end, write_end = os.pipe()
        self._display = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1024x768x24", "-nolisten", "tcp"],
            pass_fds=[write_end],
            stderr=subprocess.DEVNULL,
        )
        os.close(write_end)
        with os.fdopen(read_end) as number:
            os.environ["DISPLAY"] = ":" + number.readline().strip()

    def _make_prefix(self, build: pathlib.Path) -> None:
        self._prefix = tempfile.mkdtemp(prefix="e2e-wine-", dir=build)
        os.environ["WINEPREFIX"] = self._prefix
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, "check": True}
        subprocess.run([WINE, "wineboot", "-i"], **quiet)
        # Without a window manager Wine waits two seconds whenever a managed window closes.
        key = r"HKCU\Software\Wine\X11 Driver"
        subprocess.run([WINE, "reg", "add", key, "/v", "Managed", "/d", "N", "/f"], **quiet)
        subprocess.run([WINE_SERVER, "-w"], **quiet)
        self._wine_server = subprocess.Popen(
            [WINE_SERVER, "-f", "-p"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )

    def close(self) -> None:
        if self._wine_server:
            subprocess.run([WINE_SERVER, "-k"], check=False, stderr=subprocess.DEVNULL)
            self._wine_server.wait(60)
        if self._prefix:
            shutil.rmtree(self._prefix, ignore_errors=True)
        if self._display:
            self._display.terminate()
            self._display.wait(60)


def is_worker(config: pytest.Config) -> bool:
    return hasattr(config, "workerinput")


def pytest_configure(config: pytest.Config) -> None:
    for program in vars(Build(BUILD_DIR)).values():
        if not program.exists():
            raise pytest.UsageError(f"{program} is missing: build first, or set $LAUNCHER_BUILD")
    # Workers of a distributed run inherit the environment that the first process made.
    config.stash[TEST_ENVIRONMENT] = None if is_worker(config) else TestEnvironment(BUILD_DIR)


def pytest_unconfigure(config: pytest.Config) -> None:
    environment = config.stash.get(TEST_ENVIRONMENT, None)
    if environment:
        environment.close()


TEST_ENVIRONMENT = pytest.StashKey[TestEnvironment | None]()


@pytest.fixture(scope="session")
def build() -> Build:
    return Build(BUILD_DIR)


@pytest.fixture(scope="session", autouse=True)
def desktop(build: Build):
    """Keeps Wine's desktop process alive between the runs, which makes their start quick."""
    keeper = Watcher(build, ["desktop"], {})
    assert keeper.events.get(timeout=TIMEOUT) == {"event": "ready"}
    yield
    keeper.close()


@pytest.fixture
def temp_dir(build: Build):
    """A directory of the test's own. It lies below the build directory, whose file system keeps
    the extended attributes in which Wine stores a file's attributes."""
    path = tempfile.mkdtemp(prefix="e2e-", dir=build.path)
    yield pathlib.Path(path)
    shutil.rmtree(path)


@pytest.fixture
def scene(build: Build, temp_dir: pathlib.Path):
    made = Scene(build, temp_dir, ScriptedServer())
    yield made
    made.close()


@pytest.fixture
def nginx_scene(build, temp_dir):
    """A scene whose server is nginx over a folder."""
    server = FolderServer(temp_dir)
    try:
        made = Scene(build, temp_dir, server)
        yield made
        made.close()
    finally:
        server.close()


@pytest.fixture
def keep_open(build):
    """Makes another process keep a file open, which others may only read then."""
    holders = []

    def keep(path) -> None:
        holders.append(Watcher(build, ["hold", windows_path(path), "read"], {}))
        assert holders[-1].events.get(timeout=TIMEOUT) == {"event": "held"}

    yield keep
    for holder in holders:
        holder.close()
