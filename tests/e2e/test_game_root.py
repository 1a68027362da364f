"""Which directory is the game's root: the start-up directory, a project's, or the last build's."""

import contextlib
import fcntl
import os

import pytest

from harness.constants import GAME_VERSION
from harness.driver import TERMINATED
from harness.game_folder import windows_path

KEY = r"HKCU\SOFTWARE\Velmorant\Player"


@pytest.fixture
def elsewhere(scene):
    """A start-up directory without a game."""
    path = scene.temp_dir / "elsewhere"
    path.mkdir()
    return path


@contextlib.contextmanager
def registry_to_oneself(scene):
    """The registry value is shared by all tests of a Wine prefix: one at a time."""
    prefix = os.open(os.environ["WINEPREFIX"], os.O_RDONLY)
    try:
        fcntl.flock(prefix, fcntl.LOCK_EX)
        scene.registry("add", KEY, "/f")
        try:
            yield
        finally:
            scene.registry("delete", KEY, "/f")
    finally:
        os.close(prefix)


def test_without_arguments_the_start_up_directory_is_the_root(scene):
    scene.folder.put("sub/project.vegame", b"")
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.exit_code, run.changes()) == (0, {})
    run.assert_game_started()


def test_without_a_root_the_launcher_works_in_its_start_up_directory(scene, elsewhere):
    run = scene.run(directory=elsewhere)
    assert run.requests == []
    assert run.exit_code == 0
    assert run.changes() == {}
    log = (elsewhere / "Logs" / "updater.log").read_text("utf-8")
    assert "While trying to access updater-data.Failed to open file for loading" in log
    run.assert_game_not_started()


def test_a_directory_argument_finds_the_project_below_it(scene, elsewhere):
    scene.folder.put("project.vegame", b"")
    run = scene.run(directory=elsewhere, arguments=[windows_path(scene.temp_dir)])
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.exit_code, run.dialogs) == (0, [])
    run.assert_game_started()


def test_a_relative_directory_argument_finds_the_project_below_it(scene):
    scene.folder.put("project.vegame", b"")
    run = scene.run(directory=scene.temp_dir, arguments=["game"])
    assert run.requests == scene.requests(GAME_VERSION)
    run.assert_game_started()


@pytest.mark.parametrize("newest", ["game", "other"])
def test_the_project_written_last_is_taken(scene, elsewhere, newest):
    """The times differ by less than a second, and by more than the 100 ns that count."""
    other = scene.temp_dir / "other"
    other.mkdir()
    times = {"game": 1_700_000_000_100_000_000, "other": 1_700_000_000_100_000_000}
    times[newest] += 150_000_000
    for folder, time in times.items():
        project = scene.temp_dir / folder / "project.vegame"
        project.write_bytes(b"")
        os.utime(project, ns=(time, time))
    run = scene.run(directory=elsewhere, arguments=[windows_path(scene.temp_dir)])
    if newest == "game":
        assert run.requests == scene.requests(GAME_VERSION)
        run.assert_game_started()
    else:
        assert run.requests == []
        assert (other / "Logs" / "updater.log").exists()
        run.assert_game_not_started()
    assert list(elsewhere.iterdir()) == []


@pytest.mark.parametrize(
    "name",
    [
        pytest.param("project.VEGAME", id="another case"),
        pytest.param(".vegame", id="only an extension"),
        pytest.param("project.vegame.txt", id="another extension"),
        pytest.param("project.vegame/file.txt", id="a directory"),
    ],
)
def test_a_file_of_another_extension_is_not_taken_for_a_project(scene, elsewhere, name):
    scene.folder.put(name, b"")
    run = scene.run(directory=elsewhere, arguments=[windows_path(scene.temp_dir)])
    assert run.requests == []
    assert (elsewhere / "Logs" / "updater.log").exists()
    assert (run.exit_code, run.changes()) == (0, {})


@pytest.mark.parametrize("seconds", [0, -1])
def test_a_project_that_is_not_newer_than_1970_is_not_found(scene, elsewhere, seconds):
    project = scene.folder.put("project.vegame", b"")
    os.utime(project, (seconds, seconds))
    run = scene.run(directory=elsewhere, arguments=[windows_path(scene.temp_dir)])
    assert run.requests == []
    assert (elsewhere / "Logs" / "updater.log").exists()


def test_more_than_one_argument_means_no_root(scene):
    with registry_to_oneself(scene):
        scene.registry("add", KEY, "/v", "LastBuild", "/d", windows_path(scene.temp_dir), "/f")
        run = scene.run(arguments=["FROM_SOLUTION", "again"])
    assert run.requests == scene.requests(GAME_VERSION)
    run.assert_game_started()


def test_a_search_directory_that_does_not_exist_ends_the_program(scene):
    missing = windows_path(scene.temp_dir / "missing")
    run = scene.run(arguments=[missing], expected_exits=(TERMINATED,))
    assert run.exit_code == TERMINATED
    assert (run.requests, run.dialogs, run.windows, run.changes()) == ([], [], [], {})
    run.assert_game_not_started()


def test_a_file_as_the_search_directory_ends_the_program(scene):
    file = scene.temp_dir / "file"
    file.write_bytes(b"")
    run = scene.run(arguments=[windows_path(file)], expected_exits=(TERMINATED,))
    assert (run.requests, run.dialogs, run.changes()) == ([], [], {})
    run.assert_game_not_started()


def test_a_folder_below_the_search_directory_that_cannot_be_read_ends_the_program(scene):
    """Another process keeps it closed. Without it there would be a project to find."""
    scene.folder.put("project.vegame", b"")
    scene.folder.directory("Saved/locked")
    scene.lock("Saved/locked")
    argument = windows_path(scene.folder.root)
    run = scene.run(arguments=[argument], expected_exits=(TERMINATED,))
    assert (run.requests, run.dialogs, run.changes()) == ([], [], {})
    run.assert_game_not_started()


def test_an_empty_argument_is_a_search_directory_that_cannot_be_read(scene):
    run = scene.run(arguments=[""], expected_exits=(TERMINATED,))
    assert run.exit_code == TERMINATED
    assert (run.requests, run.dialogs, run.changes()) == ([], [], {})


def test_the_last_build_of_the_registry_is_the_root(scene, elsewhere):
    with registry_to_oneself(scene):
        root = windows_path(scene.folder.root)
        scene.registry("add", KEY, "/v", "LastBuild", "/t", "REG_SZ", "/d", root, "/f")
        run = scene.run(directory=elsewhere, arguments=["FROM_SOLUTION"])
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.exit_code, run.dialogs) == (0, [])
    run.assert_game_started()


def test_a_last_build_that_is_no_directory_leaves_the_start_up_directory(scene):
    with registry_to_oneself(scene):
        missing = windows_path(scene.temp_dir / "missing")
        scene.registry("add", KEY, "/v", "LastBuild", "/t", "REG_SZ", "/d", missing, "/f")
        run = scene.run(arguments=["FROM_SOLUTION"])
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.exit_code, run.dialogs, run.changes()) == (0, [], {})
    run.assert_game_started()


def test_without_a_last_build_the_start_up_directory_stays(scene):
    with registry_to_oneself(scene):
        run = scene.run(arguments=["FROM_SOLUTION"])
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.exit_code, run.dialogs, run.changes()) == (0, [], {})
    run.assert_game_started()


def test_a_last_build_that_is_no_string_counts_as_none(scene, elsewhere):
    with registry_to_oneself(scene):
        scene.registry("add", KEY, "/v", "LastBuild", "/t", "REG_DWORD", "/d", "5", "/f")
        run = scene.run(arguments=["FROM_SOLUTION"])
    assert run.requests == scene.requests(GAME_VERSION)
    run.assert_game_started()


def test_the_registry_marker_in_another_case_is_a_directory_name(scene, elsewhere):
    game = scene.folder.root
    (elsewhere / "from_solution").mkdir()
    (elsewhere / "from_solution" / "project.vegame").write_bytes(b"")
    with registry_to_oneself(scene):
        scene.registry("add", KEY, "/v", "LastBuild", "/d", windows_path(game), "/f")
        run = scene.run(directory=elsewhere, arguments=["from_solution"])
    # The project's directory is the root: it has no settings, which its own log says.
    assert run.requests == []
    assert (elsewhere / "from_solution" / "Logs" / "updater.log").exists()
    run.assert_game_not_started()
