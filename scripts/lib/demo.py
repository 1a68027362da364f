"""Runs the Launcher as a player does, against a real server, and prints what happens.

Started by scripts/demo, which provides the display, the Wine prefix and the built programs. Every
run is watched by watch.exe; what is printed and checked comes from it, the server's access log, the game
folder and the log file show.
"""

import argparse
import dataclasses
import functools
import os
import pathlib
import queue
import random
import shutil
import subprocess
import sys
import textwrap
import time
import traceback
import urllib.parse

from harness import dialogs, formats
from harness.constants import (
    BUILD_DIR,
    GAME_MANIFEST,
    GAME_VERSION,
    NEXT_VERSION,
    PARKED,
    PROJECT,
    SETTINGS_FILE,
    STAGING,
    TIMEOUT,
    VERSION_FILE,
)
from harness.driver import TERMINATED, Build, Watcher
from harness.game_folder import GameFolder, windows_path
from harness.nginx_server import NginxServer, Request
from harness.publishing import command_line

BUILD = Build(BUILD_DIR)
DEMO = PROJECT / "build/demo"


PROGRESS_WINDOW_CLASS = "UpdaterWindow"
GAME = "Velmorant Player.exe"


# --- What is installed and published ----------------------------------------------------------


def noise(seed: str, size: int) -> bytes:
    return random.Random(seed).randbytes(size)


@functools.cache
def game_files(version: str) -> dict[str, bytes]:
    """The game in one of its two versions: names as a manifest lists them, and contents."""
    # Bytes behind the end of an executable do not change the program.
    player = BUILD.player.read_bytes() + f"build {version}".encode()
    files = {
        f"bin/{GAME}": player,
        "bin/version.txt": f"Velmorant {version}".encode(),
        "bin/engine.dll": noise("engine", 300_000),
        "data/levels/harbour.dat": noise(f"harbour {version}", 2_500_000),
        "data/levels/castle.dat": noise("castle", 1_000_000),
        "data/music/theme.ogg": noise(f"theme {version}", 1_500_000),
        "readme.txt": f"Velmorant {version}\r\n".encode(),
    }
    if version == "1.0":
        files["bin/physics.dll"] = noise("physics", 200_000)
        files["data/intro.dat"] = noise("intro", 400_000)
    else:
        files["data/levels/desert.dat"] = noise("desert", 2_000_000)
    return files


# Files of the player, which no manifest lists.
OWN_FILES = {
    "Saved/profile.sav": b"level 4, 120 gold",
    "Screenshots/first.png": noise("screenshot", 20_000),
}

VERSIONS = {"1.0": (0, 0, 0, 1), "1.1": (0, 0, 1, 1)}


def write_tree(folder: pathlib.Path, files: dict[str, bytes]) -> None:
    for name, content in files.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


def short(path: pathlib.Path) -> str:
    return str(path.relative_to(DEMO if path.is_relative_to(DEMO) else BUILD.path))


class Studio:
    """Who makes a game: its server's folder, and the tools that it publishes with."""

    def __init__(self, demo: "Demo", base: str, launcher: pathlib.Path, publish: pathlib.Path) -> None:
        self.demo = demo
        self.base = base
        self.launcher = launcher
        self.publish_program = publish
        self.url = demo.server.url(base)
        self.www = demo.server.tree / base
        self.settings = DEMO / "settings" / f"{base}.vpak"
        self.settings.parent.mkdir(exist_ok=True)
        self.www.mkdir()
        self.publish("settings", "--url", self.url, "--channel", "release", "--output", self.settings)

    @property
    def updates(self) -> pathlib.Path:
        return self.www / "updates/release"

    def publish(self, *arguments: str | pathlib.Path, program: pathlib.Path | None = None, fails: bool = False) -> str:
        """Runs the publishing tool and prints its output, which it returns. It has to fail, or not to."""
        shown = [short(a) if isinstance(a, pathlib.Path) else a for a in arguments]
        self.demo.tell("tool", "publish " + " ".join(shown))
        done = subprocess.run(
            command_line(program or self.publish_program, *arguments),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=TIMEOUT,
        )
        for line in done.stdout.decode().splitlines():
            self.demo.tell("", line.replace(windows_path(DEMO) + "\\", ""))
        if (done.returncode != 0) != fails:
            raise RuntimeError(f"publish {arguments[0]} ended with {done.returncode}")
        return done.stdout.decode()

    def publish_launcher(self, launcher: pathlib.Path, publish: pathlib.Path) -> None:
        to = ("--settings", self.settings, "--channel", "release", "--server", self.www)
        self.publish("launcher", "--exe", launcher, *to, program=publish)

    def publish_game(self, version: str, channel: str = "release", folder: str = "", fails: bool = False) -> str:
        """Publishes a build, or by mistake only one folder of it."""
        build = DEMO / "builds" / version
        if not build.exists():
            write_tree(build, game_files(version))
        to = ("--channel", channel, "--server", self.www)
        return self.publish("game", "--source", build / folder, "--version", f"{version}.0.0", *to, fails=fails)

    def install(self, root: pathlib.Path) -> GameFolder:
        """An installation of what is published now, as a player has it."""
        game = GameFolder(root)
        write_tree(root, game_files("1.0") | OWN_FILES)
        game.put_copy("Launcher.exe", self.launcher)
        game.put_copy(SETTINGS_FILE, self.settings)
        game.put_copy(VERSION_FILE, self.updates / GAME_VERSION)
        return game


# --- One run, watched --------------------------------------------------------------------------


def take_screenshot(name: str, window: dict) -> None:
    """Saves a window's screenshot, once it has been painted."""
    place = "{width}x{height}+{x}+{y}".format(**window)
    last = b""
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        shot = subprocess.run(
            ["import", "-silent", "-window", "root", "-crop", place, "+repage", "png:-"],
            stdin=subprocess.DEVNULL,
            capture_output=True,
        ).stdout
        # Two alike in a row: nothing is being painted any more.
        if shot and shot == last:
            break
        last = shot
        time.sleep(0.05)
    (DEMO / "screenshots" / name).write_bytes(last)


@dataclasses.dataclass
class Run:
    """What was seen of one run."""

    shown: list[dialogs.Dialog] = dataclasses.field(default_factory=list)
    requests: list[Request] = dataclasses.field(default_factory=list)
    progress: list[str] = dataclasses.field(default_factory=list)
    exits: list[tuple[str, int]] = dataclasses.field(default_factory=list)
    game_texts: list[str] = dataclasses.field(default_factory=list)
    log: list[str] = dataclasses.field(default_factory=list)
    before: dict = dataclasses.field(default_factory=dict)
    after: dict = dataclasses.field(default_factory=dict)
    # The entries that lay in the game folder while a dialog with this caption was shown.
    during: dict[str, set[str]] = dataclasses.field(default_factory=dict)

    def requested(self) -> list[str]:
        """The last parts of the paths requested, with the status where it is not 200."""
        return [
            request.path.rpartition("/")[2] + ("" if request.status == 200 else f" {request.status}")
            for request in self.requests
        ]

    def did_not_start(self) -> bool:
        happened = self.shown or self.requests or self.game_texts or self.before != self.after
        return not happened and not {0, TERMINATED}.intersection(self.launcher_exits())

    def launcher_exits(self) -> list[int]:
        return [code for name, code in self.exits if name == "Launcher.exe"]


class Demo:
    def __init__(self, server: NginxServer, interactive: bool) -> None:
        self.server = server
        self.interactive = interactive
        self.runs = 0
        self.checks = 0
        self.wrong: list[str] = []
        self.shots = 0

    # --- Printing ----------------------------------------------------------------------------

    def say(self, text: str) -> None:
        print(textwrap.fill(text, 100), flush=True)

    def tell(self, kind: str, text: str) -> None:
        lines = text.splitlines() or [""]
        print(f"  {kind:9} {lines[0]}")
        for line in lines[1:]:
            print(f"  {'':9} {line}")
        sys.stdout.flush()

    def check(self, claim: str, holds: bool) -> None:
        """Prints whether a claim holds. A false one fails the demo, unless a person gives the answers."""
        self.checks += 1
        if holds:
            self.tell("ok", claim)
        else:
            self.tell("DIFFERS", claim) if self.interactive else self.tell("WRONG", claim)
            self.wrong.append(claim)

    def scene(self, title: str, text: str) -> None:
        print(f"\n{'-' * 100}\n{title}\n")
        self.say(text)
        print()

    # --- Running -----------------------------------------------------------------------------

    def run(self, folder: GameFolder, answers: dict[str, str] | None = None) -> Run:
        """One start of the Launcher until it, a restarted one and the game have ended.

        `answers` are the labels of the buttons to press, by caption.
        """
        self.runs += 1
        run = self._watch(folder, answers or {})
        if run.did_not_start():
            # Where addresses are randomised Wine now and then starts no process (lib/common.sh).
            self.tell("again", "Wine did not start the Launcher, and nothing has happened yet.")
            run = self._watch(folder, answers or {})
        return run

    def _watch(self, folder: GameFolder, answers: dict[str, str]) -> Run:
        run = Run(before=folder.tree())
        entries = len(folder.log())
        self.tell("start", str(folder.path("Launcher.exe").relative_to(PROJECT)))
        paths = [windows_path(folder.root), windows_path(folder.path("Launcher.exe"))]
        watcher = Watcher(BUILD, ["run", *paths], {})
        try:
            self._follow(watcher, run, folder, answers)
        finally:
            watcher.close()
        # What the C runtime prints; a program without a console does not show it.
        if watcher.errors():
            self.tell("runtime", watcher.errors())
        self.server.settle()
        self._tell_requests(run)
        run.after = folder.tree()
        self._tell_changes(run)
        run.log = folder.log()[entries:]
        for entry in run.log:
            self.tell("log", entry)
        return run

    def _follow(
        self, watcher: Watcher, run: Run, folder: GameFolder, answers: dict[str, str]
    ) -> None:
        deadline = time.monotonic() + TIMEOUT
        windows: dict[int, dict] = {}
        while True:
            try:
                report = watcher.events.get(timeout=0.1)
            except queue.Empty:
                report = {"event": "nothing"}
            if report is None:
                return
            self._tell_requests(run)
            match report["event"]:
                case "dialog":
                    self._dialog(watcher, run, folder, report, answers)
                case "window":
                    windows[report["window"]] = report
                    self.tell("window", f"[{report['caption']}]")
                case "controls":
                    self._controls(watcher, run, windows[report["window"]], report["controls"])
                case "exit":
                    run.exits.append((report["name"], report["code"]))
                    self.tell("exit", f"{report['name']} ended with exit code {report['code']}")
                case "failed":
                    raise RuntimeError(f"watch.exe: {report['what']} failed ({report['error']})")
                case "end":
                    return
            if not self.interactive and time.monotonic() > deadline:
                raise RuntimeError("the run does not end")

    def _dialog(
        self,
        watcher: Watcher,
        run: Run,
        folder: GameFolder,
        report: dict,
        answers: dict[str, str],
    ) -> None:
        caption = report["caption"]
        labels = [button["label"].replace("&", "") for button in report["buttons"]]
        run.shown.append(dialogs.Dialog(caption, report["text"], tuple(labels), report["icon"]))
        run.during[caption] = {path.name for path in folder.root.iterdir()}
        text = textwrap.fill(report["text"], 84)
        self.tell("dialog", f"[{caption}]  icon: {report['icon']}\n{text}")
        self._screenshot(caption, report)
        if self.interactive:
            wanted = answers.get(caption)
            hint = f" (the demo would press {wanted})" if wanted else ""
            self.tell("answer", f"yours: {', '.join(labels)}{hint}")
        elif caption in answers:
            self.tell("answer", answers[caption])
            identifier = report["buttons"][labels.index(answers[caption])]["id"]
            watcher.order(f"press {report['window']} {identifier}")
        else:
            raise RuntimeError(f"unexpected dialog [{caption}]")

    def _controls(self, watcher: Watcher, run: Run, window: dict, controls: list[dict]) -> None:
        if window["class"] == PROGRESS_WINDOW_CLASS:
            by_class = {control["class"].lower(): control for control in controls}
            if not {"static", "msctls_progress32"} <= by_class.keys():
                return  # The window is still being made.
            label, bar = by_class["static"]["text"], by_class["msctls_progress32"]
            # The bar steps after the label: both are reported, the text is printed once.
            if label not in run.progress:
                run.progress.append(label)
                self.tell("progress", f"{label} (bar {bar['low']} to {bar['high']})")
                self._screenshot(window["caption"], window)
        elif window["name"] == GAME:
            text = " ".join(control["text"] for control in controls).replace("\n\n", " ")
            if not text:
                return  # The window is still being made.
            run.game_texts.append(text)
            self.tell("", text)
            self._screenshot("Game", window)
            if not self.interactive:
                watcher.order(f"close {window['window']}")

    def _screenshot(self, what: str, window: dict) -> None:
        self.shots += 1
        words = "".join(c if c.isalnum() else "-" for c in what.lower()).strip("-")
        name = f"{self.shots:02}-{words}.png"
        take_screenshot(name, window)
        self.tell("", f"(screenshots/{name})")

    def _tell_requests(self, run: Run) -> None:
        for request in self.server.new_requests():
            run.requests.append(request)
            self.tell("request", f"{request.status} {request.path} ({request.size:,} bytes)")

    def _tell_changes(self, run: Run) -> None:
        for name in sorted(run.before.keys() | run.after.keys()):
            # A directory's content is None.
            shown = name + "/" if run.before.get(name, run.after.get(name)) is None else name
            if name not in run.before:
                self.tell("new", shown)
            elif name not in run.after:
                self.tell("deleted", shown)
            elif run.before[name] != run.after[name]:
                self.tell("changed", shown)


# --- The runs ----------------------------------------------------------------------------------

QUIET_REQUESTS = ["redirect.txt 404", "updater.manifest", "UpdaterData.vpak", GAME_VERSION]
OK_TO_UPDATE = {dialogs.UPDATE_AVAILABLE.caption: "OK"}


def current_game(demo: Demo, game: GameFolder) -> None:
    demo.scene(
        "1. Everything is current",
        "The player starts the Launcher. Launcher and game are what the server offers, so nothing "
        "is asked and the game starts.",
    )
    run = demo.run(game)
    demo.check("no dialog was shown", run.shown == [])
    demo.check("four small files were asked for", run.requested() == QUIET_REQUESTS)
    demo.check("the Launcher ended with 0", run.launcher_exits() == [0])
    demo.check("the game ran: version 1.0", run.game_texts == ["The game is running. Velmorant 1.0"])
    demo.check("no file was changed, nothing was logged", run.before == run.after and not run.log)


def new_launcher(demo: Demo, game: GameFolder, studio: Studio) -> None:
    demo.scene(
        "2. A newer Launcher",
        f"The server now offers version {NEXT_VERSION} of the Launcher. The running one moves itself aside as "
        "_old.exe, puts the new one in its place and restarts; the new one deletes _old.exe and "
        "starts the game.",
    )
    studio.publish_launcher(BUILD.next, BUILD.publish_next)
    run = demo.run(game, {dialogs.RESTART_REQUIRED.caption: "OK"})
    demo.check('only "Restart required." was shown', run.shown == [dialogs.RESTART_REQUIRED])
    demo.check(
        "_old.exe lay there during the restart",
        PARKED in run.during.get(dialogs.RESTART_REQUIRED.caption, ()),
    )
    demo.check("_old.exe is gone", PARKED not in run.after)
    demo.check(
        "the new Launcher is installed",
        game.read("Launcher.exe") == BUILD.next.read_bytes(),
    )
    demo.check(
        "the old one downloaded it, the new one found itself current",
        run.requested() == ["redirect.txt 404", "updater.manifest", "Launcher.exe"] + QUIET_REQUESTS,
    )
    demo.check("both ended with 0", run.launcher_exits() == [0, 0])
    demo.check("the game ran once", len(run.game_texts) == 1)


def declined_update(demo: Demo, game: GameFolder, studio: Studio) -> None:
    demo.scene(
        "3. A new version of the game, declined",
        "The server now offers version 1.1 of the game. The player says no, and plays version 1.0.",
    )
    studio.publish_game("1.1")
    run = demo.run(game, {dialogs.UPDATE_AVAILABLE.caption: "Cancel"})
    demo.check('only "Update available" was shown', run.shown == [dialogs.UPDATE_AVAILABLE])
    demo.check("nothing more was downloaded", run.requested() == QUIET_REQUESTS)
    demo.check("no file was changed, nothing was logged", run.before == run.after and not run.log)
    demo.check("the Launcher ended with 0", run.launcher_exits() == [0])
    demo.check("the game ran: version 1.0", run.game_texts == ["The game is running. Velmorant 1.0"])


def wanted_downloads() -> list[str]:
    """What version 1.1 has new or otherwise than 1.0, in the order of its manifest."""
    old = game_files("1.0")
    return sorted(name for name, content in game_files("1.1").items() if old.get(name) != content)


def new_version_installed(game: GameFolder) -> bool:
    new = game_files("1.1")
    return all(game.has(name) and game.read(name) == new[name] for name in new)


def downloaded(run: Run, base: str) -> list[str]:
    """The game's files that were fetched: what was asked for after the manifest."""
    prefix = f"/{base}/updates/release/"
    names = [urllib.parse.unquote(request.path).removeprefix(prefix) for request in run.requests]
    return names[names.index(GAME_MANIFEST) + 1 :]


def strict_update(demo: Demo, game: GameFolder, base: str) -> None:
    demo.scene(
        "4. The update, with the Launcher as it ships",
        "This time the player says yes. The changed files are downloaded and installed. Then comes "
        "the clean-up, which removes every entry of the game folder that the manifest does not "
        "list as a file. Directories are never listed, so it tries to remove bin, too; bin holds "
        "the game, cannot be removed, and that failure ends the program there and then, by design: "
        "no dialog, no log entry, no start of the game.",
    )
    run = demo.run(game, OK_TO_UPDATE)
    demo.check('only "Update available" was shown', run.shown == [dialogs.UPDATE_AVAILABLE])
    demo.check("exactly the changed files were downloaded", downloaded(run, base) == wanted_downloads())
    total = len(game_files("1.1"))
    demo.check(
        "the progress window counted the files",
        len(run.progress) > 1 and all(text.endswith(f" / {total}") for text in run.progress),
    )
    demo.check("all files of version 1.1 are installed", new_version_installed(game))
    demo.check(
        f"the process was terminated (exit code {TERMINATED})", run.launcher_exits() == [TERMINATED]
    )
    demo.check("the game was not started, nothing was logged", not run.game_texts and not run.log)
    demo.check(
        "the staged files and the old version record are still there",
        game.has(f"{STAGING}/bin/{GAME}")
        and run.after[VERSION_FILE] == run.before[VERSION_FILE],
    )
    print()
    demo.say(
        "What happened: the new files are in place, but the version record is still the old one, "
        "because it is written after the clean-up. So the next start offers the update again; "
        "a player who cancels plays the new version."
    )
    print()
    run = demo.run(game, {dialogs.UPDATE_AVAILABLE.caption: "Cancel"})
    demo.check("the update was offered again", run.shown == [dialogs.UPDATE_AVAILABLE])
    demo.check("the game ran: version 1.1", run.game_texts == ["The game is running. Velmorant 1.1"])


def tested_publish(demo: Demo, studio: Studio) -> None:
    demo.scene(
        "5. A mistake, a test and a promotion",
        "The other studio first passes the wrong folder, which the tool rejects: the clean-up of its "
        "players would delete the game. Then it publishes version 1.1 to the channel beta, and "
        "promotes exactly what was tested there to release.",
    )
    release = (studio.updates / GAME_MANIFEST).read_bytes()
    output = studio.publish_game("1.1", folder="data", fails=True)
    demo.check("the wrong folder was rejected", "no bin\\Velmorant Player.exe" in output)
    demo.check("nothing was published", (studio.updates / GAME_MANIFEST).read_bytes() == release)
    studio.publish_game("1.1", channel="beta")
    to = ("--from", "beta", "--to", "release", "--version", "1.1.0.0", "--server", studio.www)
    studio.publish("promote", *to)
    demo.check(
        "release serves the very files of beta",
        all((studio.updates / name).samefile(studio.www / "updates/beta" / name) for name in game_files("1.1")),
    )


def keep_dirs_update(demo: Demo, game: GameFolder, base: str) -> None:
    demo.scene(
        "6. The update to its end, with the Launcher that keeps non-empty directories",
        "Another installation, whose studio ships walk-on/Launcher.exe: its clean-up keeps a "
        "directory that still holds entries, and cleans up inside it.",
    )
    run = demo.run(game, OK_TO_UPDATE | {dialogs.UPDATE_SUCCESSFUL.caption: "OK"})
    demo.check(
        '"Update available" and "Update successfull." were shown',
        run.shown == [dialogs.UPDATE_AVAILABLE, dialogs.UPDATE_SUCCESSFUL],
    )
    demo.check("exactly the changed files were downloaded", downloaded(run, base) == wanted_downloads())
    demo.check("all files of version 1.1 are installed", new_version_installed(game))
    demo.check(
        "what version 1.1 no longer has is deleted",
        "bin/physics.dll" not in run.after and "data/intro.dat" not in run.after,
    )
    demo.check("the player's own files are kept", all(name in run.after for name in OWN_FILES))
    demo.check("the staging folder is gone", not game.has(STAGING))
    demo.check(
        "the new version is recorded",
        game.read(VERSION_FILE) == formats.game_version(*VERSIONS["1.1"]),
    )
    demo.check("the Launcher ended with 0", run.launcher_exits() == [0])
    demo.check("the game ran: version 1.1", run.game_texts == ["The game is running. Velmorant 1.1"])
    print()
    run = demo.run(game)
    demo.check("the next start finds everything current", run.shown == [] and not run.log)
    demo.check("the game ran: version 1.1", run.game_texts == ["The game is running. Velmorant 1.1"])


def server_down(demo: Demo, game: GameFolder, url: str) -> None:
    demo.scene(
        "7. The server is down",
        "Neither update can be looked for. Both say so in the log, the player is not bothered, and "
        "the game starts.",
    )
    demo.server.stop()
    run = demo.run(game)
    demo.check("no dialog was shown", run.shown == [])
    demo.check("the Launcher ended with 0", run.launcher_exits() == [0])
    stages = [
        f"Error while running updater:\nWhile trying to check for {what} from URL '{address}':\n\n"
        f"Failed to download {file} file with error: '"
        for what, address, file in (
            ("self-update", f"{url}updates/release/updater/", "updater-manifest"),
            ("game-updates", f"{url}updates/release/", "game-version"),
        )
    ]
    demo.check(
        "both stages logged their failure",
        len(run.log) == 2 and all(map(str.startswith, run.log, stages)),
    )
    demo.check("the game ran: version 1.1", run.game_texts == ["The game is running. Velmorant 1.1"])


def walk(demo: Demo, server: NginxServer) -> None:
    # Two studios on one server: the second ships the Launcher that keeps non-empty directories.
    strict = Studio(demo, "velmorant", BUILD.launcher, BUILD.publish)
    keep_dirs = Studio(demo, "studio", BUILD.keep_dirs, BUILD.publish_keep_dirs)
    for studio in (strict, keep_dirs):
        studio.publish_launcher(studio.launcher, studio.publish_program)
        studio.publish_game("1.0")
    game = strict.install(DEMO / "games/velmorant")
    studio_game = keep_dirs.install(DEMO / "games/studio")
    server.start()
    demo.say(f"nginx serves {server.tree.relative_to(PROJECT)} at {strict.url}")
    current_game(demo, game)
    new_launcher(demo, game, strict)
    declined_update(demo, game, strict)
    strict_update(demo, game, strict.base)
    tested_publish(demo, keep_dirs)
    keep_dirs_update(demo, studio_game, keep_dirs.base)
    server_down(demo, studio_game, keep_dirs.url)


def main() -> int:
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__)
    parser.add_argument("--interactive", action="store_true", help="leave the answers to you")
    interactive = parser.parse_args().interactive

    shutil.rmtree(DEMO, ignore_errors=True)
    (DEMO / "screenshots").mkdir(parents=True)
    # Long enough for a screenshot, after which the demo closes the game itself.
    os.environ["VELMORANT_PLAYER_SECONDS"] = "5" if interactive else "60"
    os.environ["VELMORANT_PLAYER_RECORD"] = windows_path(DEMO / "game-starts.txt")

    # The data files come slowly, so that the progress window can be seen.
    slowly = "location ~ /data/ { limit_rate 1500k; }"
    server = NginxServer(DEMO / "nginx", DEMO / "server", slowly)
    demo = Demo(server, interactive)
    failure = ""
    try:
        walk(demo, server)
    except KeyboardInterrupt:
        failure = "interrupted"
    except Exception as error:  # The verdict is printed last in any case.
        traceback.print_exc()
        failure = str(error)
    finally:
        server.stop()

    print(f"\n{'-' * 100}")
    print(f"{demo.shots} screenshots are in {(DEMO / 'screenshots').relative_to(PROJECT)}/.")
    counts = f"{demo.runs} runs, {demo.checks - len(demo.wrong)} checks held, {len(demo.wrong)} did not"
    if failure:
        print(f"Verdict: FAILED: {failure} ({counts})")
        return 1
    if interactive:
        print(f"Verdict: all runs came to their end ({counts}: the answers were yours).")
        return 0
    if demo.wrong:
        print(f"Verdict: FAILED ({counts})")
        return 1
    print(f"Verdict: passed ({counts}).")
    return 0


if __name__ == "__main__":
    sys.exit(main())
