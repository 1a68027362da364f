"""The variant whose clean-up keeps folders that are not empty and goes on into them."""

import pytest

from harness import formats
from harness.constants import CHECK, GAME, GAME_VERSION, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, ok
from harness.scene import INSTALLED, NEWER



@pytest.fixture
def studio(scene):
    """A game that lives in "bin", with the Launcher for such games."""
    scene.install_launcher(scene.build.keep_dirs)
    return scene


def offer(studio, files: dict[str, bytes], directories: list[str]) -> None:
    """An update to these files and the game's program, which is current."""
    lines = [formats.file_line(name, content) for name, content in files.items()]
    lines.append(formats.file_line(GAME, studio.build.player.read_bytes()))
    studio.offer_game(files, directories, lines)


def test_a_game_in_bin_is_updated_to_the_end_and_started(studio):
    folder = studio.folder
    folder.put("bin/game.dll", b"old dll")
    folder.put("bin/old.dll", b"unlisted")
    folder.put("bin/data/level.dat", b"current")
    folder.put("bin/data/old.dat", b"unlisted")
    folder.directory("bin/empty")
    folder.put("bin/backup.rar", b"kept")
    folder.put("bin/Output.txt", b"not the root's")
    folder.put("Output.txt", b"the root's")
    folder.put("Saved/profile.sav", b"kept")
    folder.put("saved game/profile.sav", b"unlisted")
    folder.put("Logs/older.log", b"kept")
    files = {"bin/game.dll": b"new dll", "bin/data/level.dat": b"current", "bin/new.dll": b"new"}
    offer(studio, files, ["bin", "bin/data"])
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == studio.requests(*CHECK, "bin/game.dll", "bin/new.dll")
    assert run.changes() == {
        "Intermediate": ("-", None),
        VERSION_FILE: (formats.game_version(*INSTALLED), formats.game_version(*NEWER)),
        "bin/Output.txt": (b"not the root's", "-"),
        "bin/data/old.dat": (b"unlisted", "-"),
        "bin/empty": (None, "-"),
        "bin/game.dll": (b"old dll", b"new dll"),
        "bin/new.dll": ("-", b"new"),
        "bin/old.dll": (b"unlisted", "-"),
        "saved game/profile.sav": (b"unlisted", "-"),
    }
    assert not folder.has(STAGING)
    assert (run.log, run.exit_code) == ([], 0)
    run.assert_game_started()


def test_the_game_starts_only_after_the_success_box(studio):
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    starts = []
    run = studio.start(
        [
            ok(UPDATE_AVAILABLE),
            ok(UPDATE_SUCCESSFUL, meanwhile=lambda: starts.append(len(run.game_starts))),
        ]
    )
    run.finish()
    assert starts == [0]
    run.assert_game_started()


def test_the_next_run_finds_the_game_current(studio):
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    run = studio.run()
    assert run.requests == studio.requests(GAME_VERSION)
    assert run.changes() == {}
    run.assert_game_started()


@pytest.mark.parametrize(
    ("name", "kept"),
    [
        ("bin/old.dll", False),
        ("bin/sub/deep/old.dll", False),
        ("saved/profile.sav", False),
        ("LOGS/file", False),
        ("bin/Saved/profile.sav", False),
        ("bin/Output.txt", False),
        ("bin/Launcher.exe", False),
        ("notes.rar.txt", False),
        ("archive.rar/notes.txt", False),
        ("bin/Backup.RAR", True),
        ("a.b/c.rar", True),
        ("Saved/profile.sav", True),
        ("Logs/file", True),
        ("Updater/sub/file", True),
        ("updates/file", True),
        ("CrashLogs/file", True),
        ("Screenshots/file", True),
        ("Symbols/file", True),
        ("Intermediate/file", True),
    ],
)
def test_the_clean_up_reaches_into_folders(studio, name, kept):
    studio.folder.put(name, b"content")
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert studio.folder.has(name) == kept
    assert run.exit_code == 0
    run.assert_game_started()


def test_an_empty_folder_is_removed(studio):
    studio.folder.directory("unlisted")
    offer(studio, {"bin/new.dll": b"new"}, ["bin", "listed"])
    studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert not studio.folder.has("unlisted")
    assert not studio.folder.has("listed")


def test_a_file_listed_with_a_backslash_is_removed_right_after_its_installation(studio):
    for name in ("bin\\new.dll", "bin/new.dll"):
        studio.serve(name, b"new")
    offer(studio, {"bin\\new.dll": b"new"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert not studio.folder.has("bin/new.dll")
    assert run.exit_code == 0
    run.assert_game_started()


def test_a_file_that_cannot_be_removed_ends_the_program(studio):
    studio.folder.put("bin/old.dll", b"in use")
    studio.lock("bin/old.dll", "read")
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.exit_code == TERMINATED
    assert studio.folder.read("bin/old.dll") == b"in use"
    assert studio.folder.has(STAGING)
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    assert not studio.folder.has("Logs")
    run.assert_game_not_started()


def test_without_an_update_the_game_is_started_and_nothing_changes(studio):
    run = studio.run()
    assert run.requests == studio.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_started()


# --- Filled directories that cannot be removed for another reason -----------------------------


def occupied(scene, name: str) -> None:
    """Another process has the directory as its current one: removing it fails as a sharing
    violation."""
    scene.occupy(name)


def read_only(scene, name: str) -> None:
    scene.folder.path(name).chmod(0o555)


@pytest.mark.parametrize("hinder", [occupied, read_only])
@pytest.mark.parametrize("name", ["bin", "bin/data"])
def test_a_filled_directory_that_is_in_use_or_read_only_is_kept_and_entered(studio, hinder, name):
    studio.folder.put("bin/old.dll", b"unlisted")
    studio.folder.put("bin/data/old.dat", b"unlisted")
    studio.folder.put("bin/data/new.dat", b"new")
    offer(studio, {"bin/data/new.dat": b"new"}, ["bin", "bin/data"])
    hinder(studio, name)
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert not studio.folder.has("bin/old.dll")
    assert not studio.folder.has("bin/data/old.dat")
    assert studio.folder.read("bin/data/new.dat") == b"new"
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*NEWER)
    run.assert_game_started()


def test_an_empty_directory_that_is_in_use_ends_the_program(studio):
    studio.folder.directory("bin/empty")
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    studio.occupy("bin/empty")
    run = studio.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert studio.folder.has("bin/empty")
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    run.assert_game_not_started()


@pytest.mark.parametrize("hinder", [occupied, read_only])
def test_the_strict_launcher_ends_at_such_a_directory(scene, hinder):
    offer(scene, {"bin/new.dll": b"new"}, ["bin"])
    hinder(scene, "bin")
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    run.assert_game_not_started()


# --- Paths longer than 259 characters ---------------------------------------------------------

DEEP = "/".join(letter * 90 for letter in "abcd")


def test_a_deep_tree_below_a_kept_folder_does_not_stop_the_update(studio):
    studio.folder.put(f"Saved/{DEEP}/profile.sav", b"the player's")
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert studio.folder.read(f"Saved/{DEEP}/profile.sav") == b"the player's"
    run.assert_game_started()


def test_an_unlisted_file_in_a_deep_tree_is_removed(studio):
    studio.folder.put(f"bin/{DEEP}/old.dll", b"unlisted")
    offer(studio, {"bin/new.dll": b"new"}, ["bin"])
    run = studio.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert not studio.folder.has(f"bin/{DEEP}/old.dll")
    run.assert_game_started()


def test_the_strict_launcher_passes_a_deep_tree_below_a_kept_folder(scene):
    scene.folder.remove("bin")
    scene.folder.put(f"Saved/{DEEP}/profile.sav", b"the player's")
    scene.offer_game({"data.pak": b"data"}, ["Saved"])
    scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert scene.folder.read(f"Saved/{DEEP}/profile.sav") == b"the player's"
