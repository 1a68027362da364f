"""The message boxes: the exact style of each, and what follows each of their results."""

import pytest

from harness.constants import (
    CHECK,
    GAME_VERSION,
    NEXT_VERSION,
    PARKED,
    UPDATER_DATA,
    UPDATER_EXECUTABLE,
    VERSION_FILE,
)
from harness.dialogs import (
    RESTART_REQUIRED,
    SELF_UPDATE_FAILED,
    UPDATE_AVAILABLE,
    UPDATE_FAILED,
    UPDATE_SUCCESSFUL,
    Dialog,
)
from harness.driver import EXIT_MINUS_ONE, OTHER_RESULTS, Press, cancel, ok
from harness.scene import NEWER, Scene

BOTH = (0, 0)


def offer_next_launcher(scene: Scene) -> None:
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, scene.build.next.read_bytes())


def offer_other_settings(scene: Scene) -> None:
    scene.serve(UPDATER_DATA, scene.settings + b"!")


def block_parking(scene: Scene) -> None:
    """A filled folder in the place of the parked executable: renaming fails."""
    offer_next_launcher(scene)
    scene.folder.put(f"{PARKED}/file", b"in the way")


def block_writing(scene: Scene) -> None:
    """A folder of the executable's name in other letters, which Windows meets once the executable
    is parked: writing fails, and the rollback, too."""
    offer_next_launcher(scene)
    scene.folder.directory("launcher.exe")


def offer_game(scene: Scene) -> None:
    """An update that succeeds: without the game's own folder, which ends the clean-up."""
    scene.folder.remove("bin")
    scene.offer_game({"data.pak": b"data"}, ["Saved"])


def offer_game_without_manifest(scene: Scene) -> None:
    scene.offer_game_version(*NEWER)


# --- Styles -----------------------------------------------------------------------------------


def box(style: int, dialog: Dialog) -> str:
    """The note of a message box without an owner."""
    return f"box {style} none {dialog.caption}"


@pytest.mark.parametrize(
    ("prepare", "answers", "exits", "boxes"),
    [
        pytest.param(
            offer_game,
            [ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)],
            (0,),
            [box(33, UPDATE_AVAILABLE), box(64, UPDATE_SUCCESSFUL)],
            id="game updated",
        ),
        pytest.param(
            offer_game_without_manifest,
            [ok(UPDATE_AVAILABLE), ok(UPDATE_FAILED)],
            (0,),
            [box(33, UPDATE_AVAILABLE), box(17, UPDATE_FAILED)],
            id="game update failed",
        ),
        pytest.param(
            offer_next_launcher,
            [ok(RESTART_REQUIRED)],
            BOTH,
            [box(64, RESTART_REQUIRED)],
            id="executable replaced",
        ),
        pytest.param(
            offer_other_settings,
            [ok(RESTART_REQUIRED)],
            BOTH,
            [box(64, RESTART_REQUIRED)],
            id="settings replaced",
        ),
        pytest.param(
            block_parking,
            [ok(SELF_UPDATE_FAILED)],
            (0,),
            [box(16, SELF_UPDATE_FAILED)],
            id="parking failed",
        ),
        pytest.param(
            block_writing,
            [ok(SELF_UPDATE_FAILED)],
            (0,),
            [box(16, SELF_UPDATE_FAILED)],
            id="writing and rollback failed",
        ),
    ],
)
def test_each_box_has_no_owner_and_exactly_its_style(scene, prepare, answers, exits, boxes):
    prepare(scene)
    _, notes = scene.run_noted(answers, expected_exits=exits)
    assert [note for note in notes if note.startswith("box")] == boxes


# --- Results that are neither OK nor Cancel ---------------------------------------------------


@pytest.mark.parametrize("result", OTHER_RESULTS)
def test_any_result_of_the_question_but_cancel_starts_the_update(scene, result):
    offer_game_without_manifest(scene)
    run = scene.run([Press(result, UPDATE_AVAILABLE), ok(UPDATE_FAILED)])
    assert run.requests == scene.requests(*CHECK)
    run.assert_game_started()


@pytest.mark.parametrize("result", OTHER_RESULTS)
@pytest.mark.parametrize("has_version", [True, False])
def test_any_result_of_the_failure_box_but_cancel_starts_the_game(scene, result, has_version):
    offer_game_without_manifest(scene)
    if not has_version:
        scene.folder.remove(VERSION_FILE)
    run = scene.run([ok(UPDATE_AVAILABLE), Press(result, UPDATE_FAILED)])
    assert (run.exit_code, len(run.log)) == (0, 1)
    run.assert_game_started()


@pytest.mark.parametrize("result", (0, 2))
def test_any_result_of_the_success_box_ends_the_update(scene, result):
    offer_game(scene)
    run = scene.run([ok(UPDATE_AVAILABLE), Press(result, UPDATE_SUCCESSFUL)])
    assert (run.exit_code, run.log) == (0, [])


@pytest.mark.parametrize("result", (0, 2))
@pytest.mark.parametrize("prepare", [offer_next_launcher, offer_other_settings])
def test_any_result_of_the_restart_box_restarts(scene, result, prepare):
    prepare(scene)
    run = scene.run([Press(result, RESTART_REQUIRED)], expected_exits=BOTH)
    run.assert_game_started()


@pytest.mark.parametrize("result", (0, 2))
def test_any_result_of_the_box_for_a_failed_self_update_goes_on_to_the_game(scene, result):
    block_parking(scene)
    run = scene.run([Press(result, SELF_UPDATE_FAILED)])
    assert run.requests[-1] == f"/{scene.updates}{GAME_VERSION}"
    run.assert_game_started()


# --- Exits ------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("prepare", "answers", "exits", "com"),
    [
        pytest.param(lambda scene: None, [], (0,), 0, id="game current"),
        pytest.param(offer_next_launcher, [ok(RESTART_REQUIRED)], BOTH, 1, id="executable replaced"),
        pytest.param(offer_other_settings, [ok(RESTART_REQUIRED)], BOTH, 1, id="settings replaced"),
        pytest.param(
            offer_game_without_manifest,
            [ok(UPDATE_AVAILABLE), cancel(UPDATE_FAILED)],
            (EXIT_MINUS_ONE,),
            1,
            id="game not to be started",
        ),
    ],
)
def test_exit_handlers_run_at_every_end_but_the_abnormal_one(scene, prepare, answers, exits, com):
    prepare(scene)
    _, notes = scene.run_noted(answers, expected_exits=exits)
    # exit() does not unwind the scope that holds COM for all downloads of the run.
    assert [note for note in notes if note.startswith("exit")][0] == f"exit {com}"
