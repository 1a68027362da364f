"""The log file, byte for byte."""

import datetime
import re

from harness.constants import GAME_VERSION, LOG, REDIRECT, UPDATER_MANIFEST, request_path
from harness.game_folder import parse_log
from harness.scripted_server import Answer

NO_LAUNCHER = "Failed to download updater-manifest file with error: '404 - no such file.'"
NO_GAME = "Failed to download game-version file with error: '404 - no such file.'"


def fail_both_updates(scene) -> list[str]:
    scene.serve(UPDATER_MANIFEST, Answer(b"", status=404))
    scene.serve(GAME_VERSION, Answer(b"", status=404))
    return [scene.self_update_entry(NO_LAUNCHER), scene.game_update_entry(NO_GAME)]


def test_entries_are_framed_by_a_doubled_time_stamp_and_a_blank_line(scene):
    entries = fail_both_updates(scene)
    scene.run()
    stamp = r"\[\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d-\d{3}\]\]\r\n"
    expected = "".join(
        stamp + re.escape(entry.replace("\n", "\r\n")) + "\r\n\r\n" for entry in entries
    )
    assert re.fullmatch(expected.encode(), scene.folder.read(LOG))


def test_the_time_stamp_is_the_local_time_of_the_failure(scene):
    fail_both_updates(scene)
    start = datetime.datetime.now()
    scene.run()
    end = datetime.datetime.now()
    stamps = re.findall(r"\[\[(\S+ \S+)-(\d{3})\]\]", scene.folder.read(LOG).decode())
    assert len(stamps) == 2
    times = [
        datetime.datetime.strptime(second, "%d.%m.%Y %H:%M:%S")
        + datetime.timedelta(milliseconds=int(milliseconds))
        for second, milliseconds in stamps
    ]
    # The stamp drops what is below a millisecond.
    millisecond = datetime.timedelta(milliseconds=1)
    assert start - millisecond <= times[0] <= times[1] <= end


def test_a_second_run_appends_to_the_log_of_the_first(scene):
    entries = fail_both_updates(scene)
    scene.run()
    first = scene.folder.read(LOG)
    scene.run()
    assert scene.folder.read(LOG).startswith(first)
    assert scene.folder.log() == entries * 2


def test_an_existing_log_is_kept_and_appended_to(scene):
    entries = fail_both_updates(scene)
    old = b"[[01.02.2020 03:04:05-006]]\r\nold entry\r\n\r\n"
    scene.folder.put(LOG, old)
    run = scene.run()
    assert scene.folder.read(LOG).startswith(old)
    assert run.log == ["old entry", *entries]


def test_a_line_break_inside_an_error_text_keeps_its_carriage_return(scene):
    """Texts of the platform end in CR LF, and the log's text mode makes CR CR LF of it."""
    scene.server.serve(REDIRECT, b"")
    scene.run()
    assert re.search(rb"error: '[^'\r\n]+\r\r\n'\r\n\r\n", scene.folder.read(LOG))


def test_a_log_that_cannot_be_opened_does_not_stop_the_game(scene):
    fail_both_updates(scene)
    scene.folder.directory(LOG)
    run = scene.run()
    assert (run.dialogs, run.exit_code, run.changes()) == ([], 0, {})
    assert run.requests[-1] == request_path(GAME_VERSION)
    run.assert_game_started()


def test_a_file_in_the_place_of_the_log_folder_puts_the_log_into_the_root(scene):
    entries = fail_both_updates(scene)
    scene.folder.put("Logs", b"a file")
    run = scene.run()
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert set(run.changes()) == {"updater.log"}
    assert parse_log(scene.folder.read("updater.log")) == entries
    run.assert_game_started()
