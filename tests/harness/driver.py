"""Starts the Launcher as a player does, answers its dialogs, and records what happens."""

import collections
import dataclasses
import json
import os
import pathlib
import queue
import re
import subprocess
import tempfile
import threading
import time
import warnings
from typing import Callable

from harness.constants import GAME, PROJECT, TIMEOUT
from harness.dialogs import Dialog
from harness.game_folder import GameFolder, windows_path
from harness.scripted_server import Gate, ScriptedServer

WINE = PROJECT / "scripts" / "wine"


TERMINATED = 3
EXIT_MINUS_ONE = 0xFFFFFFFF
ENDED_BY_TEST = 0xDEAD
WS_EX_TOPMOST = 0x8

# How often in a session Wine may fail to get the Launcher started.
FAILED_STARTS_ALLOWED = 2

GAME_PROGRAM = pathlib.PurePosixPath(GAME).name


class Build:
    """One build directory and the programs in it."""

    def __init__(self, path: pathlib.Path) -> None:
        self.path = path
        self.launcher = path / "Launcher.exe"
        self.keep_dirs = path / "walk-on" / "Launcher.exe"
        self.next = path / "next" / "Launcher.exe"
        self.faults = path / "faults" / "Launcher.exe"
        self.faults_keep_dirs = path / "faults" / "walk-on" / "Launcher.exe"
        self.publish = path / "publish.exe"
        self.publish_keep_dirs = path / "walk-on" / "publish.exe"
        self.publish_next = path / "next" / "publish.exe"
        self.player = path / "player" / "Velmorant Player.exe"
        self.watch = path / "watcher" / "watch.exe"
        self.probe = path / "watcher" / "probe.exe"


class Watcher:
    """watch.exe with its events as they come and its orders as calls."""

    def __init__(self, build: Build, arguments: list[str], environment: dict[str, str]) -> None:
        self._errors = tempfile.TemporaryFile()
        self._process = subprocess.Popen(
            [str(WINE), str(build.watch), *arguments],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self._errors,
            env={**os.environ, **environment},
        )
        self.events: queue.Queue[dict | None] = queue.Queue()
        self._garbled: bytes | None = None
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        line = b""
        try:
            for line in self._process.stdout:
                self.events.put(json.loads(line))
        except ValueError:
            self._garbled = line
        finally:
            self.events.put(None)
        # The rest is dropped; a full pipe would block the watcher.
        for _ in self._process.stdout:
            pass

    def order(self, line: str) -> None:
        try:
            self._process.stdin.write(line.encode() + b"\n")
            self._process.stdin.flush()
        except BrokenPipeError:
            pass  # It has ended; its last event says so.

    def close(self) -> None:
        """Ends the watch and, with it, all that it watched."""
        try:
            self._process.stdin.close()
        except BrokenPipeError:
            pass
        try:
            self._process.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._reader.join(TIMEOUT)
        self._process.stdout.close()

    def errors(self) -> str:
        self._errors.seek(0)
        errors = self._errors.read().decode(errors="replace")
        return errors if self._garbled is None else f"{errors}; no event: {self._garbled!r}"


@dataclasses.dataclass
class Press:
    """The answer to an expected dialog: a button's label, or the result to end the dialog with. It
    is given once the condition "when" holds, if there is one. "meanwhile" is called before it."""

    button: str | int
    dialog: Dialog
    meanwhile: Callable[[], None] | None = None
    when: Callable[["Run"], bool] | None = None


def ok(dialog: Dialog, **options) -> Press:
    return Press("OK", dialog, **options)


def cancel(dialog: Dialog, **options) -> Press:
    return Press("Cancel", dialog, **options)


# Results of a message box that are neither OK's nor Cancel's: 0 stands for a box that could not be
# shown, the others for the buttons that none of the Launcher's boxes has.
OTHER_RESULTS = (0, 6, 7, -1)


@dataclasses.dataclass
class Exit:
    program: str
    code: int | None


class Run:
    """One run of a program from its start until it and all that it started have ended."""

    def __init__(
        self,
        build: Build,
        directory: pathlib.Path,
        program: pathlib.Path,
        arguments: list[str],
        answers: list[Press],
        environment: dict[str, str],
        windows_allowed: tuple[str, ...],
        deadline: float = TIMEOUT,
    ) -> None:
        self.dialogs: list[Dialog] = []
        self.windows: list[dict] = []
        self.controls: dict[int, list[list[dict]]] = collections.defaultdict(list)
        self.exits: list[Exit] = []
        self.starts = 0
        self.failure: dict | None = None
        self.started = False
        self.completed = False
        self.ended = False
        self.blocked: set[int] = set()
        self._open_windows: set[int] = set()
        self._open_dialogs: dict[int, int] = {}  # window to process
        self._pending: tuple[Press, dict] | None = None
        self._answers = collections.deque(answers)
        self._windows_allowed = windows_allowed
        self._deadline = time.monotonic() + deadline
        self._watcher = Watcher(
            build,
            ["run", windows_path(directory), windows_path(program), *arguments],
            environment,
        )

    # --- Going on ---

    def wait_until(self, condition: Callable[["Run"], bool], what: str) -> None:
        while not condition(self):
            assert not self.ended, f"the run ended before: {what}; {self.describe()}"
            self._take_event(what, pause=0.02)

    def take_reports(self) -> None:
        """Takes what has been reported so far."""
        while not self._watcher.events.empty():
            self._take_event("a report")

    def wait_for(self, gate: Gate) -> None:
        """Goes on until the program waits for the answer that the gate holds back."""
        self.wait_until(lambda _: gate.reached, "the request that is held back")

    def _watch_to_the_end(self) -> None:
        while not self.ended:
            self._take_event("the end of the run")
        self.close()
        assert self.failure is None, f"the start failed; {self.describe()}"
        assert self.completed, f"the watch broke off; {self.describe()}"

    def finish(self) -> None:
        """Goes on to the end, and fails unless a whole run with all expected dialogs was seen."""
        self._watch_to_the_end()
        assert len(self.exits) == self.starts > 0, f"{self.starts} starts; {self.describe()}"
        assert self._pending is None, f"a dialog was never answered; {self.describe()}"
        missing = [answer.dialog.caption for answer in self._answers]
        assert not missing, f"dialogs that never came: {missing}; {self.describe()}"

    def end_all(self) -> None:
        """Ends everything that still runs, on the test's behalf."""
        self._watcher.order("quit")

    def close_window(self, window: dict) -> None:
        """Asks a window to close, as its keyboard shortcut does."""
        self._watcher.order(f"close {window['window']}")

    def block_window(self, window: dict) -> None:
        """Keeps the window's thread busy until it is released. Returns when the thread is blocked."""
        self._watcher.order(f"block {window['window']}")
        self.wait_until(lambda r: window["window"] in r.blocked, "the blocked window")

    def release_window(self, window: dict) -> None:
        self._watcher.order(f"release {window['window']}")

    def close(self) -> None:
        self._watcher.close()

    def _take_event(self, what: str, pause: float = TIMEOUT) -> None:
        """The next event, or after the pause none: conditions may change without an event."""
        left = self._deadline - time.monotonic()
        try:
            event = self._watcher.events.get(timeout=max(0.0, min(pause, left)))
        except queue.Empty:
            if left > pause:
                return
            raise TimeoutError(f"waited in vain for {what}; {self.describe()}") from None
        if event is None:
            self.ended = True
            return
        getattr(self, "_on_" + event["event"])(event)
        if self._pending:
            expected, dialog = self._pending
            held_back = expected.when is not None and not expected.when(self)
            # A dialog that is gone can no longer be answered, and stays unanswered.
            if not held_back and dialog["window"] in self._open_dialogs:
                self._press(expected, dialog)
                self._pending = None

    def _on_started(self, event: dict) -> None:
        self.started = True

    def _on_failed(self, event: dict) -> None:
        self.failure = event

    def _on_process(self, event: dict) -> None:
        self.starts += 1

    def _on_exit(self, event: dict) -> None:
        self.exits.append(Exit(event["name"], event.get("code")))
        for window, process in list(self._open_dialogs.items()):
            if process == event["process"]:
                del self._open_dialogs[window]

    def _on_blocked(self, event: dict) -> None:
        self.blocked.add(event["window"])

    def _on_gone(self, event: dict) -> None:
        self._open_windows.discard(event["window"])
        self._open_dialogs.pop(event["window"], None)

    def _on_controls(self, event: dict) -> None:
        self.controls[event["window"]].append(event["controls"])

    def _on_end(self, event: dict) -> None:
        self.completed = True
        self.ended = True

    def _on_window(self, event: dict) -> None:
        self.windows.append(event)
        self._open_windows.add(event["window"])
        assert event["class"] in self._windows_allowed, f"unexpected window {event}"

    def _on_dialog(self, event: dict) -> None:
        shown = Dialog(
            event["caption"],
            event["text"],
            tuple(button["label"] for button in event["buttons"]),
            event["icon"],
            event["default"],
            event["extendedStyle"] & WS_EX_TOPMOST != 0,
        )
        self.dialogs.append(shown)
        self._open_dialogs[event["window"]] = event["process"]
        expected = self._answers.popleft() if self._answers else None
        assert expected is not None, f"unexpected dialog {shown}"
        assert shown == expected.dialog, f"{shown} in place of {expected.dialog}"
        assert event["owner"] == 0, "a dialog has an owner window"
        self._pending = (expected, event)

    def _press(self, expected: Press, event: dict) -> None:
        if expected.meanwhile:
            expected.meanwhile()
        if isinstance(expected.button, int):
            self._watcher.order(f"answer {event['window']} {expected.button}")
            return
        for button in event["buttons"]:
            if button["label"] == expected.button:
                self._watcher.order(f"press {event['window']} {button['id']}")
                return
        raise AssertionError(f"no button {expected.button} in {event}")

    # --- What was seen ---

    def describe(self) -> str:
        return (
            f"dialogs {self.dialogs}, windows {[w['caption'] for w in self.windows]}, "
            f"starts {self.starts}, exits {self.exits}, failure {self.failure}, "
            f"errors {self._watcher.errors()!r}"
        )

    @property
    def open_windows(self) -> set[int]:
        return self._open_windows

    @property
    def open_dialogs(self) -> set[int]:
        return set(self._open_dialogs)

    def exit_codes(self, program: str) -> list[int | None]:
        return [ended.code for ended in self.exits if ended.program.lower() == program.lower()]


@dataclasses.dataclass
class GameStart:
    """A start of the game, or of another program in its place, as it saw it itself."""

    directory: str
    command_line: str
    program: str

    def has_no_arguments(self) -> bool:
        name = re.escape(self.program.rpartition("\\")[2])
        return re.fullmatch(rf'("[^"]*{name}"|[^"]*{name})\s*', self.command_line) is not None


class LauncherRun(Run):
    """A run of the Launcher in a game folder, with what it left behind."""

    def __init__(
        self,
        build: Build,
        folder: GameFolder,
        server: ScriptedServer | None,
        *,
        launcher: str = "Launcher.exe",
        directory: pathlib.Path | None = None,
        arguments: list[str] | None = None,
        answers: list[Press] | None = None,
        expected_exits: tuple[int, ...] = (0,),
        game_seconds: int = 0,
        environment: dict[str, str] | None = None,
        deadline: float = TIMEOUT,
    ) -> None:
        """`expected_exits` are the exit codes of all Launchers of the run, one after the other."""
        self.folder = folder
        self.launcher = pathlib.PurePosixPath(launcher).name
        self._expected_exits = expected_exits
        self._server = server
        self._first_request = len(server.requests) if server else 0
        self._last_request: int | None = None
        self._record = folder.root.parent / "game-starts.txt"
        self._record.unlink(missing_ok=True)
        self.before = folder.tree()
        answers = answers or []
        # Only an accepted game update may show anything but dialogs.
        accepted = any(a.dialog.caption == "Update available" and a.button == "OK" for a in answers)
        windows = ("VelmorantPlayer",) + (("UpdaterWindow",) if accepted else ())
        super().__init__(
            build,
            directory or folder.root,
            folder.path(launcher),
            arguments or [],
            answers,
            {
                "VELMORANT_PLAYER_RECORD": windows_path(self._record),
                "VELMORANT_PLAYER_SECONDS": str(game_seconds),
                **(environment or {}),
            },
            windows,
            deadline,
        )

    def finish(self) -> None:
        super().finish()
        self._last_request = len(self._server.requests) if self._server else 0
        codes = self.exit_codes(self.launcher)
        assert codes == list(self._expected_exits), f"exit codes {codes}; {self.describe()}"

    def describe(self) -> str:
        return f"{super().describe()}, requests {self.requests}"

    @property
    def was_not_started(self) -> bool:
        """Whether Wine, not the Launcher, failed, as it now and then does where addresses are
        randomised (scripts/lib/common.sh): the watch ended without having set the Launcher going."""
        return self.ended and not self.started

    @property
    def requests(self) -> list[str]:
        """The requests from the start of the run to its end."""
        return self._server.requests[self._first_request : self._last_request] if self._server else []

    @property
    def exit_code(self) -> int | None:
        """The exit code of the first Launcher of the run."""
        return self.exit_codes(self.launcher)[0]

    @property
    def after(self) -> dict:
        return self.folder.tree()

    @property
    def log(self) -> list[str]:
        return self.folder.log()

    @property
    def game_starts(self) -> list[GameStart]:
        if not self._record.exists():
            return []
        starts = []
        for record in self._record.read_text("utf-8").strip().split("\n\n"):
            values = dict(line.split("=", 1) for line in record.split("\n"))
            starts.append(GameStart(values["directory"], values["commandLine"], values["program"]))
        return starts

    def changes(self) -> dict[str, tuple]:
        """What differs on disk from before the run: name to (before, after); missing is "-"."""
        before, after = self.before, self.after
        names = sorted(before.keys() | after.keys())
        pairs = {name: (before.get(name, "-"), after.get(name, "-")) for name in names}
        return {name: pair for name, pair in pairs.items() if pair[0] != pair[1]}

    def assert_game_started(self) -> None:
        """The game was started once, in "bin", with no arguments."""
        starts = self.game_starts
        assert len(starts) == 1, f"{len(starts)} starts of the game; {self.describe()}"
        assert len(self.exit_codes(GAME_PROGRAM)) == 1, self.describe()
        bin_folder = windows_path(self.folder.path("bin"))
        assert starts[0].directory.rstrip("\\") == bin_folder
        assert starts[0].program == bin_folder + "\\Velmorant Player.exe"
        assert starts[0].has_no_arguments(), starts[0].command_line

    def assert_game_not_started(self) -> None:
        assert self.game_starts == []
        assert self.exit_codes(GAME_PROGRAM) == [], self.describe()


failed_starts: list[LauncherRun] = []


def run_launcher(build: Build, folder: GameFolder, server: ScriptedServer | None, **options) -> LauncherRun:
    """A whole run. When Wine did not get the Launcher started at all, it is started once more."""
    run = LauncherRun(build, folder, server, **options)
    try:
        run.finish()
        return run
    except AssertionError:
        if not run.was_not_started:
            raise
    finally:
        run.close()
    failed_starts.append(run)
    assert len(failed_starts) <= FAILED_STARTS_ALLOWED, f"too many failed starts; {run.describe()}"
    warnings.warn(f"Wine did not start the Launcher; started again. {run.describe()}")
    run = LauncherRun(build, folder, server, **options)
    try:
        run.finish()
    finally:
        run.close()
    return run
