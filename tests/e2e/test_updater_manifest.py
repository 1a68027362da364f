"""What the updater manifest says, and what the Launcher makes of it."""

import pytest

from scene import PLATFORM_TEXT
from scripted_server import Answer

MANIFEST = "updater/updater.manifest"
DOWNGRADE = (
    "Trying to downgrade updater to version '{}' (from '6'). Downgrade is not supported"
)


def manifest(*lines: str, line_break: str = "\n") -> bytes:
    return line_break.join(lines).encode("latin-1")


VALID = ("Velmorant Updater", "FileVersion: 1", "Version: 6")


@pytest.mark.parametrize(
    "text",
    [
        pytest.param(manifest(*VALID), id="as written"),
        pytest.param(manifest(*VALID, ""), id="a line break at the end"),
        pytest.param(manifest(*VALID, line_break="\r\n"), id="Windows line breaks"),
        pytest.param(manifest("", "", *VALID, "", line_break="\n\n"), id="empty lines"),
        pytest.param(manifest(*VALID, "anything", "else"), id="further lines"),
        pytest.param(b"Velmorant\r Upd\rater\nFileVer\rsion: 1\nVersion: \r6", id="stray CR"),
        pytest.param(manifest(VALID[0], "FileVersion: 2", VALID[2]), id="file version 2"),
        pytest.param(manifest(VALID[0], "FileVersion: 99", VALID[2]), id="file version 99"),
        pytest.param(manifest(VALID[0], "FileVersion: -1", VALID[2]), id="file version -1"),
        pytest.param(manifest(VALID[0], VALID[1], "Version: 6abc"), id="letters after the number"),
        pytest.param(manifest(VALID[0], VALID[1], "Version: 4294967302"), id="wraps to 6"),
        pytest.param(manifest(VALID[0], VALID[1], "Version: 6: 7"), id="a second separator"),
    ],
)
def test_a_manifest_that_offers_version_6_makes_the_launcher_current(scene, text):
    scene.serve(MANIFEST, text)
    run = scene.run()
    assert run.requests == scene.requests("GameVersion.vpak")
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
        pytest.param(manifest(*VALID[:2], "Version: 5"), DOWNGRADE.format(5), id="version 5"),
        pytest.param(manifest(*VALID[:2], "Version: "), DOWNGRADE.format(0), id="no version"),
        pytest.param(manifest(*VALID[:2], "Version:  7"), DOWNGRADE.format(0), id="leading blank"),
        pytest.param(
            manifest(*VALID[:2], "Version: 4294967297"), DOWNGRADE.format(1), id="wraps to 1"
        ),
    ],
)
def test_a_manifest_that_is_refused_is_logged_and_the_game_update_goes_on(scene, text, message):
    """Nothing of the Launcher is fetched, nobody is asked, and the game's version is looked up."""
    scene.serve(MANIFEST, text)
    run = scene.run()
    assert run.requests == [
        "/redirect.txt",
        "/updates/release/updater/updater.manifest",
        "/updates/release/GameVersion.vpak",
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
    scene.serve(MANIFEST, answer)
    run = scene.run()
    assert run.requests[-1] == "/updates/release/GameVersion.vpak"
    entry = scene.self_update_entry("Failed to download updater-manifest file with error: '")
    assert len(run.log) == 1
    assert run.log[0].startswith(entry)
    assert run.log[0].endswith("'")
    if error != PLATFORM_TEXT:
        assert run.log[0] == f"{entry}{error}'"
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()
