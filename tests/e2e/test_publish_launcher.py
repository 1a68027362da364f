"""publish launcher: the Launcher's own update, as its Launcher takes it."""

import hashlib
import json
import os
import pathlib
import shutil
import struct

import pytest

from harness import formats
from harness.constants import GAME, NEXT_VERSION, OWN_VERSION, SETTINGS_FILE, VERSION_FILE
from harness.dialogs import RESTART_REQUIRED
from harness.driver import ok, run_launcher
from harness.game_folder import GameFolder, windows_path
from harness.nginx_server import NginxServer
from harness.published import make_build, tree_of
from harness.publishing import Published, publish

URL = "https://updates.example/"
RECORD = "updates/release/updater/published.json"
MANIFEST = b"Velmorant Updater\r\nFileVersion: 1\r\nVersion: %d"


@pytest.fixture
def server(temp_dir):
    folder = temp_dir / "server"
    folder.mkdir()
    return folder


@pytest.fixture
def publish_launcher(build, temp_dir, server):
    def run(executable=None, settings: bytes | None = None, *, channel="release", program=None) -> Published:
        path = temp_dir / "settings.vpak"
        path.write_bytes(formats.updater_data(URL) if settings is None else settings)
        arguments = ["--exe", executable or build.launcher, "--settings", path, "--channel", channel]
        return publish(build, "launcher", *arguments, "--server", server, program=program)

    return run


def record(launcher: pathlib.Path, version: int = OWN_VERSION, **changes) -> dict:
    content = launcher.read_bytes()
    return {
        "executable": "Launcher.exe",
        "size": len(content),
        "md5": hashlib.md5(content).hexdigest(),
        "version": version,
        "isSigned": False,
        **changes,
    }


def record_text(launcher: pathlib.Path, version: int) -> bytes:
    return (json.dumps(record(launcher, version), indent=2, sort_keys=True) + "\n").encode()


def expected(launcher, settings: bytes, version: int = OWN_VERSION) -> dict[str, bytes | None]:
    return {
        "updates": None,
        "updates/release": None,
        "updates/release/updater": None,
        "updates/release/updater/Launcher.exe": launcher.read_bytes(),
        "updates/release/updater/UpdaterData.vpak": settings,
        "updates/release/updater/published.json": record_text(launcher, version),
        "updates/release/updater/updater.manifest": MANIFEST % version,
    }


def test_it_writes_the_three_files_with_a_record_and_nothing_else(publish_launcher, build, server):
    done = publish_launcher()
    assert (done.code, done.errors, done.warnings) == (0, [], [])
    assert (done.report["version"], done.report["published"]) == (OWN_VERSION, True)
    assert tree_of(server) == expected(build.launcher, formats.updater_data(URL))


def test_the_same_again_changes_nothing(publish_launcher, server):
    publish_launcher()
    before = tree_of(server)
    done = publish_launcher()
    assert (done.code, done.warnings) == (0, [])
    assert tree_of(server) == before


def test_each_tool_publishes_the_version_that_it_was_built_with(publish_launcher, build, server):
    done = publish_launcher(build.next, program=build.publish_next)
    assert (done.code, done.report["version"]) == (0, NEXT_VERSION)
    assert tree_of(server) == expected(build.next, formats.updater_data(URL), NEXT_VERSION)


def test_the_tool_of_the_other_clean_up_publishes_its_own_launcher(publish_launcher, build, server):
    done = publish_launcher(build.keep_dirs, program=build.publish_keep_dirs)
    assert (done.code, done.warnings) == (0, [])
    published = json.loads((server / RECORD).read_bytes())
    assert published == record(build.keep_dirs)


def test_the_game_and_other_channels_stay(publish_launcher, server):
    kept = {"updates/release/GameVersion.vpak": b"version", "updates/release/a/b": b"b", "updates/beta/c": b"c"}
    make_build(server / "updates", {name[8:]: content for name, content in kept.items()})
    assert publish_launcher().code == 0
    tree = tree_of(server)
    assert {name: tree[name] for name in kept} == kept
    assert sorted(os.listdir(server / "updates")) == ["beta", "release"]


def test_what_an_interrupted_run_left_is_removed(publish_launcher, build, server):
    make_build(server / "updates/release/updater", {"Launcher.exe.publishing": b"ha", "Launcher.exe": b"old"})
    assert publish_launcher().code == 0
    assert tree_of(server) == expected(build.launcher, formats.updater_data(URL))


def test_a_long_server_path_is_published_to(build, temp_dir):
    server = temp_dir / ("d" * 120) / ("e" * 120)
    server.mkdir(parents=True)
    settings = temp_dir / "settings.vpak"
    settings.write_bytes(formats.updater_data(URL))
    arguments = ["--exe", build.launcher, "--settings", settings, "--channel", "release"]
    assert publish(build, "launcher", *arguments, "--server", server).code == 0
    assert tree_of(server) == expected(build.launcher, formats.updater_data(URL))


# --- Other processes -------------------------------------------------------------------------


def test_while_another_run_writes_to_the_channel_it_is_refused(publish_launcher, server, keep_open):
    make_build(server / "updates", {".release.lock": b""})
    lock = server / "updates/.release.lock"
    keep_open(lock)
    done = publish_launcher()
    assert (done.code, done.report["published"]) == (1, False)
    assert done.errors == [f"{windows_path(lock)}: another run is writing to this channel"]
    assert tree_of(server / "updates") == {".release.lock": b""}


@pytest.mark.parametrize("name", ["Launcher.exe", "UpdaterData.vpak"])
def test_a_file_in_use_on_the_server_leaves_the_manifest_as_it_was(publish_launcher, build, server, keep_open, name):
    publish_launcher()
    before = tree_of(server)
    updater = "updates/release/updater/"
    keep_open(server / updater / name)
    done = publish_launcher(build.next, formats.updater_data(URL + "new/"), program=build.publish_next)
    assert (done.code, len(done.errors), done.report["published"]) == (1, 1, False)
    assert ".publishing" in done.errors[0] or name in done.errors[0]
    after = tree_of(server)
    assert after[updater + name] == before[updater + name]
    assert after[updater + "updater.manifest"] == before[updater + "updater.manifest"]


# --- What is refused --------------------------------------------------------------------------


def test_an_executable_of_another_version_is_refused(publish_launcher, build, server):
    done = publish_launcher(build.next)
    assert done.code == 1
    assert len(done.errors) == 1
    assert done.errors[0].endswith(
        f"Launcher.exe: its version is {NEXT_VERSION}, and this tool publishes version {OWN_VERSION}"
    )
    assert os.listdir(server) == []


def test_an_executable_without_a_version_is_refused(publish_launcher, build, server):
    done = publish_launcher(build.watch)
    assert done.code == 1
    assert "not a Windows executable with a version resource" in done.errors[0]
    assert os.listdir(server) == []


@pytest.mark.parametrize("content", [b"", b"MZ", b"text", b"MZ" + bytes(58) + b"\xff\xff\xff\x7f" + bytes(60)])
def test_a_file_that_is_not_a_windows_executable_is_refused(publish_launcher, temp_dir, server, content):
    path = temp_dir / "Launcher.exe"
    path.write_bytes(content)
    done = publish_launcher(path)
    assert done.code == 1
    assert len(done.errors) == 1 and done.errors[0].endswith("not a Windows executable with a version resource")
    assert os.listdir(server) == []


def test_settings_that_the_launcher_rejects_are_refused_with_its_message(publish_launcher, server):
    done = publish_launcher(settings=formats.updater_data(""))
    assert done.code == 1
    assert len(done.errors) == 1
    assert "the Launcher rejects it: Empty URL in UpdaterData.vpak." in done.errors[0]
    assert os.listdir(server) == []


def test_settings_of_another_channel_are_refused(publish_launcher, server):
    done = publish_launcher(settings=formats.updater_data(URL, "beta"))
    assert done.code == 1
    assert len(done.errors) == 1 and "its channel is beta" in done.errors[0]
    assert os.listdir(server) == []


def test_all_errors_are_reported_in_one_run(build, temp_dir, server):
    path = temp_dir / "it's 100%.exe"
    path.write_bytes(b"text")
    arguments = ["--exe", path, "--settings", temp_dir / "missing.vpak", "--channel", "release"]
    done = publish(build, "launcher", *arguments, "--server", server)
    rules = [error["message"].split(":")[0] for error in done.report["errors"]]
    assert done.code == 1
    assert rules == [
        "a single quote ends the name in the manifest",
        "the Launcher does not encode %, # and ? in URLs",
        "not a Windows executable with a version resource",
        "cannot be read",
    ]
    assert os.listdir(server) == []


# --- What is warned of ------------------------------------------------------------------------


def signed(launcher: pathlib.Path, temp_dir: pathlib.Path) -> pathlib.Path:
    """A copy with a certificate table, which holds no valid signature."""
    content = bytearray(launcher.read_bytes())
    headers = struct.unpack_from("<I", content, 0x3C)[0]
    # The fifth data directory of a 64-bit executable's optional header: its place and its size.
    struct.pack_into("<II", content, headers + 24 + 112 + 4 * 8, len(content), 8)
    path = temp_dir / "signed" / "Launcher.exe"
    path.parent.mkdir(exist_ok=True)
    path.write_bytes(content + struct.pack("<IHH", 8, 0x0200, 2))
    return path


def test_a_step_back_is_warned_of(publish_launcher, build):
    publish_launcher(build.next, program=build.publish_next)
    done = publish_launcher()
    assert done.code == 0
    assert done.warnings == [
        f"Launcher.exe: the server had version {NEXT_VERSION}: players who have that keep it, and their Launcher "
        "logs an error at every start"
    ]


def test_another_file_with_the_same_version_is_warned_of(publish_launcher, build, temp_dir):
    publish_launcher()
    done = publish_launcher(signed(build.launcher, temp_dir))
    assert done.code == 0
    assert done.warnings == [
        f"Launcher.exe: the server had another file with the same version {OWN_VERSION}: players who have that "
        "version do not get this one"
    ]


@pytest.mark.parametrize("keeps", [True, False])
def test_a_launcher_with_the_other_clean_up_is_warned_of(publish_launcher, build, server, keeps):
    if keeps:
        done = publish_launcher(build.keep_dirs, program=build.publish)
        words = "keeps", "stops at"
    else:
        done = publish_launcher(build.launcher, program=build.publish_keep_dirs)
        words = "stops at", "keeps"
    assert done.code == 0
    (warning,) = done.report["warnings"]
    assert warning["message"] == (
        f"its clean-up {words[0]} non-empty directories, and that of this tool's build {words[1]} them"
    )


UNSIGNED = "Launcher.exe: has no Authenticode signature, but the one on the server had"


def test_a_signature_that_is_missing_from_now_on_is_warned_of(publish_launcher, build, temp_dir, server):
    done = publish_launcher(signed(build.launcher, temp_dir))
    assert (done.code, done.warnings) == (0, [])
    assert json.loads((server / RECORD).read_bytes())["isSigned"]
    done = publish_launcher(build.next, program=build.publish_next)
    assert (done.code, done.warnings) == (0, [UNSIGNED])
    # That is what the server has now.
    assert publish_launcher(build.next, program=build.publish_next).warnings == []


def test_a_launcher_that_is_signed_again_is_not_warned_of(publish_launcher, build, temp_dir):
    publish_launcher(signed(build.launcher, temp_dir))
    assert publish_launcher(signed(build.next, temp_dir), program=build.publish_next).warnings == []


def test_other_settings_are_warned_of(publish_launcher):
    publish_launcher()
    done = publish_launcher(settings=formats.updater_data("https://other.example/"))
    assert done.code == 0
    assert len(done.warnings) == 1
    assert done.warnings[0].endswith(
        "the server had other settings: every player's Launcher takes these over, restarts once, and from then on "
        "asks https://other.example/"
    )


# --- From the tool to the player --------------------------------------------------------------


def test_the_launcher_updates_itself_and_its_settings_from_what_was_published(build, temp_dir, server, publish_launcher):
    nginx = NginxServer(temp_dir / "nginx", server)
    nginx.start()
    try:
        old = formats.updater_data(f"http://127.0.0.1:{nginx.port}/")
        new = formats.updater_data(f"http://127.0.0.1:{nginx.port}/./")
        folder = GameFolder(temp_dir / "game")
        folder.put_copy("Launcher.exe", build.launcher)
        folder.put_copy(GAME, build.player)
        folder.put(SETTINGS_FILE, old)
        folder.put(VERSION_FILE, formats.game_version(0, 0, 0, 1))
        (server / "updates/release").mkdir(parents=True)
        (server / "updates/release/GameVersion.vpak").write_bytes(formats.game_version(0, 0, 0, 1))
        assert publish_launcher(build.next, new, program=build.publish_next).code == 0
        # First the executable, then, by the new one, the settings.
        run = run_launcher(build, folder, None, answers=[ok(RESTART_REQUIRED)] * 2,
                           expected_exits=(0, 0, 0))
        assert run.log == []
        assert folder.read("Launcher.exe") == build.next.read_bytes()
        assert folder.read(SETTINGS_FILE) == new
        run.assert_game_started()
    finally:
        nginx.stop()
