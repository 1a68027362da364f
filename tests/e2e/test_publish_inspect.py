"""The command that shows one file: every kind, and every way in which the Launcher rejects it."""

import struct

import pytest

from harness import formats
from harness.game_folder import windows_path
from harness.publishing import publish

URL = "https://updates.example/"
DIGEST = "0123456789abcdef0123456789abcdef"


@pytest.fixture
def inspect(build, temp_dir):
    """Inspects content under a name without a meaning."""

    def run(content: bytes, *options: str):
        path = temp_dir / "some file.bin"
        path.write_bytes(content)
        run = publish(build, "inspect", path, *options)
        assert run.report.pop("file") == windows_path(path)
        assert run.report.pop("size") == len(content)
        assert run.stderr == ""
        prefix = windows_path(path) + ": "
        assert all(text.startswith(prefix) for text in [*run.errors, *run.warnings])
        run.refused = [text.removeprefix(prefix) for text in run.errors]
        run.warned = [text.removeprefix(prefix) for text in run.warnings]
        del run.report["errors"], run.report["warnings"]
        return run

    return run


@pytest.mark.parametrize("checked", [False, True])
def test_settings_are_shown(inspect, checked):
    run = inspect(formats.updater_data(URL, "beta", checked=checked))
    assert (run.code, run.refused, run.warned) == (0, [], [])
    assert run.report == {
        "kind": "settings archive",
        "url": URL,
        "channel": "beta",
    }


@pytest.mark.parametrize("checked", [False, True])
def test_a_game_version_is_shown_with_its_most_significant_number_first(inspect, checked):
    run = inspect(formats.game_version(2, 0, 4, 1, checked=checked))
    assert (run.code, run.refused, run.warned) == (0, [], [])
    assert run.report == {
        "kind": "game version",
        "version": "1.4.0.2",
    }


def test_an_updater_manifest_is_shown(inspect):
    run = inspect(b"\r\nVelmorant Updater\r\nFileVersion: 99\r\n\nVersion: 12x\nmore")
    assert (run.code, run.refused, run.warned) == (0, [], [])
    assert run.report == {"kind": "updater manifest", "version": 12}


MANIFEST = formats.game_manifest(
    ["bin", "bin/data"], [f"'a.txt' 5 {DIGEST}", f"'bin/data/b b' 2000 {DIGEST.upper()}"]
)
SUMMARY = {
    "kind": "game manifest",
    "directories": 2,
    "files": 2,
    "bytes": 2005,
}


@pytest.mark.parametrize("content", [MANIFEST, MANIFEST.replace(b"\n", b"\r\n\r\n")])
def test_a_game_manifest_is_summed_up(inspect, content):
    run = inspect(content)
    assert (run.code, run.refused, run.warned) == (0, [], [])
    assert run.report == SUMMARY


def test_a_sum_beyond_what_can_be_counted_is_the_largest_number(inspect):
    lines = [f"'huge' -5 {DIGEST}", f"'small' 7 {DIGEST}", f"'more' 7 {DIGEST}"]
    run = inspect(formats.game_manifest(["bin"], lines))
    assert (run.code, run.report["bytes"]) == (0, 2**64 - 1)


def damaged(content: bytes, at: int, replacement: bytes) -> bytes:
    return content[:at] + replacement + content[at + len(replacement) :]


SETTINGS = formats.updater_data(URL)
CHECKED_SETTINGS = formats.updater_data(URL, checked=True)
VERSION = formats.game_version(1, 2, 3, 4)
CHECKED_VERSION = formats.game_version(1, 2, 3, 4, checked=True)


@pytest.mark.parametrize(
    ("content", "message"),
    [
        # Header 9, length 4, "UpdaterData" 11.
        pytest.param(
            damaged(SETTINGS, 24, b"\x02"),
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).", id="settings' file version",
        ),
        pytest.param(
            SETTINGS[:26],
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).", id="settings that break off",
        ),
        pytest.param(formats.updater_data(""), "Empty URL in UpdaterData.vpak.", id="empty URL"),
        pytest.param(
            damaged(SETTINGS, 28, b"\xff"), "Empty URL in UpdaterData.vpak.", id="URL longer than the file"
        ),
        pytest.param(
            formats.updater_data(URL, "Release"),
            "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).", id="channel",
        ),
        # Checked: header 9, string 4 + 4 + 4 + 11, number 4 + 4.
        pytest.param(
            damaged(CHECKED_SETTINGS, 40, b"\0"),
            "Invalid wstring-identifier 793148416 (was expecting 793148466).", id="identifier of the URL",
        ),
        pytest.param(
            damaged(VERSION, 24, b"\x03"),
            "Remove game-version file had unexpected file-version '3'.", id="version's file version",
        ),
        pytest.param(
            damaged(CHECKED_VERSION, 40, b"\x08"),
            "Invalid debug-size for type. Was 8, expected 16.", id="width of the version",
        ),
    ],
)
def test_a_rejected_archive_shows_its_readers_message(inspect, content, message):
    run = inspect(content)
    assert (run.code, run.refused, run.warned) == (1, [message], [])
    assert run.report["kind"] in ("settings archive", "game version")


LINE = f"'a' 1 {DIGEST}"
CASES = [
    (["GameUpdate", "FileVersion: 1", "Directories: 1"],
     "Invalid amount of lines (3, at least 4 expected)."),
    (["GameUpdate", "Fileversion: 1", "Directories: 1", "bin", "Files:", LINE],
     "Invalid file-version name 'Fileversion'. (is expecting 'FileVersion')"),
    (["GameUpdate", "FileVersion: 2", "Directories: 1", "bin", "Files:", LINE],
     "Invalid file-version FileVersion. (supported: 1)"),
    (["GameUpdate", "FileVersion: 1", "Directory: 1", "bin", "Files:", LINE],
     "Invalid directory-name 'Directory'. (expected: 'Directories')"),
    (["GameUpdate", "FileVersion: 1", "Directories: 0", "bin", "Files:", LINE],
     "No directories. Abort update to prevent corruption."),
    (["GameUpdate", "FileVersion: 1", "Directories: 4", "bin", "Files:", LINE],
     "Less assumed directory-entries than lines (4, can be a maximum of 3)."),
    (["GameUpdate", "FileVersion: 1", "Directories: 1", "bin"],
     "No lines after directory-entries."),
    (["GameUpdate", "FileVersion: 1", "Directories: 2", "bin", "Files:", LINE],
     f"Invalid file-header '{LINE}' (is expecting 'Files:')"),
    (["GameUpdate", "FileVersion: 1", "Directories: 1", "bin", "Files:"],
     "No files present. Aborting update to prevent corruption."),
    (["GameUpdate", "FileVersion: 1", "Directories: 1", "bin", "Files:", LINE, "'b 1 x"],
     "Invalid file-name at line 1: ''"),
    (["GameUpdate", "FileVersion: 1", "Directories: 1", "bin", "Files:", LINE, f"'b'  1 {DIGEST}"],
     "Invalid empty file size at line 1, for file 'b'"),
    (["GameUpdate", "FileVersion: 1", "Directories: 1", "bin", "Files:", f"'b' 1 {DIGEST}0", LINE],
     f"Invalid hash '{DIGEST}0' with length 33 at line 0 for file 'b'."),
    (["Velmorant Updater", "FileVersion: 1"],
     "Invalid number of lines in updater-manifest file. Expecting at least 3, was only 2."),
    (["Velmorant Updater", "FileVersion:1", "Version: 6"],
     "Unknown file version name 'FileVersion:1' (should have been 'FileVersion')"),
    (["Velmorant Updater", "FileVersion: 0", "Version: 6"],
     "Unsupported file version '0' (must be at least 1)."),
    (["Velmorant Updater", "FileVersion: 1", "version: 6"],
     "Unknown updater version name 'version' (should have been 'Version')"),
]


@pytest.mark.parametrize(("lines", "message"), CASES, ids=range(len(CASES)))
def test_a_rejected_manifest_shows_the_readers_message(inspect, lines, message):
    # The readers do not see empty lines and stray carriage returns.
    text = "\r\n" + "\r\n\n".join(lines) + "\r\n"
    run = inspect(text.encode())
    assert (run.code, run.refused, run.warned) == (1, [message], [])
    kind = "updater manifest" if lines[0].startswith("Velmorant") else "game manifest"
    assert run.report == {"kind": kind}


def no_manifest(header: str) -> list[str]:
    return [
        f"Invalid header '{header}'. (is expecting 'GameUpdate')",
        f"Unknown header in received updater-manifest file (was '{header}', expected 'Velmorant Updater').",
    ]


PAGE = b"<html>\n<body>\n</body>\n</html>\n"


@pytest.mark.parametrize(
    ("content", "archives", "manifests"),
    [
        pytest.param(PAGE, ["Invalid header 1836345404 for binary file."] * 2, no_manifest("<html>"),
                     id="an error page"),
        pytest.param(b"\xa2" + SETTINGS[1:], ["Invalid header 1629944994 for binary file."] * 2, None,
                     id="a wrong magic"),
        pytest.param(b"", ["Invalid header 0 for binary file."] * 2, None, id="nothing"),
        pytest.param(damaged(SETTINGS, 4, struct.pack("<I", 2)),
                     ["Invalid version 2 for binary file (supported: 1)."] * 2, None, id="archive version"),
        pytest.param(damaged(CHECKED_SETTINGS, 9, b"\x32\x7c\x46\x2f"),
                     ["Invalid string-identifier 793148466 (was expecting 793518264)."] * 2, None,
                     id="identifier"),
        pytest.param(formats.Archive().string("Save").u32(7).data,
                     ["Invalid header 'Save' in UpdaterData.vpak (was expecting 'UpdaterData').",
                      "Remove game-version file had unexpected header 'Save'."], None, id="another archive"),
    ],
)
def test_a_file_of_an_unknown_kind_shows_the_message_of_every_reader(inspect, content, archives, manifests):
    run = inspect(content)
    assert (run.code, run.report, run.warned) == (1, {"kind": "unknown"}, [])
    assert len(run.refused) == 4
    assert run.refused[:2] == archives
    if manifests:
        assert run.refused[2:] == manifests


def test_a_file_that_is_not_there_is_refused(build, temp_dir):
    run = publish(build, "inspect", temp_dir / "none.vpak")
    assert run.code == 1
    assert len(run.errors) == 1
    assert "none.vpak" in run.errors[0]


def test_without_a_file_the_usage_is_wrong(build):
    assert publish(build, "inspect").code == 2


def test_a_manifest_of_a_million_lines_is_summed_up(inspect):
    lines = [f"'data/{number:07}.bin' {number + 1} {DIGEST}" for number in range(1_000_000)]
    run = inspect(formats.game_manifest(["data"], lines))
    assert run.code == 0
    assert run.report["files"] == 1_000_000
    assert run.report["bytes"] == 500_000_500_000
