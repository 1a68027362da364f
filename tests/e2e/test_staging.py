"""Fetching the files of an update into the staging folder, up to where the program applies them.

The game's own folder "bin" holds the game, so every update here ends abnormally when
the clean-up meets it, with everything staged and copied. Tested are the stages before.
"""

import pytest

from harness import formats
from harness.constants import CHECK, GAME_MANIFEST, GAME_VERSION, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_FAILED
from harness.driver import TERMINATED, cancel, ok
from harness.scene import INSTALLED
from harness.scripted_server import Answer


FILES = {
    "data/one": b"content of one",
    "data/two": b"content of two",
    "data/three": b"content of three",
    "data/four": b"content of four",
    "data/five": b"content of five",
}


def assert_ended_abnormally(scene, run) -> None:
    """No dialog but the question, no log, no game, and the version on disk is still the old one."""
    assert run.exit_code == TERMINATED
    assert run.dialogs == [UPDATE_AVAILABLE]
    assert {window["class"] for window in run.windows} <= {"UpdaterWindow"}
    assert not scene.folder.has("Logs")
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    run.assert_game_not_started()


def staged(scene, name: str) -> bytes | None:
    path = scene.folder.path(f"{STAGING}/{name}")
    return path.read_bytes() if path.is_file() else None


# --- Which files are fetched ------------------------------------------------------------------


def test_missing_and_changed_files_are_fetched_in_order_staged_and_installed(scene):
    scene.folder.put("data/two", b"an older two")
    scene.offer_game(FILES)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, *FILES)
    for name, content in FILES.items():
        assert staged(scene, name) == content
        assert scene.folder.read(name) == content
    assert_ended_abnormally(scene, run)


def test_an_installed_file_that_is_current_is_neither_fetched_nor_staged(scene):
    scene.folder.put("data/two", FILES["data/two"])
    scene.folder.put("data/four", FILES["data/four"])
    scene.offer_game(FILES)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/one", "data/three", "data/five")
    assert staged(scene, "data/two") is None
    assert staged(scene, "data/four") is None
    assert_ended_abnormally(scene, run)


def test_a_current_file_is_not_even_touched(scene):
    path = scene.folder.put("data/two", FILES["data/two"])
    before = path.stat()
    scene.offer_game(FILES)
    scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    after = path.stat()
    assert (after.st_mtime_ns, after.st_ino) == (before.st_mtime_ns, before.st_ino)


@pytest.mark.parametrize(
    "installed",
    [
        pytest.param(b"content of tw0", id="same size"),
        pytest.param(b"content of two and more", id="longer"),
        pytest.param(b"content", id="shorter"),
        pytest.param(b"", id="empty"),
    ],
)
def test_an_installed_file_with_another_content_is_fetched_and_replaced(scene, installed):
    scene.folder.put("data/two", installed)
    scene.offer_game({"data/two": FILES["data/two"]})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/two")
    assert scene.folder.read("data/two") == FILES["data/two"]
    assert_ended_abnormally(scene, run)


def test_a_complete_file_of_an_interrupted_run_is_reused(scene):
    scene.folder.put(f"{STAGING}/data/two", FILES["data/two"])
    scene.offer_game(FILES)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, *(n for n in FILES if n != "data/two"))
    assert scene.folder.read("data/two") == FILES["data/two"]
    assert_ended_abnormally(scene, run)


@pytest.mark.parametrize(
    "leftover",
    [
        pytest.param(b"content of tw0", id="same size"),
        pytest.param(b"content of", id="broken off"),
        pytest.param(b"content of two and more", id="longer"),
    ],
)
def test_a_damaged_file_of_an_interrupted_run_is_fetched_again(scene, leftover):
    scene.folder.put(f"{STAGING}/data/two", leftover)
    scene.offer_game({"data/two": FILES["data/two"]})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/two")
    assert staged(scene, "data/two") == FILES["data/two"]
    assert scene.folder.read("data/two") == FILES["data/two"]
    assert_ended_abnormally(scene, run)


def test_a_file_that_is_current_does_not_take_the_staged_one(scene):
    scene.folder.put("data/two", FILES["data/two"])
    scene.folder.put(f"{STAGING}/data/two", b"left over")
    scene.offer_game({"data/two": FILES["data/two"]})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK)
    assert scene.folder.read("data/two") == FILES["data/two"]
    assert staged(scene, "data/two") == b"left over"


def test_a_digest_in_uppercase_never_matches(scene):
    content = FILES["data/two"]
    scene.folder.put("data/two", content)
    scene.folder.put(f"{STAGING}/data/two", content)
    line = formats.file_line("data/two", content, formats.md5(content).upper())
    scene.offer_game({"data/two": content}, lines=[line])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/two")
    assert_ended_abnormally(scene, run)


def test_a_download_is_installed_unchecked_and_fetched_again_by_the_next_run(scene):
    line = formats.file_line("data/two", FILES["data/two"])
    scene.offer_game({"data/two": b"something else"}, lines=[line])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert scene.folder.read("data/two") == b"something else"
    assert_ended_abnormally(scene, run)

    scene.serve("data/two", FILES["data/two"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/two")
    assert scene.folder.read("data/two") == FILES["data/two"]


def test_a_body_that_breaks_off_is_installed_as_far_as_it_came(scene):
    scene.offer_game({"data/two": FILES["data/two"]})
    scene.serve("data/two", Answer(FILES["data/two"], cut_after=5))
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert scene.folder.read("data/two") == b"conte"
    assert_ended_abnormally(scene, run)


def test_an_empty_body_is_a_file(scene):
    scene.offer_game({"data/two": FILES["data/two"]})
    scene.serve("data/two", b"")
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert scene.folder.read("data/two") == b""
    assert_ended_abnormally(scene, run)


def test_a_negative_size_is_accepted_and_never_matches(scene):
    content = FILES["data/two"]
    scene.folder.put("data/two", content)
    scene.offer_game({"data/two": content}, lines=[f"'data/two' -5 {formats.md5(content)}"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/two")
    assert_ended_abnormally(scene, run)


@pytest.mark.parametrize(
    "line",
    [
        pytest.param("anything 'data/two' {size} {digest}", id="text before the name"),
        pytest.param("'data/two'{size} {digest}", id="no blank after the name"),
        pytest.param("'data/two' {size}bytes {digest}", id="letters after the size"),
    ],
)
def test_lenient_file_lines_are_read(scene, line):
    content = FILES["data/two"]
    scene.folder.put("data/two", content)
    text = line.format(size=len(content), digest=formats.md5(content))
    scene.offer_game({}, lines=[text])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    # The file is current: whatever was misread would have been asked for.
    assert run.requests == scene.requests(*CHECK)
    assert scene.folder.read("data/two") == content


def test_windows_line_breaks_and_empty_lines_change_nothing(scene):
    scene.offer_game(FILES)
    lines = [formats.file_line(name, content) for name, content in FILES.items()]
    text = formats.game_manifest(["data"], lines).replace(b"\n", b"\r\n\r\n")
    scene.serve(GAME_MANIFEST, b"\r\n" + text)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, *FILES)
    assert scene.folder.read("data/five") == FILES["data/five"]


def test_all_files_current_means_no_downloads_and_the_update_goes_on(scene):
    for name, content in FILES.items():
        scene.folder.put(name, content)
    scene.offer_game(FILES, ["data", "fresh"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK)
    # It went on to the clean-up, which ends it at the first folder that is not empty.
    assert scene.folder.has(STAGING)
    assert_ended_abnormally(scene, run)


# --- Directories ------------------------------------------------------------------------------


def test_the_listed_directories_are_made_in_the_staging_folder(scene):
    scene.offer_game({"data/sub/file": b"content"}, ["data", "data/sub", "data/sub/deep", "more"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    for name in ("data", "data/sub", "data/sub/deep", "more"):
        assert scene.folder.path(f"{STAGING}/{name}").is_dir()
    assert staged(scene, "data/sub/file") == b"content"
    assert scene.folder.read("data/sub/file") == b"content"
    assert_ended_abnormally(scene, run)


@pytest.mark.parametrize(
    "directories",
    [
        pytest.param(["data/sub", "data"], id="child before parent"),
        pytest.param(["data/sub"], id="parent not listed"),
    ],
)
def test_a_directory_without_its_parent_fails_before_any_file_is_fetched(scene, directories):
    scene.offer_game({"data/sub/file": b"content"}, directories)
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(*CHECK)
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.game_update_entry(""))
    assert "create_directory" in run.log[0]
    assert "create_directories" not in run.log[0]
    assert run.exit_code == 0
    run.assert_game_started()


def test_a_directory_that_is_staged_already_is_accepted(scene):
    scene.folder.directory(f"{STAGING}/data")
    scene.offer_game({"data/file": b"content"}, ["data", "data"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert scene.folder.read("data/file") == b"content"
    assert_ended_abnormally(scene, run)


def test_a_file_in_the_place_of_a_staged_directory_fails_before_any_file_is_fetched(scene):
    scene.folder.put(f"{STAGING}/data", b"a file")
    scene.offer_game({"data/file": b"content"})
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(*CHECK)
    assert len(run.log) == 1
    assert "create_directory" in run.log[0]
    run.assert_game_started()


@pytest.mark.parametrize("name", ["Intermediate", "Intermediate/Update"])
def test_a_file_in_the_place_of_the_staging_folder(scene, name):
    """Both are errors: the staging folder's path ends with a separator, so only a folder exists under
    it."""
    scene.folder.put(name, b"a file")
    scene.offer_game({"data/file": b"content"})
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(*CHECK)
    message = "create_directories: File already exists [Intermediate\\Update\\]"
    assert run.log == [scene.game_update_entry("filesystem error: " + message)]
    assert scene.folder.read(name) == b"a file"
    run.assert_game_started()


# --- Failures after the first file was begun --------------------------------------------------


def test_a_failed_download_ends_the_program_without_a_box_and_keeps_the_staged_files(scene):
    """The third of five. While it is awaited, the only window is the progress window."""
    scene.offer_game(FILES)
    scene.serve("data/three", Answer(b"", status=404))
    gate = scene.server.hold(scene.updates + "data/three")
    run = scene.start([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    run.wait_until(lambda r: r.open_windows != set(), "the progress window")
    run.wait_for(gate)
    gate.open()
    run.finish()
    assert run.requests == scene.requests(*CHECK, "data/one", "data/two", "data/three")
    assert [window["class"] for window in run.windows] == ["UpdaterWindow"]
    assert_ended_abnormally(scene, run)
    assert staged(scene, "data/one") == FILES["data/one"]
    assert staged(scene, "data/two") == FILES["data/two"]
    assert staged(scene, "data/three") is None
    assert not scene.folder.has("data"), "nothing is installed before everything is staged"


def test_the_run_after_a_failed_download_fetches_only_what_is_missing(scene):
    scene.offer_game(FILES)
    scene.serve("data/three", Answer(b"", status=500))
    assert_ended_abnormally(scene, scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,)))
    scene.serve("data/three", FILES["data/three"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/three", "data/four", "data/five")
    for name, content in FILES.items():
        assert scene.folder.read(name) == content


def test_the_run_after_a_failed_download_may_be_declined(scene):
    scene.offer_game(FILES)
    scene.serve("data/three", Answer(b"", status=404))
    scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert (run.changes(), run.exit_code) == ({}, 0)
    run.assert_game_started()


@pytest.mark.parametrize(
    "answer",
    [
        pytest.param(Answer(b"", status=401), id="401"),
        pytest.param(Answer(b"content", length=None), id="no length"),
        pytest.param(Answer(b"content", chunked=True), id="chunked"),
        pytest.param(Answer(silent=True), id="no answer"),
    ],
)
def test_any_failed_file_download_ends_the_program(scene, answer):
    scene.offer_game({"data/one": b"1"})
    scene.serve("data/one", answer)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert_ended_abnormally(scene, run)
    assert staged(scene, "data/one") is None


def test_a_file_that_cannot_be_staged_ends_the_program(scene):
    """A leftover of an earlier run that another process keeps open for reading."""
    scene.folder.put(f"{STAGING}/data/one", b"111")
    scene.lock(f"{STAGING}/data/one", "read")
    scene.offer_game({"data/one": b"1"})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/one")
    assert staged(scene, "data/one") == b"111"
    assert_ended_abnormally(scene, run)


def test_a_file_whose_directory_is_not_listed_ends_the_program(scene):
    scene.offer_game({"unlisted/one": b"1"}, ["data"])
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "unlisted/one")
    assert_ended_abnormally(scene, run)


def test_an_installed_file_that_cannot_be_read_ends_the_program(scene):
    """Its size is right, so it has to be read; another process keeps it closed."""
    scene.folder.put("data/one", b"1")
    scene.lock("data/one")
    scene.offer_game({"data/one": b"2"})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK)
    assert_ended_abnormally(scene, run)


def test_an_installed_file_of_another_size_is_not_read(scene):
    """Were it read, the lock would end the program before the download."""
    scene.folder.put("data/one", b"111")
    holder = scene.lock("data/one")
    scene.offer_game({"data/one": b"2"})
    gate = scene.server.hold(scene.updates + "data/one")
    run = scene.start([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    run.wait_for(gate)
    holder.close()
    gate.open()
    run.finish()
    assert scene.folder.read("data/one") == b"2"
    assert_ended_abnormally(scene, run)


# --- Without an installed version -------------------------------------------------------------


def test_without_an_installed_version_the_servers_version_file_is_not_checked(scene):
    scene.folder.remove(VERSION_FILE)
    scene.offer_game({"data/one": b"1"})
    scene.serve(GAME_VERSION, b"not even an archive")
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.requests == scene.requests(*CHECK, "data/one")
    assert scene.folder.read("data/one") == b"1"
    assert run.exit_code == TERMINATED
    assert not scene.folder.has(VERSION_FILE)


def test_the_question_is_asked_again_after_an_abnormal_end(scene):
    scene.offer_game({"data/one": b"1"})
    for _ in range(2):
        run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
        assert_ended_abnormally(scene, run)
    # The second time everything was current.
    assert run.requests == scene.requests(*CHECK)
