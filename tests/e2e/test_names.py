"""Names beyond ASCII: in a game manifest, where each byte is one character, and in the server's URL."""

import pytest

from harness import formats
from harness.constants import (
    CHECK,
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    REDIRECT,
    SETTINGS_FILE,
    STAGING,
    VERSION_FILE,
)
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, ok
from harness.scene import NEWER


def on_the_wire(text: str) -> str:
    """A path as the platform sends it: each character in the system's code page, or as "?"."""
    return text.encode("cp1252", "replace").decode("latin-1")


def widened(name: bytes) -> str:
    """A manifest's name as the file system gets it: bytes from 0x80 on are extended with their sign."""
    return "".join(chr(byte if byte < 0x80 else 0xFF00 + byte) for byte in name)


# --- Bytes from 0x80 on in a manifest ---------------------------------------------------------

DIRECTORY = b"d\xe9r"
NAME = b"d\xe9r/caf\x80\xff.dat"
WIDE_DIRECTORY = widened(DIRECTORY)
WIDE_NAME = widened(NAME)


@pytest.fixture
def named(scene):
    """An update to one file in a folder, both with names beyond ASCII."""
    scene.install_launcher(scene.build.keep_dirs)
    lines = [
        formats.file_line(NAME.decode("latin-1"), b"new"),
        formats.file_line(GAME, scene.build.player.read_bytes()),
    ]
    directories = ["bin", DIRECTORY.decode("latin-1")]
    scene.serve(GAME_MANIFEST, formats.game_manifest(directories, lines, "latin-1"))
    scene.serve(on_the_wire(WIDE_NAME), b"new")
    scene.offer_game_version(*NEWER)
    return scene


def test_a_file_of_such_a_name_is_requested_installed_and_kept_by_the_clean_up(named):
    unlisted = "d\u00e9r/caf.dat"  # The same bytes read as Latin-1.
    named.folder.put(unlisted, b"unlisted")
    run = named.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == named.requests(*CHECK, on_the_wire(WIDE_NAME))
    changes = run.changes()
    del changes[VERSION_FILE]
    assert changes == {
        "Intermediate": ("-", None),
        WIDE_DIRECTORY: ("-", None),
        WIDE_NAME: ("-", b"new"),
        unlisted: (b"unlisted", "-"),
    }
    run.assert_game_started()


def test_such_a_name_is_staged_under_the_same_name(named):
    gate = named.server.hold(named.updates + on_the_wire(WIDE_NAME))
    run = named.start([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    run.wait_for(gate)
    assert named.folder.path(f"{STAGING}/{WIDE_DIRECTORY}").is_dir()
    assert not named.folder.has(WIDE_DIRECTORY)
    gate.open()
    run.finish()


@pytest.mark.parametrize("where", ["", f"{STAGING}/"])
def test_an_installed_or_staged_file_of_such_a_name_is_not_requested(named, where):
    named.folder.put(where + WIDE_NAME, b"new")
    run = named.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == named.requests(*CHECK)
    assert named.folder.read(WIDE_NAME) == b"new"


def test_a_listed_directory_of_such_a_name_is_made_in_the_game_folder(scene):
    """Below a preserved folder, where an empty one stays."""
    scene.folder.remove("bin")
    directories = ["Saved", "Saved/\xe4\x80"]
    lines = [formats.file_line("data.pak", b"data")]
    scene.serve(GAME_MANIFEST, formats.game_manifest(directories, lines, "latin-1"))
    scene.serve("data.pak", b"data")
    scene.offer_game_version(*NEWER)
    scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert [path.name for path in scene.folder.path("Saved").iterdir()] == [widened(b"\xe4\x80")]


def test_a_file_of_such_a_name_in_a_directory_that_is_not_listed_ends_the_program(scene):
    lines = [formats.file_line("data/\xe9/x", b"x")]
    scene.serve(GAME_MANIFEST, formats.game_manifest(["data", "data/e"], lines, "latin-1"))
    scene.serve(on_the_wire(widened(b"data/\xe9/x")), b"x")
    scene.offer_game_version(*NEWER)
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert not scene.folder.has("data")
    run.assert_game_not_started()


# --- The server's URL -------------------------------------------------------------------------

BASE = "gr\u00f6\u00dfe/\u6f22/"


def moved(scene) -> list[str]:
    """Moves what the server offers below the base; returns the requests of a run that finds it."""
    requests = [on_the_wire(f"/{BASE}{path}") for path in scene.requests(GAME_VERSION)[1:]]
    requests = [path.replace("//", "/") for path in requests]
    for old, new in zip(scene.requests(GAME_VERSION)[1:], requests):
        scene.server.answers[new] = scene.server.answers.pop(old)
    return requests


def test_a_configured_url_beyond_ascii_is_the_base_of_all_requests(scene):
    scene.configure(scene.server.url + BASE)
    run_requests = moved(scene)
    run = scene.run()
    assert run.requests == [on_the_wire(f"/{BASE}{REDIRECT}"), *run_requests]
    assert (run.dialogs, run.log) == ([], [])
    run.assert_game_started()


def test_a_configured_url_beyond_ascii_is_logged_as_utf_8(scene):
    url = scene.server.url + BASE
    scene.folder.put(SETTINGS_FILE, formats.updater_data(url))
    run = scene.run()
    stages = ["self-update from URL '{}updates/release/updater/'", "game-updates from URL '{}updates/release/'"]
    assert len(run.log) == 2
    for entry, stage in zip(run.log, stages):
        assert f"While trying to check for {stage.format(url)}:\n\n" in entry


def test_a_redirect_to_a_url_beyond_ascii_is_the_base_of_all_further_requests(scene):
    scene.server.serve(REDIRECT, (scene.server.url + BASE).encode())
    run_requests = moved(scene)
    run = scene.run()
    assert run.requests == ["/" + REDIRECT, *run_requests]
    assert (run.dialogs, run.log) == ([], [])
    run.assert_game_started()


def test_a_redirect_that_is_not_utf_8_is_followed_with_replacement_characters(scene):
    scene.server.serve(REDIRECT, scene.server.url.encode() + b"a\xff/")
    run = scene.run()
    url = scene.server.url + "a\ufffd/updates/release/updater/"
    assert len(run.log) == 2
    assert f"self-update from URL '{url}':\n\n" in run.log[0]
    assert len(run.requests) == 3
    run.assert_game_started()
