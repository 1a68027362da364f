"""The package that a studio gets: what is in it, and that nothing else is needed."""

import hashlib
import pathlib
import subprocess
import sys
import zipfile

import pytest

from harness import formats
from harness.constants import GAME, OWN_VERSION, PROJECT, SETTINGS_FILE, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import Build, ok, run_launcher
from harness.game_folder import GameFolder
from harness.nginx_server import FolderServer
from harness.published import make_build
from harness.publishing import publish

NAME = f"Launcher-{OWN_VERSION}"
TIME = 1_700_000_000


def pack(build: Build, folder: pathlib.Path) -> pathlib.Path:
    # With relative paths, as scripts/package has them.
    command = [sys.executable, PROJECT / "scripts/lib/pack.py", build.path.relative_to(PROJECT),
               folder.relative_to(PROJECT), str(TIME)]
    subprocess.run(command, cwd=PROJECT, check=True)
    return folder / f"{NAME}.zip"


@pytest.fixture
def package(build, temp_dir):
    with zipfile.ZipFile(pack(build, temp_dir / "packed")) as packed:
        packed.extractall(temp_dir)
    return temp_dir / NAME


def test_the_package_has_the_programs_the_pages_and_their_sums(build, package):
    files = {file.relative_to(package).as_posix() for file in package.rglob("*") if file.is_file()}
    pages = {page.relative_to(PROJECT).as_posix() for page in (PROJECT / "docs").rglob("*") if page.is_file()}
    notices = {"README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md", "THIRD_PARTY_NOTICES.md"}
    programs = {f"{folder}/{program}" for folder in ("strict", "walk-on") for program in ("Launcher.exe", "publish.exe")}
    assert files == {*pages, *notices, *programs, "SHA256SUMS"}
    sums = dict(line.split("  ")[::-1] for line in (package / "SHA256SUMS").read_text().splitlines())
    assert sums == {name: hashlib.sha256((package / name).read_bytes()).hexdigest() for name in files - {"SHA256SUMS"}}
    for folder, built in (("strict", build.path), ("walk-on", build.path / "walk-on")):
        for program in ("Launcher.exe", "publish.exe"):
            assert (package / folder / program).read_bytes() == (built / program).read_bytes()


def test_packages_of_the_same_files_are_the_same(build, temp_dir):
    first = pack(build, temp_dir / "first")
    stale = temp_dir / "second" / NAME / "stale.txt"
    stale.parent.mkdir(parents=True)
    stale.write_bytes(b"of an earlier package")
    assert pack(build, temp_dir / "second").read_bytes() == first.read_bytes()
    with zipfile.ZipFile(first) as packed:
        assert [entry.filename for entry in packed.infolist()] == sorted(packed.namelist())
        assert {entry.date_time for entry in packed.infolist()} == {(2023, 11, 14, 22, 13, 20)}


def test_a_studio_needs_nothing_but_the_package(build, package, temp_dir):
    server = FolderServer(temp_dir)
    folder = GameFolder(temp_dir / "game")
    try:
        tools = package / "walk-on"
        settings = temp_dir / SETTINGS_FILE
        target = ["--channel", "release", "--server", server.folder]

        def run(*arguments):
            done = publish(build, *arguments, program=tools / "publish.exe")
            assert done.code == 0, done.errors

        old = {GAME: build.player.read_bytes(), "data/level.pak": b"old"}
        new = {**old, "data/level.pak": b"new", "data/more.pak": b"more"}
        for version, files in (("1.0.0.1", old), ("1.0.0.2", new)):
            run("game", "--source", make_build(temp_dir / version, files), "--version", version, *target)
        run("settings", "--url", server.url, "--channel", "release", "--output", settings)
        run("launcher", "--exe", tools / "Launcher.exe", "--settings", settings, *target)
        run("verify", "--url", server.url)

        for name, content in old.items():
            folder.put(name, content)
        folder.put_copy("Launcher.exe", tools / "Launcher.exe")
        folder.put_copy(SETTINGS_FILE, settings)
        folder.put(VERSION_FILE, formats.game_version(1, 0, 0, 1))
        update = run_launcher(build, folder, server, answers=[ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
        update.assert_game_started()
        for name, content in new.items():
            assert folder.path(name).read_bytes() == content
    finally:
        server.close()
