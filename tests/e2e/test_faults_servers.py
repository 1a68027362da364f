"""Every answer of the server is in turn replaced by one of a broken server or proxy. For each cell of
this table the report says what the player sees, what is logged,
how the Launcher ends, whether the game starts, and what is changed on disk.

The game folder is one whose clean-up completes, so that every update that can end well does.
"""

import dataclasses
import random
import re
import struct
import zlib
from typing import Callable

import pytest

from harness import formats
from harness.constants import (
    GAME,
    GAME_MANIFEST,
    GAME_VERSION,
    LOG,
    NEXT_VERSION,
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
from harness.dialogs import RESTART_REQUIRED, UPDATE_AVAILABLE, UPDATE_FAILED, UPDATE_SUCCESSFUL
from harness.driver import TERMINATED, LauncherRun, cancel, ok
from harness.scene import NEWER, Scene, matches
from harness.scripted_server import Answer, redirect

HTML = b"<!DOCTYPE html>\n<html><body>\nPlease log in to the network.\n</body></html>\n"
NOISE_SIZE = 8 << 20


def noise() -> bytes:
    return random.Random(8).randbytes(NOISE_SIZE)


@dataclasses.dataclass
class Delivery:
    """What of an answer reaches the Launcher: a body, or texts of which one is the error's."""

    body: bytes | None = None
    errors: tuple[str, ...] = ()


@dataclasses.dataclass
class Fault:
    """How a good answer is spoilt, and what of it then counts."""

    answer: Callable[[bytes], Answer]
    delivery: Callable[[bytes], Delivery]


def failing(answer: Answer, *errors: str) -> Fault:
    return Fault(lambda body: answer, lambda body: Delivery(errors=errors))


def answering(answer: Callable[[bytes], Answer], body: Callable[[bytes], bytes]) -> Fault:
    return Fault(answer, lambda good: Delivery(body(good)))


def status(number: int, words: str = "unknown error code") -> Fault:
    return failing(Answer(HTML, status=number), f"{number} - {words}.")


def cut(after: Callable[[bytes], int]) -> Fault:
    return answering(lambda b: Answer(b, cut_after=after(b)), lambda b: b[: after(b)])


PLATFORM = "<platform>"
REFUSED = "connection refused"
REDIRECTED = "redirected"

FAULTS = {
    REFUSED: Fault(lambda body: Answer(body), lambda body: Delivery(errors=(PLATFORM,))),
    # Some stacks call this an error, some a status of 0.
    "reset": failing(Answer(silent=True, reset=True), PLATFORM, "0 - unknown error code."),
    "closed": failing(Answer(silent=True), PLATFORM, "0 - unknown error code."),
    "401": status(401, "unauthorized"),
    "403": status(403),
    "404": status(404, "no such file"),
    "500": status(500, "internal server error"),
    "503": status(503),
    REDIRECTED: answering(lambda b: redirect("/elsewhere", 302), lambda b: b),
    "cut before the body": cut(lambda b: 0),
    "cut after a byte": cut(lambda b: 1),
    "cut half way": cut(lambda b: len(b) // 2),
    "cut before the last byte": cut(lambda b: len(b) - 1),
    "no length": Fault(lambda b: Answer(b, length=None), lambda b: Delivery(errors=(PLATFORM,))),
    "chunked": Fault(lambda b: Answer(b, chunked=True), lambda b: Delivery(errors=(PLATFORM,))),
    "length too long": answering(lambda b: Answer(b, length=str(len(b) + 100)), lambda b: b),
    # Wine does not cut off what arrives together with the head; Windows does.
    "length too short": answering(
        lambda b: Answer(b, length=str(len(b) // 2)),
        lambda b: b if len(b) < 4096 else b[: len(b) // 2],
    ),
    "HTML": answering(lambda b: Answer(HTML), lambda b: HTML),
    "empty": answering(lambda b: Answer(b""), lambda b: b""),
    "8 MiB of noise": answering(lambda b: Answer(noise()), lambda b: noise()),
}


class Case:
    """One cell of the table while it is tested."""

    def __init__(self, scene: Scene, fault: str) -> None:
        self.scene = scene
        self.fault = fault
        self.delivery = Delivery()
        scene.install_launcher(scene.build.keep_dirs)

    def spoil(self, path: str, before: str) -> None:
        """Spoils the answer to a path; `before` is what is asked for just before it."""
        answers = self.scene.server.answers
        good = answers.get("/" + path, Answer()).body
        fault = FAULTS[self.fault]
        self.delivery = fault.delivery(good)
        if self.fault == REFUSED:
            asked = answers.get("/" + before, Answer(b"nothing here", status=404))
            self.scene.server.serve(before, dataclasses.replace(asked, last=True))
            return
        if self.fault == REDIRECTED:
            self.scene.server.serve("elsewhere", good)
        self.scene.server.serve(path, fault.answer(good))

    @property
    def refused(self) -> bool:
        """Whether nothing that would be asked for later is answered either."""
        return self.fault == REFUSED

    @property
    def answer(self):
        """To "Start game with its previous version?": half of the cells say OK."""
        return ok if zlib.crc32(self.fault.encode()) % 2 else cancel

    def assert_log(self, run: LauncherRun, *entries: Callable[[str], str] | str) -> None:
        """Texts of log entries, in which the download's error may have several wordings."""
        assert len(run.log) == len(entries), run.log
        for entry, expected in zip(run.log, entries):
            texts = [expected] if isinstance(expected, str) else [
                expected(error) for error in self.delivery.errors
            ]
            assert any(matches(text, entry) for text in texts), (entry[:2000], texts)

    def game_check_refused(self) -> list[str]:
        """The entry of the version check, where the server is gone by then."""
        message = f"Failed to download game-version file with error: '{PLATFORM}'"
        return [self.scene.game_update_entry(message)] if self.refused else []


def archive_error(bytes_: bytes) -> str | None:
    """What is wrong with the header of an archive."""
    magic = struct.unpack("<I", bytes_[:4])[0] if len(bytes_) >= 4 else 0
    if magic != formats.MAGIC:
        return f"Invalid header {magic} for binary file."
    version = struct.unpack("<I", bytes_[4:8])[0] if len(bytes_) >= 8 else 0
    if version != 1:
        return f"Invalid version {version} for binary file (supported: 1)."
    return None


# --- The rows of the table: what one spoilt answer does ---------------------------------------
#
# Each returns what it saw, as text for the table.


def spoilt_redirect(case: Case) -> str:
    scene = case.scene
    scene.server.serve(REDIRECT, scene.server.url.encode())
    if case.refused:
        # There is nothing before it: nothing answers at all.
        scene.server.refuse()
        case.delivery = Delivery(errors=(PLATFORM,))
    else:
        case.spoil(REDIRECT, "")
    before = whole(scene)
    run = scene.run()
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()
    usable = case.delivery.body is None or case.delivery.body == scene.server.url.encode()
    if usable and not case.refused:
        assert run.log == []
        assert whole(scene) == before
        return "the configured URL" if case.delivery.body is None else "used as it is"
    entries = scene.folder.read(LOG)
    for stage in (b"Failed to download updater-manifest file with error: '",
                  b"Failed to download game-version file with error: '"):
        assert entries.count(stage) == 1
    assert entries.count(b"Error while running updater:") == 2
    scene.folder.remove("Logs")
    assert whole(scene) == before
    return "two log entries; the game starts"


def spoilt_updater_manifest(case: Case) -> str:
    scene = case.scene
    case.spoil(scene.updates + UPDATER_MANIFEST, REDIRECT)
    run = scene.run()
    assert (run.dialogs, run.exit_code) == ([], 0)
    run.assert_game_started()
    body = case.delivery.body
    if body is None:
        case.assert_log(
            run,
            lambda e: scene.self_update_entry(
                f"Failed to download updater-manifest file with error: '{e}'"
            ),
            *case.game_check_refused(),
        )
        assert set(run.changes()) == {"Logs", LOG}
        return "a log entry; the game starts"
    if body == formats.updater_manifest(OWN_VERSION):
        assert run.changes() == {}
        return "used as it is"
    lines = [line for line in body.replace(b"\r", b"").split(b"\n") if line]
    if len(lines) < 3:
        message = (
            "Invalid number of lines in updater-manifest file. Expecting at least 3, "
            f"was only {len(lines)}."
        )
    elif lines[0] != b"Velmorant Updater":
        message = None
    else:
        message = (
            f"Trying to downgrade updater to version '0' (from '{OWN_VERSION}'). "
            "Downgrade is not supported"
        )
    if message:
        case.assert_log(run, scene.self_update_entry(message))
    else:
        # The message contains the first line; a NUL ends it.
        raw = scene.folder.read(LOG)
        assert raw.count(b"Error while running updater:") == 1
        assert b"Unknown header in received updater-manifest file (was '" + lines[0][:3] in raw
    assert set(run.changes()) == {"Logs", LOG}
    return "a log entry; the game starts"


def spoilt_settings(case: Case) -> str:
    scene = case.scene
    case.spoil(
        scene.updates + UPDATER_DATA, scene.updates + UPDATER_MANIFEST
    )
    body = case.delivery.body
    if body is None or body == scene.settings:
        run = scene.run()
        assert (run.dialogs, run.exit_code) == ([], 0)
        run.assert_game_started()
        if body is not None:
            assert run.changes() == {}
            return "used as it is"
        case.assert_log(
            run,
            lambda e: scene.self_update_entry(
                f"Failed to download updater-data file with error: '{e}'"
            ),
            *case.game_check_refused(),
        )
        assert set(run.changes()) == {"Logs", LOG}
        return "a log entry; the game starts"
    # It is installed unchecked, and the restarted Launcher cannot read it.
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0))
    assert scene.folder.read(SETTINGS_FILE) == body
    assert set(run.changes()) == {"Logs", LOG, SETTINGS_FILE}
    assert scene.folder.read(LOG).count(b"Error while running updater:") == 1
    assert b"While trying to access updater-data." in scene.folder.read(LOG)
    run.assert_game_started()
    return "installed; restart; a log entry; the game starts"


def spoilt_launcher(case: Case) -> str:
    scene = case.scene
    good = scene.build.next.read_bytes()
    scene.offer_launcher(NEXT_VERSION)
    scene.serve(UPDATER_EXECUTABLE, good)
    case.spoil(scene.updates + UPDATER_EXECUTABLE, scene.updates + UPDATER_MANIFEST)
    body = case.delivery.body
    if body is None:
        run = scene.run()
        assert (run.dialogs, run.exit_code) == ([], 0)
        run.assert_game_started()
        case.assert_log(
            run,
            lambda e: scene.self_update_entry(
                f"Failed to download new updater-exe 'Launcher.exe'. {e}"
            ),
            *case.game_check_refused(),
        )
        assert set(run.changes()) == {"Logs", LOG}
        return "a log entry; the game starts"
    starts = body == good
    if case.fault == "cut before the last byte":
        # Whether a program starts whose last byte is missing is up to the system.
        run = scene.start([ok(RESTART_REQUIRED)])
        while not run.ended:
            run._take_event("the end of the run")
        run.close()
        assert scene.folder.read("Launcher.exe") == body
        return "installed; the system may refuse to start it"
    run = scene.run([ok(RESTART_REQUIRED)], expected_exits=(0, 0) if starts else (0,))
    assert scene.folder.read("Launcher.exe") == body
    assert run.log == []
    if starts:
        assert not scene.folder.has(PARKED)
        run.assert_game_started()
        return "used as it is"
    assert set(run.changes()) == {"Launcher.exe", PARKED}
    assert scene.folder.read(PARKED) == scene.build.keep_dirs.read_bytes()
    run.assert_game_not_started()
    return "installed; restart fails; nothing starts"


def spoilt_version(case: Case) -> str:
    """The version file that is compared with the installed one."""
    scene = case.scene
    good = scene.offer_game_version(*NEWER)
    case.spoil(scene.updates + GAME_VERSION, scene.updates + UPDATER_DATA)
    body = case.delivery.body
    run = scene.run([cancel(UPDATE_AVAILABLE)] if body == good else [])
    assert run.exit_code == 0
    run.assert_game_started()
    if body == good:
        assert run.changes() == {}
        return "used as it is"
    if body is None:
        case.assert_log(
            run,
            lambda e: scene.game_update_entry(
                f"Failed to download game-version file with error: '{e}'"
            ),
        )
    elif archive_error(body):
        case.assert_log(run, scene.game_update_entry(archive_error(body)))
    elif len(body) < len(good) - 16:
        case.assert_log(
            run,
            scene.game_update_entry("Remove game-version file had unexpected header ''."),
        )
    else:
        # What is missing of the number counts as nought: an old version.
        assert run.changes() == {}
        return "an old version; the game starts"
    assert set(run.changes()) == {"Logs", LOG}
    return "a log entry; the game starts"


FILES = {"bin/first.dat": b"the first of them", "bin/second.dat": b"the second of them"}


def offer_update(case: Case) -> dict:
    """What changes on disk by an undisturbed update."""
    scene = case.scene
    scene.folder.put("bin/old.dat", b"unlisted")
    lines = [formats.file_line(name, content) for name, content in FILES.items()]
    lines.append(formats.file_line(GAME, scene.build.player.read_bytes()))
    version = scene.offer_game(FILES, ["bin"], lines)
    return {
        "Intermediate": ("-", None),
        VERSION_FILE: (scene.folder.read(VERSION_FILE), version),
        "bin/old.dat": (b"unlisted", "-"),
        **{name: ("-", content) for name, content in FILES.items()},
    }


def finished_update(case: Case, changes: dict, words: str) -> str:
    run = case.scene.run([ok(UPDATE_AVAILABLE), ok(UPDATE_SUCCESSFUL)])
    assert run.changes() == changes
    assert (run.log, run.exit_code) == ([], 0)
    run.assert_game_started()
    return words


def failed_before_download(case: Case, entry: Callable[[str], str] | re.Pattern) -> str:
    """The player is asked whether to start the game as it is."""
    starts = case.answer is ok
    run = case.scene.run(
        [ok(UPDATE_AVAILABLE), case.answer(UPDATE_FAILED)],
        expected_exits=(0 if starts else 0xFFFFFFFF,),
    )
    if isinstance(entry, re.Pattern):
        # The message contains parts of the bad manifest.
        raw = case.scene.folder.read(LOG)
        assert raw.count(b"Error while running updater:") == 1 and entry.search(raw), raw[:2000]
    else:
        case.assert_log(run, entry)
    assert set(run.changes()) == {"Logs", LOG}
    if starts:
        run.assert_game_started()
        return '"Update failed."; a log entry; OK starts the game'
    run.assert_game_not_started()
    return '"Update failed."; a log entry; Cancel ends with -1'


def spoilt_second_version(case: Case) -> str:
    """The version file that is fetched to be installed, where there is none to compare with."""
    scene = case.scene
    changes = offer_update(case)
    scene.folder.remove(VERSION_FILE)
    case.spoil(scene.updates + GAME_VERSION, scene.updates + UPDATER_DATA)
    body = case.delivery.body
    if body is None:
        return failed_before_download(
            case,
            lambda e: scene.game_update_entry(
                f"Failed to download remote game-version file with error: '{e}'"
            ),
        )
    shown = body if len(body) <= 4096 else f"md5 {formats.md5(body)}"
    changes[VERSION_FILE] = ("-", shown)
    good = body == formats.game_version(*NEWER)
    return finished_update(case, changes, "used as it is" if good else "the update; it is recorded")


def spoilt_game_manifest(case: Case) -> str:
    scene = case.scene
    changes = offer_update(case)
    good = scene.server.answers[f"/{scene.updates}game_update.manifest"].body
    case.spoil(scene.updates + GAME_MANIFEST, scene.updates + GAME_VERSION)
    body = case.delivery.body
    if body is None:
        return failed_before_download(
            case,
            lambda e: scene.game_update_entry(
                f"Failed to download game-update-manifest file with error: '{e}'"
            ),
        )
    if body == good:
        return finished_update(case, changes, "used as it is")
    if body == good[:-1]:
        return finished_update(case, changes, "its last line needs no end")
    lines = [line for line in body.replace(b"\r", b"").split(b"\n") if line]
    if len(lines) < 4:
        message = rb"Invalid amount of lines \(%d, at least 4 expected\)\.\s*$" % len(lines)
    elif lines[0] != b"GameUpdate":
        message = rb"Invalid header '" + re.escape(lines[0][:3])
    else:
        message = rb"Invalid (hash '[0-9a-f]*' with length \d+|file-name) at line \d+.*'\.?\s*$"
    return failed_before_download(case, re.compile(message))


def spoilt_game_file(case: Case) -> str:
    """The second of two files."""
    scene = case.scene
    changes = offer_update(case)
    case.spoil(scene.updates + "bin/second.dat", scene.updates + "bin/first.dat")
    body = case.delivery.body
    if body is not None:
        # It is installed unchecked; only the next update finds out.
        changes["bin/second.dat"] = (
            "-", body if len(body) <= 4096 else f"md5 {formats.md5(body)}"
        )
        good = body == FILES["bin/second.dat"]
        return finished_update(case, changes, "used as it is" if good else "installed; game starts")
    run = scene.run([ok(UPDATE_AVAILABLE)], expected_exits=(TERMINATED,))
    assert run.changes() == {
        "Intermediate": ("-", None),
        STAGING: ("-", None),
        f"{STAGING}/bin": ("-", None),
        f"{STAGING}/bin/first.dat": ("-", FILES["bin/first.dat"]),
    }
    run.assert_game_not_started()
    return "ends abnormally (3); what was fetched stays staged"


ROWS = {
    REDIRECT: spoilt_redirect,
    "updater.manifest": spoilt_updater_manifest,
    "UpdaterData.vpak": spoilt_settings,
    "Launcher.exe": spoilt_launcher,
    "GameVersion.vpak, first": spoilt_version,
    "GameVersion.vpak, second": spoilt_second_version,
    GAME_MANIFEST: spoilt_game_manifest,
    "a game file": spoilt_game_file,
}


def whole(scene: Scene) -> dict:
    return scene.folder.tree()


def cells() -> list:
    """All of them; a seeded third is for the short run, too."""
    every = [(row, fault) for row in ROWS for fault in FAULTS]
    short = set(random.Random(9).sample(every, len(every) // 3))
    return [
        pytest.param(
            row, fault, id=f"{row}, {fault}", marks=() if (row, fault) in short else pytest.mark.long
        )
        for row, fault in every
    ]


@pytest.mark.parametrize(("row", "fault"), cells())
def test_a_bad_answer_has_its_defined_outcome(scene, row, fault, record_property):
    outcome = ROWS[row](Case(scene, fault))
    record_property("cell", ("Bad answers of the server", row, fault, outcome))
