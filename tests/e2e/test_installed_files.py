"""The check of installed files, which reads ahead: whatever the files are, each is answered for when
its entry is reached. So the order of all requests and copies is the manifest's."""

import random

import pytest

from harness import formats
from harness.constants import CHECK, GAME, STAGING, VERSION_FILE
from harness.dialogs import UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, ok
from harness.killed import run_recorded
from harness.scene import INSTALLED, NEWER

MEBIBYTE = 1 << 20

NAMES = ["data/one", "data/two", "data/three", "data/four", "data/five"]


@pytest.fixture
def studio(scene):
    """A game that lives in "bin", with a Launcher for such games that records what it does."""
    scene.install_launcher(scene.build.faults_keep_dirs)
    return scene


def new(name: str) -> bytes:
    return f"content of {name}".encode()


def changed(name: str) -> bytes:
    """Another content of the same size."""
    return new(name).swapcase()


def offer(scene, files: list[tuple[str, bytes]], directories: list[str]) -> None:
    """An update to these files, in this order, and to the game's program, which is current."""
    lines = [formats.file_line(name, content) for name, content in files]
    lines.append(formats.file_line(GAME, scene.build.player.read_bytes()))
    scene.offer_game(dict(files), directories, lines)


def run_to_the_end(scene):
    """A run that succeeds, and the targets of its copies, in order."""
    run, operations = run_recorded(scene, [ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)], (0,))
    assert run.log == []
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*NEWER)
    assert not scene.folder.has(STAGING)
    copied = "CopyFileW "
    return run, [line.removeprefix(copied) for line in operations if line.startswith(copied)]


# --- Files that cannot be read ----------------------------------------------------------------


@pytest.mark.parametrize(
    "current, fetched",
    [
        pytest.param([0], [1, 2], id="a current file, two changed ones"),
        pytest.param([2], [0, 1], id="two changed ones, a current file"),
        pytest.param([0, 1], [2], id="two current files, a changed one"),
        pytest.param([0, 1, 2], [], id="three current files"),
    ],
)
@pytest.mark.parametrize("unreadable", ["locked", "a folder"])
def test_a_fourth_file_that_cannot_be_read_ends_the_program_when_its_turn_comes(
    scene, current, fetched, unreadable
):
    for number in current:
        scene.folder.put(NAMES[number], new(NAMES[number]))
    for number in fetched:
        scene.folder.put(NAMES[number], changed(NAMES[number]))
    if unreadable == "locked":
        scene.folder.put(NAMES[3], new(NAMES[3]))
        scene.lock(NAMES[3])
    else:
        scene.folder.directory(NAMES[3])
    scene.folder.put(NAMES[4], changed(NAMES[4]))
    scene.offer_game({name: new(name) for name in NAMES})
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    names = [NAMES[number] for number in fetched]
    assert run.requests == scene.requests(*CHECK, *names)
    for name in NAMES:
        staged = scene.folder.path(f"{STAGING}/{name}")
        assert (staged.read_bytes() if staged.exists() else None) == (new(name) if name in names else None)
    # As always after the first file was begun: no dialog, no log, no game, and nothing is installed.
    assert run.dialogs == [UPDATE_AVAILABLE]
    assert not scene.folder.has("Logs")
    assert scene.folder.read(VERSION_FILE) == formats.game_version(*INSTALLED)
    for name in names:
        assert scene.folder.read(name) == changed(name)
    run.assert_game_not_started()


# --- Files that change during the update ------------------------------------------------------


@pytest.mark.parametrize("listed", ["data/three", "DATA/Three"])
def test_a_file_that_changes_during_a_download_is_checked_after_it(studio, listed):
    files = [("data/one", b"one"), ("data/two", b"two"), (listed, b"three"), ("data/four", b"four")]
    studio.folder.put("data/one", b"one")
    studio.folder.put("data/two", b"TWO")
    studio.folder.put("data/three", b"three")
    studio.folder.put("data/four", b"FOUR")
    offer(studio, files, ["bin", "data"])
    gate = studio.server.hold(studio.updates + "data/two")
    run = studio.start([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    run.wait_for(gate)
    studio.folder.put("data/three", b"THREE")
    studio.folder.put("data/four", b"four")
    gate.open()
    run.finish()
    assert run.requests == studio.requests(*CHECK, "data/two", listed)


@pytest.mark.parametrize("folder", [STAGING, STAGING.upper(), f"data/../{STAGING}"])
@pytest.mark.parametrize("listed", [b"old", b"new"])
def test_a_listed_file_in_the_staging_folder_is_checked_after_the_download_to_it(studio, folder, listed):
    """The second file is downloaded to the place of the third, which had the right size before."""
    name = f"{folder}/data/two"
    files = [("data/one", b"one"), ("data/two", b"new"), (name, listed), ("data/four", b"four")]
    for present in ("data/one", "data/four"):
        studio.folder.put(present, dict(files)[present])
    studio.folder.put("data/two", b"old")
    studio.folder.put(f"{STAGING}/data/two", b"old")
    parts = STAGING.split("/")
    directories = ["bin", "data", parts[0], STAGING, f"{STAGING}/data"]
    offer(studio, files, directories)
    # What the server sees of a name with "..".
    request = name.removeprefix("data/../")
    studio.serve(request, listed)
    run, copies = run_to_the_end(studio)
    fetched = [] if listed == b"new" else [request]
    assert run.requests == studio.requests(*CHECK, "data/two", *fetched)
    assert copies == ["data/two", *([] if listed == b"new" else [name])]
    assert studio.folder.read("data/two") == b"new"


# --- Files that are listed twice --------------------------------------------------------------


@pytest.mark.parametrize(
    "installed, listed, fetched, copied",
    [
        pytest.param(b"a", [b"a", b"a"], [], [], id="current twice"),
        pytest.param(None, [b"a", b"a"], [0], [0, 1], id="missing: the second time it is staged"),
        pytest.param(b"b", [b"a", b"a"], [0], [0, 1], id="changed: the second time it is staged"),
        pytest.param(b"a", [b"a", b"b"], [1], [1], id="current, then another one"),
        pytest.param(b"a", [b"b", b"a"], [0], [0], id="another one, then current"),
        pytest.param(b"c", [b"a", b"b"], [0, 1], [0, 1], id="two other ones"),
    ],
)
@pytest.mark.parametrize("again", ["data/two", "Data/TWO"])
def test_a_name_that_is_listed_twice(studio, installed, listed, fetched, copied, again):
    names = ["data/two", again]
    studio.folder.put("data/one", b"1")
    studio.folder.put("data/three", b"3")
    if installed is not None:
        studio.folder.put("data/two", installed)
    files = [("data/one", b"1"), (names[0], listed[0]), (names[1], listed[1]), ("data/three", b"3")]
    offer(studio, files, ["bin", "data"])
    studio.serve(names[0], listed[0])  # Under one name the server has one content, here the first.
    run, copies = run_to_the_end(studio)
    assert run.requests == studio.requests(*CHECK, *(names[number] for number in fetched))
    assert copies == [names[number] for number in copied]
    served = [studio.server.answers["/" + studio.updates + names[number]].body for number in copied]
    assert studio.folder.read("data/two") == (served[-1] if served else installed)


# --- All at once ------------------------------------------------------------------------------

KINDS = ("current", "current", "current", "changed", "other size", "missing", "staged", "broken off")


def test_sixty_files_of_all_kinds_are_requested_and_copied_in_order(studio):
    seeded = random.Random(60)
    long = "long/" + "n" * 200
    names = [f"data/{number:02}" for number in range(57)]
    large = bytes(64 * MEBIBYTE + 1)
    files = {name: seeded.randbytes(seeded.choice([1, 63, 64, 200, 5000, 100_000])) for name in names}
    files |= {"data/large": large, "data/changed": large, long: b"long"}
    kinds = {name: seeded.choice(KINDS) for name in names}
    kinds |= {"data/large": "current", "data/changed": "changed", long: "changed"}
    order = list(files)
    seeded.shuffle(order)
    fetched, copied = [], []
    for name in order:
        content, kind = files[name], kinds[name]
        other = content[:-1] + bytes([content[-1] ^ 1])
        if kind == "current":
            studio.folder.put(name, content)
            continue
        copied.append(name)
        if kind in ("changed", "staged"):
            studio.folder.put(name, other)
        elif kind == "other size":
            studio.folder.put(name, content + b"more")
        if kind == "staged":
            studio.folder.put(f"{STAGING}/{name}", content)
            continue
        fetched.append(name)
        if kind == "broken off":
            studio.folder.put(f"{STAGING}/{name}", content[:-1])
    assert set(kinds.values()) == set(KINDS)
    offer(studio, [(name, files[name]) for name in order], ["bin", "data", "long"])
    run, copies = run_to_the_end(studio)
    assert run.requests == studio.requests(*CHECK, *fetched)
    assert copies == copied
    for name, content in files.items():
        assert studio.folder.read(name) == content, name
