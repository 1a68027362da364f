"""From the start to the running game, when there is nothing to update."""

from harness.constants import GAME, GAME_VERSION


def test_a_current_launcher_starts_a_current_game_and_changes_nothing(scene):
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert run.dialogs == []
    assert run.windows == []
    assert run.changes() == {}
    assert run.exit_code == 0
    run.assert_game_started()


def test_every_request_is_a_plain_get_without_a_user_agent(scene):
    scene.run()
    assert len(scene.server.heads) == 4
    for head in scene.server.heads:
        assert head.startswith("GET /")
        assert "user-agent" not in head.lower()


def test_the_launcher_does_not_wait_for_the_game(scene):
    run = scene.start(game_seconds=600)
    run.wait_until(lambda r: r.exits != [], "the Launcher's end")
    assert run.exit_code == 0
    assert run.requests == scene.requests(GAME_VERSION)
    # The game is still there, and shows its window.
    run.wait_until(lambda r: r.windows != [], "the game's window")
    assert run.windows[0]["caption"] == "Velmorant Player"
    run.end_all()
    run.finish()
    run.assert_game_started()


def test_a_missing_game_ends_with_exit_code_0_and_no_dialog(scene):
    scene.folder.remove(GAME)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.windows, run.changes()) == ([], [], {})
    assert run.exit_code == 0
    assert run.starts == 1
    run.assert_game_not_started()


def test_a_broken_game_ends_with_exit_code_0_and_no_dialog(scene):
    scene.folder.put(GAME, b"this is no program")
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.windows, run.changes()) == ([], [], {})
    assert run.exit_code == 0
    run.assert_game_not_started()


def test_a_missing_bin_folder_ends_with_exit_code_0_and_no_dialog(scene):
    scene.folder.remove("bin")
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_not_started()


def test_two_launchers_run_side_by_side(scene):
    gate = scene.server.hold(scene.updates + GAME_VERSION)
    first = scene.start(game_seconds=0)
    first.wait_for(gate)
    # The first one is in the middle of its run; the second does all of it meanwhile.
    scene.offer_game_version(0, 0, 0, 1)
    second = scene.run()
    assert second.exit_code == 0
    assert len(second.game_starts) == 1
    gate.open()
    first.finish()
    assert first.exit_code == 0
    assert len(first.game_starts) == 2
