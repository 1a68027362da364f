"""Launchers that are killed, and what may then be on disk.

A kill is the end of the process from one instruction to the next, as a power cut would leave the
files: nothing is unwound, closed or flushed.
"""

import dataclasses
import pathlib
import shutil
import time
from typing import Callable

from harness import formats
from harness.constants import (
    EXECUTABLE,
    GAME,
    NEXT_VERSION,
    PARKED,
    SETTINGS_FILE,
    UPDATER_DATA,
    VERSION_FILE,
)
from harness.dialogs import RESTART_REQUIRED, UPDATE_AVAILABLE, UPDATE_SUCCESSFUL, Dialog
from harness.driver import ENDED_BY_TEST, LauncherRun, Press, ok
from harness.game_folder import GameFolder, windows_path
from harness.scene import INSTALLED, NEWER, NOTE, Scene

KILLED = 9

Tree = dict[str, bytes | None]


def whole_tree(folder: GameFolder) -> Tree:
    """Every entry below the folder: a directory's value is None, a file's its whole content."""
    return {
        path.relative_to(folder.root).as_posix(): None if path.is_dir() else path.read_bytes()
        for path in sorted(folder.root.rglob("*"))
    }


def is_torn(content: bytes | None, whole: bytes) -> bool:
    """Whether a file breaks off somewhere in what it is to hold."""
    return content is not None and len(content) < len(whole) and whole.startswith(content)


# --- Runs that may be killed ------------------------------------------------------------------


class KilledRun(LauncherRun):
    """A run that may end anywhere: no dialog has to come, but those that come have to be these."""

    def finish(self) -> None:
        self._watch_to_the_end()
        codes = self.exit_codes(self.launcher)
        assert codes == list(self._expected_exits), f"exit codes {codes}; {self.describe()}"

    def go_until(self, condition: Callable[[], bool]) -> bool:
        """Goes on until the condition holds or the run ends; returns whether it holds."""
        while not self.ended and not condition():
            self._take_event("a moment to kill at", pause=0.005)
        return condition()

    def kill(self) -> None:
        """Ends the Launcher and what it started, now; a run that has ended by itself stays ended."""
        self.end_all()
        while not self.ended:
            self._take_event("the end of the run")
        self.close()
        assert self.completed, f"the watch broke off; {self.describe()}"

    @property
    def was_killed(self) -> bool:
        return ENDED_BY_TEST in self.exit_codes(self.launcher)


@dataclasses.dataclass(frozen=True)
class Operation:
    """An operation of the Launcher, and the state that the disk is in before it and, where it
    writes, half way through it."""

    text: str
    state: str

    @property
    def writes(self) -> bool:
        return self.text.split(" ")[0] in ("fwrite", "CopyFileW")


def run_recorded(
    scene: Scene,
    answers: list[Press],
    exits: tuple[int, ...],
    kill_at: int = 0,
    half: bool = False,
) -> tuple[KilledRun, list[str]]:
    """A run of a Launcher that counts its operations, and the operations that it came to."""
    record = scene.temp_dir / "operations.txt"
    record.unlink(missing_ok=True)
    environment = {"LAUNCHER_FAULT_RECORD": windows_path(record)}
    if kill_at:
        environment["LAUNCHER_FAULT_AT"] = str(kill_at)
    if half:
        environment["LAUNCHER_FAULT_HALF"] = "1"
    run = KilledRun(
        scene.build,
        scene.folder,
        scene.server,
        answers=answers,
        expected_exits=exits,
        environment=environment,
    )
    try:
        run.finish()
    finally:
        run.close()
    # The clean-up names its entries by absolute paths, which differ from test to test.
    root = "\\\\?\\" + windows_path(scene.folder.root) + "\\"
    lines = record.read_text("utf-8").replace(root, ".\\").splitlines()
    return run, [line for line in lines if not line.startswith(NOTE)]


@dataclasses.dataclass(frozen=True)
class Moment:
    """A moment to kill at, as the server sees it: with the answer to a path held back, or what
    follows some bytes of its body, or some time after it was asked for; or while a dialog is up."""

    kind: str
    path: str = ""
    bytes: int = 0
    seconds: float = 0
    dialog: Dialog | None = None


def run_until(scene: Scene, answers: list[Press], moment: Moment) -> KilledRun | None:
    """A run killed at the moment; none if it came to its end before."""
    gate = None
    server = scene.server
    answer = server.answers.get("/" + moment.path)
    if moment.kind == "request":
        gate = server.hold(moment.path)
    elif moment.kind == "bytes":
        gate = server.hold(moment.path, after=moment.bytes)
    elif moment.kind == "dialog":
        # It is never answered.
        answers = [
            dataclasses.replace(a, when=lambda _: False) if a.dialog == moment.dialog else a
            for a in answers
        ]
    run = KilledRun(scene.build, scene.folder, server, answers=answers)
    try:
        if gate:
            reached = run.go_until(lambda: gate.reached)
        elif moment.kind == "dialog":
            reached = run.go_until(lambda: moment.dialog in run.dialogs)
        else:
            reached = run.go_until(lambda: "/" + moment.path in run.requests)
            time.sleep(moment.seconds if reached else 0)
        run.kill()
    finally:
        run.close()
        if gate:
            gate.open()
            server.answers["/" + moment.path] = answer
    return run if reached and run.was_killed else None


def put_back(folder: GameFolder, tree: Tree) -> None:
    """Makes the folder what it was."""
    shutil.rmtree(folder.root)
    folder.root.mkdir()
    for name, content in tree.items():
        if content is None:
            folder.directory(name)
        else:
            folder.put(name, content)


# --- A game update ----------------------------------------------------------------------------

# More than a buffer of the C runtime holds, and no multiple of it: its end is written on closing.
LARGE = bytes(range(256)) * 80 + b"the end"

INSTALLED_FILES = {
    "bin/data/level.dat": b"old level",
    "bin/data/same.dat": b"the same level",
    "bin/game.dll": b"old dll",
    "data/intro.dat": LARGE[::-1],
}
UNLISTED = {
    "abandoned.txt": b"unlisted",
    "bin/old.dll": b"unlisted",
    "bin/old/deep.dat": b"unlisted",
    "old.txt": b"unlisted",
}
UNLISTED_FOLDERS = ("bin/empty", "bin/old")
PRESERVED = {
    "Intermediate/build.tmp": b"a tool's",
    "Logs/older.log": b"kept",
    "Output.txt": b"kept",
    "Saved/profile.sav": b"the player's",
    "Screenshots/victory.png": b"the player's",
    "backup.rar": b"the player's",
    "bin/mods.RAR": b"the player's",
}
DIRECTORIES = ("bin", "bin/data", "bin/new", "data")
OFFERED_FILES = {
    "bin/data/level.dat": b"new level",
    "bin/data/same.dat": b"the same level",
    "bin/game.dll": b"new dll",
    "bin/new/scene.dat": b"new scene",
    "data/intro.dat": LARGE,
}
FETCHED = tuple(n for n, c in OFFERED_FILES.items() if INSTALLED_FILES.get(n) != c)
STAGING_ROOT = "Intermediate/Update"


class GameUpdate:
    """A game folder with everything in it that an update treats in its own way, the update that is
    offered, and the states that the update goes through on disk."""

    # Where a run that was killed can be followed by another one that is killed, too.
    goes_on_from = ("unchanged", "staging", "installing", "cleaning up", "removing the staged")

    def __init__(
        self, scene: Scene, launcher: pathlib.Path, keeps_dirs: bool, more: int = 0
    ) -> None:
        """With more files to remove, and a tenth as many more to install."""
        self.scene = scene
        self.keeps_dirs = keeps_dirs
        self.unlisted = UNLISTED | {f"bin/old-{n:03}.dat": b"unlisted" for n in range(more)}
        self.unlisted |= {f"abandoned-{n:03}.dat": b"unlisted" for n in range(more)}
        self.offered = OFFERED_FILES | {f"data/new-{n}.dat": LARGE for n in range(more // 10)}
        self.fetched = [n for n, c in self.offered.items() if INSTALLED_FILES.get(n) != c]
        scene.install_launcher(launcher)
        for name, content in {**INSTALLED_FILES, **self.unlisted, **PRESERVED}.items():
            scene.folder.put(name, content)
        for name in UNLISTED_FOLDERS:
            scene.folder.directory(name)
        lines = [formats.file_line(name, content) for name, content in self.offered.items()]
        lines.append(formats.file_line(GAME, scene.build.player.read_bytes()))
        scene.offer_game({}, list(DIRECTORIES), lines)
        for name, content in self.offered.items():
            scene.serve(name, content)
        self.before = whole_tree(scene.folder)
        self.old_version = formats.game_version(*INSTALLED)
        self.new_version = formats.game_version(*NEWER)
        self.staged = {STAGING_ROOT: None} | {
            f"{STAGING_ROOT}/{name}": content
            for name, content in [
                *((d, None) for d in DIRECTORIES),
                *((n, self.offered[n]) for n in self.fetched),
            ]
        }
        self.final = self._final()

    def _final(self) -> Tree:
        """What an undisturbed update leaves."""
        final = dict(self.before)
        final |= {"bin/new": None} | self.offered
        if self.keeps_dirs:
            # "bin/old" was met before what it held was gone: it stays, empty.
            for name in [*self.unlisted, "bin/empty"]:
                del final[name]
            final[VERSION_FILE] = self.new_version
        else:
            # The clean-up meets "bin", which it cannot remove, and ends the program.
            for name in self.unlisted:
                if name.startswith("abandoned"):
                    del final[name]
            final |= self.staged
        return final

    def final_after(self, killed: Tree) -> Tree:
        """What the next run leaves. Where the killed one emptied "bin/old" and did not come to the
        end, the next clean-up finds the folder empty, and removes it."""
        emptied = "bin/old/deep.dat" not in killed and killed.get(VERSION_FILE) != self.new_version
        return {n: c for n, c in self.final.items() if not (emptied and n == "bin/old")}

    def missing_after(self, killed: Tree) -> list[str]:
        """What the next run has to download."""
        places = ("", STAGING_ROOT + "/")
        return [n for n in self.fetched if all(killed.get(p + n) != self.offered[n] for p in places)]

    @property
    def answers(self) -> list[Press]:
        return [ok(UPDATE_AVAILABLE), *([ok(UPDATE_SUCCESSFUL)] if self.keeps_dirs else [])]

    def state(self, tree: Tree) -> str:
        """The name of the state; fails for whatever is none."""
        preserved = [EXECUTABLE, SETTINGS_FILE, GAME, "bin/data/same.dat", *PRESERVED]
        for name in preserved:
            assert tree.get(name) == self.before[name], f"{name} was touched"
        version = tree.get(VERSION_FILE)
        staged = {n: c for n, c in tree.items() if (n + "/").startswith(STAGING_ROOT + "/")}
        root = {n: c for n, c in tree.items() if n not in staged and n != VERSION_FILE}
        old_root = {n: c for n, c in self.before.items() if n != VERSION_FILE}

        # What lies where it may lie at all.
        assert set(staged) <= set(self.staged), f"staged: {staged.keys() - self.staged.keys()}"
        may_be = set(old_root) | {"bin/new"} | set(self.offered)
        assert set(root) <= may_be, f"strange: {root.keys() - may_be}"
        incomplete = [n for n, c in staged.items() if c != self.staged[n]]
        assert len(incomplete) <= 1 and all(
            is_torn(staged[n], self.staged[n]) for n in incomplete
        ), f"staged wrongly: {incomplete}"
        for name, content in root.items():
            if name not in self.fetched:
                assert content == old_root.get(name, None), f"{name} was changed"

        if tree == self.before:
            return "unchanged"
        if root == old_root and version == self.old_version and staged != self.staged:
            # An update that was applied would not look like the old game.
            return "staging"

        gone = {n for n in old_root if n not in root}
        assert gone <= {*self.unlisted, *UNLISTED_FOLDERS}, f"gone: {gone}"
        new = [n for n in self.fetched if root.get(n) == self.offered[n]]
        torn = [n for n in self.fetched if n not in new and root.get(n) != self.before.get(n)]
        if len(new) < len(self.fetched) or "bin/new" not in root:
            assert version == self.old_version, "a version that is not installed is recorded"
            assert staged == self.staged, "part of what is to be installed is gone"
            assert not gone, f"cleaned up too early: {gone}"
            assert len(torn) <= 1 and all(is_torn(root[n], self.offered[n]) for n in torn), torn
            return "installing"
        if staged == self.staged:
            assert version == self.old_version
            return "cleaning up"
        assert self.keeps_dirs, "the staging folder was taken from an update that is not complete"
        assert gone >= {*self.unlisted, "bin/empty"}, "not cleaned up"
        if staged:
            assert version == self.old_version
            return "removing the staged"
        if version == self.old_version:
            return "to be recorded"
        if is_torn(version, self.new_version):
            return "recording"
        assert version == self.new_version
        return "done"


# --- A self-update ----------------------------------------------------------------------------


class SelfUpdate:
    """The server offers a newer Launcher than the installed one."""

    answers = [ok(RESTART_REQUIRED)]
    goes_on_from = ("unchanged",)

    def __init__(self, scene: Scene, launcher: pathlib.Path) -> None:
        self.scene = scene
        scene.install_launcher(launcher)
        for name, content in PRESERVED.items():
            scene.folder.put(name, content)
        self.old = launcher.read_bytes()
        # No multiple of a buffer of the C runtime: its end is written on closing.
        self.new = scene.build.next.read_bytes()
        self.new += b"the end" if len(self.new) % 4096 == 0 else b""
        scene.offer_launcher(NEXT_VERSION)
        scene.serve(f"updater/{EXECUTABLE}", self.new)
        self.before = whole_tree(scene.folder)
        self.final = self.before | {EXECUTABLE: self.new}

    def state(self, tree: Tree) -> str:
        others = {n: c for n, c in tree.items() if n not in (EXECUTABLE, PARKED)}
        assert others == {n: c for n, c in self.before.items() if n != EXECUTABLE}
        executable, parked = tree.get(EXECUTABLE), tree.get(PARKED)
        if parked is None:
            assert executable in (self.old, self.new), "no whole Launcher is there"
            return "unchanged" if executable == self.old else "done"
        assert parked == self.old, "the old Launcher is not whole any more"
        if executable is None:
            return "moved aside"
        if executable == self.new:
            return "replaced"
        assert is_torn(executable, self.new)
        return "half replaced"


class SettingsUpdate:
    """Other settings are offered for those in a game folder."""

    answers = [ok(RESTART_REQUIRED)]

    def __init__(self, scene: Scene, launcher: pathlib.Path) -> None:
        self.scene = scene
        scene.install_launcher(launcher)
        for name, content in PRESERVED.items():
            scene.folder.put(name, content)
        self.old = scene.settings
        self.new = formats.updater_data(scene.server.url, "release", checked=True)
        scene.serve(UPDATER_DATA, self.new)
        self.before = whole_tree(scene.folder)
        self.final = self.before | {SETTINGS_FILE: self.new}

    def state(self, tree: Tree) -> str:
        settings = tree.get(SETTINGS_FILE)
        assert {**tree, SETTINGS_FILE: self.old} == self.before, "something else was touched"
        if settings == self.old:
            return "unchanged"
        if settings == self.new:
            return "done"
        assert is_torn(settings, self.new)
        return "half replaced"
