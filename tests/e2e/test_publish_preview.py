"""What `publish preview` predicts is what the Launcher then does, list by list.

Each case sets up an installation and a server, has one run previewed, from the served folder and over
HTTP, and then lets the run happen.
"""

import os
import pathlib
import random
import urllib.parse

import pytest

from harness import dialogs, formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    LOG,
    NEXT_VERSION,
    OLDER_VERSION,
    OWN_VERSION,
    PARKED,
    REDIRECT,
    SETTINGS_FILE,
    STAGING,
    UPDATER_DATA,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
    VERSION_FILE,
)
from harness.driver import TERMINATED, Press
from harness.game_folder import parse_log
from harness.publishing import Published, publish
from harness.scene import INSTALLED, NEWER
from harness.scripted_server import Answer, redirect

NO_PROGRAM = b"this is no program, so that nothing follows the restart"
READ_ONLY = 0o444


def stat_tree(root: pathlib.Path) -> dict:
    """Names, contents and times of everything in a folder."""
    entries = {}
    for path in [root, *sorted(root.rglob("*"))]:
        stat = path.lstat()
        content = path.read_bytes() if path.is_file() else None
        entries[str(path)] = (stat.st_mode, stat.st_mtime_ns, stat.st_ctime_ns, content)
    return entries


RESTARTS = ("replaced", "settings replaced")

# What a player answers, by the outcome of the game's update.
GAME_DIALOGS = {
    "refused": (dialogs.UPDATE_AVAILABLE, dialogs.UPDATE_FAILED),
    "abnormal end": (dialogs.UPDATE_AVAILABLE,),
    "done": (dialogs.UPDATE_AVAILABLE, dialogs.UPDATE_SUCCESSFUL),
}


def plan_of(report: dict) -> dict:
    """A report without where the server is, which differs between a folder and a URL."""
    plan = report | {"game": report["game"] | {"stop": bool(report["game"]["stop"])}}
    return {name: value for name, value in plan.items() if name not in ("errors", "warnings")}


def failures(report: dict) -> list[str]:
    """The stages that fail, in their order."""
    game = report["game"]["outcome"]
    found = {
        "settings": report["updatesUrl"] is None,
        "launcher": report["launcher"]["outcome"] == "failed",
        "game": game in ("check failed", "refused", "abnormal end"),
        "start": not report["gameStarted"]
        and game != "abnormal end"
        and report["launcher"]["outcome"] not in RESTARTS,
    }
    return [name for name, has_failed in found.items() if has_failed]


class Oracle:
    """Previews the runs of a scene, and compares the previews with what happens."""

    def __init__(self, scene) -> None:
        self.scene = scene
        self.tool = scene.build.publish
        self.url = scene.server.url

    def use(self, launcher: pathlib.Path, tool: pathlib.Path) -> None:
        self.scene.install_launcher(launcher)
        self.tool = tool

    def served_folder(self) -> pathlib.Path | None:
        """What the server has, as a folder; none if a folder has no such answers."""
        folder = self.scene.temp_dir / "served"
        folder.mkdir(exist_ok=True)
        for path, answer in self.scene.server.answers.items():
            plain = Answer(answer.body) == answer
            if path == "/" + REDIRECT and plain or "\\" in path or not plain and answer.status != 404:
                return None
            if plain:
                file = folder / urllib.parse.unquote(path[1:])
                try:
                    file.parent.mkdir(parents=True, exist_ok=True)
                    file.write_bytes(answer.body)
                except (FileExistsError, NotADirectoryError, IsADirectoryError):
                    return None
        return folder

    def preview(self, *options: str | pathlib.Path, launcher: str = "Launcher.exe") -> Published:
        root = self.scene.folder.root
        before = stat_tree(root)
        done = publish(
            self.scene.build,
            *["preview", "--installed", root, "--launcher", launcher.replace("/", "\\"), *options],
            program=self.tool,
        )
        assert stat_tree(root) == before, "the installation was changed"
        assert done.code == bool(done.report["errors"]), done.stderr
        assert all(error["hint"] for error in done.report["errors"])
        assert not failures(done.report) or done.report["errors"], "a run that fails is an error"
        return done

    def report(self, launcher: str = "Launcher.exe") -> dict:
        """The preview of a run, which is the same from the folder and over HTTP."""
        served = self.preview("--url", self.url, launcher=launcher).report
        folder = self.served_folder()
        if folder:
            from_folder = self.preview("--server", folder, launcher=launcher).report
            assert plan_of(from_folder) == plan_of(served)
            assert len(from_folder["errors"]) == len(served["errors"])
        return served

    def check(self, **options) -> dict:
        """Previews a run, runs it and compares both. Returns the preview."""
        launcher = options.get("launcher", "Launcher.exe")
        preview = self.report(launcher)
        self.compare(preview, self.run(preview, **options))
        return preview

    def run(self, preview: dict, first_dialog: dialogs.Dialog | None = None, **options):
        """The run that was previewed; a restarted Launcher finds itself current and ends well."""
        exits = (TERMINATED,) if preview["game"]["stop"] else (0,)
        shown = [first_dialog] if first_dialog else []
        if preview["launcher"]["outcome"] in RESTARTS:
            shown.append(dialogs.RESTART_REQUIRED)
            exits = (0, 0)
        shown += GAME_DIALOGS.get(preview["game"]["outcome"], ())
        answers = [Press("OK", dialog) for dialog in shown]
        return self.scene.run(answers, **({"expected_exits": exits} | options))

    def compare(self, preview: dict, run) -> None:
        launcher, game, changes = preview["launcher"], preview["game"], run.changes()
        assert (run.launcher in changes and PARKED in run.after) == (launcher["outcome"] == "replaced")
        assert (SETTINGS_FILE in changes) == (launcher["outcome"] == "settings replaced")
        if launcher["outcome"] in RESTARTS:
            return
        assert run.exit_codes(run.launcher) == [TERMINATED if game["stop"] else 0]
        assert bool(game["stop"]) == (game["outcome"] == "abnormal end")
        assert (len(run.game_starts) == 1) == preview["gameStarted"]
        assert (VERSION_FILE in changes) == (game["outcome"] == "done")
        self.compare_downloads(preview, run)
        self.compare_removals(game, run)
        # The Launcher logs each failure that does not end it, where there is room for a log.
        logged = [name for name in failures(preview) if name in ("settings", "launcher", "game")]
        log = parse_log(self.scene.folder.read(LOG)) if LOG in run.after else []
        logs = [(name, content) for name, content in run.before.items() if name.lower() == "logs"]
        if logs in ([], [("Logs", None)]):
            assert len(log) == len(logged) - bool(game["stop"])

    def compare_downloads(self, preview: dict, run) -> None:
        game = preview["game"]
        happened = [urllib.parse.unquote(path) for path in run.requests]
        updates = urllib.parse.unquote((preview["updatesUrl"] or "").removeprefix(self.url.rstrip("/")))
        manifest = updates + GAME_MANIFEST
        payloads = happened[happened.index(manifest) + 1 :] if manifest in happened else []
        downloaded = [updates + file["name"] for file in game["downloaded"]]
        assert downloaded == payloads[: len(downloaded)]
        assert len(payloads) - len(downloaded) in ((0, 1) if game["stop"] else (0,)), "the one that failed"

    def compare_removals(self, game: dict, run) -> None:
        """What is removed, of what was there and of what this update has installed. Not compared are
        the staging folder, and the Launcher's previous executable, which goes at every start."""
        planned = set(game["removed"])
        assert len(planned) == len(game["removed"])
        removed = {name for name, (_, new) in run.changes().items() if new == "-"}
        removed = {name for name in removed if not (name + "/").startswith(STAGING + "/")}
        assert removed - {PARKED} == planned & set(run.before) - {PARKED}
        assert not planned & set(run.after)
        if game["outcome"] != "done":
            return
        after = {name.lower() for name in run.after}
        installed = {name.lower() for name in game["staged"]}
        installed |= {file["name"].lower() for file in game["downloaded"]}
        gone = {name.replace("\\", "/") for name in installed} - after
        assert gone <= {name.lower() for name in planned}


@pytest.fixture
def strict(scene) -> Oracle:
    """The strict Launcher, with a game whose update can pass its clean-up: without "bin"."""
    scene.folder.remove("bin")
    return Oracle(scene)


@pytest.fixture
def keep_dirs(scene) -> Oracle:
    oracle = Oracle(scene)
    oracle.use(scene.build.keep_dirs, scene.build.publish_keep_dirs)
    return oracle


def offer(oracle: Oracle, files: dict[str, bytes], directories: list[str], extra: tuple[str, ...] = ()):
    """An update to these files and, where it is installed, the game's own program, which is current."""
    scene = oracle.scene
    lines = [formats.file_line(name, content) for name, content in files.items()]
    if scene.folder.has(GAME):
        lines.append(formats.file_line(GAME, scene.folder.read(GAME)))
    scene.offer_game(files, directories, [*lines, *extra])


# --- The files ----------------------------------------------------------------------------------


def test_a_whole_update(keep_dirs):
    folder = keep_dirs.scene.folder
    folder.put("bin/game.dll", b"old dll")
    folder.put("bin/level.dat", b"current")
    folder.put(f"{STAGING}/bin/staged.dat", b"staged")
    folder.put(f"{STAGING}/bin/broken.dat", b"brok")
    folder.put("bin/sub/old.dll", b"unlisted")
    files = {
        "bin/game.dll": b"new dll",
        "bin/level.dat": b"current",
        "bin/staged.dat": b"staged",
        "bin/broken.dat": b"broken",
        "readme.txt": b"read me",
    }
    offer(keep_dirs, files, ["bin", "data", "data/deep"])
    preview = keep_dirs.check()
    game = preview["game"]
    assert game["outcome"] == "done"
    assert (game["installedVersion"], game["offeredVersion"]) == ("1.0.0.0", "2.0.0.0")
    assert game["current"] == ["bin/level.dat", GAME]
    assert game["staged"] == ["bin/staged.dat"]
    assert game["downloaded"] == [
        {"name": "bin/game.dll", "size": 7},
        {"name": "bin/broken.dat", "size": 6},
        {"name": "readme.txt", "size": 7},
    ]
    # "data" still holds "deep" when the clean-up comes to it.
    assert game["removed"] == ["bin/sub/old.dll", "data/deep"]
    assert preview["gameStarted"] and preview["errors"] == []


def test_a_strict_run_stops_at_the_games_own_folder(scene):
    oracle = Oracle(scene)
    scene.folder.put("a unlisted.txt", b"before bin")
    scene.folder.put("unlisted.txt", b"after bin")
    offer(oracle, {"bin/new.dll": b"new"}, ["bin"])
    game = oracle.check()["game"]
    assert (game["outcome"], game["removed"]) == ("abnormal end", ["a unlisted.txt"])
    assert game["stop"].startswith("bin: ") and "not empty" in game["stop"]


def test_a_strict_run_that_passes(strict):
    strict.scene.folder.put("readme.txt", b"old")
    strict.scene.folder.put("unlisted.txt", b"goes")
    offer(strict, {"readme.txt": b"new", "Saved/default.sav": b"save"}, ["Saved", "Saved/more"])
    preview = strict.check()
    assert (preview["game"]["outcome"], preview["game"]["removed"]) == ("done", ["unlisted.txt"])
    assert not preview["gameStarted"]


def test_every_rule_of_the_clean_up(keep_dirs):
    kept = [
        *["Output.txt", "Backup.RAR", "bin/backup.tar.rAr", "Saved/profile.sav", "Logs/old.log"],
        *["Updater/anything", "updates/file", "CrashLogs/dump", "Screenshots/a/b.png", "Symbols/x"],
        *["Intermediate/other/file", "a.b/c.rar"],
    ]
    removed = [
        *["output.txt.bak", "bin/Output.txt", "notes.rar.txt", "rar", ".rar", "saved game/x", "bin/Saved/x"],
        *["a.rar/notes.txt", "_old.txt", "Other launcher.exe", "bin/Launcher.exe", "OUTPUT2.TXT"],
    ]
    for name in kept + removed:
        keep_dirs.scene.folder.put(name, b"content")
    keep_dirs.scene.folder.directory("bin/empty")
    keep_dirs.scene.folder.directory("empty/empty")
    keep_dirs.scene.folder.directory("empty.rar")
    keep_dirs.scene.folder.directory("Saved/empty")
    offer(keep_dirs, {"bin/new.dll": b"new"}, ["bin"])
    game = keep_dirs.check()["game"]
    cleaned = game["removed"]
    assert sorted(cleaned) == sorted([*removed, "bin/empty", "empty/empty"])


def test_the_clean_up_goes_by_names_in_upper_case(strict):
    """A folder that is not empty stops it: what comes before has gone then."""
    for name in ["_a", "^b", "[c", "Zed", "zeb", "~t", "a b", "A.b", "a-b", "1", "10", "2", "{z", "é"]:
        strict.scene.folder.put(name, b"content")
    strict.scene.folder.put("Z/file", b"content")
    offer(strict, {"data.pak": b"data"}, ["Saved"])
    game = strict.check()["game"]
    assert game["outcome"] == "abnormal end"
    assert {"1", "10", "2", "a b", "a-b", "A.b"} <= set(game["removed"])
    assert not {"Zed", "zeb", "[c", "_a", "~t"} & set(game["removed"])


# --- Case ---------------------------------------------------------------------------------------


@pytest.mark.parametrize("installed", [b"text", b"an older text"], ids=["current", "replaced"])
def test_a_file_listed_in_another_case_keeps_its_name_and_is_removed(keep_dirs, installed):
    keep_dirs.scene.folder.put("bin/README.TXT", installed)
    offer(keep_dirs, {"bin/readme.txt": b"text"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert (game["outcome"], game["removed"]) == ("done", ["bin/README.TXT"])
    assert bool(game["downloaded"]) == (installed != b"text")


def test_a_directory_listed_in_another_case(keep_dirs):
    keep_dirs.scene.folder.put("Data/old.pak", b"old")
    offer(keep_dirs, {"data/new.pak": b"new"}, ["bin", "data"])
    game = keep_dirs.check()["game"]
    assert game["removed"] == ["Data/new.pak", "Data/old.pak"]


def test_a_preserved_name_in_another_case_is_cleaned(keep_dirs):
    keep_dirs.scene.folder.put("saved/profile.sav", b"lost")
    offer(keep_dirs, {"bin/new.dll": b"new"}, ["bin"])
    assert keep_dirs.check()["game"]["removed"] == ["saved/profile.sav"]


def test_two_listed_spellings_of_one_file(keep_dirs):
    offer(keep_dirs, {"bin/x.txt": b"same", "bin/X.TXT": b"same"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert (game["staged"], game["removed"]) == (["bin/X.TXT"], [])


def test_a_file_listed_twice_is_downloaded_once(keep_dirs):
    line = formats.file_line("bin/x.txt", b"same")
    offer(keep_dirs, {"bin/x.txt": b"same"}, ["bin"], (line,))
    game = keep_dirs.check()["game"]
    assert (len(game["downloaded"]), game["staged"]) == (1, ["bin/x.txt"])


def test_a_name_with_a_backslash_is_removed_right_after_its_installation(keep_dirs):
    for name in ("bin\\new.dll", "bin/new.dll"):
        keep_dirs.scene.serve(name, b"new")
    offer(keep_dirs, {"bin\\new.dll": b"new"}, ["bin"])
    preview = keep_dirs.report()
    assert preview["game"]["removed"] == ["bin/new.dll"]
    keep_dirs.compare_removals(preview["game"], keep_dirs.run(preview))


def test_the_launcher_typed_in_another_case_would_be_removed(strict):
    """The system refuses that, and that ends the run. Previewed only: Wine corrects what was typed
    before the Launcher sees it."""
    offer(strict, {"data.pak": b"data"}, ["Saved"])
    game = strict.report("launcher.exe")["game"]
    assert (game["outcome"], game["removed"]) == ("abnormal end", [])
    assert "Launcher.exe" in game["stop"]


def test_a_renamed_launcher_keeps_itself_only(strict):
    strict.scene.folder.put_copy("Play.exe", strict.scene.build.launcher)
    offer(strict, {"data.pak": b"data"}, ["Saved"])
    assert strict.check(launcher="Play.exe")["game"]["removed"] == ["Launcher.exe"]


def test_a_launcher_outside_of_the_root(keep_dirs):
    scene = keep_dirs.scene
    scene.folder.put_copy("tools/Launcher.exe", scene.build.keep_dirs)
    offer(keep_dirs, {"bin/new.dll": b"new"}, ["bin"])
    game = keep_dirs.check(launcher="tools/Launcher.exe", directory=scene.folder.root)["game"]
    assert game["stop"].startswith("tools/Launcher.exe: ")


# --- Digests, sizes, staging --------------------------------------------------------------------


def test_an_uppercase_digest_never_matches(keep_dirs):
    keep_dirs.scene.folder.put("bin/x", b"content")
    line = formats.file_line("bin/x", b"content", formats.md5(b"content").upper())
    keep_dirs.scene.serve("bin/x", b"content")
    lines = [line, formats.file_line(GAME, keep_dirs.scene.folder.read(GAME))]
    keep_dirs.scene.offer_game({"bin/x": b"content"}, ["bin"], lines)
    assert [file["name"] for file in keep_dirs.check()["game"]["downloaded"]] == ["bin/x"]


def test_a_payload_that_is_not_what_is_listed(keep_dirs):
    offer(keep_dirs, {"bin/x": b"as listed"}, ["bin"])
    keep_dirs.scene.serve("bin/x", b"something else")
    preview = keep_dirs.check()
    assert preview["game"]["downloaded"] == [{"name": "bin/x", "size": 14}]
    assert ["not the listed file" in error["message"] for error in preview["errors"]] == [True]


def test_staging_leftovers_go_with_the_folder(keep_dirs):
    keep_dirs.scene.folder.put(f"{STAGING}/left/over/file", b"from an older update")
    keep_dirs.scene.folder.put("Intermediate/kept", b"kept")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    assert keep_dirs.check()["game"]["removed"] == []


def test_a_read_only_leftover_keeps_the_staging_folder(keep_dirs):
    for name in ("a", "m", "z"):
        keep_dirs.scene.folder.put(f"{STAGING}/left/{name}", b"over")
    keep_dirs.scene.folder.path(f"{STAGING}/left/m").chmod(READ_ONLY)
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    assert keep_dirs.check()["game"]["outcome"] == "done"


@pytest.mark.parametrize("directories", [["data/sub", "data"], ["data/sub"]])
def test_a_directory_before_its_parent(keep_dirs, directories):
    offer(keep_dirs, {"data/sub/x": b"x"}, directories)
    preview = keep_dirs.check()
    assert (preview["game"]["outcome"], preview["gameStarted"]) == ("refused", True)
    assert [error["subject"] for error in preview["errors"]] == [f"{STAGING}/data/sub"]


@pytest.mark.parametrize("name", [f"{STAGING}/data", "Intermediate", "Intermediate/Update"])
def test_a_file_in_the_place_of_a_staging_folder(keep_dirs, name):
    keep_dirs.scene.folder.put(name, b"a file")
    offer(keep_dirs, {"data/x": b"x"}, ["bin", "data"])
    preview = keep_dirs.check()
    assert preview["game"]["outcome"] == "refused"
    assert "file is in the place of a directory" in preview["errors"][0]["message"]
    assert preview["errors"][0]["subject"] == name


def test_a_directory_in_the_place_of_a_staged_file(keep_dirs):
    keep_dirs.scene.folder.directory(f"{STAGING}/data")
    offer(keep_dirs, {"data": b"a file"}, ["bin"])
    stop = keep_dirs.check()["game"]["stop"]
    assert stop.startswith("data: ") and "file_size" in stop


def test_a_directory_that_is_not_listed(keep_dirs):
    offer(keep_dirs, {"unlisted/x": b"x", "bin/y": b"y"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert game["outcome"] == "abnormal end"
    assert [file["name"] for file in game["downloaded"]] == ["unlisted/x"]


@pytest.mark.parametrize(
    "answer",
    [
        pytest.param(Answer(b"", status=404), id="404"),
        pytest.param(Answer(b"", status=500), id="500"),
        pytest.param(Answer(b"content", length=None), id="no length"),
        pytest.param(redirect("/elsewhere", 302), id="moved to nowhere"),
    ],
)
def test_a_payload_that_cannot_be_downloaded(keep_dirs, answer):
    offer(keep_dirs, {"bin/a": b"a", "bin/b": b"b", "bin/c": b"c"}, ["bin"])
    keep_dirs.scene.serve("bin/b", answer)
    if answer.headers:
        preview = keep_dirs.report()
        assert preview["game"]["stop"]
        keep_dirs.run(preview)
        return
    game = keep_dirs.check()["game"]
    assert game["outcome"] == "abnormal end"
    assert [file["name"] for file in game["downloaded"]] == ["bin/a"]
    assert "bin/b" in game["stop"]


# --- Applying -----------------------------------------------------------------------------------


def test_a_directory_in_the_place_of_a_listed_file(keep_dirs):
    keep_dirs.scene.folder.directory("bin/x")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    assert keep_dirs.check()["game"]["outcome"] == "abnormal end"


def test_a_file_in_the_place_of_a_listed_directory(keep_dirs):
    keep_dirs.scene.folder.put("data", b"a file")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin", "data", "data/sub"])
    stop = keep_dirs.check()["game"]["stop"]
    assert stop.startswith("data/sub: ") and "files are installed" in stop


def test_a_file_in_the_place_of_an_only_directory_is_enough_and_goes(keep_dirs):
    keep_dirs.scene.folder.put("data", b"a file")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin", "data"])
    assert keep_dirs.check()["game"]["removed"] == ["data"]


def test_a_file_in_the_place_of_the_directory_of_a_copy(keep_dirs):
    keep_dirs.scene.folder.put("data", b"a file")
    offer(keep_dirs, {"bin/x": b"x", "data/y": b"y", "z": b"z"}, ["bin", "data"])
    stop = keep_dirs.check()["game"]["stop"]
    assert stop.startswith("data/y: ") and "files are installed" in stop


def test_a_listed_launcher_of_another_content(keep_dirs):
    offer(keep_dirs, {"bin/x": b"x", "Launcher.exe": b"another", "z": b"z"}, ["bin"])
    assert keep_dirs.check()["game"]["stop"].startswith("Launcher.exe: ")


def test_a_read_only_file_that_is_not_listed(keep_dirs):
    for name in ("bin/a.dll", "bin/m.dll", "bin/z.dll"):
        keep_dirs.scene.folder.put(name, b"unlisted")
    keep_dirs.scene.folder.path("bin/m.dll").chmod(READ_ONLY)
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert (game["outcome"], game["removed"]) == ("abnormal end", ["bin/a.dll"])
    assert game["stop"].startswith("bin/m.dll: ")


def test_a_read_only_file_that_is_listed(keep_dirs):
    """Whether it can be replaced is the system's business, which is asked."""
    keep_dirs.scene.folder.put("bin/x", b"old").chmod(READ_ONLY)
    offer(keep_dirs, {"bin/x": b"new", "bin/y": b"y"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert (game["outcome"] == "done") == os.access(keep_dirs.scene.folder.path("bin/x"), os.W_OK)


@pytest.mark.parametrize("installed", [b"old", b"new"], ids=["replaced", "current"])
def test_a_hidden_file_that_is_listed(keep_dirs, installed):
    """Wine hides names that begin with a dot. Previewed only: Windows does not replace a hidden file,
    but Wine does."""
    keep_dirs.scene.folder.put("bin/.hidden", installed)
    offer(keep_dirs, {"bin/.hidden": b"new"}, ["bin"])
    stop = keep_dirs.report()["game"]["stop"]
    assert (stop or "").startswith("bin/.hidden: ") == (installed == b"old")


def test_a_hidden_file_that_is_not_listed_is_removed(keep_dirs):
    keep_dirs.scene.folder.put("bin/.hidden", b"old")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    assert keep_dirs.check()["game"]["removed"] == ["bin/.hidden"]


def test_a_file_in_use(keep_dirs):
    keep_dirs.scene.folder.put("bin/used.dll", b"in use")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    keep_dirs.scene.lock("bin/used.dll", "read")
    assert keep_dirs.check()["game"]["stop"].startswith("bin/used.dll: ")


def test_a_version_file_that_cannot_be_written(strict):
    strict.scene.lock(VERSION_FILE, "read")
    offer(strict, {"data.pak": b"data"}, ["Saved"])
    stop = strict.check()["game"]["stop"]
    assert stop.startswith(f"{VERSION_FILE}: ") and "version is recorded" in stop


# --- Versions, manifests ------------------------------------------------------------------------


def test_no_update(scene):
    preview = Oracle(scene).check()
    assert (preview["game"]["outcome"], preview["gameStarted"]) == ("not offered", True)
    assert preview["errors"] == preview["warnings"] == []


def test_an_installed_version_above_the_servers(scene):
    scene.folder.put(VERSION_FILE, formats.game_version(0, 0, 0, 9))
    assert Oracle(scene).check()["game"]["installedVersion"] == "9.0.0.0"


@pytest.mark.parametrize("version", [None, b"", formats.game_version(*INSTALLED)[:11], b"nonsense" * 4])
def test_an_installed_version_that_is_missing_or_broken(keep_dirs, version):
    keep_dirs.scene.folder.remove(VERSION_FILE)
    if version is not None:
        keep_dirs.scene.folder.put(VERSION_FILE, version)
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    preview = keep_dirs.check()
    assert preview["game"]["outcome"] in ("done", "check failed")
    assert preview["game"]["installedVersion"] is None or version


@pytest.mark.parametrize("content", [b"", b"nonsense", formats.game_version(*NEWER, header="Other")])
def test_a_version_of_the_server_that_is_broken(scene, content):
    scene.serve(GAME_VERSION, content)
    assert Oracle(scene).check()["gameStarted"]


def test_a_server_without_a_version_for_an_installation_without_one(scene):
    scene.folder.remove(VERSION_FILE)
    scene.serve(GAME_VERSION, Answer(b"", status=404))
    assert Oracle(scene).check()["game"]["outcome"] == "refused"


@pytest.mark.parametrize(
    "manifest",
    [
        pytest.param(Answer(b"", status=404), id="missing"),
        pytest.param(b"", id="empty"),
        pytest.param(formats.game_manifest([], ["'x' 1 " + "0" * 32]), id="no directories"),
        pytest.param(formats.game_manifest(["bin"], ["'x' 0 " + "0" * 32]), id="empty file"),
    ],
)
def test_a_refused_manifest(scene, manifest):
    offer(Oracle(scene), {"bin/x": b"x"}, ["bin"])
    scene.serve(GAME_MANIFEST, manifest)
    preview = Oracle(scene).check()
    assert (preview["game"]["outcome"], preview["gameStarted"]) == ("refused", True)


# --- Settings, redirection, the Launcher itself -------------------------------------------------


@pytest.mark.parametrize(
    "settings",
    [
        pytest.param(None, id="missing"),
        pytest.param(b"", id="empty"),
        pytest.param(b"nonsense", id="nonsense"),
        pytest.param(formats.updater_data("", "release"), id="no url"),
        pytest.param(formats.updater_data("http://x/", "gamma"), id="no such channel"),
    ],
)
def test_refused_settings(scene, settings):
    scene.folder.remove(SETTINGS_FILE)
    if settings is not None:
        scene.folder.put(SETTINGS_FILE, settings)
    scene.folder.put(PARKED, b"stale, and left alone")
    preview = Oracle(scene).check()
    assert (preview["settings"], preview["gameStarted"]) == ({"url": None, "channel": None}, True)
    assert [error["subject"] for error in preview["errors"]] == [SETTINGS_FILE]


def test_a_redirection_is_followed(scene):
    scene.server.serve(REDIRECT, f"{scene.server.url}other/".encode())
    preview = Oracle(scene).check()
    assert preview["updatesUrl"] == f"{scene.server.url}other/updates/release/"
    assert len(preview["errors"]) == 2


def test_a_folder_with_a_redirection_is_warned_of(scene):
    oracle = Oracle(scene)
    folder = oracle.served_folder()
    (folder / REDIRECT).write_text("https://elsewhere.example.com/")
    assert any(REDIRECT in warning for warning in oracle.preview("--server", folder).warnings)


def test_another_channel(scene):
    scene.configure(scene.server.url, "beta")
    assert Oracle(scene).check()["settings"]["channel"] == "beta"


@pytest.mark.parametrize("name", [PARKED, PARKED + "/file"])
def test_a_stale_executable(keep_dirs, name):
    keep_dirs.scene.folder.put(name, b"stale")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    assert keep_dirs.check()["game"]["removed"] == [name]


def test_a_launcher_of_the_server_that_is_older_is_logged_and_the_game_is_updated(keep_dirs):
    keep_dirs.scene.offer_launcher(OLDER_VERSION)
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    preview = keep_dirs.check()
    assert (preview["launcher"]["outcome"], preview["game"]["outcome"]) == ("failed", "done")
    assert preview["launcher"]["ownVersion"] == OWN_VERSION


def test_a_log_in_the_root_is_no_part_of_the_preview(keep_dirs):
    keep_dirs.scene.offer_launcher(OLDER_VERSION)
    keep_dirs.scene.folder.put("Logs", b"a file in the place of the folder")
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    game = keep_dirs.check()["game"]
    assert (game["outcome"], game["removed"]) == ("done", [])


@pytest.mark.parametrize("name", [UPDATER_MANIFEST, UPDATER_DATA])
def test_a_server_without_a_launcher(scene, name):
    scene.serve(name, Answer(b"", status=404))
    preview = Oracle(scene).check()
    assert (preview["launcher"]["outcome"], len(preview["errors"])) == ("failed", 1)


def test_a_newer_launcher_ends_the_run_with_a_restart(scene):
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, NO_PROGRAM)
    offer(Oracle(scene), {"bin/x": b"x"}, ["bin"])
    preview = Oracle(scene).check(expected_exits=(0,))
    assert preview["errors"] == []
    assert preview["launcher"]["outcome"] == "replaced"
    assert preview["game"]["outcome"] == "not reached"
    assert scene.folder.read("Launcher.exe") == NO_PROGRAM
    assert scene.folder.has(PARKED)


def test_the_next_launchers_run_is_previewed_by_the_tool_of_its_build(scene):
    oracle = Oracle(scene)
    oracle.use(scene.build.next, scene.build.publish_next)
    scene.offer_launcher(NEXT_VERSION)
    preview = oracle.check()
    assert (preview["launcher"]["outcome"], preview["launcher"]["ownVersion"]) == ("current", NEXT_VERSION)


def test_a_newer_launcher_that_cannot_be_downloaded(scene):
    scene.offer_launcher(NEXT_VERSION)
    preview = Oracle(scene).check()
    assert preview["launcher"]["outcome"] == "failed"
    assert "404" in preview["errors"][0]["message"]


def test_a_newer_launcher_that_cannot_be_installed(scene):
    """A full folder where the previous executable is to be put."""
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, NO_PROGRAM)
    scene.folder.put(PARKED + "/file", b"in the way")
    preview = Oracle(scene).check(first_dialog=dialogs.SELF_UPDATE_FAILED)
    assert (preview["launcher"]["outcome"], preview["gameStarted"]) == ("failed", True)


def test_other_settings_of_the_server_end_the_run_with_a_restart(scene):
    scene.serve(UPDATER_DATA, b"nonsense")
    preview = Oracle(scene).check()
    assert preview["launcher"]["outcome"] == "settings replaced"
    assert scene.folder.read(SETTINGS_FILE) == b"nonsense"


@pytest.mark.parametrize("launcher", [NO_PROGRAM, None], ids=["no program", "missing"])
def test_a_launcher_without_a_version_resource_is_not_previewed(scene, launcher):
    scene.folder.remove("Launcher.exe")
    if launcher is not None:
        scene.folder.put("Launcher.exe", launcher)
    done = publish(scene.build, "preview", "--installed", scene.folder.root, "--url", scene.server.url)
    assert (done.code, len(done.errors)) == (1, 1)
    assert "version resource" in done.errors[0]


def test_a_missing_game_is_not_started(scene):
    scene.folder.remove("bin")
    preview = Oracle(scene).check()
    assert not preview["gameStarted"]
    assert [error["subject"] for error in preview["errors"]] == [GAME]


# --- The command --------------------------------------------------------------------------------


def test_a_listed_file_that_the_server_lacks_ends_the_run(keep_dirs):
    offer(keep_dirs, {"bin/x": b"x"}, ["bin"])
    keep_dirs.scene.serve("bin/x", Answer(b"", status=404))
    done = keep_dirs.preview("--url", keep_dirs.scene.server.url)
    assert done.report["game"]["outcome"] == "abnormal end"
    assert "404 - no such file." in done.report["game"]["stop"]


@pytest.mark.parametrize("name", ["../outside.txt", "bin/../../outside.txt"])
def test_a_name_that_leads_out_of_the_game_folder(keep_dirs, name):
    offer(keep_dirs, {"bin/x": b"x", name: b"x"}, ["bin"])
    done = keep_dirs.preview("--url", keep_dirs.scene.server.url)
    assert done.report["game"]["outcome"] == "abnormal end"
    assert done.report["game"]["stop"].startswith(f"{name}: ")
    assert "out of the game folder" in done.report["game"]["stop"]


def test_another_url_than_the_installed_one_is_warned_of(scene):
    oracle = Oracle(scene)
    scene.folder.put(SETTINGS_FILE, formats.updater_data("http://old.example.com/"))
    done = oracle.preview("--url", scene.server.url)
    assert any("old.example.com" in warning for warning in done.warnings)


@pytest.mark.parametrize(
    "arguments",
    [
        ["--server", "x", "--url", "http://x/"],
        [],
    ],
)
def test_exactly_one_tree_is_given(scene, arguments):
    done = publish(scene.build, "preview", "--installed", scene.folder.root, *arguments)
    assert done.code == 2


def test_an_installation_that_is_not_there(scene):
    done = publish(scene.build, "preview", "--installed", scene.temp_dir / "none", "--server", scene.temp_dir)
    assert (done.code, len(done.errors)) == (1, 1)


def test_a_server_folder_that_is_not_there(scene):
    done = Oracle(scene).preview("--server", scene.temp_dir / "none")
    assert (done.code, done.report["game"]["outcome"]) == (1, "check failed")


# --- Generated installations --------------------------------------------------------------------


class Generator:
    """A random installation, and an update that is not always sound."""

    def __init__(self, oracle: Oracle, seed: int, folders: list[str]) -> None:
        self.random = random.Random(seed)
        self.scene = oracle.scene
        self.folders = folders
        self.spelt: dict[str, str] = {}
        for path in self.scene.folder.root.rglob("*"):
            name = path.relative_to(self.scene.folder.root).as_posix()
            self.spelt[name.lower()] = name

    def chance(self, percent: int) -> bool:
        return self.random.randrange(100) < percent

    def put(self, name: str, content: bytes | None) -> None:
        """Puts a file, or a directory, unless something is in its way. What is there already keeps
        its spelling: on Windows there are no two of them."""
        spelt = ""
        for part in name.split("/"):
            known = self.spelt.get(f"{spelt}/{part}".strip("/").lower())
            spelt = known or f"{spelt}/{part}".strip("/")
            is_last = len(spelt) == len(name)
            if not is_last and self.scene.folder.path(spelt).is_file():
                return
            self.spelt.setdefault(spelt.lower(), spelt)
        path = self.scene.folder.path(spelt)
        if content is None and not path.exists():
            path.mkdir(parents=True)
        elif content is not None and not path.is_dir():
            self.scene.folder.put(spelt, content)
            if self.chance(2):
                path.chmod(READ_ONLY)

    def file_name(self) -> str:
        stem = self.random.choice(["a", "b", "Core", "level 1", "x.y", "Output", "saved", "Logs", "_u"])
        extension = self.random.choice(["", ".dll", ".dat", ".txt", ".rar", ".RAR", ".pak"])
        folder = self.random.choice([*self.folders, ""])
        return f"{folder}/{stem}{extension}".strip("/")

    def other_case(self, name: str) -> str:
        return self.random.choice([name.upper(), name.lower(), name.swapcase()])

    def make(self) -> None:
        listed: dict[str, bytes] = {}
        for _ in range(self.random.randrange(1, 12)):
            name = self.file_name()
            if name.lower() not in {n.lower() for n in listed} or self.chance(10):
                listed[name] = self.random.randbytes(self.random.randrange(1, 40))
        for name, content in listed.items():
            for path in (name, f"{STAGING}/{name}"):
                kind = self.random.randrange(5)
                here = self.other_case(path) if self.chance(10) and STAGING not in path else path
                if kind == 0:
                    self.put(here, content)
                elif kind == 1:
                    self.put(here, bytes(byte ^ 1 for byte in content))
                elif kind == 2:
                    self.put(here, content[:-1])
        for _ in range(self.random.randrange(8)):
            self.put(self.file_name(), b"unlisted")
        for _ in range(self.random.randrange(4)):
            self.put(f"{self.random.choice([*self.folders, 'new'])}/empty {self.random.randrange(3)}", None)
        if self.chance(30):
            self.put(PARKED, b"stale")
        if self.chance(5):
            self.put(self.random.choice(list(listed)), None)

        directories = {"/".join(n.split("/")[:i]) for n in listed for i in range(1, len(n.split("/")))}
        ordered = sorted(directories | {"fresh"} if self.chance(50) else directories or {"fresh"})
        if self.chance(5):
            self.random.shuffle(ordered)
        if self.chance(3):
            ordered.pop()
        lines = []
        for name, content in listed.items():
            digest = formats.md5(content)
            lines.append(formats.file_line(name, content, digest.upper() if self.chance(4) else digest))
        if self.scene.folder.has(GAME):
            lines.append(formats.file_line(GAME, self.scene.folder.read(GAME)))
        self.scene.offer_game(listed, ordered or ["fresh"], lines)
        # The server treats a blank and its escape alike.
        for name, content in listed.items():
            self.scene.serve(name.replace(" ", "%20"), content)
        for name in listed:
            if self.chance(2):
                self.scene.serve(name.replace(" ", "%20"), Answer(b"", status=404))
                self.scene.serve(name, Answer(b"", status=404))
        self.scene.offer_launcher(OLDER_VERSION if self.chance(10) else OWN_VERSION)
        if self.chance(10):
            self.scene.folder.remove(VERSION_FILE)


@pytest.mark.parametrize("seed", range(16))
def test_generated_installations_of_the_walking_launcher(keep_dirs, seed):
    Generator(keep_dirs, seed, ["bin", "bin/data", "Data", "Saved", "saved games", "a.rar", "Logs"]).make()
    preview = keep_dirs.check()
    assert preview["game"]["outcome"] not in ("not reached", "not offered")


@pytest.mark.parametrize("seed", range(16))
def test_generated_installations_of_the_strict_launcher(strict, seed):
    """Mostly in preserved folders: others stop it."""
    Generator(strict, seed, ["Saved", "Saved/deep", "Logs", "updates", "Screenshots"]).make()
    preview = strict.check()
    assert preview["game"]["outcome"] not in ("not reached", "not offered")
