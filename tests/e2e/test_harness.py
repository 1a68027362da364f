"""The harness itself: that it sees what is there, and fails when it should."""

import pathlib
import socket
import urllib.error
import urllib.request

import pytest

from harness import driver
from harness.constants import GAME
from harness.dialogs import Dialog
from harness.driver import (
    ENDED_BY_TEST,
    EXIT_MINUS_ONE,
    OTHER_RESULTS,
    TERMINATED,
    Press,
    Run,
    ok,
)
from harness.formats import Archive
from harness.scripted_server import Answer, ClosedPort, ScriptedServer


def probe(build, temp_dir: pathlib.Path, *arguments: str, answers: list[Press] | None = None) -> Run:
    return Run(build, temp_dir, build.probe, list(arguments), answers or [], {}, ())


@pytest.mark.parametrize(
    ("style", "icon", "buttons"),
    [
        (16, "error", ("OK",)),
        (17, "error", ("OK", "Cancel")),
        (33, "question", ("OK", "Cancel")),
        (48, "warning", ("OK",)),
        (64, "information", ("OK",)),
        (0, "none", ("OK",)),
    ],
)
def test_a_box_is_reported_with_its_text_buttons_and_icon(build, temp_dir, style, icon, buttons):
    box = Dialog("A caption", "Some text, 'quoted' and long enough to be broken. " * 4, buttons, icon)
    run = probe(build, temp_dir, "box", str(style), box.caption, box.text, answers=[ok(box)])
    run.finish()
    assert run.dialogs == [box]
    assert run.exit_codes("probe.exe") == [1]


@pytest.mark.parametrize(
    ("style", "default", "topmost"),
    [(1, "OK", False), (0x101, "Cancel", False), (0x1001, "OK", True)],
)
def test_the_default_button_and_the_topmost_style_of_a_box_are_reported(
    build, temp_dir, style, default, topmost
):
    box = Dialog("A caption", "text", ("OK", "Cancel"), "none", default, topmost)
    run = probe(build, temp_dir, "box", str(style), "A caption", "text", answers=[ok(box)])
    run.finish()
    assert run.dialogs == [box]


@pytest.mark.parametrize("result", OTHER_RESULTS)
def test_a_box_can_be_ended_with_any_result(build, temp_dir, result):
    box = Dialog("A caption", "text", ("OK", "Cancel"), "error")
    answers = [Press(result, box)]
    run = probe(build, temp_dir, "box", "17", "A caption", "text", answers=answers)
    run.finish()
    assert run.exit_codes("probe.exe") == [result & 0xFFFFFFFF]


def test_a_button_is_pressed_by_its_label(build, temp_dir):
    box = Dialog("A caption", "text", ("OK", "Cancel"), "error")
    run = probe(build, temp_dir, "box", "17", "A caption", "text", answers=[Press("Cancel", box)])
    run.finish()
    assert run.exit_codes("probe.exe") == [2]


@pytest.mark.parametrize(
    "answers",
    [
        pytest.param([], id="no dialog expected"),
        pytest.param([ok(Dialog("A caption", "other text", ("OK",), "none"))], id="other text"),
        pytest.param([ok(Dialog("Other caption", "text", ("OK",), "none"))], id="other caption"),
        pytest.param([ok(Dialog("A caption", "text", ("OK",), "error"))], id="other icon"),
        pytest.param([ok(Dialog("A caption", "text", ("OK", "Cancel"), "none"))], id="other buttons"),
        pytest.param([ok(Dialog("A caption", "text", ("OK",), "none", "Cancel"))], id="other default"),
        pytest.param(
            [ok(Dialog("A caption", "text", ("OK",), "none", topmost=True))], id="not in front"
        ),
    ],
)
def test_a_dialog_that_was_not_expected_fails_the_run(build, temp_dir, answers):
    run = probe(build, temp_dir, "box", "0", "A caption", "text", answers=answers)
    with pytest.raises(AssertionError):
        run.finish()
    run.close()


def test_an_expected_dialog_that_does_not_come_fails_the_run(build, temp_dir):
    box = Dialog("A caption", "text", ("OK",), "none")
    run = probe(build, temp_dir, "exit", "0", answers=[ok(box)])
    with pytest.raises(AssertionError, match="never came"):
        run.finish()


def test_a_window_that_was_not_expected_fails_the_run_even_if_it_hangs(build, temp_dir):
    run = probe(build, temp_dir, "hang")
    with pytest.raises(AssertionError, match="unexpected window"):
        run.finish()
    run.close()


@pytest.mark.parametrize(
    ("arguments", "code"),
    [(["exit", "0"], 0), (["exit", "-1"], EXIT_MINUS_ONE), (["abort"], TERMINATED)],
)
def test_exit_codes_are_reported_whole(build, temp_dir, arguments, code):
    run = probe(build, temp_dir, *arguments)
    run.finish()
    assert run.exit_codes("probe.exe") == [code]


def test_a_child_and_its_child_are_waited_for(build, temp_dir):
    run = probe(build, temp_dir, "child", "child", "exit", "7")
    run.finish()
    assert run.exit_codes("probe.exe") == [0, 0, 7]


def test_a_run_can_be_ended_from_outside(build, temp_dir):
    box = Dialog("A caption", "text", ("OK",), "none")
    run = probe(build, temp_dir, "box", "0", "A caption", "text", answers=[])
    with pytest.raises(AssertionError):
        run.wait_until(lambda r: r.dialogs != [], "the box")
    assert run.dialogs == [box]
    run.end_all()
    run.finish()
    assert run.exit_codes("probe.exe") == [ENDED_BY_TEST]


# --- Runs that must fail ----------------------------------------------------------------------


def test_a_run_whose_program_does_not_exist_fails(build, temp_dir):
    run = Run(build, temp_dir, temp_dir / "missing.exe", [], [], {}, ())
    with pytest.raises(AssertionError, match="the start failed"):
        run.finish()


def test_a_run_whose_watch_breaks_off_fails(build, temp_dir, monkeypatch):
    monkeypatch.setattr(build, "watch", build.probe)
    run = Run(build, temp_dir, build.probe, [], [], {}, ())
    with pytest.raises(AssertionError, match="the watch broke off"):
        run.finish()


def test_an_invalid_report_of_the_watcher_fails_the_run_and_is_shown(build, temp_dir, monkeypatch):
    monkeypatch.setattr(driver, "WINE", temp_dir / "wine")
    driver.WINE.write_text("#!/bin/sh\necho nonsense\nexec cat >/dev/null\n")
    driver.WINE.chmod(0o755)
    run = probe(build, temp_dir)
    with pytest.raises(AssertionError, match="the watch broke off.*nonsense"):
        run.finish()


def test_a_dialog_that_is_never_answered_fails_the_run(build, temp_dir):
    box = Dialog("A caption", "text", ("OK",), "none")
    answers = [ok(box, when=lambda _: False)]
    run = probe(build, temp_dir, "box", "0", "A caption", "text", answers=answers)
    run.wait_until(lambda r: r.dialogs != [], "the box")
    run.end_all()
    with pytest.raises(AssertionError, match="never answered"):
        run.finish()


def test_a_dialog_whose_answer_comes_too_late_fails_the_run(build, temp_dir):
    box = Dialog("A caption", "text", ("OK",), "none")
    answers = [ok(box, when=lambda r: r.exits != [])]
    run = probe(build, temp_dir, "box", "0", "A caption", "text", answers=answers)
    run.wait_until(lambda r: r.dialogs != [], "the box")
    run.end_all()
    with pytest.raises(AssertionError, match="never answered"):
        run.finish()


@pytest.fixture
def started_once(monkeypatch):
    """The starts of the Launcher that were put down to Wine, which are to be none."""
    failed = []
    monkeypatch.setattr(driver, "failed_starts", failed)
    yield
    assert failed == []


@pytest.mark.parametrize("code", [1, TERMINATED, -1, -1073741819, 53])
def test_a_launcher_that_ends_with_another_exit_code_fails_the_run(scene, started_once, code):
    """Above all with that of an access violation, and before it has done anything."""
    scene.install_launcher(scene.build.probe)
    with pytest.raises(AssertionError, match="exit codes"):
        scene.run(arguments=["exit", str(code)])


def test_the_exit_code_of_a_restarted_launcher_counts_too(scene, started_once):
    scene.install_launcher(scene.build.probe)
    with pytest.raises(AssertionError, match=r"exit codes \[0, 3\]"):
        scene.run(arguments=["child", "exit", "3"], expected_exits=(0, 0))
    scene.run(arguments=["child", "exit", "3"], expected_exits=(0, TERMINATED))


def test_a_launcher_that_hangs_before_its_first_request_fails_the_run(
    scene, started_once
):
    scene.install_launcher(scene.build.probe)
    with pytest.raises(TimeoutError):
        scene.run(arguments=["wait"], deadline=2.0)


def test_a_start_that_failed_is_repeated_once_and_at_most_twice_in_a_session(scene, monkeypatch):
    failed = []
    monkeypatch.setattr(driver, "failed_starts", failed)
    scene.folder.remove("Launcher.exe")
    for count in (1, 2):
        with pytest.warns(UserWarning, match="started again"):
            with pytest.raises(AssertionError, match="the start failed"):
                scene.run()
        assert len(failed) == count
    with pytest.raises(AssertionError, match="too many failed starts"):
        scene.run()


def test_a_game_that_leaves_no_record_of_its_start_is_seen(scene):
    scene.folder.put_copy(GAME, scene.build.probe)
    run = scene.run()
    assert run.game_starts == []
    with pytest.raises(AssertionError):
        run.assert_game_not_started()
    with pytest.raises(AssertionError):
        run.assert_game_started()


def test_a_record_without_a_game_is_no_start(scene):
    scene.install_launcher(scene.build.player)
    run = scene.run()
    assert len(run.game_starts) == 1
    with pytest.raises(AssertionError):
        run.assert_game_started()


# --- Formats and servers ----------------------------------------------------------------------


def test_archives_are_laid_out_byte_for_byte():
    plain = Archive().string("ab").u32(7).wide_string("c").block16(bytes(range(16)))
    assert plain.data.hex() == (
        "a1fc2661" "01000000" "00"
        "02000000" "6162" "07000000" "01000000" "6300" "000102030405060708090a0b0c0d0e0f"
    )
    checked = Archive(checked=True).string("ab").u32(7).wide_string("c").block16(bytes(16))
    assert checked.data.hex() == (
        "a1fc2661" "01000000" "01"
        "b8204c2f" "04000000" "02000000" "6162"
        "04000000" "07000000"
        "327c462f" "04000000" "01000000" "6300"
        "10000000" + "00" * 16
    )


def test_the_server_answers_as_scripted_and_records_requests_in_order():
    server = ScriptedServer()
    try:
        server.serve("a", b"body")
        server.serve("b", Answer(b"no", status=500))
        with urllib.request.urlopen(server.url + "a") as answer:
            assert (answer.read(), answer.headers["Content-Length"]) == (b"body", "4")
        with pytest.raises(urllib.error.HTTPError, match="500"):
            urllib.request.urlopen(server.url + "b")
        with pytest.raises(urllib.error.HTTPError, match="404"):
            urllib.request.urlopen(server.url + "c")
        assert server.requests == ["/a", "/b", "/c"]
    finally:
        server.close()


def ask(server: ScriptedServer, head: bytes) -> bytes:
    """What the server answers to these bytes."""
    with socket.create_connection(("127.0.0.1", server.port)) as connection:
        connection.sendall(head)
        connection.shutdown(socket.SHUT_WR)
        return b"".join(iter(lambda: connection.recv(4096), b""))


@pytest.mark.parametrize(
    ("head", "recorded"),
    [
        (b"GET /a b HTTP/1.1\r\n\r\n", "GET /a b HTTP/1.1"),
        (b"nonsense\r\n\r\n", "nonsense"),
        (b"broken off", "broken off"),
        (b"POST /a HTTP/1.1\r\n\r\n", "POST /a HTTP/1.1"),
        (b"GET /a HTTP/1.1\r\n\r\n", "/a"),
    ],
)
def test_the_server_records_whatever_it_is_asked(head, recorded):
    server = ScriptedServer()
    try:
        assert ask(server, head).startswith(b"HTTP/1.1 404 ")
        assert server.requests == [recorded]
    finally:
        server.close()


def test_a_server_that_failed_fails_the_test():
    server = ScriptedServer()
    server.serve("a", Answer("text is no body"))
    ask(server, b"GET /a HTTP/1.1\r\n\r\n")
    with pytest.raises(AssertionError, match="TypeError"):
        server.close()


def test_a_closed_port_refuses():
    port = ClosedPort()
    try:
        with pytest.raises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.1", int(port.url.rstrip("/").rsplit(":", 1)[1])))
    finally:
        port.close()
