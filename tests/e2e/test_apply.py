"""Applying an update: copying, cleaning up, recording the new version, saying so."""

import os
import pathlib
import select

import pytest

from harness import formats
from harness.constants import CHECK, GAME, GAME_VERSION, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, ok
from harness.scene import INSTALLED, NEWER

NEW_VERSION = formats.game_version(*NEWER)
OLD_VERSION = formats.game_version(*INSTALLED)


@pytest.fixture
def flat(scene):
    """A game whose only filled folders are preserved ones, so that the clean-up succeeds. It lacks
    the game's program, which no run here starts."""
    scene.folder.remove("bin")
    return scene


def updated(scene, files: dict[str, bytes], directories: list[str] | None = None):
    """A run that is to update to these files and to end well."""
    scene.offer_game(files, directories or ["Saved"])
    return scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])


def assert_updated(scene, run) -> None:
    assert run.dialogs == [UPDATE_AVAILABLE, UPDATE_SUCCESSFUL]
    assert run.exit_code == 0
    assert run.log == []
    assert scene.folder.read(VERSION_FILE) == NEW_VERSION
    assert not scene.folder.has(STAGING)


# --- Success, whole ---------------------------------------------------------------------------


def test_an_update_installs_all_files_and_records_the_version(flat):
    flat.folder.put("readme.txt", b"old readme")
    flat.folder.put("Saved/default.sav", b"old save")
    files = {"readme.txt": b"new readme", "Saved/default.sav": b"new save", "data.pak": b"data"}
    run = updated(flat, files, ["Saved", "Saved/more"])
    assert run.requests == flat.requests(*CHECK, *files)
    assert run.changes() == {
        "Intermediate": ("-", None),
        "Saved/default.sav": (b"old save", b"new save"),
        "Saved/more": ("-", None),
        VERSION_FILE: (OLD_VERSION, NEW_VERSION),
        "data.pak": ("-", b"data"),
        "readme.txt": (b"old readme", b"new readme"),
    }
    assert_updated(flat, run)


def test_the_new_version_is_not_offered_again(flat):
    assert_updated(flat, updated(flat, {"data.pak": b"data"}))
    run = flat.run()
    assert run.requests == flat.requests(GAME_VERSION)
    assert (run.dialogs, run.changes()) == ([], {})


def test_before_the_success_box_all_files_are_installed_and_the_progress_window_is_closed(flat):
    flat.folder.put("unlisted.txt", b"goes")
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    seen = []

    def look() -> None:
        folder = flat.folder
        names = [STAGING, "unlisted.txt", "data.pak"]
        seen.append(([folder.has(name) for name in names], folder.read(VERSION_FILE)))

    gate = flat.server.hold(flat.updates + "data.pak")
    success = ok(UPDATE_SUCCESSFUL, meanwhile=look, when=lambda r: not r.open_windows)
    run = flat.start([ok(UPDATE_AVAILABLE), success])
    run.wait_until(lambda r: r.open_windows != set(), "the progress window")
    run.wait_for(gate)
    gate.open()
    run.finish()
    assert seen == [([False, False, True], NEW_VERSION)]
    assert_updated(flat, run)


def test_the_servers_version_file_is_stored_byte_for_byte(flat):
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    content = formats.game_version(*NEWER, checked=True) + b"trailing bytes"
    flat.serve(GAME_VERSION, content)
    run = flat.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert flat.folder.read(VERSION_FILE) == content
    assert run.exit_code == 0


def test_without_an_installed_version_what_the_second_download_gave_is_stored_unchecked(flat):
    flat.folder.remove(VERSION_FILE)
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    flat.serve(GAME_VERSION, b"not even an archive")
    run = flat.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == flat.requests(*CHECK, "data.pak")
    assert flat.folder.read(VERSION_FILE) == b"not even an archive"
    assert (run.exit_code, run.log) == (0, [])


def test_an_update_with_every_file_current_downloads_nothing_and_succeeds(flat):
    flat.folder.put("data.pak", b"data")
    flat.folder.put("unlisted.txt", b"goes")
    run = updated(flat, {"data.pak": b"data"})
    assert run.requests == flat.requests(*CHECK)
    assert run.changes() == {
        "Intermediate": ("-", None),
        "Saved": ("-", None),
        VERSION_FILE: (OLD_VERSION, NEW_VERSION),
        "unlisted.txt": (b"goes", "-"),
    }
    assert_updated(flat, run)


def test_missing_levels_of_a_listed_directory_are_made(flat):
    """Below "Saved", which is preserved: elsewhere the clean-up would meet a filled folder."""
    run = updated(flat, {"data.pak": b"data"}, ["Saved", "Saved/a", "Saved/a/b"])
    assert flat.folder.path("Saved/a/b").is_dir()
    assert_updated(flat, run)


def test_names_with_blanks_and_mixed_separators_are_installed(flat):
    flat.serve("a%20b.txt", b"blank")
    flat.offer_game({"a b.txt": b"blank", "Saved/x.txt": b"x"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert flat.folder.read("a b.txt") == b"blank"
    assert flat.folder.read("Saved/x.txt") == b"x"
    assert_updated(flat, run)


def test_a_large_file_arrives_whole(flat):
    content = bytes(range(256)) * 20000
    run = updated(flat, {"data.pak": content})
    assert flat.folder.read("data.pak") == content
    assert_updated(flat, run)


# --- What the clean-up keeps and what it removes ----------------------------------------------

KEPT = [
    "Output.txt",
    "Backup.RAR",
    "backup.rar",
    "backup.tar.rAr",
    "Saved/profile.sav",
    "Saved/deep/down/profile.sav",
    "Logs/updater.log.1",
    "Updater/anything",
    "updates/file",
    "CrashLogs/dump.dmp",
    "Screenshots/shot.png",
    "Symbols/game.pdb",
    "Intermediate/other/file",
]

REMOVED = [
    "old.dll",
    "output.txt",
    "OUTPUT.TXT",
    "Output.txt.bak",
    "notes.rar.txt",
    "rar",
    ".rar",
    "launcher.EXE.bak",
    "_old.txt",
    "saved",
    "savedgame",
    "Savedgame",
]


@pytest.mark.parametrize("name", KEPT)
def test_what_the_clean_up_keeps(flat, name):
    flat.folder.put(name, b"content")
    run = updated(flat, {"data.pak": b"data"})
    assert name not in run.changes()
    assert_updated(flat, run)


@pytest.mark.parametrize("name", REMOVED)
def test_what_the_clean_up_removes(flat, name):
    flat.folder.put(name, b"content")
    run = updated(flat, {"data.pak": b"data"}, ["data"])
    assert run.changes()[name] == (b"content", "-")
    assert_updated(flat, run)


def test_empty_directories_are_removed_even_if_the_manifest_lists_them(flat):
    """Only files are in the set of names."""
    flat.folder.directory("listed")
    flat.folder.directory("unlisted")
    run = updated(flat, {"data.pak": b"data"}, ["listed", "fresh"])
    assert run.changes()["listed"] == (None, "-")
    assert run.changes()["unlisted"] == (None, "-")
    assert not flat.folder.has("fresh")
    assert_updated(flat, run)


def test_a_file_that_is_listed_in_another_case_is_current_and_then_removed(flat):
    flat.folder.put("README.TXT", b"text")
    run = updated(flat, {"readme.txt": b"text"})
    assert run.requests == flat.requests(*CHECK)
    assert not flat.folder.has("README.TXT")
    assert not flat.folder.has("readme.txt")
    assert_updated(flat, run)


def test_a_file_listed_with_a_backslash_is_removed_right_after_its_installation(flat):
    """The set's names have slashes. A preserved folder saves what is in it; here it is the root."""
    flat.serve(".\\data.pak", b"data")
    flat.serve("./data.pak", b"data")
    flat.serve("data.pak", b"data")
    run = updated(flat, {".\\data.pak": b"data", "other": b"o"})
    assert not flat.folder.has("data.pak")
    assert flat.folder.read("other") == b"o"
    assert_updated(flat, run)


def test_the_running_launcher_is_kept_though_the_manifest_does_not_list_it(flat):
    run = updated(flat, {"data.pak": b"data"})
    assert flat.folder.read("Launcher.exe") == flat.build.launcher.read_bytes()
    assert_updated(flat, run)


def test_a_second_launcher_of_another_name_is_removed(flat):
    flat.folder.put_copy("Other launcher.exe", flat.build.launcher)
    run = updated(flat, {"data.pak": b"data"})
    assert not flat.folder.has("Other launcher.exe")
    assert_updated(flat, run)


def test_a_renamed_launcher_keeps_itself_and_removes_a_file_of_its_former_name(flat):
    flat.folder.put_copy("Start.exe", flat.build.launcher)
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)], launcher="Start.exe")
    assert flat.folder.has("Start.exe")
    assert not flat.folder.has("Launcher.exe")
    assert run.exit_code == 0
    assert flat.folder.read(VERSION_FILE) == NEW_VERSION


def test_a_listed_launcher_that_is_current_is_left_alone(flat):
    content = flat.build.launcher.read_bytes()
    run = updated(flat, {"Launcher.exe": content})
    assert run.requests == flat.requests(*CHECK)
    assert "Launcher.exe" not in run.changes()
    assert_updated(flat, run)


# --- The staging folder's removal -------------------------------------------------------------


def test_the_staging_folder_is_removed_with_everything_in_it(flat):
    flat.folder.put(f"{STAGING}/left/over/file", b"from an older update")
    run = updated(flat, {"data.pak": b"data"})
    assert_updated(flat, run)
    assert flat.folder.path("Intermediate").is_dir()


def test_a_staging_folder_that_cannot_be_removed_is_no_failure(flat):
    """Another process keeps a file of it open."""
    flat.folder.put(f"{STAGING}/left over", b"content")
    flat.lock(f"{STAGING}/left over", "read")
    run = updated(flat, {"data.pak": b"data"})
    assert run.dialogs == [UPDATE_AVAILABLE, UPDATE_SUCCESSFUL]
    assert flat.folder.has(f"{STAGING}/left over")
    assert flat.folder.read(VERSION_FILE) == NEW_VERSION
    assert (run.log, run.exit_code) == ([], 0)


def test_the_removal_of_a_staging_folder_that_is_a_link_leaves_what_it_leads_to(flat):
    """The link may go, what its folder holds may not. (Wine does not remove such a link.)"""
    target = flat.temp_dir / "target"
    target.mkdir()
    (target / "other").write_bytes(b"somebody else's")
    flat.folder.directory("Intermediate")
    flat.folder.path(STAGING).symlink_to(target)
    run = updated(flat, {"data.pak": b"data"})
    assert flat.folder.read("data.pak") == b"data"
    assert (target / "other").read_bytes() == b"somebody else's"
    assert (target / "data.pak").read_bytes() == b"data"
    assert flat.folder.read(VERSION_FILE) == NEW_VERSION
    assert run.exit_code == 0


# --- Links under listed names -----------------------------------------------------------------


@pytest.mark.parametrize("where", ["", f"{STAGING}/"])
def test_a_dangling_link_under_a_listed_name_counts_as_no_file(flat, where):
    """The file is downloaded, and written to where the link leads."""
    flat.folder.directory(STAGING)
    flat.folder.path(f"{where}data.pak").symlink_to(flat.temp_dir / "target")
    run = updated(flat, {"data.pak": b"data"})
    assert run.requests == flat.requests(*CHECK, "data.pak")
    assert flat.folder.read("data.pak") == b"data"
    # Wine deletes what a link leads to in place of the link: the staging folder may stay.
    assert flat.folder.read(VERSION_FILE) == NEW_VERSION


@pytest.mark.parametrize("where", ["", f"{STAGING}/"])
def test_a_link_to_a_current_file_under_a_listed_name_counts_as_that_file(flat, where):
    target = flat.temp_dir / "target"
    target.write_bytes(b"data")
    flat.folder.directory(STAGING)
    flat.folder.path(f"{where}data.pak").symlink_to(target)
    run = updated(flat, {"data.pak": b"data"})
    assert run.requests == flat.requests(*CHECK)
    assert flat.folder.read("data.pak") == b"data"
    # Wine deletes what a link leads to in place of the link: the staging folder may stay.
    assert flat.folder.read(VERSION_FILE) == NEW_VERSION


# --- Failures: the program ends without a box and without a log entry -------------------------


def assert_ended_abnormally(scene, run) -> None:
    assert run.exit_code == TERMINATED
    assert run.dialogs == [UPDATE_AVAILABLE]
    assert {window["class"] for window in run.windows} <= {"UpdaterWindow"}
    assert not scene.folder.has("Logs")
    assert scene.folder.read(VERSION_FILE) == OLD_VERSION
    run.assert_game_not_started()


def test_the_clean_up_ends_the_program_at_a_filled_folder_after_all_copies(scene):
    """The normal case of a game in "bin": copied, staging there, and the version still the old."""
    scene.offer_game({"bin/new.dll": b"new", "data/pak": b"data"}, ["bin", "data"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    for name, content in {"bin/new.dll": b"new", "data/pak": b"data"}.items():
        assert scene.folder.read(name) == content
        assert scene.folder.read(f"{STAGING}/{name}") == content
    assert scene.folder.read(GAME) == scene.build.player.read_bytes()
    assert_ended_abnormally(scene, run)


def test_the_next_run_finds_every_file_current_and_ends_at_the_same_folder(scene):
    scene.offer_game({"bin/new.dll": b"new"}, ["bin"])
    scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK)
    assert run.changes() == {}
    assert_ended_abnormally(scene, run)


def test_even_a_folder_full_of_listed_files_ends_the_program(scene):
    player = scene.build.player.read_bytes()
    scene.offer_game({GAME: player}, ["bin"], [formats.file_line(GAME, player)])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK)
    assert_ended_abnormally(scene, run)


class Pipe:
    """A named pipe: a writer blocks when it is full, until it is read."""

    def __init__(self, path: pathlib.Path) -> None:
        os.mkfifo(path)
        self._end = os.open(path, os.O_RDONLY | os.O_NONBLOCK)

    def has_data(self) -> bool:
        return select.select([self._end], [], [], 0)[0] != []

    def drain(self) -> bytes:
        """What is in it now."""
        return os.read(self._end, 1 << 20) if self.has_data() else b""

    def close(self) -> None:
        os.close(self._end)


@pytest.fixture
def pipe(scene):
    made = Pipe(scene.temp_dir / "pipe")
    yield made
    made.close()


def test_the_progress_window_closes_before_the_first_file_is_copied(flat, pipe):
    """The first file is copied into a pipe, where the copying waits until the window has closed."""
    content = bytes(range(256)) * 4096
    flat.offer_game({"data.pak": content, "later.pak": b"later"}, ["Saved"])
    gate = flat.server.hold(flat.updates + "later.pak")
    run = flat.start([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    run.wait_until(lambda r: r.open_windows != set(), "the progress window")
    run.wait_for(gate)
    assert not flat.folder.has("data.pak"), "nothing is installed before everything is staged"
    flat.folder.path("data.pak").symlink_to(flat.temp_dir / "pipe")
    gate.open()
    run.wait_until(lambda r: pipe.has_data(), "the first copy")
    run.wait_until(lambda r: not r.open_windows, "the end of the progress window")
    assert run.exits == []
    assert not flat.folder.has("later.pak"), "the copying has not come to the second file"
    received = b""

    def drained(_) -> bool:
        nonlocal received
        received += pipe.drain()
        return len(received) == len(content)

    run.wait_until(drained, "the whole first copy")
    assert received == content
    run.finish()
    assert flat.folder.read("later.pak") == b"later"
    assert_updated(flat, run)


def test_a_failure_while_applying_ends_the_program_without_a_box(scene):
    """The abnormal end comes while the window's thread has not been waited for; no box is shown."""
    scene.offer_game({"bin/new.dll": b"new"}, ["bin"])
    gate = scene.server.hold(scene.updates + "bin/new.dll")
    run = scene.start([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    run.wait_until(lambda r: r.open_windows != set(), "the progress window")
    run.wait_for(gate)
    gate.open()
    run.finish()
    assert [window["class"] for window in run.windows] == ["UpdaterWindow"]
    assert_ended_abnormally(scene, run)


def test_an_installed_file_that_cannot_be_replaced_ends_the_program(flat):
    flat.folder.put("data.pak", b"old")
    flat.lock("data.pak", "read")
    flat.offer_game({"a.pak": b"a", "data.pak": b"new data", "z.pak": b"z"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("a.pak") == b"a"
    assert flat.folder.read("data.pak") == b"old"
    assert not flat.folder.has("z.pak")
    assert flat.folder.read(f"{STAGING}/z.pak") == b"z"
    assert_ended_abnormally(flat, run)


def test_a_running_launcher_that_is_listed_with_another_content_ends_the_program(flat):
    flat.offer_game({"Launcher.exe": b"another"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("Launcher.exe") == flat.build.launcher.read_bytes()
    assert_ended_abnormally(flat, run)


def test_an_unlisted_file_that_cannot_be_removed_ends_the_program(flat):
    flat.folder.put("unlisted.txt", b"in use")
    flat.lock("unlisted.txt", "read")
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("data.pak") == b"data"
    assert flat.folder.read("unlisted.txt") == b"in use"
    assert flat.folder.has(STAGING)
    assert_ended_abnormally(flat, run)


def test_a_preserved_folder_that_cannot_be_read_ends_the_program(flat):
    """The clean-up goes into preserved folders, too. Another process keeps this one closed."""
    flat.folder.directory("Saved/locked")
    flat.lock("Saved/locked")
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("data.pak") == b"data"
    assert flat.folder.has(STAGING)
    assert_ended_abnormally(flat, run)


def test_a_directory_that_cannot_be_made_in_the_game_folder_ends_the_program(flat):
    """A file has the name of a level of the path."""
    flat.folder.put("data", b"a file")
    flat.offer_game({"other": b"o"}, ["data", "data/sub"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("data") == b"a file"
    assert not flat.folder.has("other"), "directories come before copies"
    assert_ended_abnormally(flat, run)


def test_a_version_file_that_cannot_be_written_ends_the_program_after_the_staging_folder_is_removed(flat):
    flat.lock(VERSION_FILE, "read")
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    run = flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert flat.folder.read("data.pak") == b"data"
    assert not flat.folder.has(STAGING), "the staging folder goes before the version is written"
    assert_ended_abnormally(flat, run)


def test_the_run_after_a_failed_write_of_the_version_file_succeeds(flat):
    holder = flat.lock(VERSION_FILE, "read")
    flat.offer_game({"data.pak": b"data"}, ["Saved"])
    assert_ended_abnormally(flat, flat.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,)))
    holder.close()
    run = flat.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == flat.requests(*CHECK)
    assert_updated(flat, run)
