"""How each kind of answer of a server counts, seen at the version file that every run asks for."""

import pytest

from harness import formats
from harness.constants import GAME_VERSION, REDIRECT, UPDATER_MANIFEST, request_path
from harness.dialogs import UPDATE_AVAILABLE
from harness.driver import cancel
from harness.scene import INSTALLED, NEWER, matches
from harness.scripted_server import Answer, redirect



def assert_refused(scene, run, error: str) -> None:
    """The download counts as failed: one log entry, no dialog, and the game starts."""
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.exit_code) == ([], 0)
    message = f"Failed to download game-version file with error: '{error}'"
    assert len(run.log) == 1
    assert matches(scene.game_update_entry(message), run.log[0]), run.log[0]
    run.assert_game_started()


def assert_offered(scene, run, requests: list[str]) -> None:
    """The download counts as successful: the newer version in it is offered."""
    assert run.requests == requests
    assert run.dialogs == [UPDATE_AVAILABLE]
    assert (run.log, run.exit_code) == ([], 0)
    run.assert_game_started()


@pytest.mark.parametrize(
    ("status", "error"),
    [
        (401, "401 - unauthorized."),
        (404, "404 - no such file."),
        (500, "500 - internal server error."),
        (201, "201 - unknown error code."),
        (203, "203 - unknown error code."),
        (206, "206 - unknown error code."),
        (304, "304 - unknown error code."),
        (400, "400 - unknown error code."),
        (403, "403 - unknown error code."),
        (410, "410 - unknown error code."),
        (501, "501 - unknown error code."),
        (503, "503 - unknown error code."),
    ],
)
def test_any_status_but_200_is_a_failure_with_its_own_message(scene, status, error):
    scene.serve(GAME_VERSION, Answer(formats.game_version(*NEWER), status=status))
    assert_refused(scene, scene.run(), error)


def test_a_challenge_is_not_answered(scene):
    challenge = ('WWW-Authenticate: Basic realm="game"',)
    scene.serve(GAME_VERSION, Answer(b"who are you?", status=401, headers=challenge))
    assert_refused(scene, scene.run(), "401 - unauthorized.")


@pytest.mark.parametrize(
    "answer",
    [
        pytest.param(Answer(formats.game_version(*NEWER), length=None), id="ended by closing"),
        pytest.param(Answer(formats.game_version(*NEWER), chunked=True), id="chunked"),
        pytest.param(Answer(formats.game_version(*NEWER), length="5000000000"), id="beyond 32 bits"),
    ],
)
def test_an_answer_without_a_usable_length_is_a_failure(scene, answer):
    scene.serve(GAME_VERSION, answer)
    assert_refused(scene, scene.run(), "<platform>")


def test_a_connection_that_closes_without_an_answer_is_a_failure(scene):
    scene.serve(GAME_VERSION, Answer(silent=True))
    run = scene.run()
    # Some stacks call this an error, some a status of 0, and some ask a second time.
    assert set(run.requests[3:]) == {request_path(GAME_VERSION)}
    assert (run.dialogs, run.exit_code, len(run.log)) == ([], 0, 1)
    texts = ["<platform>", "0 - unknown error code."]
    message = "Failed to download game-version file with error: '{}'"
    assert any(matches(scene.game_update_entry(message.format(t)), run.log[0]) for t in texts)
    run.assert_game_started()


def test_a_slow_answer_is_waited_for(scene):
    scene.serve(GAME_VERSION, Answer(formats.game_version(*NEWER), pause=0.02))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_an_answer_that_stops_half_way_is_waited_for(scene):
    scene.offer_game_version(*NEWER)
    gate = scene.server.hold(scene.updates + GAME_VERSION, after=20)
    run = scene.start([cancel(UPDATE_AVAILABLE)])
    run.wait_for(gate)
    assert (run.dialogs, run.exits) == ([], [])
    gate.open()
    run.finish()
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_a_body_longer_than_a_thousand_bytes_arrives_whole(scene):
    """It is read in pieces; here the record of the version file is followed by two megabytes."""
    scene.serve(GAME_VERSION, formats.game_version(*NEWER) + bytes(range(256)) * 8192)
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_a_length_that_is_no_number_counts_as_a_length(scene):
    scene.serve(GAME_VERSION, Answer(formats.game_version(*NEWER), length="abc"))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_chunked_with_a_length_is_accepted(scene):
    body = formats.game_version(*NEWER)
    scene.serve(
        GAME_VERSION, Answer(body, chunked=True, headers=(f"Content-Length: {len(body)}",))
    )
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_the_received_length_is_not_compared_with_the_announced_one(scene):
    """The body announces more than it brings, and what it brings is a whole version file."""
    scene.serve(GAME_VERSION, Answer(formats.game_version(*NEWER), length="1000"))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))


def test_a_body_that_breaks_off_is_taken_as_far_as_it_came(scene):
    """What is missing of the record is read as noughts: the version number 0.0.0.0."""
    whole = formats.game_version(*NEWER)
    scene.serve(GAME_VERSION, Answer(whole, cut_after=len(whole) - 16))
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.log, run.exit_code) == ([], [], 0)
    run.assert_game_started()


@pytest.mark.parametrize("status", [301, 302, 307])
def test_a_redirection_is_followed(scene, status):
    scene.serve(GAME_VERSION, redirect(scene.server.url + "elsewhere", status))
    scene.server.serve("elsewhere", formats.game_version(*NEWER))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, [*scene.requests(GAME_VERSION), "/elsewhere"])


def test_a_redirection_to_nowhere_is_a_failure(scene):
    scene.serve(GAME_VERSION, Answer(b"moved", status=302))
    assert_refused(scene, scene.run(), "302 - unknown error code.")


def test_a_failed_download_is_not_tried_again(scene):
    scene.serve(UPDATER_MANIFEST, Answer(b"", status=503))
    scene.serve(GAME_VERSION, Answer(b"", status=503))
    run = scene.run()
    assert run.requests == [
        "/" + REDIRECT,
        request_path(UPDATER_MANIFEST),
        request_path(GAME_VERSION),
    ]


def test_nothing_is_taken_from_a_cache(scene):
    cacheable = ("Cache-Control: max-age=3600",)
    scene.serve(GAME_VERSION, Answer(formats.game_version(*INSTALLED), headers=cacheable))
    assert scene.run().dialogs == []
    scene.serve(GAME_VERSION, Answer(formats.game_version(*NEWER), headers=cacheable))
    run = scene.run([cancel(UPDATE_AVAILABLE)])
    assert_offered(scene, run, scene.requests(GAME_VERSION))
