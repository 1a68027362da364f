"""Whether the game is offered an update, and what the player's answer does."""

import pytest

from harness import formats
from harness.constants import GAME_MANIFEST, GAME_VERSION, LOG, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_FAILED
from harness.driver import EXIT_MINUS_ONE, cancel, ok
from harness.formats import Archive
from harness.scene import INSTALLED, NEWER, matches
from harness.scripted_server import Answer


LARGEST = 2**31 - 1
SMALLEST = -(2**31)


def assert_no_update(scene, run) -> None:
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_started()


@pytest.mark.parametrize(
    ("installed", "offered"),
    [
        ((0, 0, 0, 1), (0, 0, 0, 2)),
        ((5, 0, 0, 1), (0, 0, 0, 2)),
        ((9, 9, 9, 1), (0, 0, 0, 2)),
        ((0, 0, 0, -1), (0, 0, 0, 0)),
        ((0, 0, -5, 0), (0, 0, -4, 0)),
        ((9, 9, 0, 1), (0, 0, 1, 1)),
        ((9, 0, 1, 1), (0, 1, 1, 1)),
        ((0, 1, 1, 1), (1, 1, 1, 1)),
        ((0, 0, 0, SMALLEST), (0, 0, 0, LARGEST)),
        ((LARGEST, LARGEST, LARGEST, -1), (SMALLEST, SMALLEST, SMALLEST, 0)),
    ],
)
def test_a_newer_version_is_offered(scene, installed, offered):
    scene.folder.put(VERSION_FILE, formats.game_version(*installed))
    scene.offer_game_version(*offered)
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert run.dialogs == [UPDATE_AVAILABLE]


@pytest.mark.parametrize(
    ("installed", "offered"),
    [
        ((0, 0, 0, 0), (0, 0, 0, 0)),
        ((1, 2, 3, 4), (1, 2, 3, 4)),
        ((0, 0, 0, 2), (5, 0, 0, 1)),
        ((0, 0, 0, 2), (9, 9, 9, 1)),
        ((0, 0, 0, 0), (0, 0, 0, -1)),
        ((0, 0, 1, 1), (9, 9, 0, 1)),
        ((0, 1, 1, 1), (9, 0, 1, 1)),
        ((1, 1, 1, 1), (0, 1, 1, 1)),
        ((0, 0, 0, LARGEST), (0, 0, 0, SMALLEST)),
    ],
)
def test_an_equal_or_older_version_is_not_offered(scene, installed, offered):
    scene.folder.put(VERSION_FILE, formats.game_version(*installed))
    scene.offer_game_version(*offered)
    assert_no_update(scene, scene.run())


@pytest.mark.parametrize("installed_checked", [False, True])
@pytest.mark.parametrize("offered_checked", [False, True])
def test_checked_and_plain_version_files_are_compared(scene, installed_checked, offered_checked):
    scene.folder.put(VERSION_FILE, formats.game_version(*INSTALLED, checked=installed_checked))
    scene.serve(GAME_VERSION, formats.game_version(*NEWER, checked=offered_checked))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert run.log == []


def test_a_declined_update_fetches_nothing_logs_nothing_and_starts_the_game(scene):
    scene.offer_game({"data/file": b"new"})
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.changes(), run.log, run.exit_code) == ({}, [], 0)
    run.assert_game_started()


def test_a_declined_update_is_offered_again(scene):
    scene.offer_game({"data/file": b"new"})
    scene.run([cancel(UPDATE_AVAILABLE)])
    scene.run([cancel(UPDATE_AVAILABLE)])


# --- The installed version file ---------------------------------------------------------------


@pytest.mark.parametrize(
    "content",
    [
        pytest.param(None, id="missing"),
        pytest.param(formats.game_version(*NEWER, header="GameVersiom"), id="another word"),
        pytest.param(formats.game_version(*NEWER, header="GameVersio"), id="a shorter word"),
        pytest.param(formats.game_version(*NEWER, version=2), id="file version 2"),
        pytest.param(formats.game_version(*NEWER, version=0), id="file version 0"),
        pytest.param(formats.game_version(*NEWER)[:9], id="an archive header only"),
        pytest.param(formats.game_version(*NEWER)[:25], id="cut in the file version"),
    ],
)
def test_a_missing_or_unknown_installed_version_makes_the_update_available(scene, content):
    """The server's version is not looked at before the player agrees."""
    scene.folder.remove(VERSION_FILE)
    if content is not None:
        scene.folder.put(VERSION_FILE, content)
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert run.requests == scene.requests()
    assert (run.changes(), run.log, run.exit_code) == ({}, [], 0)
    run.assert_game_started()


def test_an_installed_version_cut_short_counts_as_version_0(scene):
    scene.folder.put(VERSION_FILE, formats.game_version(*NEWER)[:-1])
    scene.offer_game_version(0, 0, 0, 0)
    assert_no_update(scene, scene.run())
    scene.offer_game_version(1, 0, 0, 0)
    scene.run([cancel(UPDATE_AVAILABLE)])


CHECKED = formats.game_version(*INSTALLED, checked=True)


@pytest.mark.parametrize(
    ("content", "message"),
    [
        pytest.param(
            Archive(magic=7).data + b"more", "Invalid header 7 for binary file.", id="magic number"
        ),
        pytest.param(b"\xa1\xfc", "Invalid header 0 for binary file.", id="two bytes"),
        pytest.param(
            Archive(version=3).data,
            "Invalid version 3 for binary file (supported: 1).",
            id="archive version",
        ),
        pytest.param(
            CHECKED[:9] + b"\x00\x00\x00\x00" + CHECKED[13:],
            "Invalid string-identifier 0 (was expecting 793518264).",
            id="identifier",
        ),
        pytest.param(
            CHECKED[:13] + b"\x02" + CHECKED[14:],
            "Invalid debug-size for type. Was 2, expected 4.",
            id="width of the word's length",
        ),
        pytest.param(
            CHECKED[:-20] + b"\x08" + CHECKED[-19:],
            "Invalid debug-size for type. Was 8, expected 16.",
            id="width of the version",
        ),
        pytest.param(
            CHECKED[:-28],
            "Invalid debug-size for type. Was 0, expected 4.",
            id="nothing after the word",
        ),
        pytest.param(
            CHECKED[:-20],
            "Invalid debug-size for type. Was 0, expected 16.",
            id="nothing after the file version",
        ),
    ],
)
def test_an_installed_version_file_that_is_broken_is_logged_and_the_game_starts(
    scene, content, message
):
    scene.folder.put(VERSION_FILE, content)
    scene.offer_game_version(*NEWER)
    run = scene.run()
    assert run.requests == scene.requests()
    assert run.log == [scene.game_update_entry(message)]
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


def test_an_empty_installed_version_file_cannot_be_mapped(scene):
    scene.folder.put(VERSION_FILE, b"")
    run = scene.run()
    assert run.requests == scene.requests()
    prefix = (
        "Failed to CreateFileMapping when trying to open mapped file 'Updater\\GameVersion.vpak': "
    )
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.game_update_entry(prefix))
    assert len(run.log[0]) > len(scene.game_update_entry(prefix))
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()


def test_a_version_file_that_stays_locked_is_logged_and_the_game_starts(scene):
    scene.lock(VERSION_FILE)
    run = scene.run()
    assert run.requests == scene.requests()
    prefix = "Failed to CreateFile when trying to open mapped file 'Updater\\GameVersion.vpak': "
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.game_update_entry(prefix))
    assert "trying again" not in run.log[0]
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()


def test_a_version_file_that_others_read_is_readable(scene):
    scene.lock(VERSION_FILE, "read")
    assert_no_update(scene, scene.run())


# --- The server's version file ----------------------------------------------------------------


@pytest.mark.parametrize(
    ("content", "message"),
    [
        pytest.param(
            formats.game_version(*NEWER, header="GameVersio"),
            "Remove game-version file had unexpected header 'GameVersio'.",
            id="a shorter word",
        ),
        pytest.param(
            formats.game_version(*NEWER)[:9],
            "Remove game-version file had unexpected header ''.",
            id="no word",
        ),
        pytest.param(
            formats.game_version(*NEWER, version=2),
            "Remove game-version file had unexpected file-version '2'.",
            id="file version 2",
        ),
        pytest.param(
            formats.game_version(*NEWER, version=2**32 - 1),
            "Remove game-version file had unexpected file-version '4294967295'.",
            id="largest file version",
        ),
        pytest.param(
            formats.game_version(*NEWER)[:24],
            "Remove game-version file had unexpected file-version '0'.",
            id="no file version",
        ),
        pytest.param(b"", "Invalid header 0 for binary file.", id="empty"),
        pytest.param(b"<html>", "Invalid header 1836345404 for binary file.", id="an error page"),
        pytest.param(
            Archive(version=2).data,
            "Invalid version 2 for binary file (supported: 1).",
            id="archive version 2",
        ),
    ],
)
def test_a_version_file_of_the_server_that_is_broken_is_logged_and_the_game_starts(
    scene, content, message
):
    scene.serve(GAME_VERSION, content)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert run.log == [scene.game_update_entry(message)]
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


# --- After OK: failures before the first file -------------------------------------------------

SECOND_DOWNLOAD = (
    "Failed to download remote game-version file with error: '404 - no such file.'"
)
NO_MANIFEST = "Failed to download game-update-manifest file with error: '404 - no such file.'"


def fail_at_the_second_download(scene) -> str:
    scene.folder.remove(VERSION_FILE)
    scene.serve(GAME_VERSION, Answer(b"", status=404))
    return SECOND_DOWNLOAD


def fail_at_the_manifest(scene) -> str:
    scene.offer_game_version(*NEWER)
    return NO_MANIFEST


@pytest.mark.parametrize("provoke", [fail_at_the_second_download, fail_at_the_manifest])
@pytest.mark.parametrize("answer", [ok, cancel])
def test_a_failure_before_the_first_file_asks_whether_to_start_the_game(scene, provoke, answer):
    """The dialog comes first and the log entry second; the answer decides about the game."""
    message = provoke(scene)
    logged = []
    run = scene.run(
        [
            ok(UPDATE_AVAILABLE),
            answer(UPDATE_FAILED, meanwhile=lambda: logged.append(scene.folder.log())),
        ],
        expected_exits=(0 if answer is ok else EXIT_MINUS_ONE,),
    )
    assert logged == [[]]
    assert run.log == [scene.game_update_entry(message)]
    assert set(run.changes()) == {"Logs", LOG}
    assert all(window["class"] != "UpdaterWindow" for window in run.windows)
    if answer is ok:
        run.assert_game_started()
    else:
        run.assert_game_not_started()


def test_without_an_installed_version_the_file_is_fetched_after_the_player_agreed(scene):
    message = fail_at_the_second_download(scene)
    requests = []
    run = scene.run(
        [
            ok(UPDATE_AVAILABLE, meanwhile=lambda: requests.extend(scene.server.requests)),
            ok(UPDATE_FAILED),
        ]
    )
    assert requests == scene.requests()
    assert run.requests == scene.requests(GAME_VERSION)
    assert run.log == [scene.game_update_entry(message)]


def test_with_an_installed_version_the_file_is_fetched_once(scene):
    scene.offer_game_version(*NEWER)
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(GAME_VERSION, GAME_MANIFEST)


def test_a_log_that_cannot_be_written_does_not_change_the_players_choice(scene):
    fail_at_the_manifest(scene)
    scene.folder.directory(LOG)
    answers = [ok(UPDATE_AVAILABLE), cancel(UPDATE_FAILED)]
    run = scene.run(answers, expected_exits=(EXIT_MINUS_ONE,))
    assert (run.exit_code, run.changes()) == (EXIT_MINUS_ONE, {})
    run.assert_game_not_started()


@pytest.mark.parametrize("status", [401, 500, 418])
def test_the_status_of_a_failed_manifest_download_is_in_the_log(scene, status):
    words = {
        401: "401 - unauthorized.",
        500: "500 - internal server error.",
        418: "418 - unknown error code.",
    }
    scene.offer_game_version(*NEWER)
    scene.serve(GAME_MANIFEST, Answer(b"", status=status))
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    error = f"Failed to download game-update-manifest file with error: '{words[status]}'"
    assert run.log == [scene.game_update_entry(error)]


def test_a_transport_error_of_the_manifest_download_is_in_the_log(scene):
    scene.offer_game_version(*NEWER)
    scene.serve(GAME_MANIFEST, Answer(b"GameUpdate", length=None))
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    error = "Failed to download game-update-manifest file with error: '<platform>'"
    assert len(run.log) == 1
    assert matches(scene.game_update_entry(error), run.log[0])
