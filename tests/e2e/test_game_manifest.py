"""Game update manifests that are refused: each with its own words, and before any file is fetched."""

import pytest

from harness.constants import GAME_MANIFEST, GAME_VERSION, LOG
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_FAILED
from harness.driver import ok
from harness.scene import NEWER

DIGEST = "0123456789abcdef0123456789abcdef"
FILE = f"'data/file' 4 {DIGEST}"
HEAD = ("GameUpdate", "FileVersion: 1")
VALID = (*HEAD, "Directories: 1", "data", "Files:", FILE)

LINES = "Invalid amount of lines ({}, at least 4 expected)."
HEADER = "Invalid header '{}'. (is expecting 'GameUpdate')"
VERSION_NAME = "Invalid file-version name '{}'. (is expecting 'FileVersion')"
VERSION = "Invalid file-version FileVersion. (supported: 1)"
DIRECTORIES_NAME = "Invalid directory-name '{}'. (expected: 'Directories')"
NO_DIRECTORIES = "No directories. Abort update to prevent corruption."
TOO_MANY = "Less assumed directory-entries than lines ({}, can be a maximum of {})."
NOTHING_AFTER = "No lines after directory-entries."
FILES_HEADER = "Invalid file-header '{}' (is expecting 'Files:')"
NO_FILES = "No files present. Aborting update to prevent corruption."
NO_NAME = "Invalid file-name at line {}: ''"
EMPTY_FILE = "Invalid empty file size at line {}, for file '{}'"
HASH = "Invalid hash '{}' with length {} at line {} for file '{}'."


def with_file(*lines: str) -> tuple[str, ...]:
    return (*VALID[:5], *lines)


@pytest.mark.parametrize(
    ("lines", "message"),
    [
        pytest.param((), LINES.format(0), id="empty"),
        pytest.param(("", "", ""), LINES.format(0), id="empty lines only"),
        pytest.param(VALID[:3], LINES.format(3), id="three lines"),
        pytest.param(("gameupdate", *VALID[1:]), HEADER.format("gameupdate"), id="header's case"),
        pytest.param(("GameUpdate ", *VALID[1:]), HEADER.format("GameUpdate "), id="header's blank"),
        pytest.param(
            (VALID[0], "FileVersion:1", *VALID[2:]),
            VERSION_NAME.format("FileVersion:1"),
            id="version without a blank",
        ),
        pytest.param(
            (VALID[0], "Version: 1", *VALID[2:]), VERSION_NAME.format("Version"), id="version's name"
        ),
        pytest.param((VALID[0], "FileVersion: 2", *VALID[2:]), VERSION, id="version 2"),
        pytest.param((VALID[0], "FileVersion: ", *VALID[2:]), VERSION, id="no version"),
        pytest.param((VALID[0], "FileVersion: -1", *VALID[2:]), VERSION, id="version -1"),
        pytest.param(
            (*HEAD, "Folders: 1", *VALID[3:]), DIRECTORIES_NAME.format("Folders"), id="count's name"
        ),
        pytest.param(
            (*HEAD, "Directories:1", *VALID[3:]),
            DIRECTORIES_NAME.format("Directories:1"),
            id="count without a blank",
        ),
        pytest.param((*HEAD, "Directories: 0", *VALID[3:]), NO_DIRECTORIES, id="count 0"),
        pytest.param((*HEAD, "Directories: x", *VALID[3:]), NO_DIRECTORIES, id="count x"),
        pytest.param((*HEAD, "Directories: ", *VALID[3:]), NO_DIRECTORIES, id="no count"),
        pytest.param((*HEAD, "Directories:  1", *VALID[3:]), NO_DIRECTORIES, id="two blanks"),
        pytest.param(
            (*HEAD, "Directories: 4", *VALID[3:]), TOO_MANY.format(4, 3), id="count too large"
        ),
        pytest.param(
            (*HEAD, "Directories: -1", *VALID[3:]), TOO_MANY.format(4294967295, 3), id="count -1"
        ),
        pytest.param((*HEAD, "Directories: 3", *VALID[3:]), NOTHING_AFTER, id="count of all lines"),
        pytest.param((*HEAD, "Directories: 1", "data"), NOTHING_AFTER, id="no files line"),
        pytest.param(
            (*HEAD, "Directories: 2", *VALID[3:]), FILES_HEADER.format(FILE), id="one too many"
        ),
        pytest.param(
            (*VALID[:4], "files:", FILE), FILES_HEADER.format("files:"), id="files line's case"
        ),
        pytest.param((*VALID[:4], "Files: ", FILE), FILES_HEADER.format("Files: "), id="its blank"),
        pytest.param(VALID[:5], NO_FILES, id="no files"),
        pytest.param((*VALID[:5], "", ""), NO_FILES, id="empty lines for files"),
        pytest.param(with_file(f"data/file 4 {DIGEST}"), NO_NAME.format(0), id="no quotes"),
        pytest.param(with_file(f"'data/file 4 {DIGEST}"), NO_NAME.format(0), id="one quote"),
        pytest.param(with_file(f"'' 4 {DIGEST}"), NO_NAME.format(0), id="empty name"),
        pytest.param(with_file(FILE, "   "), NO_NAME.format(1), id="second file a line of blanks"),
        pytest.param(
            with_file(f"'a b.txt' 0 {DIGEST}"), EMPTY_FILE.format(0, "a b.txt"), id="size 0"
        ),
        pytest.param(
            with_file(f"'a b.txt'  12 {DIGEST}"), EMPTY_FILE.format(0, "a b.txt"), id="two blanks"
        ),
        pytest.param(with_file("'a'"), EMPTY_FILE.format(0, "a"), id="a name only"),
        pytest.param(with_file(f"'a' x {DIGEST}"), EMPTY_FILE.format(0, "a"), id="size x"),
        pytest.param(
            with_file(FILE, FILE, f"'c' 0 {DIGEST}", f"'d' 0 {DIGEST}"),
            EMPTY_FILE.format(2, "c"),
            id="the first faulty one",
        ),
        pytest.param(
            with_file(f"'a' 4 {DIGEST[:31]}"), HASH.format(DIGEST[:31], 31, 0, "a"), id="31 digits"
        ),
        pytest.param(
            with_file(f"'a' 4 {DIGEST}0"), HASH.format(DIGEST + "0", 33, 0, "a"), id="33 digits"
        ),
        pytest.param(
            with_file(f"'a' 4 {DIGEST} "), HASH.format(DIGEST + " ", 33, 0, "a"), id="a blank after"
        ),
        pytest.param(
            with_file(f"'a' 4  {DIGEST}"), HASH.format(" " + DIGEST, 33, 0, "a"), id="a blank before"
        ),
        pytest.param(with_file("'a' 4"), HASH.format("", 0, 0, "a"), id="no digest"),
        pytest.param(with_file("'a' 4 "), HASH.format("", 0, 0, "a"), id="an empty digest"),
        pytest.param(
            with_file("'{}' 4 {0}"), HASH.format("{0}", 3, 0, "{}"), id="braces are not filled in"
        ),
    ],
)
def test_a_faulty_manifest_shows_the_failure_box_and_logs_its_own_message(scene, lines, message):
    scene.offer_game_version(*NEWER)
    scene.serve(GAME_MANIFEST, "\n".join(lines).encode())
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(GAME_VERSION, GAME_MANIFEST)
    assert run.log == [scene.game_update_entry(message)]
    # Nothing was staged, nothing was touched.
    assert set(run.changes()) == {"Logs", LOG}
    assert run.exit_code == 0
    run.assert_game_started()
