"""What the updater manifest says, and what the Launcher makes of it."""

import pytest

from harness.constants import (
    GAME_VERSION,
    NEXT_VERSION,
    OLDER_VERSION,
    OWN_VERSION,
    REDIRECT,
    UPDATER_MANIFEST,
    request_path,
)
from harness.scene import PLATFORM_TEXT
from harness.scripted_server import Answer

DOWNGRADE = (
    f"Trying to downgrade updater to version '{{}}' (from '{OWN_VERSION}'). Downgrade is not supported"
)


def manifest(*lines: str, line_break: str = "\n") -> bytes:
    return line_break.join(lines).encode("latin-1")


VALID = ("Velmorant Updater", "FileVersion: 1", f"Version: {OWN_VERSION}")


@pytest.mark.parametrize(
    "text",
    [
        pytest.param(manifest(*VALID), id="as written"),
        pytest.param(manifest(*VALID, ""), id="a line break at the end"),
        pytest.param(manifest(*VALID, line_break="\r\n"), id="Windows line breaks"),
        pytest.param(manifest("", "", *VALID, "", line_break="\n\n"), id="empty lines"),
        pytest.param(manifest(*VALID, "anything", "else"), id="further lines"),
        pytest.param(b"Velmorant\r Upd\rater\nFileVer\rsion: 1\nVersion: \r%d" % OWN_VERSION, id="stray CR"),
        pytest.param(manifest(VALID[0], "FileVersion: 2", VALID[2]), id="file version 2"),
        pytest.param(manifest(VALID[0], "FileVersion: 99", VALID[2]), id="file version 99"),
        pytest.param(manifest(VALID[0], "FileVersion: -1", VALID[2]), id="file version -1"),
        pytest.param(manifest(VALID[0], VALID[1], f"{VALID[2]}abc"), id="letters after the number"),
        pytest.param(manifest(VALID[0], VALID[1], f"Version: {2**32 + OWN_VERSION}"), id="wraps to the own version"),
        pytest.param(manifest(VALID[0], VALID[1], f"{VALID[2]}: {NEXT_VERSION}"), id="a second separator"),
    ],
)
def test_a_manifest_that_offers_the_own_version_makes_the_launcher_current(scene, text):
    scene.serve(UPDATER_MANIFEST, text)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_started()


LINES = "Invalid number of lines in updater-manifest file. Expecting at least 3, was only {}."
HEADER = "Unknown header in received updater-manifest file (was '{}', expected 'Velmorant Updater')."
FILE_VERSION_NAME = "Unknown file version name '{}' (should have been 'FileVersion')"
FILE_VERSION = "Unsupported file version '0' (must be at least 1)."
VERSION_NAME = "Unknown updater version name '{}' (should have been 'Version')"


@pytest.mark.parametrize(
    ("text", "message"),
    [
        pytest.param(b"", LINES.format(0), id="empty"),
        pytest.param(b"\r\n\r\n\n", LINES.format(0), id="empty lines only"),
        pytest.param(manifest(*VALID[:1]), LINES.format(1), id="one line"),
        pytest.param(manifest(*VALID[:2], "", ""), LINES.format(2), id="two lines"),
        pytest.param(
            manifest("Velmorant Updater ", *VALID[1:]),
            HEADER.format("Velmorant Updater "),
            id="a blank after the header",
        ),
        pytest.param(
            manifest("velmorant updater", *VALID[1:]),
            HEADER.format("velmorant updater"),
            id="header in another case",
        ),
        pytest.param(
            manifest("<html>", "<body>", "</html>"), HEADER.format("<html>"), id="an error page"
        ),
        pytest.param(
            manifest(VALID[0], "FileVersion:1", VALID[2]),
            FILE_VERSION_NAME.format("FileVersion:1"),
            id="no blank after the colon",
        ),
        pytest.param(
            manifest(VALID[0], "FileVersion:", VALID[2]),
            FILE_VERSION_NAME.format("FileVersion:"),
            id="nothing after the colon",
        ),
        pytest.param(
            manifest(VALID[0], "fileversion: 1", VALID[2]),
            FILE_VERSION_NAME.format("fileversion"),
            id="file version in another case",
        ),
        pytest.param(
            manifest(VALID[0], "FileVersion : 1", VALID[2]),
            FILE_VERSION_NAME.format("FileVersion "),
            id="a blank before the colon",
        ),
        pytest.param(
            manifest(VALID[0], "   ", VALID[2]),
            FILE_VERSION_NAME.format("   "),
            id="a line of blanks is a line",
        ),
        pytest.param(manifest(VALID[0], "FileVersion: 0", VALID[2]), FILE_VERSION, id="0"),
        pytest.param(manifest(VALID[0], "FileVersion: x", VALID[2]), FILE_VERSION, id="x"),
        pytest.param(manifest(VALID[0], "FileVersion: ", VALID[2]), FILE_VERSION, id="no number"),
        pytest.param(manifest(VALID[0], "FileVersion:  1", VALID[2]), FILE_VERSION, id="two blanks"),
        pytest.param(manifest(VALID[0], "FileVersion: +1", VALID[2]), FILE_VERSION, id="plus sign"),
        pytest.param(
            manifest(*VALID[:2], "Version:6"), VERSION_NAME.format("Version:6"), id="Version:6"
        ),
        pytest.param(
            manifest(*VALID[:2], "version: 6"), VERSION_NAME.format("version"), id="version: 6"
        ),
        pytest.param(manifest(*VALID[:2], f"Version: {OLDER_VERSION}"), DOWNGRADE.format(OLDER_VERSION), id="older"),
        pytest.param(manifest(*VALID[:2], "Version: "), DOWNGRADE.format(0), id="no version"),
        pytest.param(manifest(*VALID[:2], f"Version:  {NEXT_VERSION}"), DOWNGRADE.format(0), id="leading blank"),
        pytest.param(
            manifest(*VALID[:2], f"Version: {2**32}"), DOWNGRADE.format(0), id="wraps to 0"
        ),
    ],
)
def test_a_manifest_that_is_refused_is_logged_and_the_game_update_goes_on(scene, text, message):
    """Nothing of the Launcher is fetched, no dialog is shown, and the game's version is checked."""
    scene.serve(UPDATER_MANIFEST, text)
    run = scene.run()
    assert run.requests == [
        "/" + REDIRECT,
        request_path(UPDATER_MANIFEST),
        request_path(GAME_VERSION),
    ]
    assert run.log == [scene.self_update_entry(message)]
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()


@pytest.mark.parametrize(
    ("answer", "error"),
    [
        (Answer(b"", status=404), "404 - no such file."),
        (Answer(b"", status=500), "500 - internal server error."),
        (Answer(manifest(*VALID), length=None), PLATFORM_TEXT),
    ],
)
def test_a_manifest_that_cannot_be_fetched_is_logged_and_the_game_update_goes_on(
    scene, answer, error
):
    scene.serve(UPDATER_MANIFEST, answer)
    run = scene.run()
    assert run.requests[-1] == request_path(GAME_VERSION)
    entry = scene.self_update_entry("Failed to download updater-manifest file with error: '")
    assert len(run.log) == 1
    assert run.log[0].startswith(entry)
    assert run.log[0].endswith("'")
    if error != PLATFORM_TEXT:
        assert run.log[0] == f"{entry}{error}'"
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()
