"""The Launcher is killed at every operation of an update, and at seeded moments; then it is run again.

After each kill the disk is in one of the states that an update goes through, with the player's files
untouched, and the next run ends with what an undisturbed one ends with. What the next run cannot
repair by itself is described in docs/reliability.md; the player's repair is tested here.
"""

import collections
import dataclasses
import random

import pytest

from harness.constants import (
    EXECUTABLE,
    GAME_MANIFEST,
    GAME_VERSION,
    PARKED,
    SETTINGS_FILE,
    VERSION_FILE,
)
from harness.dialogs import RESTART_REQUIRED, UPDATE_AVAILABLE, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED
from harness.killed import (
    FETCHED,
    KILLED,
    GameUpdate,
    Moment,
    Operation,
    SelfUpdate,
    SettingsUpdate,
    put_back,
    run_recorded,
    run_until,
    whole_tree,
)

# --- At every operation -----------------------------------------------------------------------

CHECKING = [
    "InternetOpenUrlW /redirect.txt",
    "DeleteFileW _old.exe",
    "InternetOpenUrlW /updates/release/updater/updater.manifest",
]
SETTINGS_CURRENT = ["InternetOpenUrlW /updates/release/updater/UpdaterData.vpak"]


def operations(states: dict[str, list[str]]) -> list[Operation]:
    return [Operation(text, state) for state, texts in states.items() for text in texts]


def download(name: str) -> list[str]:
    staged = f"Intermediate\\Update\\{name}"
    return [
        f"InternetOpenUrlW /updates/release/{name}",
        f"_wfopen {staged}",
        f"fwrite {staged}",
        f"fclose {staged}",
    ]


# The operations of one update, in order, by the state of the disk before each of them.
UP_TO_INSTALLING = {
    "unchanged": [
        *CHECKING,
        *SETTINGS_CURRENT,
        "InternetOpenUrlW /updates/release/GameVersion.vpak",
        "InternetOpenUrlW /updates/release/game_update.manifest",
        "CreateDirectoryW Intermediate\\Update\\",
    ],
    "staging": [
        "CreateDirectoryW Intermediate\\Update\\\\bin",
        "CreateDirectoryW Intermediate\\Update\\\\bin/data",
        "CreateDirectoryW Intermediate\\Update\\\\bin/new",
        "CreateDirectoryW Intermediate\\Update\\\\data",
        *download("bin/data/level.dat"),
        *download("bin/game.dll"),
        *download("bin/new/scene.dat"),
        *download("data/intro.dat"),
    ],
    "installing": [
        "CreateDirectoryW bin/new",
        "CopyFileW bin/data/level.dat",
        "CopyFileW bin/game.dll",
        "CopyFileW bin/new/scene.dat",
        "CopyFileW data/intro.dat",
    ],
}
KEEPING = operations(
    UP_TO_INSTALLING
    | {
        "cleaning up": [
            "DeleteFileW .\\abandoned.txt",
            "RemoveDirectoryW .\\bin",
            "RemoveDirectoryW .\\bin\\data",
            "RemoveDirectoryW .\\bin\\empty",
            "RemoveDirectoryW .\\bin\\new",
            "RemoveDirectoryW .\\bin\\old",
            "DeleteFileW .\\bin\\old\\deep.dat",
            "DeleteFileW .\\bin\\old.dll",
            "RemoveDirectoryW .\\data",
            "DeleteFileW .\\old.txt",
            "DeleteFileW Intermediate\\Update\\data\\intro.dat",
        ],
        "removing the staged": [
            "RemoveDirectoryW Intermediate\\Update\\data",
            "DeleteFileW Intermediate\\Update\\bin\\new\\scene.dat",
            "RemoveDirectoryW Intermediate\\Update\\bin\\new",
            "DeleteFileW Intermediate\\Update\\bin\\game.dll",
            "DeleteFileW Intermediate\\Update\\bin\\data\\level.dat",
            "RemoveDirectoryW Intermediate\\Update\\bin\\data",
            "RemoveDirectoryW Intermediate\\Update\\bin",
            "RemoveDirectoryW Intermediate\\Update",
        ],
        "to be recorded": ["_wfopen Updater\\GameVersion.vpak"],
        "recording": ["fwrite Updater\\GameVersion.vpak", "fclose Updater\\GameVersion.vpak"],
        "done": ["CreateProcessW bin\\Velmorant Player.exe"],
    }
)
STRICT = operations(
    UP_TO_INSTALLING
    | {"cleaning up": ["DeleteFileW .\\abandoned.txt", "RemoveDirectoryW .\\bin"]}
)
REPLACE = operations(
    {
        "unchanged": [
            *CHECKING,
            "InternetOpenUrlW /updates/release/updater/Launcher.exe",
            "MoveFileExW Launcher.exe _old.exe",
        ],
        "moved aside": ["_wfopen Launcher.exe"],
        "half replaced": ["fwrite Launcher.exe", "fclose Launcher.exe"],
        "replaced": ["SetFileAttributesW _old.exe", "CreateProcessW Launcher.exe"],
    }
)
REFRESH = operations(
    {
        "unchanged": [*CHECKING, *SETTINGS_CURRENT, "_wfopen Updater\\UpdaterData.vpak"],
        "half replaced": ["fwrite Updater\\UpdaterData.vpak", "fclose Updater\\UpdaterData.vpak"],
        "done": ["CreateProcessW Launcher.exe"],
    }
)


def kills(of: list[Operation], one_in: int, seed: int) -> list:
    """A kill before every operation and half way through those that write. All but a seeded part
    are for the long run."""
    points = [
        (number, half)
        for number, operation in enumerate(of, 1)
        for half in ((False, True) if operation.writes else (False,))
    ]
    short = random.Random(seed).sample(points, len(points) // one_in)
    return [
        pytest.param(
            number,
            half,
            id=f"{number:02} {'half of' if half else 'before'} {of[number - 1].text}",
            marks=() if (number, half) in short else pytest.mark.long,
        )
        for number, half in points
    ]


def kill(scene, made, expected: list[Operation], number: int, half: bool, record_property, kind: str):
    """The disk after the kill, and its state, which is the one before the operation."""
    exits = (KILLED,)
    _, done = run_recorded(scene, made.answers, exits, number, half)
    assert done == [operation.text for operation in expected[:number]]
    tree = whole_tree(scene.folder)
    state = made.state(tree)
    assert state == expected[number - 1].state
    record_property("seen", (f"Kills at the operations of {kind}", state, 1))
    return tree, state


def test_a_game_update_that_completes_has_these_operations(scene):
    made = GameUpdate(scene, scene.build.faults_keep_dirs, keeps_dirs=True)
    run, done = run_recorded(scene, made.answers, (0,))
    assert done == [operation.text for operation in KEEPING]
    assert whole_tree(scene.folder) == made.final
    run.assert_game_started()


def test_a_game_update_that_ends_at_bin_has_these_operations(scene):
    made = GameUpdate(scene, scene.build.faults, keeps_dirs=False)
    run, done = run_recorded(scene, made.answers, (TERMINATED,))
    assert done == [operation.text for operation in STRICT]
    assert whole_tree(scene.folder) == made.final
    run.assert_game_not_started()


def test_a_self_update_has_these_operations(scene):
    made = SelfUpdate(scene, scene.build.faults)
    run, done = run_recorded(scene, made.answers, (0, 0))
    assert done == [operation.text for operation in REPLACE]
    assert whole_tree(scene.folder) == made.final
    run.assert_game_started()


def test_a_change_of_the_settings_has_these_operations(scene):
    made = SettingsUpdate(scene, scene.build.faults)
    run, done = run_recorded(scene, made.answers, (0, 0))
    assert done == [operation.text for operation in REFRESH]
    assert whole_tree(scene.folder) == made.final
    run.assert_game_started()


def finish_game_update(made: GameUpdate, killed: dict, state: str) -> None:
    """The next run of one that was killed in this state."""
    scene = made.scene
    if state == "done":
        run = scene.run()
        assert run.requests == scene.requests(GAME_VERSION)
        assert whole_tree(scene.folder) == killed
    else:
        run = scene.run(made.answers, expected_exits=(0 if made.keeps_dirs else TERMINATED,))
        assert run.requests == scene.requests(
            GAME_VERSION, GAME_MANIFEST, *made.missing_after(killed)
        )
        assert whole_tree(scene.folder) == made.final_after(killed)
    if made.keeps_dirs or state == "done":
        run.assert_game_started()
    else:
        run.assert_game_not_started()


@pytest.mark.parametrize(("number", "half"), kills(KEEPING, 9, 1))
def test_an_update_that_completes_goes_on_after_a_kill(scene, number, half, record_property):
    made = GameUpdate(scene, scene.build.faults_keep_dirs, keeps_dirs=True)
    killed, state = kill(
        scene, made, KEEPING, number, half, record_property, "an update that completes"
    )
    if state == "recording" and killed[VERSION_FILE] == b"":
        assert_empty_record_keeps_the_game_but_no_update(made)
        killed = whole_tree(scene.folder)
    finish_game_update(made, killed, state)


def assert_empty_record_keeps_the_game_but_no_update(made: GameUpdate) -> None:
    """The game is new and starts, but is never updated again. The way out: delete the record."""
    scene = made.scene
    before = whole_tree(scene.folder)
    run = scene.run()
    assert run.dialogs == []
    assert len(run.log) == 1
    assert "Failed to CreateFileMapping when trying to open mapped file" in run.log[0]
    run.assert_game_started()
    scene.folder.remove("Logs/updater.log")
    assert whole_tree(scene.folder) == before
    scene.folder.remove(VERSION_FILE)


@pytest.mark.parametrize(("number", "half"), kills(STRICT, 9, 2))
def test_an_update_that_ends_at_bin_goes_on_after_a_kill(scene, number, half, record_property):
    made = GameUpdate(scene, scene.build.faults, keeps_dirs=False)
    killed, state = kill(
        scene, made, STRICT, number, half, record_property, "an update that ends at bin"
    )
    finish_game_update(made, killed, state)


def finish_self_update(made: SelfUpdate, killed: dict, state: str) -> None:
    scene = made.scene
    if state in ("moved aside", "half replaced"):
        # Of a program of which only the end is missing, systems think differently.
        if len(killed.get(EXECUTABLE, b"")) <= len(made.new) // 2:
            assert_launcher_does_not_start(scene)
        scene.folder.path(PARKED).replace(scene.folder.path(EXECUTABLE))
    if state in ("replaced", "done"):
        run = scene.run()
    else:
        run = scene.run(made.answers, expected_exits=(0, 0))
    assert whole_tree(scene.folder) == made.final
    run.assert_game_started()


def assert_launcher_does_not_start(scene) -> None:
    """The way out of this is the player's: to give "_old.exe" its name back."""
    before = whole_tree(scene.folder)
    run = scene.start()
    with pytest.raises(AssertionError, match="the start failed"):
        run.finish()
    assert run.failure is not None
    assert whole_tree(scene.folder) == before


@pytest.mark.parametrize(("number", "half"), kills(REPLACE, 3, 3))
def test_a_self_update_goes_on_after_a_kill(scene, number, half, record_property):
    made = SelfUpdate(scene, scene.build.faults)
    killed, state = kill(scene, made, REPLACE, number, half, record_property, "a self-update")
    finish_self_update(made, killed, state)


@pytest.mark.parametrize(("number", "half"), kills(REFRESH, 3, 4))
def test_a_change_of_the_settings_goes_on_after_a_kill(scene, number, half, record_property):
    made = SettingsUpdate(scene, scene.build.faults)
    _, state = kill(scene, made, REFRESH, number, half, record_property, "a change of the settings")
    if state == "half replaced":
        # The game starts, but is never updated again. The way out: put the settings back.
        run = scene.run()
        assert run.dialogs == []
        assert len(run.log) == 1
        assert run.log[0].startswith(scene.settings_entry(""))
        run.assert_game_started()
        scene.folder.remove("Logs/updater.log")
        scene.folder.put(SETTINGS_FILE, made.old)
    if state == "done":
        run = scene.run()
    else:
        run = scene.run(made.answers, expected_exits=(0, 0))
    assert whole_tree(scene.folder) == made.final
    run.assert_game_started()


# --- At seeded moments ------------------------------------------------------------------------
#
# Here it is the Launchers as they ship that are killed, from outside, again and again in the same
# folder. The server's view defines the moments; the clock only adds some in between.

GAME_REQUESTS = [
    "updates/release/updater/updater.manifest",
    "updates/release/updater/UpdaterData.vpak",
    "updates/release/GameVersion.vpak",
    "updates/release/game_update.manifest",
    *(f"updates/release/{name}" for name in FETCHED),
]
REPLACE_REQUESTS = [
    "updates/release/updater/updater.manifest",
    "updates/release/updater/Launcher.exe",
]
KILLS_IN_A_ROW = 5
# So many more files to remove, and a tenth as many to install, make the last stages long enough.
MORE = 200
LAST_GAME_REQUEST = f"updates/release/data/new-{MORE // 10 - 1}.dat"


def moments(requests: list[str], last: str, dialogs: list, delays: int, seed: int) -> list[Moment]:
    """All of them in a seeded order; the delays begin with the last request."""
    seeded = random.Random(seed)
    made = [Moment("request", path) for path in requests]
    # As a part of the body, whose length is not known here, in thousandths.
    made += [Moment("bytes", path, seeded.randrange(1000)) for path in requests for _ in range(3)]
    made += [Moment("dialog", dialog=dialog) for dialog in dialogs]
    # The stages after the last request are short: short delays are the more interesting ones.
    made += [Moment("delay", last, seconds=0.4 * seeded.random() ** 2) for _ in range(delays)]
    seeded.shuffle(made)
    return made


def rows(of: list[Moment]) -> list:
    """Kills in a row, one row for each test. All but the first row are for the long run."""
    return [
        pytest.param(
            of[start : start + KILLS_IN_A_ROW],
            id=f"row {start // KILLS_IN_A_ROW + 1}",
            marks=() if start == 0 else pytest.mark.long,
        )
        for start in range(0, len(of), KILLS_IN_A_ROW)
    ]


def kill_in_a_row(made, row: list[Moment], finish, record_property, kind: str) -> None:
    """`finish` is the next run of a killed one; after it the folder is put back."""
    scene = made.scene
    counts: collections.Counter = collections.Counter()
    seeded = random.Random(str(row))
    for moment in row:
        if moment.kind == "bytes":
            body = scene.server.answers["/" + moment.path].body
            moment = dataclasses.replace(moment, bytes=len(body) * moment.bytes // 1000)
        run = run_until(scene, made.answers, moment)
        if run is None:
            # What was to be asked for was there already, or the time was up.
            made.state(whole_tree(scene.folder))
            put_back(scene.folder, made.before)
            if moment.kind != "delay":
                run = run_until(scene, made.answers, moment)
                assert run is not None, f"{moment} was not met"
        if run is None:
            continue
        tree = whole_tree(scene.folder)
        state = made.state(tree)
        counts[state] += 1
        if state not in made.goes_on_from or seeded.random() < 0.3:
            finish(made, tree, state)
            put_back(scene.folder, made.before)
    tree = whole_tree(scene.folder)
    if tree != made.before:
        finish(made, tree, made.state(tree))
    for state, count in counts.items():
        record_property("seen", (f"Kills at seeded moments of {kind}", state, count))


def finish_game_update_of_any_record(made: GameUpdate, killed: dict, state: str) -> None:
    if state == "recording" and killed[VERSION_FILE] == b"":
        assert_empty_record_keeps_the_game_but_no_update(made)
        killed = whole_tree(made.scene.folder)
    finish_game_update(made, killed, state)


@pytest.mark.parametrize(
    "row",
    rows(
        moments(
            GAME_REQUESTS, LAST_GAME_REQUEST, [UPDATE_AVAILABLE, UPDATE_SUCCESSFUL], delays=50, seed=5
        )
    ),
)
def test_an_update_that_completes_goes_on_after_many_kills(scene, row, record_property):
    made = GameUpdate(scene, scene.build.keep_dirs, keeps_dirs=True, more=MORE)
    finish = finish_game_update_of_any_record
    kill_in_a_row(made, row, finish, record_property, "an update that completes")


@pytest.mark.parametrize(
    "row", rows(moments(GAME_REQUESTS, LAST_GAME_REQUEST, [UPDATE_AVAILABLE], delays=50, seed=6))
)
def test_an_update_that_ends_at_bin_goes_on_after_many_kills(scene, row, record_property):
    made = GameUpdate(scene, scene.build.launcher, keeps_dirs=False, more=MORE)
    kill_in_a_row(made, row, finish_game_update, record_property, "an update that ends at bin")


@pytest.mark.parametrize(
    "row",
    rows(moments(REPLACE_REQUESTS, REPLACE_REQUESTS[-1], [RESTART_REQUIRED], delays=40, seed=7)),
)
def test_a_self_update_goes_on_after_many_kills(scene, row, record_property):
    made = SelfUpdate(scene, scene.build.launcher)
    kill_in_a_row(made, row, finish_self_update, record_property, "a self-update")
