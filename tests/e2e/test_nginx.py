"""A few whole runs against a real web server, which words its answers in its own way."""

import pytest

from harness import formats
from harness.constants import CHECK, GAME, GAME_VERSION, LOG, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import ok
from harness.scene import INSTALLED, NEWER


@pytest.fixture
def scene(nginx_scene):
    return nginx_scene


def test_a_current_game_is_started(scene):
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes()) == ([], {})
    run.assert_game_started()


def test_a_game_is_updated_and_started(scene):
    scene.install_launcher(scene.build.keep_dirs)
    scene.folder.put("bin/game.dll", b"old")
    scene.folder.put("bin/unlisted.dll", b"goes")
    large = bytes(range(256)) * 8192
    files = {"bin/game.dll": b"new", "bin/data/large.pak": large}
    player = scene.build.player.read_bytes()
    lines = [formats.file_line(name, content) for name, content in files.items()]
    scene.offer_game(files, ["bin", "bin/data"], [*lines, formats.file_line(GAME, player)])
    run = scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.requests == scene.requests(*CHECK, *files)
    assert run.changes() == {
        "Intermediate": ("-", None),
        VERSION_FILE: (formats.game_version(*INSTALLED), formats.game_version(*NEWER)),
        "bin/data": ("-", None),
        "bin/data/large.pak": ("-", f"md5 {formats.md5(large)}"),
        "bin/game.dll": (b"old", b"new"),
        "bin/unlisted.dll": (b"goes", "-"),
    }
    assert not scene.folder.has(STAGING)
    run.assert_game_started()


def test_a_missing_file_is_logged_and_the_game_started(scene):
    scene.server.remove(scene.updates + GAME_VERSION)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    message = "Failed to download game-version file with error: '404 - no such file.'"
    assert run.log == [scene.game_update_entry(message)]
    assert set(run.changes()) == {"Logs", LOG}
    assert run.dialogs == []
    run.assert_game_started()
