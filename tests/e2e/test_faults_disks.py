"""Disks that do not do what is asked of them: write protection, a full disk, long and strange names.

The tests of each stage cover files that another process keeps open.
"""

import os
import pathlib
import shutil
import subprocess

import pytest

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    NEXT_VERSION,
    PARKED,
    STAGING,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
    VERSION_FILE,
)
from harness.dialogs import RESTART_REQUIRED, UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, ok
from harness.scene import INSTALLED, NEWER, Scene
from harness.scripted_server import Answer, ScriptedServer

UPDATED = [ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)]


@pytest.fixture
def studio(scene):
    """A game in "bin", with the Launcher whose clean-up completes."""
    scene.install_launcher(scene.build.keep_dirs)
    return scene


def offer(scene: Scene, files: dict[str, bytes], directories: list[str]) -> None:
    lines = [formats.file_line(name, content) for name, content in files.items()]
    lines.append(formats.file_line(GAME, scene.build.player.read_bytes()))
    scene.offer_game(files, directories, lines)


# --- Write protection -------------------------------------------------------------------------


def protect(scene: Scene, name: str) -> pathlib.Path:
    """The read-only attribute, which Wine keeps in the host's permissions."""
    path = scene.folder.path(name)
    path.chmod(0o444)
    return path


@pytest.mark.parametrize(
    ("name", "listed"),
    [
        pytest.param(
            "bin/game.dll",
            True,
            id="installed",
            marks=pytest.mark.skipif(
                os.geteuid() == 0, reason="Wine goes by the host's permissions, which root passes over"
            ),
        ),
        pytest.param("bin/old.dll", False, id="unlisted"),
    ],
)
def test_a_read_only_file_ends_the_update_which_goes_on_when_it_is_writable(studio, name, listed):
    studio.folder.put(name, b"old content")
    files = {"bin/game.dll": b"new content"}
    offer(studio, files, ["bin"])
    path = protect(studio, name)
    run = studio.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert studio.folder.read(name) == b"old content"
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    assert studio.folder.read(f"{STAGING}/bin/game.dll") == b"new content"
    run.assert_game_not_started()
    path.chmod(0o644)
    run = studio.run(UPDATED)
    assert run.requests == studio.requests(GAME_VERSION, GAME_MANIFEST)
    assert studio.folder.read("bin/game.dll") == b"new content"
    assert studio.folder.has(name) == listed
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*NEWER)
    run.assert_game_started()


def test_a_read_only_file_that_is_kept_does_not_stop_the_update(studio):
    studio.folder.put("Saved/profile.sav", b"the player's")
    protect(studio, "Saved/profile.sav")
    offer(studio, {"bin/game.dll": b"new content"}, ["bin"])
    run = studio.run(UPDATED)
    assert studio.folder.read("Saved/profile.sav") == b"the player's"
    run.assert_game_started()


def test_a_read_only_launcher_is_replaced_but_its_parked_copy_stays(scene):
    """Renaming does not ask for the attribute, deleting does."""
    old, new = scene.build.launcher.read_bytes(), scene.build.next.read_bytes()
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, new)
    protect(scene, "Launcher.exe")
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0))
    assert scene.folder.read("Launcher.exe") == new
    assert scene.folder.read(PARKED) == old
    assert run.log == []
    run.assert_game_started()


# --- A full disk ------------------------------------------------------------------------------


class SmallDisk:
    """The game folder of a scene on a separate disk."""

    def __init__(self, scene: Scene) -> None:
        self.scene = scene
        root = scene.folder.root
        moved = scene.temp_dir / "moved"
        root.rename(moved)
        root.mkdir()
        done = subprocess.run(
            ["mount", "-t", "tmpfs", "-o", "size=16m", "tmpfs", str(root)],
            stderr=subprocess.PIPE,
            check=False,
        )
        self.mounted = done.returncode == 0
        if not self.mounted:
            pytest.skip(f"no small disk can be mounted here: {done.stderr.decode().strip()}")
        shutil.copytree(moved, root, dirs_exist_ok=True)

    def leave(self, space: int) -> None:
        """Fills the disk but for this space, in whole pages."""
        filler = self.scene.folder.path("Saved/large.sav")
        filler.parent.mkdir(exist_ok=True)
        disk = os.statvfs(self.scene.folder.root)
        filler.write_bytes(bytes(disk.f_bavail * disk.f_bsize - space))

    def make_room(self) -> None:
        self.scene.folder.remove("Saved")

    def close(self) -> None:
        if self.mounted:
            # At the latest when the last program has let go of it.
            subprocess.run(["umount", "--lazy", str(self.scene.folder.root)], check=True)


@pytest.fixture
def small_disk(studio):
    disk = SmallDisk(studio)
    yield disk
    disk.close()


LARGE = bytes(range(256)) * 2400  # 600 KiB


def test_a_disk_too_full_to_install_ends_the_update_which_goes_on_when_there_is_room(small_disk):
    scene = small_disk.scene
    offer(scene, {"bin/large.dat": LARGE}, ["bin"])
    small_disk.leave(300 << 10)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    staged = scene.folder.read(f"{STAGING}/bin/large.dat")
    assert len(staged) < len(LARGE) and LARGE.startswith(staged)
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    run.assert_game_not_started()
    small_disk.make_room()
    run = scene.run(UPDATED)
    assert run.requests[-1] == f"/{scene.updates}bin/large.dat"
    assert scene.folder.read("bin/large.dat") == LARGE
    run.assert_game_started()


def test_a_file_cut_off_by_a_full_disk_is_installed_without_an_error(small_disk):
    """A short write is not noticed, and a download is not checked. The next update finds that the
    file has another digest."""
    scene = small_disk.scene
    scene.folder.put("bin/large.dat", LARGE[::-1])
    offer(scene, {"bin/large.dat": LARGE}, ["bin"])
    small_disk.leave(300 << 10)
    run = scene.run(UPDATED)
    installed = scene.folder.read("bin/large.dat")
    assert len(installed) < len(LARGE) and LARGE.startswith(installed)
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*NEWER)
    run.assert_game_started()
    small_disk.make_room()
    scene.offer_game_version(0, 0, 0, 3)
    scene.run(UPDATED)
    assert scene.folder.read("bin/large.dat") == LARGE


def test_a_launcher_that_does_not_fit_on_the_disk_is_put_back_by_hand(small_disk):
    scene = small_disk.scene
    old, new = scene.folder.read("Launcher.exe"), scene.build.next.read_bytes()
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, new)
    small_disk.leave(100 << 10)
    run = scene.run([ok(RESTART_REQUIRED)])
    torn = scene.folder.read("Launcher.exe")
    assert len(torn) < len(new) and new.startswith(torn)
    assert scene.folder.read(PARKED) == old
    run.assert_game_not_started()
    small_disk.make_room()
    scene.folder.path(PARKED).replace(scene.folder.path("Launcher.exe"))
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0))
    assert scene.folder.read("Launcher.exe") == new
    run.assert_game_started()


def test_a_log_that_does_not_fit_on_the_disk_does_not_stop_the_game(small_disk):
    scene = small_disk.scene
    scene.serve(UPDATER_MANIFEST, Answer(status=503))
    scene.folder.directory("Logs")
    small_disk.leave(0)
    run = scene.run()
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert scene.folder.path("Logs/updater.log").stat().st_size == 0
    run.assert_game_started()


# --- Names ------------------------------------------------------------------------------------


def test_the_longest_name_that_the_staging_folder_takes_is_installed(studio):
    """255 characters, the folder included, are what a file's path may have."""
    name = "d" * (255 - len("Intermediate\\Update\\"))
    offer(studio, {name: b"content"}, ["bin"])
    run = studio.run(UPDATED)
    assert studio.folder.read(name) == b"content"
    run.assert_game_started()


@pytest.mark.parametrize("length", [236, 255, 256, 1000])
def test_a_longer_name_ends_the_update_with_the_old_game_in_place(studio, length):
    name = "d" * length
    studio.folder.put("bin/game.dll", b"old content")
    offer(studio, {"bin/game.dll": b"new content", name: b"content"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.changes() == {
        "Intermediate": ("-", None),
        STAGING: ("-", None),
        f"{STAGING}/bin": ("-", None),
        f"{STAGING}/bin/game.dll": ("-", b"new content"),
    }
    run.assert_game_not_started()


@pytest.fixture
def strange_place(build, temp_dir):
    scene = Scene(build, temp_dir / "Große Spiele 漢字 & (Ελλάδα)", ScriptedServer())
    yield scene
    scene.close()


def test_a_game_folder_with_blanks_and_other_letters_is_updated(strange_place):
    strange_place.install_launcher(strange_place.build.keep_dirs)
    offer(strange_place, {"bin/game.dll": b"new content"}, ["bin"])
    run = strange_place.run(UPDATED)
    assert strange_place.folder.read("bin/game.dll") == b"new content"
    assert run.log == []
    run.assert_game_started()


def test_a_launcher_in_a_folder_with_blanks_and_other_letters_is_replaced(strange_place):
    new = strange_place.build.next.read_bytes()
    strange_place.offer_launcher(NEXT_VERSION)
    strange_place.serve(UPDATER_EXECUTABLE, new)
    run = strange_place.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0))
    assert strange_place.folder.read("Launcher.exe") == new
    run.assert_game_started()
