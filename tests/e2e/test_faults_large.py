"""Long and large updates: many small files, and one that is larger than anything else."""

import hashlib
import pathlib
import random

import pytest

from harness import formats
from harness.constants import GAME, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import ok
from harness.game_folder import windows_path
from harness.scene import NEWER

pytestmark = pytest.mark.long

# For machines that have much else to do.
TIMEOUT = 3600
MEBIBYTE = 1 << 20


@pytest.fixture
def studio(scene):
    scene.install_launcher(scene.build.keep_dirs)
    return scene


def labels(run) -> list[str]:
    """The counts that the progress window showed, in order."""
    return [
        control["text"]
        for window in run.windows
        if window["class"] == "UpdaterWindow"
        for controls in run.controls[window["window"]]
        for control in controls
        if control["class"].lower() == "static"
    ]


def peak_memory(program: pathlib.Path) -> int:
    """The most bytes that the running program ever had in memory."""
    name = windows_path(program).encode()
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if not (process / "cmdline").read_bytes().startswith(name):
                continue
            status = (process / "status").read_text()
        except OSError:
            continue  # It has just ended.
        lines = dict(line.split(":", 1) for line in status.splitlines())
        return int(lines["VmHWM"].split()[0]) * 1024
    raise AssertionError(f"{program} is not running")


def offer(scene, files: dict[str, bytes], directories: list[str], version: tuple) -> None:
    lines = [formats.file_line(name, content) for name, content in files.items()]
    lines.append(formats.file_line(GAME, scene.build.player.read_bytes()))
    scene.offer_game(files, directories, lines)
    scene.offer_game_version(*version)


def test_twenty_thousand_small_files_are_installed_and_counted(studio, record_property):
    seeded = random.Random(20000)
    files = {
        f"data/{n % 100:02}/{n:05}.dat": seeded.randbytes(seeded.randrange(1, 4096))
        for n in range(20000)
    }
    directories = ["data", *(f"data/{n:02}" for n in range(100))]
    lines = [formats.file_line(GAME, studio.build.player.read_bytes())]
    lines += [formats.file_line(name, content) for name, content in files.items()]
    studio.offer_game(files, directories, lines)
    last = list(files)[-1]
    gate = studio.server.hold(studio.updates + last)
    peaks = []
    program = studio.folder.path("Launcher.exe")
    run = studio.start(
        [
            ok(UPDATE_AVAILABLE),
            ok(UPDATE_SUCCESSFUL, meanwhile=lambda: peaks.append(peak_memory(program))),
        ],
        deadline=TIMEOUT,
    )
    run.wait_for(gate)
    # All but the last one are done, the current program of the game included.
    run.wait_until(lambda r: labels(r)[-1] == "20000 / 20001", "the count of all but the last")
    gate.open()
    run.finish()
    counts = [int(label.split(" / ")[0]) for label in labels(run)]
    assert counts == sorted(counts)
    assert len(run.requests) == 5 + len(files)
    for name, content in files.items():
        assert studio.folder.read(name) == content
    assert not studio.folder.has(STAGING)
    assert studio.folder.read(VERSION_FILE) == formats.game_version(*NEWER)
    assert run.log == []
    run.assert_game_started()
    told = f"{len(files)} files, {sum(map(len, files.values())) >> 10} KiB, {len(counts)} counts shown"
    record_property("cell", ("Large updates", "many", told, f"peak {peaks[0] >> 20} MiB"))


def accepted(peaks: list[int], program: pathlib.Path) -> list:
    """The answers of a player who accepts an update; the program's peak memory is added at its end."""
    return [
        ok(UPDATE_AVAILABLE),
        ok(UPDATE_SUCCESSFUL, meanwhile=lambda: peaks.append(peak_memory(program))),
    ]


def test_a_file_of_a_gibibyte_takes_little_more_memory_than_its_size(studio, record_property):
    size = 1 << 30
    peaks = []
    program = studio.folder.path("Launcher.exe")

    def update(files: dict[str, bytes], version: int) -> list[str]:
        offer(studio, files, ["data"], (0, 0, 0, version))
        run = studio.start(
            accepted(peaks, program),
            deadline=TIMEOUT,
        )
        run.finish()
        assert run.log == []
        run.assert_game_started()
        return run.requests[5:]

    # What the program takes without it: the same update with next to nothing in it.
    assert update({"data/large.dat": b"small"}, 2) == [f"/{studio.updates}data/large.dat"]
    large = random.Random(30).randbytes(MEBIBYTE) * (size // MEBIBYTE)
    assert update({"data/large.dat": large}, 3) == [f"/{studio.updates}data/large.dat"]
    with studio.folder.path("data/large.dat").open("rb") as installed:
        assert hashlib.file_digest(installed, "md5").hexdigest() == formats.md5(large)
    assert not studio.folder.has(STAGING)
    # And when it is only checked.
    assert update({"data/large.dat": large}, 4) == []
    small, fetched, checked = peaks
    record_property(
        "cell",
        (
            "Large updates",
            "one",
            f"{size >> 20} MiB",
            f"peak above a small update: {(fetched - small) >> 10} KiB to fetch it, "
            f"{(checked - small) >> 10} KiB to check it",
        ),
    )
    assert fetched - small <= size + 16 * MEBIBYTE
    assert checked - small <= size + 16 * MEBIBYTE


@pytest.mark.parametrize(
    "sizes",
    [
        pytest.param([16] * 12, id="several at a time"),
        pytest.param([40, 50, 60, 63], id="ever larger"),
        pytest.param([60, 100, 60, 100], id="every second one read alone"),
    ],
)
def test_reading_ahead_takes_little_more_memory_than_64_mebibytes_or_the_largest_file(
    studio, sizes, record_property
):
    peaks = []
    program = studio.folder.path("Launcher.exe")

    def update(files: dict[str, bytes], fetched: list[str], version: int) -> None:
        offer(studio, files, ["data"], (0, 0, 0, version))
        run = studio.start(
            accepted(peaks, program),
            deadline=TIMEOUT,
        )
        run.finish()
        assert run.requests[5:] == [f"/{studio.updates}{name}" for name in fetched]

    update({"data/small.dat": b"small"}, ["data/small.dat"], 2)
    files = {f"data/{n:02}.dat": bytes([n]) * (size * MEBIBYTE) for n, size in enumerate(sizes)}
    for name, content in files.items():
        studio.folder.put(name, content)
    # All current; then the second of four that are read together is changed.
    update(files, [], 3)
    changed = "data/01.dat"
    studio.folder.put(changed, bytes(len(files[changed])))
    update(files, [changed], 4)
    small, current, fetched = peaks
    told = f"{(current - small) >> 20} MiB with all current, {(fetched - small) >> 20} MiB with one changed"
    record_property(
        "cell", ("Large updates", f"of {sizes} MiB", "checked", f"peak above a small update: {told}")
    )
    largest = max(64, *sizes) * MEBIBYTE
    assert current - small <= largest + 16 * MEBIBYTE
    assert fetched - small <= largest + 16 * MEBIBYTE
