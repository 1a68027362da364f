"""The settings archive and the addresses that are made from it."""

import pytest

from harness import formats
from harness.constants import GAME_VERSION, LOG, OWN_VERSION, REDIRECT, SETTINGS_FILE, UPDATER_DATA
from harness.formats import Archive
from harness.scene import matches
from harness.scripted_server import Answer, ClosedPort



def assert_logged_and_game_started(scene, run, message: str) -> None:
    """Nothing is asked of any server or of the player; one entry; the installed game starts."""
    assert run.requests == []
    assert run.dialogs == []
    assert run.exit_code == 0
    assert len(run.log) == 1
    assert matches(scene.settings_entry(message), run.log[0]), run.log[0]
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


def test_missing_settings_are_logged_and_the_game_starts(scene):
    scene.folder.remove(SETTINGS_FILE)
    run = scene.run()
    assert_logged_and_game_started(
        scene,
        run,
        "Failed to open file for loading. File 'Updater\\UpdaterData.vpak'. "
        "Error: No such file or directory (2)",
    )


def test_settings_that_another_process_keeps_closed_are_logged(scene):
    scene.lock(SETTINGS_FILE)
    run = scene.run()
    assert_logged_and_game_started(
        scene,
        run,
        "Failed to open file for loading. File 'Updater\\UpdaterData.vpak'. "
        "Error: Permission denied (13)",
    )


URL = "http://127.0.0.1:9/"
VALID = formats.updater_data(URL)
CHECKED = formats.updater_data(URL, checked=True)


@pytest.mark.parametrize(
    ("settings", "message"),
    [
        pytest.param(b"", "Invalid header 0 for binary file.", id="empty file"),
        pytest.param(b"\xa1\xfc\x26", "Invalid header 0 for binary file.", id="three bytes"),
        pytest.param(
            Archive(magic=5).data, "Invalid header 5 for binary file.", id="wrong magic number"
        ),
        pytest.param(
            Archive(version=2).data,
            "Invalid version 2 for binary file (supported: 1).",
            id="wrong archive version",
        ),
        pytest.param(
            formats.updater_data(URL, header="UpdaterDatA"),
            "Invalid header 'UpdaterDatA' in UpdaterData.vpak (was expecting 'UpdaterData').",
            id="wrong header word",
        ),
        pytest.param(
            VALID[:9],
            "Invalid header '' in UpdaterData.vpak (was expecting 'UpdaterData').",
            id="nothing but an archive header",
        ),
        pytest.param(
            VALID[:8],
            "Invalid header '' in UpdaterData.vpak (was expecting 'UpdaterData').",
            id="no byte for the mode",
        ),
        pytest.param(
            formats.updater_data(URL, version=2),
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).",
            id="wrong file version",
        ),
        pytest.param(
            VALID[: 9 + 4 + 11 + 3],
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).",
            id="file version cut short",
        ),
        pytest.param(
            formats.updater_data(""), "Empty URL in UpdaterData.vpak.", id="empty URL"
        ),
        pytest.param(
            VALID[: 9 + 4 + 11 + 4 + 4 + 5], "Empty URL in UpdaterData.vpak.", id="URL cut short"
        ),
        pytest.param(
            formats.updater_data(URL, "Release"),
            "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).",
            id="channel in another case",
        ),
        pytest.param(
            formats.updater_data(URL, "stable"),
            "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).",
            id="unknown channel",
        ),
        pytest.param(
            formats.updater_data(URL, ""),
            "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).",
            id="no channel",
        ),
        pytest.param(
            CHECKED[:9] + b"\x32\x7c\x46\x2f" + CHECKED[13:],
            "Invalid string-identifier 793148466 (was expecting 793518264).",
            id="wide string in place of a string",
        ),
        pytest.param(
            CHECKED[:9] + CHECKED[9:].replace(b"\x32\x7c\x46\x2f", b"\xb8\x20\x4c\x2f", 1),
            "Invalid wstring-identifier 793518264 (was expecting 793148466).",
            id="string in place of a wide string",
        ),
        pytest.param(
            CHECKED[:13] + b"\x08" + CHECKED[14:],
            "Invalid debug-size for type. Was 8, expected 4.",
            id="wrong width",
        ),
    ],
)
def test_invalid_settings_are_logged_and_the_game_starts(scene, settings, message):
    scene.folder.put(SETTINGS_FILE, settings)
    run = scene.run()
    assert_logged_and_game_started(scene, run, message)


@pytest.mark.parametrize("channel", ["alpha", "beta", "demo", "release"])
def test_the_channel_is_part_of_the_updates_address(scene, channel):
    scene.configure(scene.server.url, channel)
    run = scene.run()
    assert run.requests[1] == f"/updates/{channel}/updater/updater.manifest"
    assert run.requests == scene.requests(GAME_VERSION)
    assert run.log == []


def test_checked_settings_mean_the_same_as_plain_ones(scene):
    settings = formats.updater_data(scene.server.url, "demo", checked=True)
    scene.configure(scene.server.url, "demo")
    scene.folder.put(SETTINGS_FILE, settings)
    scene.serve(UPDATER_DATA, settings)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.log, run.changes()) == ([], {})


def test_what_follows_the_record_in_the_settings_is_ignored(scene):
    settings = scene.settings + b"trailing bytes"
    scene.folder.put(SETTINGS_FILE, settings)
    scene.serve(UPDATER_DATA, settings)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert run.log == []


def test_a_url_without_a_final_slash_runs_into_what_follows(scene):
    scene.folder.put(SETTINGS_FILE, formats.updater_data(scene.server.url + "base"))
    run = scene.run()
    assert run.requests == [
        "/baseredirect.txt",
        "/baseupdates/release/updater/updater.manifest",
        "/baseupdates/release/GameVersion.vpak",
    ]


# --- The redirect -----------------------------------------------------------------------------


@pytest.mark.parametrize(
    "answer",
    [
        pytest.param(Answer(b"gone", status=404), id="not found"),
        pytest.param(Answer(b"broken", status=500), id="server error"),
        pytest.param(Answer(b"http://127.0.0.1:9/", status=203), id="another success"),
        pytest.param(Answer(b"http://127.0.0.1:9/", length=None), id="no length"),
        pytest.param(Answer(silent=True), id="no answer"),
    ],
)
def test_without_a_redirect_the_configured_url_is_used_and_nothing_is_logged(scene, answer):
    scene.server.serve(REDIRECT, answer)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.log, run.dialogs, run.changes()) == ([], [], {})
    run.assert_game_started()


def test_a_redirect_moves_all_further_requests(scene):
    scene.server.serve(REDIRECT, scene.server.url.encode() + b"moved/")
    scene.updates = "moved/updates/release/"
    scene.offer_launcher(OWN_VERSION)
    scene.serve(UPDATER_DATA, scene.settings)
    scene.offer_game_version(0, 0, 0, 1)
    run = scene.run()
    assert run.requests == [
        "/" + REDIRECT,
        "/moved/updates/release/updater/updater.manifest",
        "/moved/updates/release/updater/UpdaterData.vpak",
        "/moved/updates/release/GameVersion.vpak",
    ]
    assert run.log == []
    run.assert_game_started()


def test_a_redirect_is_not_looked_up_again_under_the_new_base(scene):
    scene.server.serve(REDIRECT, scene.server.url.encode() + b"first/")
    scene.server.serve("first/redirect.txt", scene.server.url.encode() + b"second/")
    run = scene.run()
    assert run.requests == [
        "/" + REDIRECT,
        "/first/updates/release/updater/updater.manifest",
        "/first/updates/release/GameVersion.vpak",
    ]


def test_a_redirect_without_a_final_slash_gets_none(scene):
    scene.server.serve(REDIRECT, scene.server.url.encode() + b"moved")
    run = scene.run()
    assert run.requests[1:] == [
        "/movedupdates/release/updater/updater.manifest",
        "/movedupdates/release/GameVersion.vpak",
    ]


def self_update_url_in_log(run) -> str:
    return run.log[0].split("self-update from URL '", 1)[1].split("':\n\n", 1)[0]


@pytest.mark.parametrize(
    ("redirect", "base"),
    [
        pytest.param(b"", "", id="empty"),
        pytest.param(b"http://127.0.0.1:9/a\n", "http://127.0.0.1:9/a\n", id="a line break at the end"),
        pytest.param(b" http://127.0.0.1:9/", " http://127.0.0.1:9/", id="a leading blank"),
        pytest.param(
            b"\xef\xbb\xbfhttp://127.0.0.1:9/", "\ufeffhttp://127.0.0.1:9/", id="a byte order mark"
        ),
        pytest.param(b"http://\xc3\xa4.invalid/", "http://\u00e4.invalid/", id="beyond ASCII"),
        pytest.param(b"{}{0}", "{}{0}", id="braces"),
    ],
)
def test_a_redirect_is_taken_exactly_as_it_is(scene, redirect, base):
    scene.server.serve(REDIRECT, redirect)
    run = scene.run()
    assert run.requests[0] == "/" + REDIRECT
    assert len(run.log) == 2
    assert self_update_url_in_log(run) == f"{base}updates/release/updater/"
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()


def test_an_empty_redirect_leaves_addresses_without_a_server(scene):
    scene.server.serve(REDIRECT, b"")
    run = scene.run()
    assert run.requests == ["/" + REDIRECT]
    heading = "Error while running updater:\nWhile trying to check for "
    assert matches(
        heading + "self-update from URL 'updates/release/updater/':\n\n"
        "Failed to download updater-manifest file with error: '<platform>'",
        run.log[0],
    )
    assert matches(
        heading + "game-updates from URL 'updates/release/':\n\n"
        "Failed to download game-version file with error: '<platform>'",
        run.log[1],
    )
    run.assert_game_started()


def test_an_unreachable_server_is_logged_by_both_updates_and_the_game_starts(scene):
    port = ClosedPort()
    scene.folder.put(SETTINGS_FILE, formats.updater_data(port.url))
    run = scene.run()
    port.close()
    assert run.requests == []
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert len(run.log) == 2
    heading = "Error while running updater:\nWhile trying to check for "
    assert matches(
        f"{heading}self-update from URL '{port.url}updates/release/updater/':\n\n"
        "Failed to download updater-manifest file with error: '<platform>'",
        run.log[0],
    )
    assert matches(
        f"{heading}game-updates from URL '{port.url}updates/release/':\n\n"
        "Failed to download game-version file with error: '<platform>'",
        run.log[1],
    )
    run.assert_game_started()
