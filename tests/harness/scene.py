"""Everything that one test works with: a server, a game folder, and the Launcher to run in it."""

import pathlib
import re
import subprocess

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    OWN_VERSION,
    REDIRECT,
    SETTINGS_FILE,
    TIMEOUT,
    UPDATER_DATA,
    UPDATER_MANIFEST,
    UPDATES,
    VERSION_FILE,
)
from harness.driver import WINE, Build, LauncherRun, Press, Watcher, run_launcher
from harness.game_folder import GameFolder, windows_path
from harness.scripted_server import Answer, ScriptedServer

INSTALLED = (0, 0, 0, 1)
NEWER = (0, 0, 0, 2)

# How a Launcher that records its operations marks what is none.
NOTE = "note "

# A text of the platform for a transport error: words, or the code in decimal where it has none.
PLATFORM_TEXT = r"(?:-?\d+|[A-Z][^']*)"


class Scene:
    """Unless a test changes it: the installed Launcher and game are what the server offers."""

    def __init__(self, build: Build, temp_dir: pathlib.Path, server: ScriptedServer) -> None:
        self.build = build
        self.temp_dir = temp_dir
        self.server = server
        self.folder = GameFolder(temp_dir / "game")
        self.updates = UPDATES + "release/"
        self.settings = formats.updater_data(server.url)
        self.launcher = "Launcher.exe"
        self._helpers: list[Watcher] = []
        self._runs: list[LauncherRun] = []

        self.folder.put_copy("Launcher.exe", build.launcher)
        self.folder.put_copy(GAME, build.player)
        self.folder.put(SETTINGS_FILE, self.settings)
        self.folder.put(VERSION_FILE, formats.game_version(*INSTALLED))
        self.offer_launcher(OWN_VERSION)
        self.serve(UPDATER_DATA, self.settings)
        self.offer_game_version(*INSTALLED)

    # --- The server's side ---

    def serve(self, name: str, answer: Answer | bytes) -> None:
        """Sets the answer to a name below the updates URL."""
        self.server.serve(self.updates + name, answer)

    def offer_launcher(self, version: int | str) -> None:
        self.serve(UPDATER_MANIFEST, formats.updater_manifest(version))

    def offer_game_version(self, *words: int) -> bytes:
        content = formats.game_version(*words)
        self.serve(GAME_VERSION, content)
        return content

    def offer_game(
        self, files: dict[str, bytes], directories: list[str] | None = None, lines: list[str] | None = None
    ) -> bytes:
        """A newer game version with these files. Returns its version file."""
        if lines is None:
            lines = [formats.file_line(name, content) for name, content in files.items()]
        self.serve(GAME_MANIFEST, formats.game_manifest(directories or ["data"], lines))
        for name, content in files.items():
            self.serve(name, content)
        return self.offer_game_version(*NEWER)

    def requests(self, *names: str) -> list[str]:
        """The requests of a run whose Launcher is current, and then these below the updates URL."""
        self_update = [UPDATER_MANIFEST, UPDATER_DATA]
        below = [f"/{self.updates}{name}" for name in [*self_update, *names]]
        return ["/" + REDIRECT, *below]

    # --- The player's side ---

    def configure(self, url: str, channel: str = "release") -> None:
        """Other settings, here and on the server."""
        self.settings = formats.updater_data(url, channel)
        self.folder.put(SETTINGS_FILE, self.settings)
        self.updates = f"{UPDATES}{channel}/"
        self.offer_launcher(OWN_VERSION)
        self.serve(UPDATER_DATA, self.settings)
        self.offer_game_version(*INSTALLED)

    def install_launcher(self, program: pathlib.Path) -> None:
        self.folder.put_copy("Launcher.exe", program)

    def start(self, answers: list[Press] | None = None, **options) -> LauncherRun:
        options.setdefault("launcher", self.launcher)
        run = LauncherRun(self.build, self.folder, self.server, answers=answers, **options)
        self._runs.append(run)
        return run

    def run(self, answers: list[Press] | None = None, **options) -> LauncherRun:
        options.setdefault("launcher", self.launcher)
        return run_launcher(self.build, self.folder, self.server, answers=answers, **options)

    def run_noted(self, answers: list[Press] | None = None, **options) -> tuple[LauncherRun, list[str]]:
        """A run of a Launcher that notes its message boxes and its exit, and these notes."""
        record = self.temp_dir / "operations.txt"
        self.install_launcher(self.build.faults)
        environment = {"LAUNCHER_FAULT_RECORD": windows_path(record)}
        run = self.run(answers, environment=environment, **options)
        lines = record.read_text("utf-8").splitlines()
        return run, [line.removeprefix(NOTE) for line in lines if line.startswith(NOTE)]

    # --- Log entries ---

    def settings_entry(self, message: str) -> str:
        return "Error while running updater:\nWhile trying to access updater-data." + message

    def self_update_entry(self, message: str) -> str:
        url = self.server.url + self.updates + "updater/"
        return (
            "Error while running updater:\n"
            f"While trying to check for self-update from URL '{url}':\n\n{message}"
        )

    def game_update_entry(self, message: str) -> str:
        url = self.server.url + self.updates
        return (
            "Error while running updater:\n"
            f"While trying to check for game-updates from URL '{url}':\n\n{message}"
        )

    # --- Helpers on the Windows side ---

    def lock(self, name: str, share: str = "none") -> Watcher:
        """Another process keeps the file open; others may do nothing with it, or only read it."""
        return self._helper("hold", windows_path(self.folder.path(name)), share)

    def occupy(self, name: str) -> Watcher:
        """Another process has the folder as its current directory."""
        return self._helper("occupy", windows_path(self.folder.path(name)))

    def _helper(self, *arguments: str) -> Watcher:
        holder = Watcher(self.build, list(arguments), {})
        self._helpers.append(holder)
        event = holder.events.get(timeout=TIMEOUT)
        assert event == {"event": "held"}, event
        return holder

    def registry(self, *arguments: str) -> None:
        subprocess.run(
            [str(WINE), "reg", *arguments], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )

    def close(self) -> None:
        # A failed test may leave runs behind; the server's threads wait for their connections.
        for run in self._runs:
            run.close()
        for helper in self._helpers:
            helper.close()
        self.server.close()


def matches(pattern_of: str, entry: str) -> bool:
    """Whether an entry is the text, in which "<platform>" matches any text of the platform."""
    pattern = re.escape(pattern_of).replace("<platform>", PLATFORM_TEXT)
    return re.fullmatch(pattern, entry, re.DOTALL) is not None
