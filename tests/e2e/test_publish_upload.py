"""Uploading by rclone as docs/publishing.md describes it, and what players get after each step."""

import os
import pathlib
import shlex
import shutil
import socket
import subprocess
import time
import urllib.parse

import pytest

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    PROJECT,
    SETTINGS_FILE,
    STAGING,
    TIMEOUT,
    VERSION_FILE,
)
from harness.dialogs import RESTART_REQUIRED, UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, LauncherRun, Press, ok, run_launcher
from harness.game_folder import GameFolder
from harness.nginx_server import NginxServer, die_with_parent
from harness.pages import blocks
from harness.published import expected_channel, make_build, tree_of
from harness.publishing import publish
from harness.scripted_server import ScriptedServer

CHANNEL = "updates/release"

OLDEST = {"bin/first.dat": b"oldest", "bin/level.dat": b"level 0", "readme.txt": b"oldest"}
OLD = {"bin/first.dat": b"first", "bin/level.dat": b"level 1", "bin/old.dll": b"old"}
# A changed file has the same size: hosts without times and digests show no difference.
NEW = {"bin/first.dat": b"first", "bin/level.dat": b"level 2", "bin/new file.dat": b"new"}

OLDEST_VERSION, OLD_VERSION, NEW_VERSION = "1.0.0.0", "1.0.0.1", "1.0.0.2"


def recipe(first_words: str) -> list[str]:
    """The commands of the page's block that begins with these words."""
    page = PROJECT / "docs" / "publishing.md"
    found = [block.commands for block in blocks(page)]
    (commands,) = [c for c in found if c and c[0].line.startswith(first_words)]
    return [command.line for command in commands]


COPY_EVERYTHING = recipe("rclone copy www host:")
STEPS = recipe("rclone copy --files-from")
ALL_FILES = recipe("rclone copy --ignore-times --exclude")
LAUNCHER_STEPS = recipe("rclone copy --ignore-times www/updates/release/updater/Launcher.exe")


class Host:
    """A WebDAV host that keeps neither times nor digests; rclone calls it "host:"."""

    def __init__(self, temp_dir: pathlib.Path) -> None:
        self.temp_dir = temp_dir
        self.folder = temp_dir / "host" / "www"
        self.folder.parent.mkdir()
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            address = f"127.0.0.1:{probe.getsockname()[1]}"
        self.environment = {
            **os.environ,
            "RCLONE_CONFIG": str(temp_dir / "rclone.conf"),
            "RCLONE_CACHE_DIR": str(temp_dir / "rclone-cache"),
            "RCLONE_CONFIG_HOST_TYPE": "webdav",
            "RCLONE_CONFIG_HOST_URL": f"http://{address}/",
            "RCLONE_CONFIG_HOST_VENDOR": "other",
        }
        (temp_dir / "rclone.conf").touch()
        self.log = (temp_dir / "webdav.log").open("wb")
        self.process = subprocess.Popen(
            ["rclone", "serve", "webdav", self.folder.parent, "--addr", address],
            env=self.environment, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log,
            preexec_fn=die_with_parent,
        )
        deadline = time.monotonic() + TIMEOUT
        while self.run("rclone lsf host:").returncode != 0:
            assert self.process.poll() is None and time.monotonic() < deadline, "no WebDAV host"
            time.sleep(0.05)

    def run(self, line: str) -> subprocess.CompletedProcess:
        return subprocess.run(
            shlex.split(line), cwd=self.temp_dir, env=self.environment, stdin=subprocess.DEVNULL,
            stderr=subprocess.PIPE, timeout=TIMEOUT, check=False,
        )

    def do(self, line: str) -> None:
        done = self.run(line)
        assert done.returncode == 0, done.stderr.decode()

    def close(self) -> None:
        self.process.terminate()
        self.process.wait(TIMEOUT)
        self.log.close()


class Studio:
    """Publishes to its own "www", which the host and nginx on the host's folder make public."""

    def __init__(self, build, temp_dir: pathlib.Path) -> None:
        self.build = build
        self.temp_dir = temp_dir
        self.www = temp_dir / "www"
        self.lists = temp_dir / "lists"
        self.player = build.player.read_bytes()
        self.host = Host(temp_dir)
        self.nginx = NginxServer(temp_dir / "nginx", self.host.folder)
        self.nginx.start()
        self.url = f"http://127.0.0.1:{self.nginx.port}/"
        self.settings = temp_dir / "UpdaterData.vpak"
        self.settings.write_bytes(formats.updater_data(self.url))
        self._folders = 0

    def close(self) -> None:
        self.nginx.stop()
        self.host.close()

    def publish_launcher(self, launcher: pathlib.Path, program: pathlib.Path) -> None:
        arguments = ["--exe", launcher, "--settings", self.settings, "--channel", "release"]
        done = publish(self.build, "launcher", *arguments, "--server", self.www, program=program)
        assert (done.code, done.errors) == (0, [])

    def publish_game(self, files: dict[str, bytes], version: str) -> None:
        source = self.temp_dir / "build"
        shutil.rmtree(source, ignore_errors=True)
        make_build(source, self.with_game(files))
        done = publish(
            self.build, "game", "--source", source, "--version", version, "--channel", "release",
            "--server", self.www, "--upload-lists", self.lists, program=self.build.publish_keep_dirs,
        )
        assert (done.code, done.errors) == (0, [])

    def publish_first(self) -> None:
        self.publish_launcher(self.build.keep_dirs, self.build.publish_keep_dirs)
        self.publish_game(OLD, OLD_VERSION)
        self.host.do(COPY_EVERYTHING[0])

    def with_game(self, files: dict[str, bytes]) -> dict[str, bytes]:
        return {GAME: self.player, **files}

    def install(self, files: dict[str, bytes], version: str, settings: bytes | None = None) -> GameFolder:
        """A player's game folder of its own with this version."""
        self._folders += 1
        folder = GameFolder(self.temp_dir / f"player {self._folders}" / "game")
        folder.put_copy("Launcher.exe", self.build.keep_dirs)
        folder.put(SETTINGS_FILE, settings or self.settings.read_bytes())
        for name, content in self.with_game(files).items():
            folder.put(name, content)
        folder.put(VERSION_FILE, expected_channel({}, version)[GAME_VERSION])
        return folder

    def start(self, folder: GameFolder, *answers: Press, **options) -> LauncherRun:
        return run_launcher(self.build, folder, None, answers=list(answers), **options)

    def update(self, folder: GameFolder, files: dict[str, bytes], version: str) -> None:
        """A run that is offered an update, and ends with exactly this."""
        run = self.start(folder, ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL))
        assert run.log == []
        run.assert_game_started()
        self.assert_installed(folder, files, version)

    def stay(self, folder: GameFolder) -> None:
        """A run that is offered nothing, and changes nothing."""
        run = self.start(folder)
        assert (run.changes(), run.log) == ({}, [])
        run.assert_game_started()

    def assert_installed(self, folder: GameFolder, files: dict[str, bytes], version: str) -> None:
        assert not folder.has(STAGING)
        expected = {
            **expected_channel(self.with_game(files), version),
            "Launcher.exe": self.build.keep_dirs.read_bytes(),
            SETTINGS_FILE: folder.read(SETTINGS_FILE),
            "Updater": None,
            "Intermediate": None,
        }
        del expected[GAME_MANIFEST]
        expected[VERSION_FILE] = expected.pop(GAME_VERSION)
        assert tree_of(folder.root) == expected

    def assert_host_is_www(self) -> None:
        assert tree_of(self.host.folder) == tree_of(self.www)
        done = publish(self.build, "verify", "--url", self.url, "--channel", "release")
        assert (done.code, done.errors) == (0, [])


@pytest.fixture
def studio(build, temp_dir):
    made = Studio(build, temp_dir)
    yield made
    made.close()


# What players get who are behind before each step and at the end: the old version, or the new one.
MIXED = {**OLD, "bin/level.dat": NEW["bin/level.dat"]}
OFFERED = [
    (OLD, OLD_VERSION),
    (MIXED, OLD_VERSION),
    (NEW, OLD_VERSION),
    (NEW, NEW_VERSION),
    (NEW, NEW_VERSION),
]


def test_after_each_step_players_get_a_version_or_its_files_early(studio):
    studio.publish_first()
    studio.assert_host_is_www()
    studio.publish_game(NEW, NEW_VERSION)
    behind = []
    for step, (files, version) in zip([*STEPS, None], OFFERED, strict=True):
        folder = studio.install(OLDEST, OLDEST_VERSION)
        studio.update(folder, files, version)
        behind.append((folder, version))
        current = studio.install(OLD, OLD_VERSION)
        if version == OLD_VERSION:
            studio.stay(current)
        else:
            studio.update(current, NEW, NEW_VERSION)
        if step:
            studio.host.do(step)
    studio.assert_host_is_www()
    for folder, version in behind:
        if version == NEW_VERSION:
            studio.stay(folder)
        else:
            studio.update(folder, NEW, NEW_VERSION)


def test_a_player_whose_dialog_is_open_during_the_upload_gets_the_new_files(studio):
    studio.publish_first()
    studio.publish_game(NEW, NEW_VERSION)
    folder = studio.install(OLDEST, OLDEST_VERSION)

    def upload() -> None:
        for step in STEPS:
            studio.host.do(step)

    studio.start(folder, ok(UPDATE_AVAILABLE, meanwhile=upload), ok(UPDATE_SUCCESSFUL))
    studio.assert_installed(folder, NEW, OLD_VERSION)
    studio.update(folder, NEW, NEW_VERSION)


@pytest.mark.parametrize("steps", [3, 4])
def test_a_player_in_the_middle_of_a_download_is_repaired_by_the_next_start(studio, steps):
    """Here the host's files are served by a server that can hold an answer back."""
    server = ScriptedServer()
    studio.settings.write_bytes(formats.updater_data(server.url))
    studio.publish_first()
    studio.publish_game(NEW, NEW_VERSION)
    serve_all(server, studio.host.folder)
    held = server.hold(f"{CHANNEL}/bin/first.dat")
    folder = studio.install(OLDEST, OLDEST_VERSION)
    # After the deletions a listed file is missing, which ends the update without a message.
    end = ([ok(UPDATE_SUCCESSFUL)], 0) if steps == 3 else ([], TERMINATED)
    run = LauncherRun(
        studio.build, folder, server, answers=[ok(UPDATE_AVAILABLE), *end[0]], expected_exits=(end[1],)
    )
    try:
        run.wait_for(held)
        for step in STEPS[:steps]:
            studio.host.do(step)
        serve_all(server, studio.host.folder)
        held.open()
        run.finish()
        if steps == 3:
            studio.assert_installed(folder, {**MIXED}, OLD_VERSION)
        studio.update(folder, NEW, NEW_VERSION)
    finally:
        run.close()
        server.close()


def serve_all(server: ScriptedServer, folder: pathlib.Path) -> None:
    """From now on the server serves what the folder contains now."""
    server.answers.clear()
    for name, content in tree_of(folder).items():
        if content is not None:
            server.serve(urllib.parse.quote(name), content)


def test_empty_lists_copy_and_delete_nothing(studio):
    studio.publish_first()
    studio.publish_game(OLD, NEW_VERSION)
    assert (studio.lists / "1-payload.txt").read_bytes() == b""
    assert (studio.lists / "4-delete.txt").read_bytes() == b""
    for step in STEPS:
        studio.host.do(step)
    studio.assert_host_is_www()


def test_all_files_are_uploaded_where_the_lists_are_lost(studio):
    studio.publish_first()
    studio.publish_game(NEW, NEW_VERSION)
    newest = {**NEW, "bin/level.dat": b"level 3"}
    studio.publish_game(newest, "1.0.0.3")
    folder = studio.install(OLD, OLD_VERSION)
    studio.host.do(ALL_FILES[0])
    studio.stay(folder)
    for step in STEPS[1:3]:
        studio.host.do(step)
    studio.update(folder, newest, "1.0.0.3")


def test_the_launcher_is_offered_when_its_manifest_is_uploaded_last(studio):
    studio.publish_first()
    studio.publish_launcher(studio.build.next, studio.build.publish_next)
    folder = studio.install(OLD, OLD_VERSION)
    for step in LAUNCHER_STEPS:
        studio.stay(folder)
        studio.host.do(step)
    studio.assert_host_is_www()
    studio.start(folder, ok(RESTART_REQUIRED), expected_exits=(0, 0)).assert_game_started()
    assert folder.read("Launcher.exe") == studio.build.next.read_bytes()
