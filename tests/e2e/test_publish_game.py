"""publish game: what it writes, what it refuses, and what an interruption leaves."""

import concurrent.futures
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import time
import urllib.parse

import pytest

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    OWN_VERSION,
    PARKED,
    REDIRECT,
    SETTINGS_FILE,
    STAGING,
    TIMEOUT,
    UPDATER_DATA,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
    VERSION_FILE,
)
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import Watcher, ok, run_launcher
from harness.game_folder import GameFolder, windows_path
from harness.nginx_server import NginxServer
from harness.published import expected_channel, make_build, parents, tree_of
from harness.publishing import Published, command_line, publish

FILES = {
    "readme.txt": b"read me",
    "bin/Velmorant Player.exe": b"the game",
    "bin/data/level 1.dat": b"a level" * 1000,
    "Saved/default.sav": b"a save",
}


@pytest.fixture
def server(temp_dir) -> pathlib.Path:
    folder = temp_dir / "server"
    folder.mkdir()
    return folder


@pytest.fixture
def publish_game(build, temp_dir, server):
    """Publishes a build of these files; the build's folder stays."""

    def run(files: dict[str, bytes], version: str, *options: str, directories=None, **how) -> Published:
        source = temp_dir / "build"
        if source.exists():
            shutil.rmtree(source)
        make_build(source, files, directories)
        return publish_build(build, source, server, version, *options, **how)

    return run


def publish_build(build, source, server, version, *options, channel="release", program=None) -> Published:
    arguments = ["game", "--source", source, "--version", version, "--channel", channel]
    return publish(build, *arguments, "--server", server, *options, program=program)


def assert_published(server, files, version, directories=None) -> None:
    """The channel is this version, and there is nothing beside it."""
    assert os.listdir(server) == ["updates"]
    assert os.listdir(server / "updates") == ["release"]
    assert tree_of(server / "updates" / "release") == expected_channel(files, version, directories)


# --- What is written --------------------------------------------------------------------------


def test_a_first_version_is_published_byte_for_byte(publish_game, server):
    done = publish_game(FILES, "1.4.0.2")
    assert (done.code, done.errors) == (0, [])
    assert_published(server, FILES, "1.4.0.2")
    report = {key: done.report[key] for key in ("published", "files", "bytes", "directories")}
    size = sum(len(content) for content in FILES.values())
    assert report == {"published": True, "files": 4, "bytes": size, "directories": 3}


def test_a_second_version_replaces_the_first_and_copies_only_what_changed(publish_game, server):
    publish_game(FILES, "1.4.0.2")
    level = server / "updates/release/bin/data/level 1.dat"
    before = level.stat().st_ino
    files = {**FILES, "readme.txt": b"read us", "bin/new.dll": b"new"}
    del files["Saved/default.sav"]
    done = publish_game(files, "1.4.1.0")
    assert done.code == 0
    assert_published(server, files, "1.4.1.0")
    assert (done.report["linkedFiles"], done.report["copiedFiles"]) == (2, 2)
    assert done.report["previousVersion"] == "1.4.0.2"
    assert level.stat().st_ino == before
    assert level.stat().st_nlink == 1


def test_a_file_of_the_version_before_that_was_cut_short_is_not_taken_over(publish_game, server):
    publish_game(FILES, "1.0.0.0")
    (server / "updates/release/readme.txt").write_bytes(b"cut")
    done = publish_game(FILES, "1.0.0.1")
    assert_published(server, FILES, "1.0.0.1")
    assert (done.report["linkedFiles"], done.report["copiedFiles"]) == (3, 1)


def test_read_only_and_hidden_files_are_published_like_others(publish_game, build, temp_dir, server):
    publish_game(FILES, "1.0.0.0")
    source = temp_dir / "build"
    (source / "readme.txt").write_bytes(b"changed")
    os.setxattr(source / "readme.txt", "user.DOSATTRIB", b"0x3")
    (source / "readme.txt").chmod(0o444)
    done = publish_build(build, source, server, "1.0.0.1")
    assert "readme.txt: is a hidden or system file, and is published like any other" in done.warnings
    files = {**FILES, "readme.txt": b"changed"}
    assert_published(server, files, "1.0.0.1")
    published = server / "updates/release/readme.txt"
    assert published.stat().st_mode & 0o200 and "user.DOSATTRIB" not in os.listxattr(published)
    # The next version is published all the same.
    done = publish_game(FILES, "1.0.0.2")
    assert done.code == 0
    assert_published(server, FILES, "1.0.0.2")


def test_other_channels_and_the_launchers_update_stay(publish_game, server):
    updates = server / "updates"
    kept = {
        "beta/GameVersion.vpak": b"beta",
        "release/updater/Launcher.exe": b"launcher",
        "release/updater/updater.manifest": formats.updater_manifest(OWN_VERSION),
    }
    make_build(updates, kept)
    for version in ("1.0.0.0", "1.0.0.1"):
        assert publish_game(FILES, version).code == 0
        assert sorted(os.listdir(updates)) == ["beta", "release"]
        expected = {**expected_channel(FILES, version), "updater": None}
        for name in (UPDATER_EXECUTABLE, UPDATER_MANIFEST):
            expected[name] = kept["release/" + name]
        assert tree_of(updates / "release") == expected
        assert tree_of(updates / "beta") == {GAME_VERSION: b"beta"}


def test_without_json_the_output_is_text(build, temp_dir, server):
    source = make_build(temp_dir / "build", {GAME: b"12345"})
    done = subprocess.run(
        command_line(build.publish_keep_dirs, "game", "--source", source, "--version", "1.0.0.0",
                     "--channel", "beta", "--server", server),
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, check=True,
    )
    lines = done.stdout.decode().replace("\r", "").splitlines()
    assert lines[0].startswith("Published 1.0.0.0 to beta in ")
    assert lines[1:] == [
        "  1 files, 5 B, in 1 folders",
        "  1 copied (5 B), 0 already on the server",
        "  1 added:",
        f"    {GAME}",
    ]
    assert done.stderr == b""


# --- What is refused --------------------------------------------------------------------------


def test_a_version_not_above_the_servers_is_refused_unless_forced(publish_game, server):
    publish_game(FILES, "1.4.0.2")
    before = tree_of(server)
    for version in ("1.4.0.2", "1.4.0.1", "0.9.9.9"):
        done = publish_game({**FILES, "readme.txt": b"other"}, version)
        assert done.code == 1
        assert done.errors == [
            f"{version}: not higher than 1.4.0.2, the version on the server"
        ]
        assert tree_of(server) == before
    files = {**FILES, "readme.txt": b"other"}
    done = publish_game(files, "0.9.9.9", "--force")
    assert (done.code, done.errors) == (0, [])
    assert any(warning == "0.9.9.9: not higher than 1.4.0.2, the version on the server" for warning in done.warnings)
    assert_published(server, files, "0.9.9.9")


def test_a_version_file_that_cannot_be_read_is_refused_unless_forced(publish_game, server):
    publish_game(FILES, "1.0.0.0")
    (server / "updates/release/GameVersion.vpak").write_bytes(b"damaged")
    done = publish_game(FILES, "1.0.0.1")
    assert done.code == 1
    assert len(done.errors) == 1 and "Invalid header" in done.errors[0]
    assert publish_game(FILES, "1.0.0.1", "--force").code == 0
    assert_published(server, FILES, "1.0.0.1")


NOT_A_VERSION = (
    'version "{}": not a valid version: four numbers between 0 and 2147483647 are needed'
)


@pytest.mark.parametrize("version", ["1.4", "1.4.0.2.1", "1.4.0.x", "-1.0.0.0", "1.0.0.2147483648", ""])
def test_an_invalid_version_is_refused(publish_game, server, version):
    done = publish_game(FILES, version)
    assert (done.code, done.errors) == (1, [NOT_A_VERSION.format(version)])
    assert os.listdir(server) == []


def test_all_errors_of_a_build_are_reported_in_one_run(build, temp_dir, server):
    files = {
        "bin/fine.txt": b"fine",
        "bin/empty.txt": b"",
        "bin/it's.txt": b"x",
        "bin/100%.txt": b"x",
        "bin/\u00fcber.txt": b"x",
        "bin/line\nfeed": b"x",
        "bin/Twice.txt": b"x",
        "bin/twice.TXT": b"x",
        "bin/nul.txt": b"x",
        "bin/" + "n" * 200 + "/" + "m" * 31: b"x",
        GAME_MANIFEST: b"x",
        "GAMEVERSION.vpak": b"x",
        SETTINGS_FILE: b"x",
        "intermediate/update/x": b"x",
        "launcher.exe": b"x",
        PARKED: b"x",
    }
    source = make_build(temp_dir / "build", files)
    with (source / "bin/large.dat").open("wb") as large:
        large.truncate(4 * 1024**3)
    (source / "bin/link").symlink_to(source / "Updater")
    done = publish_build(build, source, server, "1.0")
    quote = "a single quote ends the name in the manifest"
    ascii_only = "contains non-ASCII or control characters, which the Launcher cannot decode"
    taken = "publish writes a file of this name to the server"
    address = "the Launcher does not encode %, # and ? in URLs"
    expected = [
        NOT_A_VERSION.format("1.0"),
        "bin/empty.txt: is empty, and the Launcher rejects empty files",
        f"bin/it's.txt: {quote}",
        f"bin/100%.txt: {address}",
        f"bin/\u00fcber.txt: {ascii_only}",
        f"bin/line\nfeed: {ascii_only}",
        "bin/line\nfeed: cannot be read",  # Such a name can be listed, but nothing opens it.
        "bin/nul.txt: 'nul.txt' is a reserved device name on Windows",
        "bin/" + "n" * 200 + "/" + "m" * 31 + ": its path in the staging folder has "
        "256 characters; the Launcher opens at most 255",
        f"game_update.manifest: {taken}",
        f"GAMEVERSION.vpak: {taken}",
        "Updater: this folder belongs to the Launcher",
        "intermediate/update: the Launcher stages updates in Intermediate\\Update",
        "launcher.exe: the Launcher cannot replace itself while it runs",
        "_old.exe: the Launcher deletes this file at every start",
        "bin/large.dat: is 4 GiB or larger; the Launcher accepts smaller files only",
        "bin/link: is a link",
        f"{windows_path(source)}: no bin\\Velmorant Player.exe",
    ]
    twice = [r for r in done.errors if r.lower().startswith("bin/twice")]
    assert twice in (
        ["bin/twice.TXT: differs from bin/Twice.txt only in case, which Windows ignores"],
        ["bin/Twice.txt: differs from bin/twice.TXT only in case, which Windows ignores"],
    )
    assert sorted(r for r in done.errors if r not in twice) == sorted(expected)
    assert done.code == 1
    assert all(refusal["hint"] for refusal in done.report["errors"])
    assert not any(warning.startswith("bin/link: ") for warning in done.warnings)
    assert os.listdir(server) == []


def test_an_option_names_a_launcher_of_another_name(publish_game, server):
    files = {**FILES, "Start.exe": b"x"}
    done = publish_game(files, "1.0.0.0", "--launcher", "start.EXE")
    assert done.errors == ["Start.exe: the Launcher cannot replace itself while it runs"]
    files = {**FILES, "Launcher.exe": b"x"}
    assert publish_game(files, "1.0.0.0", "--launcher", "Start.exe").code == 0


def test_a_build_without_files_or_folders_is_refused(publish_game, build, temp_dir, server):
    done = publish_game({}, "1.0.0.0", directories=["Saved"])
    assert len(done.errors) == 1 and "contains no file" in done.errors[0]
    done = publish_game({"a.txt": b"x"}, "1.0.0.0", "--force")
    assert len(done.errors) == 1 and "contains no folder" in done.errors[0]
    done = publish_build(build, temp_dir / "nowhere", server, "1.0.0.0")
    assert len(done.errors) == 1 and "no such folder" in done.errors[0]
    assert os.listdir(server) == []


def test_a_build_in_the_servers_folder_and_the_reverse_are_refused(build, temp_dir):
    outer = make_build(temp_dir / "Outer", FILES)
    make_build(outer / "inner", FILES)
    for source, server in ((outer / "inner", outer), (outer, outer / "inner"), (outer, outer)):
        done = publish_build(build, source, server, "1.0.0.0")
        assert done.code == 1
        assert any("overlap" in refusal for refusal in done.errors)
        assert not (server / "updates").exists()


def test_a_channel_that_is_a_link_is_refused(publish_game, server, temp_dir):
    elsewhere = make_build(temp_dir / "elsewhere", {"kept.txt": b"kept"})
    (server / "updates").mkdir()
    (server / "updates/release").symlink_to(elsewhere)
    done = publish_game(FILES, "1.0.0.0")
    assert done.code == 1
    assert len(done.errors) == 1 and "is a link" in done.errors[0]
    assert tree_of(elsewhere) == {"kept.txt": b"kept"}


def test_a_link_to_a_file_is_an_error_and_a_linked_build_is_said(publish_game, build, temp_dir, server):
    source = make_build(temp_dir / "real", FILES)
    link = temp_dir / "link"
    link.symlink_to(source)
    done = publish_build(build, link, server, "1.0.0.0")
    assert f"{windows_path(link)}: is a link" in done.warnings
    assert_published(server, FILES, "1.0.0.0")
    (source / "alias.txt").symlink_to("readme.txt")
    for options in ([], ["--dry-run"]):
        done = publish_build(build, source, server, "1.0.0.1", *options)
        target = windows_path(source / "readme.txt")
        assert (done.code, done.errors) == (1, [f"alias.txt: is a link to {target}"])
        assert_published(server, FILES, "1.0.0.0")


# --- What is left out or not done -------------------------------------------------------------


def test_what_file_managers_leave_behind_and_what_matches_is_ignored(publish_game, server):
    litter = {"Thumbs.db": b"x", "bin/.DS_Store": b"x", "Saved/DESKTOP.ini": b"x"}
    symbols = {"bin/Game.pdb": b"x", "bin/data/Old.PDB": b"x", "bin/Tools/tool.exe": b"x"}
    done = publish_game({**FILES, **litter, **symbols}, "1.0.0.0", "--ignore", "*.pdb", "--ignore", "bin/t?ols")
    assert done.code == 0
    ignored = [*litter, "bin/Game.pdb", "bin/data/Old.PDB", "bin/Tools"]
    assert sorted(done.report["ignored"]) == sorted(ignored)
    assert_published(server, FILES, "1.0.0.0")


def test_a_dry_run_checks_everything_and_writes_nothing(publish_game, server):
    done = publish_game(FILES, "1.0.0.0", "--dry-run")
    assert (done.code, done.report["published"], done.report["dryRun"]) == (0, False, True)
    assert sorted(done.report["changes"]["added"]) == sorted(FILES)
    assert os.listdir(server) == []
    publish_game(FILES, "1.0.0.0")
    before = tree_of(server)
    files = {**FILES, "readme.txt": b"changed", "new.txt": b"new"}
    del files["Saved/default.sav"]
    done = publish_game(files, "1.0.0.1", "--dry-run")
    assert done.report["changes"] == {
        "added": ["new.txt"], "changed": ["readme.txt"], "removed": ["Saved/default.sav"]
    }
    assert (done.report["copiedFiles"], done.report["linkedFiles"]) == (2, 2)
    done = publish_game({**files, "empty": b""}, "1.0.0.0", "--dry-run")
    assert (done.code, len(done.errors)) == (1, 2)
    assert tree_of(server) == before


def test_the_lists_of_what_to_upload(publish_game, temp_dir):
    lists = temp_dir / "lists" / "new"
    publish_game(FILES, "1.0.0.0", "--dry-run", "--upload-lists", lists)
    assert not lists.parent.exists()
    publish_game(FILES, "1.0.0.0")
    files = {**FILES, "readme.txt": b"changed", "bin/a b.txt": b"new"}
    del files["Saved/default.sav"]
    assert publish_game(files, "1.0.0.1", "--upload-lists", lists).code == 0
    head = "updates/release/"
    assert {path.name: path.read_text().splitlines() for path in lists.iterdir()} == {
        "1-payload.txt": [head + "bin/a b.txt", head + "readme.txt"],
        "2-manifest.txt": [head + GAME_MANIFEST],
        "3-version.txt": [head + GAME_VERSION],
        "4-delete.txt": [head + "Saved/default.sav"],
        "5-purge.txt": [
            f"/{head}{name}" for name in ("readme.txt", "Saved/default.sav", GAME_MANIFEST, GAME_VERSION)
        ],
    }


def test_a_publish_that_changes_nothing_is_warned_of_or_left_out(publish_game, server, temp_dir):
    publish_game(FILES, "1.0.0.0", "--if-changed")
    assert_published(server, FILES, "1.0.0.0")
    for version in ("1.0.0.0", "1.0.0.1"):
        done = publish_game(FILES, version, "--if-changed")
        assert (done.code, done.report["published"], done.errors) == (0, False, [])
        assert not any("exactly this build" in warning for warning in done.warnings)
        assert_published(server, FILES, "1.0.0.0")
    done = publish_game(FILES, "1.0.0.1")
    assert done.warnings[-1:] == [f"{windows_path(temp_dir / 'build')}: the server has exactly this build already"]
    assert_published(server, FILES, "1.0.0.1")
    files = {**FILES, "readme.txt": b"changed"}
    assert publish_game(files, "1.0.0.1", "--if-changed").errors == [
        "1.0.0.1: not higher than 1.0.0.1, the version on the server"
    ]
    assert publish_game(files, "1.0.0.2", "--if-changed").code == 0
    assert_published(server, files, "1.0.0.2")
    # One folder more is another build.
    assert publish_game(files, "1.0.0.3", "--if-changed", directories=["Logs"]).report["published"]


def test_copies_get_the_time_of_publishing(publish_game, build, temp_dir, server):
    source = make_build(temp_dir / "build", FILES)
    for name in FILES:
        os.utime(source / name, (1_000_000_000, 1_000_000_000))
    before = time.time() - 2
    assert publish_build(build, source, server, "1.0.0.0").code == 0
    for name in FILES:
        assert (server / "updates/release" / name).stat().st_mtime >= before


def test_too_little_room_is_found_before_the_first_copy(publish_game, build, temp_dir, server):
    source = make_build(temp_dir / "build", FILES)
    free = shutil.disk_usage(temp_dir).free
    for number in range(free // (4 * 1024**3) + 1):
        with (source / f"bin/large {number}.dat").open("wb") as large:
            large.truncate(4 * 1024**3 - 1)
    done = publish_build(build, source, server, "1.0.0.0")
    (error,) = done.errors
    assert ": too little free space: " in error
    assert not (server / "updates/release").exists()
    assert os.listdir(server / "updates") == []


@pytest.mark.parametrize(
    ("version", "warning"),
    [
        ("1.4.0.3", None),
        ("2.0.0.0", None),
        ("3.0.0.0", "raises the first number by more than one, from 1.4.0.2"),
        ("2.0.0.2000000001", "has a number near the highest possible, 2147483647"),
    ],
)
def test_a_version_that_leaves_no_way_back_is_warned_of(publish_game, version, warning):
    publish_game(FILES, "1.4.0.2")
    done = publish_game({**FILES, "a.txt": b"a"}, version, "--dry-run")
    found = [text for text in done.warnings if text.startswith(version)]
    assert found == ([f"{version}: {warning}"] if warning else [])


def test_many_alike_errors_are_grouped_and_what_was_not_published_is_said(build, temp_dir, server):
    files = {**FILES, **{f"bin/empty {number:02}": b"" for number in range(14)}}
    source = make_build(temp_dir / "build", files)
    arguments = ["--source", source, "--version", "1.0.0.0", "--channel", "beta", "--server", server]
    done = subprocess.run(
        command_line(build.publish_keep_dirs, "game", *arguments),
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, check=False,
    )
    lines = done.stderr.decode().replace("\r", "").splitlines()
    assert (done.returncode, done.stdout) == (1, b"")
    assert len([line for line in lines if line.endswith("rejects empty files")]) == 10
    assert lines[-3:] == [
        "error: and 4 more like these",
        "  Write something into it, or leave it out with --ignore.",
        "Nothing was published.",
    ]


def test_wrong_usage_has_its_own_exit_code(build, temp_dir, server):
    source = make_build(temp_dir / "build", FILES)
    assert publish_build(build, source, server, "1.0.0.0", channel="nightly").code == 2
    assert publish(build, "game", "--source", source).code == 2


# --- What is warned of ------------------------------------------------------------------------

STRICT = (
    "cannot be removed by the clean-up of this build of the Launcher, which ends every update "
    "abnormally before its version is recorded"
)
EMPTY = "is empty: every update creates the folder, then removes it"
PLAYERS = (
    "is a folder that the clean-up keeps: files that a later version no longer has stay on players' "
    "disks, and each update replaces what players changed in listed files"
)


def test_what_the_clean_up_will_remove_is_warned_of(publish_game, build, server):
    files = {GAME: b"x", "bin/data/x": b"x", "Saved/x": b"x", "archive.rar/x": b"x", "a.txt": b"x"}
    directories = ["bin/empty", "empty", "Logs", "nested/empty", "Screenshots/empty"]
    strict = publish_game(files, "1.0.0.0", directories=directories)
    kept = [f"archive.rar: {PLAYERS}", f"Saved: {PLAYERS}"]
    empty = [f"bin/empty: {EMPTY}", f"empty: {EMPTY}", f"nested/empty: {EMPTY}"]
    assert strict.code == 0
    assert sorted(strict.warnings) == sorted([*kept, *empty, f"bin: {STRICT}", f"nested: {STRICT}"])
    assert_published(server, files, "1.0.0.0", directories)
    files["a.txt"] = b"changed"
    keep_dirs = publish_game(files, "1.0.0.1", directories=directories, program=build.publish_keep_dirs)
    assert sorted(keep_dirs.warnings) == sorted([*kept, *empty])


def test_a_build_without_the_game_is_an_error_unless_forced(publish_game, build, temp_dir, server):
    publish_game(FILES, "1.0.0.0")
    before = tree_of(server)
    files = {"Velmorant Player.exe": b"the wrong folder", "data/x": b"x"}
    done = publish_game(files, "1.0.0.1")
    message = f"{windows_path(temp_dir / 'build')}: no bin\\Velmorant Player.exe"
    assert (done.code, done.errors) == (1, [message])
    assert "would remove players' games" in done.report["errors"][0]["hint"]
    assert tree_of(server) == before
    done = publish_game(files, "1.0.0.1", "--force")
    assert (done.code, done.errors) == (0, [])
    assert message in done.warnings
    assert_published(server, files, "1.0.0.1")


def test_the_game_is_found_in_any_case(publish_game):
    assert publish_game({GAME.upper(): b"x"}, "1.0.0.0").errors == []


def test_a_path_that_only_short_game_folders_have_room_for_is_warned_of(publish_game):
    name = "a" * 100 + "/" + "b" * 60
    done = publish_game({**FILES, name: b"x", "c/d": b"x"}, "1.0.0.0")
    assert [w for w in done.warnings if w.startswith(name)] == [
        f"{name}: is the longest name: it leaves {259 - 1 - len('Intermediate/Update/') - len(name)} "
        "characters for the path of a player's game folder"
    ]


# --- What an interruption leaves --------------------------------------------------------------

OLD = {GAME: b"game", "bin/a.dat": b"old a", "bin/sub/same.dat": b"same", "gone.txt": b"gone", "z.txt": b"old z"}
NEW = {GAME: b"game", "bin/a.dat": b"new a!", "bin/sub/same.dat": b"same", "bin/new.dat": b"new", "z.txt": b"new z"}


def snapshot(folder: pathlib.Path) -> list[tuple]:
    """Names and inodes below a folder that changes meanwhile."""
    entries = []
    pending = [str(folder)]
    while pending:
        try:
            with os.scandir(pending.pop()) as found:
                for entry in found:
                    entries.append((entry.path, entry.inode()))
                    if entry.is_dir(follow_symlinks=False):
                        pending.append(entry.path)
        except OSError:
            pass  # It went away between two looks.
    return sorted(entries)


class Interrupted:
    """Publishes NEW over OLD, again and again, and kills the tool on the way."""

    def __init__(self, build, temp_dir: pathlib.Path, server: pathlib.Path) -> None:
        self.build = build
        self.server = server
        self.updates = server / "updates"
        self.new = make_build(temp_dir / "new", NEW)
        make_build(self.updates / "release", {k: v for k, v in OLD_CHANNEL.items() if v is not None})
        self.output = temp_dir / "output.json"
        self.kept = temp_dir / "kept"
        shutil.copytree(self.updates, self.kept)
        self.states = {"old": 0, "new": 0, "between": 0}

    def restore(self) -> None:
        shutil.rmtree(self.updates)
        shutil.copytree(self.kept, self.updates)

    def start(self) -> subprocess.Popen:
        arguments = ["game", "--source", self.new, "--version", "1.0.0.1", "--channel", "release"]
        with self.output.open("wb") as output:
            return subprocess.Popen(
                command_line(self.build.publish_keep_dirs, *arguments, "--server", self.server, "--json"),
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.DEVNULL,
            )

    @property
    def errors(self) -> list[str]:
        """Those of a run that was not killed."""
        errors = json.loads(self.output.read_bytes())["errors"]
        return [f"{refusal['subject']}: {refusal['message']}" for refusal in errors]

    def kill_at_change(self, change: int | None) -> int:
        """Kills the tool when so many changes of the tree were seen. Returns how many were."""
        self.restore()
        process = self.start()
        last = snapshot(self.server)
        seen = 0
        while process.poll() is None:
            now = snapshot(self.server)
            if now != last:
                last = now
                seen += 1
                if seen == change:
                    process.kill()
        self.end(process)
        return seen

    def kill_after(self, seconds: float) -> None:
        self.restore()
        process = self.start()
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            process.kill()
        self.end(process)

    def end(self, process: subprocess.Popen) -> None:
        """Wine has ended the process for good when the lock is gone."""
        process.wait(TIMEOUT)
        deadline = time.monotonic() + TIMEOUT
        while (self.updates / ".release.lock").exists():
            assert time.monotonic() < deadline, "the lock stays"
            time.sleep(0.005)

    def check(self) -> None:
        """The channel is one version completely; or absent, with the old one beside it, after a kill
        between the two renames. The next run repairs it and cleans up."""
        live = self.updates / "release"
        if not live.exists():
            state = "between"
            assert tree_of(self.updates / ".release.previous") == OLD_CHANNEL
        else:
            state = {"1.0.0.0": "old", "1.0.0.1": "new"}[version_of(live)]
            assert tree_of(live) == (OLD_CHANNEL if state == "old" else NEW_CHANNEL)
        self.states[state] += 1
        # What is published already is refused, and cleaned up all the same.
        self.run_again(1 if state == "new" else 0)

    def run_again(self, code: int) -> None:
        done = publish_build(self.build, self.new, self.server, "1.0.0.1", program=self.build.publish_keep_dirs)
        assert done.code == code, done
        assert os.listdir(self.updates) == ["release"]
        assert tree_of(self.updates / "release") == NEW_CHANNEL


def version_of(channel: pathlib.Path) -> str:
    content = (channel / GAME_VERSION).read_bytes()
    for version in ("1.0.0.0", "1.0.0.1"):
        if content == expected_channel({}, version)[GAME_VERSION]:
            return version
    raise AssertionError(f"no version file: {content!r}")


UPDATER = {"updater": None, UPDATER_EXECUTABLE: b"launcher"}
OLD_CHANNEL = {**expected_channel(OLD, "1.0.0.0"), **UPDATER}
NEW_CHANNEL = {**expected_channel(NEW, "1.0.0.1"), **UPDATER}


@pytest.fixture
def interrupted(build, temp_dir, server):
    return Interrupted(build, temp_dir, server)


@pytest.mark.parametrize("seed", range(3))
def test_killed_at_any_change_it_leaves_one_version_whole(interrupted, seed):
    # How many are seen depends on how often this side gets to look.
    changes = max(1, interrupted.kill_at_change(None))
    interrupted.check()
    assert interrupted.states["new"] == 1
    moments = random.Random(seed)
    for _ in range(6):
        # Now and then fewer changes are seen than in the run before: then nothing was killed.
        interrupted.kill_at_change(moments.randint(1, changes))
        interrupted.check()
    print(f"seed {seed}: {changes} changes seen; after the kills {interrupted.states}")


def test_killed_at_any_time_it_leaves_one_version_whole(interrupted):
    start = time.monotonic()
    interrupted.kill_after(TIMEOUT)
    duration = time.monotonic() - start
    interrupted.check()
    moments = random.Random(7)
    for _ in range(6):
        interrupted.kill_after(moments.uniform(0, duration))
        interrupted.check()
    print(f"after the kills {interrupted.states}")


def test_a_live_folder_that_stays_in_use_is_an_error(interrupted):
    live = windows_path(interrupted.updates / "release")
    holder = Watcher(interrupted.build, ["hold", live, "read"], {})
    try:
        assert holder.events.get(timeout=TIMEOUT) == {"event": "held"}
        done = publish_build(interrupted.build, interrupted.new, interrupted.server, "1.0.0.1")
    finally:
        holder.close()
    assert (done.code, len(done.errors)) == (1, 1)
    begin = f"{live}: cannot be renamed: "
    assert done.errors[0].startswith(begin) and done.errors[0] != begin
    assert done.report["errors"][0]["hint"].startswith("Close the program that has a file in the folder open")
    assert os.listdir(interrupted.updates) == ["release"]
    assert tree_of(interrupted.updates / "release") == OLD_CHANNEL


def test_a_server_with_a_long_path_is_published_to(build, temp_dir):
    source = make_build(temp_dir / "build", FILES)
    server = temp_dir / ("d" * 120) / ("e" * 120)
    server.mkdir(parents=True)
    for version in ("1.0.0.0", "1.0.0.1"):
        assert publish_build(build, source, server, version).code == 0
        assert_published(server, FILES, version)


# --- Other processes -------------------------------------------------------------------------


@pytest.mark.parametrize("change", ["changed", "added", "removed"])
def test_a_build_that_changes_while_it_is_published_is_an_error(interrupted, change):
    for number in range(300):
        (interrupted.new / f"bin/more-{number}.dat").write_bytes(b"more")
    affected = interrupted.new / ("new.txt" if change == "added" else "z.txt")
    following = interrupted.updates / ".release.next"
    for _ in range(50):
        interrupted.restore()
        (interrupted.new / "z.txt").write_bytes(NEW["z.txt"])
        (interrupted.new / "new.txt").unlink(missing_ok=True)
        process = interrupted.start()
        while process.poll() is None and not following.exists():
            time.sleep(0.001)
        process.send_signal(signal.SIGSTOP)
        # The version file is the last but what is linked: before it nothing was compared again.
        in_time = following.exists() and not (following / GAME_VERSION).exists()
        if in_time and change == "removed":
            affected.unlink()
        elif in_time:
            affected.write_bytes(NEW["z.txt"][::-1])
        process.send_signal(signal.SIGCONT)
        interrupted.end(process)
        if in_time:
            break
    assert in_time, "it was always past its copying when it was halted"
    assert process.returncode == 1
    (error,) = interrupted.errors
    # Changed before or after it was read; removed before or after it was copied.
    assert error in (
        f"{affected.name}: was added, changed or removed while the build was published",
        f"{affected.name}: was changed while the build was published",
    ) or error.startswith(f"{windows_path(affected)}: cannot be read: ")
    assert os.listdir(interrupted.updates) == ["release"]
    assert tree_of(interrupted.updates / "release") == OLD_CHANNEL


def test_each_of_several_competing_runs_publishes_completely_or_is_refused(build, temp_dir, server):
    builds = {
        version: make_build(temp_dir / version, {**NEW, "bin/own.txt": version.encode()})
        for version in ("1.0.0.1", "1.0.0.2", "1.0.0.3")
    }
    with concurrent.futures.ThreadPoolExecutor() as pool:
        runs = {
            version: pool.submit(publish_build, build, source, server, version)
            for version, source in builds.items()
        }
    published = []
    for version, run in runs.items():
        done = run.result()
        if done.code == 0:
            published.append(version)
            continue
        (refusal,) = done.errors
        assert (
            refusal.endswith("another run is writing to this channel")
            or refusal.startswith(f"{version}: not higher than 1.0.0.")
        ), refusal
    assert published
    last = max(published)
    assert_published(server, {**NEW, "bin/own.txt": last.encode()}, last)


@pytest.mark.parametrize("command", ["game", "launcher"])
def test_a_run_that_ended_between_the_two_renames_is_undone_by_the_next(interrupted, build, temp_dir, command):
    updates = interrupted.updates
    (updates / "release").rename(updates / ".release.previous")
    make_build(updates / ".release.next", {k: v for k, v in NEW_CHANNEL.items() if v is not None})
    if command == "game":
        interrupted.run_again(0)
        return
    settings = temp_dir / "UpdaterData.vpak"
    settings.write_bytes(formats.updater_data("https://updates.example/"))
    arguments = ["--exe", build.launcher, "--settings", settings, "--channel", "release"]
    assert publish(build, "launcher", *arguments, "--server", interrupted.server).code == 0
    assert os.listdir(updates) == ["release"]
    game = {k: v for k, v in tree_of(updates / "release").items() if not k.startswith("updater/")}
    assert game == {k: v for k, v in OLD_CHANNEL.items() if not k.startswith("updater/")}


def test_a_run_that_is_refused_leaves_the_channel_alone_but_cleans_up(interrupted):
    make_build(interrupted.updates / ".release.next", {"half": b"ha"})
    (interrupted.new / "empty").write_bytes(b"")
    done = publish_build(interrupted.build, interrupted.new, interrupted.server, "1.0.0.1")
    assert done.errors == ["empty: is empty, and the Launcher rejects empty files"]
    assert os.listdir(interrupted.updates) == ["release"]
    assert tree_of(interrupted.updates / "release") == OLD_CHANNEL


# --- From the tool to the player --------------------------------------------------------------


class Player:
    """A served channel and an installation of its first version."""

    def __init__(self, build, temp_dir, server, launcher, program) -> None:
        self.build = build
        self.server = server
        self.temp_dir = temp_dir
        self.program = program
        self.nginx = NginxServer(temp_dir / "nginx", server)
        self.nginx.start()
        self.settings = formats.updater_data(f"http://127.0.0.1:{self.nginx.port}/")
        self.settings_file = temp_dir / "UpdaterData.vpak"
        self.settings_file.write_bytes(self.settings)
        self.folder = GameFolder(temp_dir / "game")
        self.folder.put_copy("Launcher.exe", launcher)
        self.folder.put(SETTINGS_FILE, self.settings)
        done = publish(
            build, "launcher", "--exe", launcher, "--settings", self.settings_file,
            "--channel", "release", "--server", server, program=program,
        )
        assert (done.code, done.warnings) == (0, [])

    def publish(self, name: str, files: dict[str, bytes], version: str, *options: str) -> Published:
        source = make_build(self.temp_dir / name, files)
        done = publish_build(self.build, source, self.server, version, *options, program=self.program)
        assert (done.code, done.errors) == (0, [])
        return done

    def install(self, files: dict[str, bytes], version: str) -> None:
        for name, content in files.items():
            self.folder.put(name, content)
        self.folder.put(VERSION_FILE, expected_channel(files, version)[GAME_VERSION])

    def update(self, files: dict[str, bytes], version: str, left: set[str] = frozenset()) -> list[str]:
        """One run of the Launcher, which has to make the installation equal to the build, but for
        the folders that this clean-up only empties. Returns the payload files that it fetched."""
        run = run_launcher(
            self.build, self.folder, None, answers=[ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)]
        )
        assert (run.exit_code, run.log) == (0, [])
        assert not self.folder.has(STAGING)
        expected = expected_channel(files, version)
        del expected[GAME_MANIFEST]
        expected[VERSION_FILE] = expected.pop(GAME_VERSION)
        expected[SETTINGS_FILE] = self.settings
        expected["Launcher.exe"] = self.folder.read("Launcher.exe")
        expected.update(dict.fromkeys(["Updater", "Intermediate", *left]))
        assert tree_of(self.folder.root) == expected
        self.nginx.settle()
        requests = self.nginx.new_requests()
        head = "/updates/release/"
        assert [(r.path, r.status) for r in requests[:5]] == [
            ("/" + REDIRECT, 404),
            (head + UPDATER_MANIFEST, 200),
            (head + UPDATER_DATA, 200),
            (head + GAME_VERSION, 200),
            (head + GAME_MANIFEST, 200),
        ]
        assert {r.status for r in requests[5:]} <= {200}
        return [urllib.parse.unquote(r.path[len(head) :]) for r in requests[5:]]


@pytest.fixture
def player(build, temp_dir, server):
    players = []

    def make(launcher, program) -> Player:
        players.append(Player(build, temp_dir, server, launcher, program))
        return players[-1]

    yield make
    for made in players:
        made.nginx.stop()


def test_the_launcher_for_games_in_bin_takes_what_was_published(build, player):
    made = player(build.keep_dirs, build.publish_keep_dirs)
    game = build.player.read_bytes()
    first = {GAME: game, "bin/old.dll": b"old", "bin/level.dat": b"1", "Saved/x": b"x"}
    second = {GAME: game, "bin/new.dll": b"new", "bin/level.dat": b"2", "Saved/x": b"x"}
    made.publish("first", first, "1.0.0.9")
    made.install(first, "1.0.0.9")
    made.publish("second", second, "1.0.1.0")
    assert made.update(second, "1.0.1.0") == ["bin/level.dat", "bin/new.dll"]


def test_the_strict_launcher_takes_a_flat_game(build, player):
    made = player(build.launcher, build.publish)
    first = {"a.pak": b"a", "b.pak": b"b", "Saved/x": b"x"}
    second = {"a.pak": b"A", "c.pak": b"c", "Saved/x": b"x"}
    made.publish("first", first, "1.0.0.0", "--force")  # It is not in "bin".
    made.install(first, "1.0.0.0")
    made.publish("second", second, "2.0.0.0", "--force")
    assert made.update(second, "2.0.0.0") == ["a.pak", "c.pak"]


def test_every_character_that_a_name_may_have_reaches_the_player(build, player):
    made = player(build.keep_dirs, build.publish_keep_dirs)
    first = {GAME: build.player.read_bytes()}
    special = [c for c in map(chr, range(0x20, 0x7F)) if not c.isalnum() and c not in "%#?'\"*:<>|\\/"]
    assert len(special) == 33 - 12
    second = {**first, **{f"bin/n{ord(c)} a{c}b": c.encode() for c in special}}
    second.update({f"folder {c} x/{c}y{c}z": c.encode() * 2 for c in special if c != "."})
    made.publish("first", first, "1.0.0.0")
    made.install(first, "1.0.0.0")
    made.publish("second", second, "1.0.0.1")
    assert len(made.update(second, "1.0.0.1")) == len(second) - 1


def generated(seed: int, count: int) -> dict[str, bytes]:
    chance = random.Random(seed)
    files = {}
    for index in range(count):
        depth = chance.randint(1, 4)
        folder = "/".join(f"part {chance.randint(0, 7)}" for _ in range(depth))
        size = chance.choice([1, 10, 100, 1000, 10000])
        files[f"bin/{folder}/file {index}.dat"] = chance.randbytes(size)
    return files


@pytest.mark.parametrize("count", [1000, pytest.param(5000, marks=pytest.mark.long)])
def test_a_large_build_and_its_successor(build, player, server, count):
    made = player(build.keep_dirs, build.publish_keep_dirs)
    first = {GAME: build.player.read_bytes(), **generated(1, count)}
    made.publish("first", first, "1.0.0.0")
    made.install(first, "1.0.0.0")
    names = sorted(first)
    changed = [name for name in names[::250] if name != GAME]
    second = {name: content for name, content in first.items() if name not in names[7::500]}
    second.update({name: b"changed" for name in changed})
    done = made.publish("second", second, "1.0.0.1")
    assert done.report["copiedFiles"] == len(changed)
    channel = tree_of(server / "updates/release")
    expected = expected_channel(second, "1.0.0.1")
    assert {k: v for k, v in channel.items() if not k.startswith("updater")} == expected
    emptied = {p for name in first for p in parents(name)} - {p for name in second for p in parents(name)}
    assert made.update(second, "1.0.0.1", emptied) == changed
