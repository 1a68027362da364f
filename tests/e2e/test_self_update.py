"""The Launcher replaces its executable or its settings, and restarts."""

import pytest

from harness import formats
from harness.constants import (
    EXECUTABLE,
    GAME_VERSION,
    LOG,
    NEXT_VERSION,
    OLDER_VERSION,
    OWN_VERSION,
    PARKED,
    REDIRECT,
    SETTINGS_FILE,
    UPDATER_DATA,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
    request_path,
)
from harness.dialogs import RESTART_REQUIRED, SELF_UPDATE_FAILED, UPDATE_AVAILABLE
from harness.driver import Press, cancel, ok
from harness.game_folder import (
    HIDDEN_ATTRIBUTE,
    SYSTEM_ATTRIBUTE,
    set_windows_attributes,
    windows_attributes,
    windows_path,
)
from harness.scene import NEWER, matches
from harness.scripted_server import Answer


# The exit codes of the Launcher that restarts and of the one that it starts.
BOTH = (0, 0)


def offer_next_launcher(scene, name: str = EXECUTABLE) -> bytes:
    """The newer Launcher, under the name that the installed one has."""
    program = scene.build.next.read_bytes()
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(f"updater/{name}", program)
    return program


def digest(content: bytes) -> str:
    return f"md5 {formats.md5(content)}"


REPLACING = [
    "/" + REDIRECT,
    request_path(UPDATER_MANIFEST),
    request_path(UPDATER_EXECUTABLE),
]


# --- A newer Launcher -------------------------------------------------------------------------


def test_a_newer_launcher_replaces_the_old_one_which_is_deleted_after_the_restart(scene):
    old = scene.build.launcher.read_bytes()
    new = offer_next_launcher(scene)
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=BOTH)
    # The second start is the new Launcher's, which finds itself current.
    assert run.requests == REPLACING + scene.requests(GAME_VERSION)
    assert run.dialogs == [RESTART_REQUIRED]
    assert run.changes() == {EXECUTABLE: (digest(old), digest(new))}
    # Three processes and no more: both Launchers, and the game that only the second one started.
    assert run.starts == 3
    assert [ended.code for ended in run.exits] == [0, 0, 0]
    run.assert_game_started()


def test_during_the_restart_box_the_old_executable_is_parked_as_a_system_file(scene):
    old = scene.build.launcher.read_bytes()
    new = offer_next_launcher(scene)
    seen = []

    def look() -> None:
        attributes = windows_attributes(scene.folder.path(PARKED))
        seen.append((scene.folder.read(PARKED), scene.folder.read(EXECUTABLE), attributes))

    run = scene.run([ok(RESTART_REQUIRED, meanwhile=look)], expected_exits=BOTH)
    assert seen == [(old, new, SYSTEM_ATTRIBUTE)]
    assert not scene.folder.has(PARKED)
    run.assert_game_started()


def test_the_system_attribute_is_added_to_those_that_the_old_executable_has(scene):
    offer_next_launcher(scene)
    set_windows_attributes(scene.folder.path(EXECUTABLE), HIDDEN_ATTRIBUTE)
    seen = []

    def look() -> None:
        seen.append(windows_attributes(scene.folder.path(PARKED)))

    run = scene.run([ok(RESTART_REQUIRED, meanwhile=look)], expected_exits=BOTH)
    assert seen == [HIDDEN_ATTRIBUTE | SYSTEM_ATTRIBUTE]
    assert not scene.folder.has(PARKED)
    run.assert_game_started()


def test_the_new_launcher_starts_only_after_ok(scene):
    offer_next_launcher(scene)
    seen = []

    def look() -> None:
        seen.append((list(scene.server.requests), run_starts()))

    def run_starts() -> int:
        return run.starts

    run = scene.start([ok(RESTART_REQUIRED, meanwhile=look)], expected_exits=BOTH)
    run.finish()
    assert seen == [(REPLACING, 1)]
    run.assert_game_started()


def test_a_renamed_launcher_asks_for_its_own_name(scene):
    name = "Start Velmorant.exe"
    scene.folder.path(EXECUTABLE).rename(scene.folder.path(name))
    new = scene.build.next.read_bytes()
    scene.offer_launcher(NEXT_VERSION)
    scene.serve("updater/Start%20Velmorant.exe", new)
    run = scene.run([ok(RESTART_REQUIRED)], launcher=name, expected_exits=BOTH)
    assert run.requests[2].replace("%20", " ") == "/updates/release/updater/Start Velmorant.exe"
    assert scene.folder.read(name) == new
    assert not scene.folder.has(PARKED)
    assert run.log == []
    run.assert_game_started()


def test_version_minus_one_counts_as_newer(scene):
    new = offer_next_launcher(scene)
    scene.offer_launcher(-1)
    seen = []

    def look() -> None:
        # The new Launcher shall find itself current.
        seen.append(scene.folder.read(EXECUTABLE))
        scene.offer_launcher(NEXT_VERSION)

    run = scene.run([ok(RESTART_REQUIRED, meanwhile=look)], expected_exits=BOTH)
    assert seen == [new]
    assert run.requests[:3] == REPLACING
    run.assert_game_started()


def test_what_the_server_gives_is_installed_unchecked_and_a_failed_restart_still_ends_with_0(scene):
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, b"this is no program")
    run = scene.run([ok(RESTART_REQUIRED)])
    assert run.requests == REPLACING
    assert (run.dialogs, run.log, run.starts) == ([RESTART_REQUIRED], [], 1)
    assert [ended.code for ended in run.exits] == [0]
    assert scene.folder.read(EXECUTABLE) == b"this is no program"
    assert scene.folder.read(PARKED) == scene.build.launcher.read_bytes()
    run.assert_game_not_started()


def test_after_a_self_update_only_the_new_launcher_updates_the_game(scene):
    """The game update is the new Launcher's business, in its own run."""
    offer_next_launcher(scene)
    scene.offer_game_version(*NEWER)
    run = scene.run([ok(RESTART_REQUIRED), cancel(UPDATE_AVAILABLE)], expected_exits=BOTH)
    assert run.requests == REPLACING + scene.requests(GAME_VERSION)
    run.assert_game_started()


@pytest.mark.parametrize(
    ("answer", "error"),
    [
        pytest.param(Answer(b"", status=404), "404 - no such file.", id="not found"),
        pytest.param(Answer(b"", status=500), "500 - internal server error.", id="server error"),
        pytest.param(Answer(b"program", length=None), "<platform>", id="no length"),
    ],
)
def test_a_new_launcher_that_cannot_be_fetched_is_logged_without_a_dialog(scene, answer, error):
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, answer)
    run = scene.run()
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    message = f"Failed to download new updater-exe 'Launcher.exe'. {error}"
    assert len(run.log) == 1
    assert matches(scene.self_update_entry(message), run.log[0])
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


# --- How the restarted Launcher is started ----------------------------------------------------


def replace_by_recorder(scene) -> Press:
    """The server's newer Launcher is a program that records its own start."""
    offer_next_launcher(scene)
    scene.serve(UPDATER_EXECUTABLE, scene.build.player.read_bytes())
    return ok(RESTART_REQUIRED)


def restart_recorder_for_settings(scene) -> Press:
    """The server has other settings, and the Launcher becomes a program that records its start."""
    scene.serve(UPDATER_DATA, scene.settings + b"!")

    def exchange() -> None:
        scene.folder.path(EXECUTABLE).rename(scene.temp_dir / "running.exe")
        scene.folder.put_copy(EXECUTABLE, scene.build.player)

    return ok(RESTART_REQUIRED, meanwhile=exchange)


@pytest.mark.parametrize("prepare", [replace_by_recorder, restart_recorder_for_settings])
@pytest.mark.parametrize("elsewhere", [False, True])
def test_the_restarted_launcher_gets_no_arguments_and_the_game_root_as_its_directory(
    scene, prepare, elsewhere
):
    """Also where the first one was started in another folder, with the game root as its argument."""
    options = {}
    if elsewhere:
        folder = scene.temp_dir / "elsewhere"
        folder.mkdir()
        options = {"directory": folder, "arguments": [windows_path(scene.folder.root)]}
        scene.folder.put("project.vegame", b"")
    run = scene.run([prepare(scene)], expected_exits=BOTH, **options)
    root = windows_path(scene.folder.root)
    assert len(run.game_starts) == 1
    start = run.game_starts[0]
    assert (start.directory.rstrip("\\"), start.program) == (root, f"{root}\\{EXECUTABLE}")
    assert start.has_no_arguments(), start.command_line
    assert run.starts == 2


# --- Installing it fails ----------------------------------------------------------------------


def test_a_failed_rename_shows_the_dialog_then_logs_and_the_game_update_goes_on(scene):
    """A folder has the name of the parked executable. The rollback finds "_old.exe"
    and cannot put it back over the running executable: that second failure is the one logged."""
    offer_next_launcher(scene)
    scene.folder.put(f"{PARKED}/file", b"in the way")
    logged = []
    run = scene.run([ok(SELF_UPDATE_FAILED, meanwhile=lambda: logged.append(scene.folder.log()))])
    assert logged == [[]], "the dialog comes before the log entry"
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.self_update_entry(""))
    assert "rename" in run.log[0]
    assert run.exit_code == 0
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


def test_a_failed_write_is_rolled_back_then_the_dialog_then_the_log_entry(scene):
    """Windows has one name where the host has two: once the executable has moved out of the way,
    its name means "launcher.exe", a link into a folder that does not exist. Writing there fails,
    while the rollback can replace the link."""
    old = scene.build.launcher.read_bytes()
    offer_next_launcher(scene)
    executable = scene.folder.path(EXECUTABLE)
    set_windows_attributes(executable, HIDDEN_ATTRIBUTE | SYSTEM_ATTRIBUTE)
    scene.folder.path("launcher.exe").symlink_to(scene.temp_dir / "missing" / "file")
    seen = []

    def look() -> None:
        names = sorted(path.name for path in scene.folder.root.iterdir())
        seen.append((names, scene.folder.read("launcher.exe"), scene.folder.log()))

    run = scene.run([ok(SELF_UPDATE_FAILED, meanwhile=look)])
    # When the dialog comes it is rolled back, and nothing is logged yet.
    assert seen == [(["Updater", "bin", "launcher.exe"], old, [])]
    message = (
        "Failed to open file for saving. File 'Launcher.exe'. Error: No such file or directory (2)"
    )
    assert run.log == [scene.self_update_entry(message)]
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    # Only the system attribute goes, whether it was there before or came with the parking.
    assert windows_attributes(scene.folder.path("launcher.exe")) == HIDDEN_ATTRIBUTE
    assert run.exit_code == 0
    run.assert_game_started()


def test_a_failed_rollback_shows_the_dialog_and_logs_its_own_error(scene):
    """As above, but with a folder, which can be neither written to nor replaced."""
    old = scene.build.launcher.read_bytes()
    offer_next_launcher(scene)
    set_windows_attributes(
        scene.folder.path(EXECUTABLE), HIDDEN_ATTRIBUTE | SYSTEM_ATTRIBUTE
    )
    scene.folder.directory("launcher.exe")
    run = scene.run([ok(SELF_UPDATE_FAILED)])
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.self_update_entry(""))
    # The rollback's own error has taken the place of the first one.
    assert "rename" in run.log[0]
    assert "saving" not in run.log[0]
    assert scene.folder.read(PARKED) == old
    # The system attribute goes only once the executable is back in its place.
    assert windows_attributes(scene.folder.path(PARKED)) == HIDDEN_ATTRIBUTE | SYSTEM_ATTRIBUTE
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    run.assert_game_started()


def test_a_locked_stale_executable_makes_the_replacement_fail_and_be_rolled_back(scene):
    """Another process keeps "_old.exe" open: it can neither be deleted nor replaced."""
    offer_next_launcher(scene)
    scene.folder.put(PARKED, b"stale")
    scene.lock(PARKED, "read")
    run = scene.run([ok(SELF_UPDATE_FAILED)])
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.self_update_entry(""))
    assert run.exit_code == 0
    assert scene.folder.read(EXECUTABLE) == scene.build.launcher.read_bytes()
    run.assert_game_started()


def test_a_launcher_outside_of_the_game_root_cannot_be_replaced(scene):
    """Its name is looked up in the game root, where no such file is."""
    scene.folder.remove(EXECUTABLE)
    scene.folder.put_copy("tools/Launcher.exe", scene.build.launcher)
    offer_next_launcher(scene)
    run = scene.run([ok(SELF_UPDATE_FAILED)], launcher="tools/Launcher.exe", directory=scene.folder.root)
    assert run.requests == [*REPLACING, request_path(GAME_VERSION)]
    assert len(run.log) == 1
    assert run.log[0].startswith(scene.self_update_entry(""))
    assert "rename" in run.log[0]
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


# --- A stale executable -----------------------------------------------------------------------


@pytest.mark.parametrize("version", [OWN_VERSION, OLDER_VERSION])
def test_a_stale_executable_is_deleted_at_every_start(scene, version):
    scene.offer_launcher(version)
    scene.folder.put(PARKED, b"stale")
    run = scene.run()
    assert run.changes()[PARKED] == (b"stale", "-")
    run.assert_game_started()


def test_a_stale_executable_with_the_system_attribute_is_deleted(scene):
    offer_next_launcher(scene)
    scene.serve(UPDATER_EXECUTABLE, b"no program: the parked one stays behind")
    scene.run([ok(RESTART_REQUIRED)])
    assert windows_attributes(scene.folder.path(PARKED)) == SYSTEM_ATTRIBUTE
    scene.install_launcher(scene.build.launcher)
    scene.offer_launcher(OWN_VERSION)
    run = scene.run()
    assert not scene.folder.has(PARKED)
    assert run.log == []
    run.assert_game_started()


def test_a_stale_executable_is_deleted_even_when_the_server_is_gone(scene):
    scene.folder.put(SETTINGS_FILE, formats.updater_data("http://nowhere.invalid/"))
    scene.server.serve(REDIRECT, Answer(b"", status=404))
    scene.folder.put(PARKED, b"stale")
    run = scene.run()
    assert not scene.folder.has(PARKED)
    run.assert_game_started()


def test_a_locked_stale_executable_is_ignored(scene):
    scene.folder.put(PARKED, b"stale")
    scene.lock(PARKED, "read")
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_started()


def test_a_filled_folder_in_the_stale_executables_place_is_ignored(scene):
    scene.folder.put(f"{PARKED}/file", b"content")
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.changes(), run.exit_code) == ([], {}, 0)
    run.assert_game_started()


def test_settings_that_cannot_be_read_leave_the_stale_executable_alone(scene):
    scene.folder.put(PARKED, b"stale")
    scene.folder.remove(SETTINGS_FILE)
    run = scene.run()
    assert scene.folder.read(PARKED) == b"stale"
    message = (
        "Failed to open file for loading. File 'Updater\\UpdaterData.vpak'. "
        "Error: No such file or directory (2)"
    )
    assert run.log == [scene.settings_entry(message)]
    run.assert_game_started()


# --- The settings archive ---------------------------------------------------------------------


def test_settings_equal_to_the_servers_are_fetched_and_left_alone(scene):
    before = scene.folder.path(SETTINGS_FILE).stat().st_mtime_ns
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    assert scene.folder.path(SETTINGS_FILE).stat().st_mtime_ns == before
    assert (run.dialogs, run.changes()) == ([], {})


def test_settings_that_differ_in_one_byte_are_replaced_and_the_launcher_restarts(scene):
    new = scene.settings + b"!"
    other = scene.settings + b"?"
    scene.folder.put(SETTINGS_FILE, other)
    scene.serve(UPDATER_DATA, new)
    written = []

    def look() -> None:
        written.append((scene.folder.read(SETTINGS_FILE), list(scene.server.requests)))

    run = scene.run([ok(RESTART_REQUIRED, meanwhile=look)], expected_exits=BOTH)
    assert written == [(new, scene.requests())]
    assert run.requests == scene.requests() + scene.requests(GAME_VERSION)
    assert run.exit_codes(EXECUTABLE) == [0, 0]
    assert run.changes() == {SETTINGS_FILE: (other, new)}
    run.assert_game_started()


@pytest.mark.parametrize("tail", [b"", b"longer"])
def test_settings_that_differ_in_length_only_are_replaced(scene, tail):
    local = scene.settings + b"long"
    scene.folder.put(SETTINGS_FILE, local)
    scene.serve(UPDATER_DATA, scene.settings + tail)
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=BOTH)
    assert run.changes() == {SETTINGS_FILE: (local, scene.settings + tail)}
    run.assert_game_started()


def test_the_restarted_launcher_follows_the_new_settings(scene):
    """The settings of the server are another channel's: the second start asks there."""
    new = formats.updater_data(scene.server.url, "beta")
    scene.serve(UPDATER_DATA, new)
    first = scene.requests()
    scene.updates = "updates/beta/"
    scene.offer_launcher(OWN_VERSION)
    scene.serve(UPDATER_DATA, new)
    scene.offer_game_version(0, 0, 0, 1)
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=BOTH)
    assert run.requests == first + scene.requests(GAME_VERSION)
    assert run.log == []
    run.assert_game_started()


def test_settings_of_the_server_are_written_unread_even_if_they_are_nonsense(scene):
    scene.serve(UPDATER_DATA, b"nonsense")
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=BOTH)
    assert scene.folder.read(SETTINGS_FILE) == b"nonsense"
    # The restarted Launcher can read neither URL nor channel, says so, and starts the game.
    assert run.requests == scene.requests()
    assert run.log == [scene.settings_entry("Invalid header 1936617326 for binary file.")]
    run.assert_game_started()


def test_empty_settings_of_the_server_are_written(scene):
    scene.serve(UPDATER_DATA, b"")
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=BOTH)
    assert scene.folder.read(SETTINGS_FILE) == b""
    assert run.log == [scene.settings_entry("Invalid header 0 for binary file.")]
    run.assert_game_started()


@pytest.mark.parametrize(
    ("answer", "error"),
    [
        (Answer(b"", status=404), "404 - no such file."),
        (Answer(b"", status=401), "401 - unauthorized."),
        (Answer(b"settings", length=None), "<platform>"),
    ],
)
def test_settings_that_cannot_be_fetched_are_logged_and_the_game_update_goes_on(
    scene, answer, error
):
    scene.serve(UPDATER_DATA, answer)
    run = scene.run()
    assert run.requests == scene.requests(GAME_VERSION)
    message = f"Failed to download updater-data file with error: '{error}'"
    assert len(run.log) == 1
    assert matches(scene.self_update_entry(message), run.log[0])
    assert (run.dialogs, run.exit_code) == ([], 0)
    assert set(run.changes()) == {"Logs", LOG}
    run.assert_game_started()


def test_settings_that_vanish_during_the_run_are_logged_with_the_current_directory(scene):
    gate = scene.server.hold(scene.updates + UPDATER_DATA)
    run = scene.start()
    run.wait_for(gate)
    scene.folder.remove(SETTINGS_FILE)
    gate.open()
    run.finish()
    root = windows_path(scene.folder.root)
    message = (
        f"Updater\\UpdaterData.vpak does not exist at path '{root}'. "
        "Most likely some error in updater-logic."
    )
    assert run.log == [scene.self_update_entry(message)]
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()


def test_settings_that_cannot_be_written_are_logged_and_the_game_update_goes_on(scene):
    scene.serve(UPDATER_DATA, scene.settings + b"new")
    scene.lock(SETTINGS_FILE, "read")
    run = scene.run()
    message = (
        "Failed to open file for saving. File 'Updater\\UpdaterData.vpak'. "
        "Error: Permission denied (13)"
    )
    assert run.log == [scene.self_update_entry(message)]
    assert scene.folder.read(SETTINGS_FILE) == scene.settings
    assert run.requests == scene.requests(GAME_VERSION)
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()
