"""publish promote: the bytes that one channel has, published to another."""

import os
import pathlib

import pytest

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    OWN_VERSION,
    SETTINGS_FILE,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
    VERSION_FILE,
)
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import ok, run_launcher
from harness.game_folder import GameFolder, windows_path
from harness.nginx_server import NginxServer
from harness.published import expected_channel, make_build, tree_of
from harness.publishing import Published, publish

OLD = {GAME: b"old game", "bin/gone.dat": b"gone", "Saved/same.sav": b"same"}
NEW = {GAME: b"new game", "bin/sub/added.dat": b"added", "Saved/same.sav": b"same"}
LAUNCHER = {
    "updater": None,
    UPDATER_EXECUTABLE: b"launcher",
    UPDATER_MANIFEST: formats.updater_manifest(OWN_VERSION),
}


def put_channel(updates: pathlib.Path, channel: str, files: dict[str, bytes], version: str) -> None:
    entries = {**expected_channel(files, version), **LAUNCHER}
    entries[UPDATER_EXECUTABLE] = f"launcher of {channel}".encode()
    make_build(updates / channel, {name: content for name, content in entries.items() if content is not None})


@pytest.fixture
def server(temp_dir) -> pathlib.Path:
    """Version 1.0.0.1 in beta, and 1.0.0.0 in release."""
    folder = temp_dir / "server"
    put_channel(folder / "updates", "beta", NEW, "1.0.0.1")
    put_channel(folder / "updates", "release", OLD, "1.0.0.0")
    return folder


@pytest.fixture
def promote(build, server):
    def run(version="1.0.0.2", *options: str | pathlib.Path, source="beta", target="release") -> Published:
        arguments = ["--from", source, "--to", target, "--version", version, "--server", server]
        return publish(build, "promote", *arguments, *options)

    return run


def channel_of(files: dict[str, bytes], version: str, launcher: str) -> dict[str, bytes | None]:
    return {**expected_channel(files, version), **LAUNCHER, UPDATER_EXECUTABLE: f"launcher of {launcher}".encode()}


def assert_nothing_published(done: Published, server: pathlib.Path, before: dict) -> None:
    assert (done.code, done.report["published"]) == (1, False)
    assert tree_of(server) == before


# --- What is written --------------------------------------------------------------------------


def test_the_other_channel_gets_the_game_and_keeps_its_launcher(promote, server):
    done = promote()
    assert (done.code, done.errors, done.warnings) == (0, [], [])
    assert sorted(os.listdir(server / "updates")) == ["beta", "release"]
    assert tree_of(server / "updates/release") == channel_of(NEW, "1.0.0.2", "release")
    assert tree_of(server / "updates/beta") == channel_of(NEW, "1.0.0.1", "beta")
    assert done.report == {
        "version": "1.0.0.2",
        "from": "beta",
        "to": "release",
        "server": windows_path(server),
        "published": True,
        "previousVersion": "1.0.0.0",
        "files": 3,
        "bytes": sum(map(len, NEW.values())),
        "directories": 3,
        "copiedFiles": 0,
        "copiedBytes": 0,
        "linkedFiles": 3,
        "changes": {"added": ["bin/sub/added.dat"], "changed": [GAME], "removed": ["bin/gone.dat"]},
        "errors": [],
        "warnings": [],
    }


def test_files_are_linked_and_the_manifest_is_not(promote, server):
    assert promote().code == 0
    beta, release = server / "updates/beta", server / "updates/release"
    for name in NEW:
        assert os.path.samefile(beta / name, release / name)
    # A link would keep its time, by which a web server may take it for the old one.
    for name in (GAME_MANIFEST, GAME_VERSION):
        assert not os.path.samefile(beta / name, release / name)


def test_a_manifest_of_other_make_is_kept_byte_for_byte(promote, server):
    manifest = server / "updates/beta" / GAME_MANIFEST
    content = manifest.read_bytes().replace(b"\n", b"\r\n") + b"\r\n"
    manifest.write_bytes(content)
    assert promote().code == 0
    assert (server / "updates/release" / GAME_MANIFEST).read_bytes() == content


def test_a_channel_without_anything_can_be_promoted_to(promote, server):
    done = promote("0.0.0.1", target="demo")
    assert (done.code, done.warnings) == (0, [])
    assert tree_of(server / "updates/demo") == expected_channel(NEW, "0.0.0.1")


def test_what_an_interrupted_run_left_in_either_channel_is_repaired_first(promote, server):
    updates = server / "updates"
    (updates / "beta").rename(updates / ".beta.previous")
    (updates / "release").rename(updates / ".release.previous")
    make_build(updates / ".release.next", {"half": b"ha"})
    assert promote().code == 0
    assert sorted(os.listdir(updates)) == ["beta", "release"]
    assert tree_of(updates / "release") == channel_of(NEW, "1.0.0.2", "release")


def test_the_lists_of_what_to_upload_are_written(promote, temp_dir):
    lists = temp_dir / "lists"
    assert promote("1.0.0.2", "--upload-lists", lists).code == 0
    assert sorted(os.listdir(lists)) == [
        "1-payload.txt", "2-manifest.txt", "3-version.txt", "4-delete.txt", "5-purge.txt"
    ]
    assert (lists / "1-payload.txt").read_bytes().decode() == (
        f"updates/release/bin/sub/added.dat\nupdates/release/{GAME}\n"
    )
    assert (lists / "4-delete.txt").read_bytes() == b"updates/release/bin/gone.dat\n"


# --- What is an error -------------------------------------------------------------------------


def test_a_damaged_or_missing_file_is_an_error(promote, server):
    beta = server / "updates/beta"
    (beta / GAME).write_bytes(b"new gam")
    (beta / "bin/sub/added.dat").unlink()
    before = tree_of(server)
    done = promote()
    assert done.errors == [
        f"{windows_path(beta / GAME)}: not a file of 8 bytes, as the manifest lists it",
        f"{windows_path(beta / 'bin/sub/added.dat')}: not a file of 5 bytes, as the manifest lists it",
    ]
    assert_nothing_published(done, server, before)


def test_a_manifest_that_the_launcher_rejects_is_an_error(promote, server):
    manifest = server / "updates/beta" / GAME_MANIFEST
    manifest.write_bytes(b"damaged")
    before = tree_of(server)
    done = promote()
    (error,) = done.errors
    assert error.startswith(f"{windows_path(manifest)}: the Launcher rejects it: ")
    assert_nothing_published(done, server, before)


def test_a_channel_without_a_manifest_is_an_error(promote, server):
    manifest = server / "updates/beta" / GAME_MANIFEST
    manifest.unlink()
    before = tree_of(server)
    done = promote()
    (error,) = done.errors
    assert error.startswith(f"{windows_path(manifest)}: cannot be read: ")
    assert_nothing_published(done, server, before)


def test_a_channel_with_nothing_in_it_is_an_error(promote, server):
    before = tree_of(server)
    done = promote(source="alpha")
    assert done.errors == [f"{windows_path(server / 'updates/alpha')}: nothing is published to this channel"]
    assert_nothing_published(done, server, before)


def test_the_same_channel_twice_is_an_error(promote, server):
    before = tree_of(server)
    done = promote(target="beta")
    assert done.errors == ["beta: is given as both --from and --to"]
    assert_nothing_published(done, server, before)


@pytest.mark.parametrize("version", ["1.0.0.0", "0.9.9.9"])
def test_a_version_not_above_the_other_channels_is_an_error_unless_forced(promote, server, version):
    before = tree_of(server)
    done = promote(version)
    assert done.errors == [f"{version}: not higher than 1.0.0.0, the version on the server"]
    assert_nothing_published(done, server, before)
    assert promote(version, "--force").code == 0
    assert tree_of(server / "updates/release") == channel_of(NEW, version, "release")


@pytest.mark.parametrize("channel", ["beta", "release"])
def test_while_another_run_writes_to_either_channel_nothing_is_done(promote, server, keep_open, channel):
    lock = server / f"updates/.{channel}.lock"
    lock.write_bytes(b"")
    keep_open(lock)
    before = tree_of(server)
    done = promote()
    assert done.errors == [f"{windows_path(lock)}: another run is writing to this channel"]
    assert_nothing_published(done, server, before)


def test_a_failure_on_the_way_leaves_the_channel_as_it_was(promote, server, temp_dir):
    before = tree_of(server)
    (temp_dir / "lists").write_bytes(b"a file, where a folder is asked for")
    done = promote("1.0.0.2", "--upload-lists", temp_dir / "lists")
    assert len(done.errors) == 1
    assert_nothing_published(done, server, before)


# --- From the tool to the player --------------------------------------------------------------


def test_the_launcher_installs_what_was_promoted(build, temp_dir):
    server = temp_dir / "served"
    server.mkdir()
    nginx = NginxServer(temp_dir / "nginx", server)
    nginx.start()
    try:
        settings = temp_dir / "UpdaterData.vpak"
        settings.write_bytes(formats.updater_data(f"http://127.0.0.1:{nginx.port}/"))
        first = {GAME: build.player.read_bytes(), "bin/old.dll": b"old", "Saved/x": b"x"}
        second = {GAME: build.player.read_bytes(), "bin/new.dll": b"new", "Saved/x": b"x"}

        def run(command, *arguments) -> None:
            done = publish(build, command, *arguments, "--server", server, program=build.publish_keep_dirs)
            assert (done.code, done.errors) == (0, [])

        run("launcher", "--exe", build.keep_dirs, "--settings", settings, "--channel", "release")
        for channel, files in (("release", first), ("beta", second)):
            source = make_build(temp_dir / channel, files)
            run("game", "--source", source, "--version", "1.0.0.0", "--channel", channel)
        run("promote", "--from", "beta", "--to", "release", "--version", "1.0.0.1")

        folder = GameFolder(temp_dir / "game")
        folder.put_copy("Launcher.exe", build.keep_dirs)
        folder.put(SETTINGS_FILE, settings.read_bytes())
        folder.put(VERSION_FILE, expected_channel({}, "1.0.0.0")[GAME_VERSION])
        for name, content in first.items():
            folder.put(name, content)
        answers = [ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)]
        result = run_launcher(build, folder, None, answers=answers)
        assert (result.exit_code, result.log) == (0, [])
        installed = {name: folder.read(name) for name in tree_of(folder.root) if name.startswith("bin/")}
        assert installed == {GAME: second[GAME], "bin/new.dll": b"new"}
        assert folder.read(VERSION_FILE) == expected_channel({}, "1.0.0.1")[GAME_VERSION]
    finally:
        nginx.stop()
