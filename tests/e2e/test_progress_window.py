"""The progress window: what it is made of, and how it counts."""

import subprocess

import pytest

from harness import formats
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import ENDED_BY_TEST, WINE, ok

FILES = {f"file{number}": f"content {number}".encode() for number in range(1, 6)}


@pytest.fixture
def flat(scene):
    """A game whose update ends well."""
    scene.folder.remove("bin")
    scene.offer_game(FILES, ["Saved"])
    return scene


def controls(run) -> dict[str, dict]:
    """The newest report of the window's controls, by class."""
    history = run.controls[run.windows[0]["window"]] if run.windows else []
    return {control["class"].lower(): control for control in history[-1]} if history else {}


def label(run) -> str | None:
    return controls(run).get("static", {}).get("text")


def bar(run) -> dict:
    return controls(run)["msctls_progress32"]


WHOLE_UPDATE = (ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL))


def held_at(scene, name: str, answers=WHOLE_UPDATE, **options):
    """A run that waits for the given file, with the window up and both controls in it."""
    gate = scene.server.hold(scene.updates + name)
    run = scene.start(list(answers), **options)
    run.wait_for(gate)
    run.wait_until(lambda r: len(controls(r)) == 2, "the window's controls")
    return run, gate


def test_the_window_has_its_title_style_size_and_place(flat):
    run, gate = held_at(flat, "file1")
    gate.open()
    run.finish()
    assert len(run.windows) == 1
    window = run.windows[0]
    assert (window["class"], window["caption"]) == ("UpdaterWindow", "Downloading...")
    assert window["owner"] == 0
    # Visible, with the odd low bit; the system adds a caption to every such window.
    assert window["style"] & 0x10000008 == 0x10000008
    assert window["style"] & 0x000A0000 == 0, "no system menu, no minimize box"
    assert window["extendedStyle"] & ~0x100 == 0, "none but the window edge that the system adds"
    # Adjusting for the style 0 adds a frame on Windows, and nothing here.
    assert (window["width"], window["height"]) == (386, 160)
    assert window["x"] == (window["screenWidth"] - 386) // 2
    assert window["y"] == (window["screenHeight"] - 160) // 2


def test_the_label_and_the_bar_have_their_place_size_and_style(flat):
    run, gate = held_at(flat, "file1")
    text, progress = controls(run)["static"], bar(run)
    window = run.windows[0]
    gate.open()
    run.finish()
    assert [text[key] for key in ("x", "y", "width", "height")] == [16, 16, 300, 32]
    width, height = window["clientWidth"] - 16, window["arrowHeight"]
    assert (progress["width"], progress["height"]) == (width, height)
    assert progress["x"] == (window["clientWidth"] - width) // 2
    assert progress["y"] == (window["clientHeight"] - height) // 2
    assert (text["style"], progress["style"]) == (0x50000000, 0x50000000)
    assert (text["id"], progress["id"]) == (0, 0)
    assert (progress["low"], progress["high"], progress["step"]) == (0, 5, 1)


@pytest.mark.parametrize("done", [0, 1, 4])
def test_the_window_counts_files_that_are_done(flat, done):
    run, gate = held_at(flat, f"file{done + 1}")
    run.wait_until(lambda r: label(r) == f"{done} / 5", f"{done} files")
    run.wait_until(lambda r: bar(r)["position"] == done, f"{done} steps")
    gate.open()
    run.finish()
    assert run.exit_code == 0


def test_files_that_need_no_download_count_as_well(flat):
    flat.folder.put("file1", FILES["file1"])
    flat.folder.put("Intermediate/Update/file2", FILES["file2"])
    run, gate = held_at(flat, "file4")
    assert "/updates/release/file1" not in flat.server.requests
    run.wait_until(lambda r: label(r) == "3 / 5", "current, staged and fetched files")
    gate.open()
    run.finish()


def test_more_files_than_16_bits_fill_a_bar_whose_range_is_cut(scene):
    """70000 entries for one file: the label shows them all, the bar's range is the rest of it
    divided by 65536."""
    scene.folder.remove("bin")
    lines = [formats.file_line("file", b"1")] * 70000
    scene.offer_game({"file": b"1"}, ["Saved"], lines)
    run, gate = held_at(
        scene, "file", [ok(UPDATE_AVAILABLE)], expected_exits=(ENDED_BY_TEST,)
    )
    assert label(run) == "0 / 70000"
    assert (bar(run)["low"], bar(run)["high"]) == (0, 4464)
    run.end_all()
    gate.open()
    run.finish()


def test_closing_the_window_does_not_end_the_update(flat):
    run, gate = held_at(flat, "file3")
    run.close_window(run.windows[0])
    run.wait_until(lambda r: not r.open_windows, "the window's end")
    assert run.exits == []
    gate.open()
    run.finish()
    assert run.dialogs == [UPDATE_AVAILABLE, UPDATE_SUCCESSFUL]
    assert run.exit_code == 0
    for name, content in FILES.items():
        assert flat.folder.read(name) == content


def test_a_blocked_window_thread_delays_only_the_end_after_the_success_box(flat):
    """As while somebody drags the window: its thread does nothing else. The update goes on, and the
    Launcher waits for the thread when all else is done."""
    shown_with = []
    success = ok(UPDATE_SUCCESSFUL, meanwhile=lambda: shown_with.append(set(run.open_windows)))
    run, gate = held_at(flat, "file5", [ok(UPDATE_AVAILABLE), success])
    window = run.windows[0]
    run.block_window(window)
    gate.open()
    run.wait_until(lambda r: len(shown_with) == 1, "the success box")
    assert shown_with == [{window["window"]}]
    run.wait_until(lambda r: not r.open_dialogs, "the end of the success box")
    # A Launcher that does not wait has ended by the time that other programs have come and gone; one
    # that does cannot end at all.
    for _ in range(5):
        subprocess.run([WINE, flat.build.probe, "exit", "0"], check=True)
    run.take_reports()
    assert (run.exits, run.open_windows) == ([], {window["window"]})
    run.release_window(window)
    run.finish()
    assert run.dialogs == [UPDATE_AVAILABLE, UPDATE_SUCCESSFUL]


def test_the_window_answers_while_a_download_hangs(flat):
    """Its thread is not the one that downloads: what it shows is still reported."""
    gate = flat.server.hold(flat.updates + "file2", after=3)
    run = flat.start([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    run.wait_for(gate)
    run.wait_until(lambda r: label(r) == "1 / 5", "the first file's count")
    gate.open()
    run.finish()
    assert run.exit_code == 0
