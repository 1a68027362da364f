"""The command that checks a published tree, in a folder and over HTTP: all that is wrong with a
tree is reported in one run, and nothing else."""

import gzip
import json
import os
import pathlib
import re
import shutil
import threading

import pytest

from harness import formats
from harness.constants import (
    GAME_MANIFEST,
    GAME_VERSION,
    NEXT_VERSION,
    OLDER_VERSION,
    OWN_VERSION,
    REDIRECT,
    TIMEOUT,
    UPDATER_DATA,
    UPDATER_EXECUTABLE,
    UPDATER_MANIFEST,
)
from harness.driver import Build
from harness.game_folder import windows_path
from harness.nginx_server import NginxServer
from harness.publishing import Published, publish
from harness.scripted_server import Answer, ScriptedServer

URL = "https://updates.example/"
RECORD = "updater/published.json"

DIRECTORIES = ["bin", "bin/data"]
FILES = {
    "read me.txt": b"Hello.\n",
    "bin/Velmorant Player.exe": b"MZ" * 700,
    "bin/data/level 1.dat": bytes(range(256)) * 9,
}


class Tree:
    """A sound tree of one channel, to be damaged."""

    def __init__(self, build: Build, server: pathlib.Path, channel: str = "release") -> None:
        self.build = build
        self.server = server
        self.name = channel
        self.channel = server / "updates" / channel
        self.put(GAME_VERSION, formats.game_version(2, 0, 4, 1))
        for name, content in FILES.items():
            self.put(name, content)
        self.write_manifest()
        self.put(UPDATER_MANIFEST, formats.updater_manifest(OWN_VERSION))
        self.put(UPDATER_DATA, formats.updater_data(URL, channel))
        shutil.copyfile(build.launcher, self.channel / UPDATER_EXECUTABLE)
        self.write_record()

    def put(self, name: str, content: bytes) -> None:
        path = self.channel / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)

    def remove(self, name: str) -> None:
        (self.channel / name).unlink()

    def write_record(self, executable: str = "Launcher.exe") -> None:
        content = (self.channel / "updater" / executable).read_bytes()
        record = {
            "executable": executable,
            "size": len(content),
            "md5": formats.md5(content),
            "version": OWN_VERSION,
            "isSigned": False,
        }
        self.put(RECORD, json.dumps(record).encode())

    def lines(self) -> list[str]:
        return [formats.file_line(name, content) for name, content in FILES.items()]

    def write_manifest(self, directories: list[str] | None = None, lines: list[str] | None = None) -> None:
        self.put(GAME_MANIFEST, formats.game_manifest(directories or DIRECTORIES, lines or self.lines()))

    def add(self, name: str, content: bytes = b"more", **options) -> str:
        """Another file; returns its line."""
        self.put(name, content)
        return formats.file_line(name, content, **options)

    def verify(self, *options: str) -> Published:
        return publish(self.build, "verify", "--server", self.server, *options)

    def location(self, name: str) -> str:
        return windows_path(self.channel) + "\\" + name.replace("/", "\\")

    def findings(self, *pairs: tuple[str, str]) -> list[str]:
        return sorted(f"{self.location(name)}: {rule}" for name, rule in pairs)


@pytest.fixture
def tree(build, temp_dir) -> Tree:
    return Tree(build, temp_dir / "server")


def test_a_sound_tree_passes(tree):
    run = tree.verify()
    assert (run.code, run.errors, run.warnings, run.stderr) == (0, [], [], "")
    assert run.report["channels"] == [
        {
            "channel": "release",
            "location": tree.location(""),
            "version": "1.4.0.2",
            "directories": 2,
            "files": 3,
            "bytes": 7 + 1400 + 2304,
            "launcher": {
                "version": OWN_VERSION,
                "url": URL,
                "channel": "release",
                "executable": "Launcher.exe",
            },
        }
    ]


def test_every_channel_is_checked_that_exists(tree, build):
    demo = Tree(build, tree.server, "demo")
    demo.remove(GAME_VERSION)
    run = tree.verify()
    assert [channel["channel"] for channel in run.report["channels"]] == ["demo", "release"]
    message = "Failed to download game-version file with error: '404 - no such file.'"
    assert (run.code, run.errors) == (1, demo.findings((GAME_VERSION, message)))
    only = tree.verify("--channel", "release")
    assert [channel["channel"] for channel in only.report["channels"]] == ["release"]
    assert (only.code, only.errors) == (0, [])


def test_a_folder_without_a_channel_is_refused(build, temp_dir):
    (temp_dir / "updates").mkdir()
    run = publish(build, "verify", "--server", temp_dir)
    assert (run.code, run.report["channels"]) == (1, [])
    assert run.errors == [f"{windows_path(temp_dir)}: contains no channel"]


def test_a_redirect_in_the_folder_is_reported(tree):
    (tree.server / REDIRECT).write_bytes(b"https://elsewhere.example/")
    run = tree.verify()
    assert (run.code, run.errors) == (0, [])
    redirect = windows_path(tree.server / REDIRECT)
    assert run.warnings == [f"{redirect}: sends all players to 'https://elsewhere.example/'"]


@pytest.mark.parametrize(
    "options",
    [[], ["--server", "Z:\\", "--url", "http://x/"], ["--server", "Z:\\", "--channel", "gamma"], ["--url", "www"]],
)
def test_wrong_usage(build, options):
    assert publish(build, "verify", *options).code == 2


def listed_so(directories=None, add=(), change=None):
    """A damage of the manifest alone: lines added, or one changed."""

    def damage(tree: Tree) -> None:
        lines = tree.lines()
        if change:
            lines = [line.replace(*change) for line in lines]
        tree.write_manifest(directories, [*lines, *add])

    return damage


def put(name: str, content: bytes):
    return lambda tree: tree.put(name, content)


def remove(name: str):
    return lambda tree: tree.remove(name)


def other_case_on_disk(tree: Tree) -> None:
    os.rename(tree.channel / "bin/data/level 1.dat", tree.channel / "bin/data/Level 1.dat")


def two_executables(tree: Tree) -> None:
    tree.put("updater/Launcher.exe.publishing", b"half")


def not_a_launcher(tree: Tree) -> None:
    tree.put(UPDATER_EXECUTABLE, b"MZ")
    tree.write_record()


def staging(tree: Tree) -> None:
    tree.write_manifest(
        ["bin", "bin/data", "Intermediate", "Intermediate/Update"],
        [*tree.lines(), tree.add("Intermediate/Update/x")],
    )


def own_names(tree: Tree) -> None:
    tree.write_manifest(["bin", "bin/data", "Updater"], [*tree.lines(), tree.add("Updater/extra.txt")])


def long_name(tree: Tree) -> None:
    tree.write_manifest(None, [*tree.lines(), tree.add("bin/" + "x" * 232)])


ADDRESS = "the Launcher does not encode %, # and ? in URLs"


def listed(name: str):
    """One file more, listed as it lies there."""
    return lambda tree: tree.write_manifest(None, [*tree.lines(), tree.add(name)])


def without_the_game(tree: Tree) -> None:
    tree.remove(PLAYER)
    tree.write_manifest(None, [line for line in tree.lines() if PLAYER not in line])


def twice(tree: Tree) -> None:
    tree.write_manifest(None, [*tree.lines(), tree.lines()[0]])


def two_cases(tree: Tree) -> None:
    tree.write_manifest(None, [*tree.lines(), formats.file_line("READ me.txt", FILES["read me.txt"])])


def directory_in_other_case(tree: Tree) -> None:
    name = "bin/data/level 1.dat"
    lines = [line for line in tree.lines() if name not in line]
    tree.write_manifest(None, [*lines, formats.file_line("bin/Data/level 1.dat", FILES[name])])


def both_kinds(tree: Tree) -> None:
    tree.write_manifest(["bin", "bin/data", "read me.txt"])


def backslash(tree: Tree) -> None:
    name = "bin/data/level 1.dat"
    lines = [line for line in tree.lines() if name not in line]
    tree.write_manifest(None, [*lines, formats.file_line("bin\\data\\level 1.dat", FILES[name])])


def uppercase(tree: Tree) -> None:
    digest = formats.md5(FILES["read me.txt"])
    tree.write_manifest(None, [line.replace(digest, digest.upper()) for line in tree.lines()])


def rejected_manifest(tree: Tree) -> None:
    tree.put(GAME_MANIFEST, (tree.channel / GAME_MANIFEST).read_bytes().replace(b" 7 ", b" 0 "))
    tree.put("unlisted", b"that nothing is listed is no reason to name every file")


def everything(tree: Tree) -> None:
    tree.remove("read me.txt")
    tree.put("bin/data/level 1.dat", b"short")
    tree.put("unlisted", b"x")
    tree.remove(UPDATER_MANIFEST)
    tree.remove(UPDATER_EXECUTABLE)


PLAYER = "bin/Velmorant Player.exe"
LEVEL = "bin/data/level 1.dat"
NO_EXECUTABLE = "Failed to download new updater-exe 'Launcher.exe'. 404 - no such file."
MISSING = "is listed, but cannot be read: File not found"
INVALID = "is listed, but cannot be read: Invalid name"
OUTSIDE = "leads outside the game's folder"
UNLISTED = "is not listed"
DIGEST = "has the digest {} instead of the listed {}"
HASH = formats.md5(FILES["read me.txt"])


@pytest.mark.parametrize(
    ("damage", "errors"),
    [
        pytest.param(remove("read me.txt"), [("read me.txt", MISSING)], id="missing file"),
        pytest.param(
            put(LEVEL, b"short"),
            [(LEVEL, "has 5 bytes instead of the 2304 listed")],
            id="wrong size",
        ),
        pytest.param(
            put(PLAYER, b"MZ" * 699 + b"MY"),
            [(PLAYER, DIGEST.format(formats.md5(b"MZ" * 699 + b"MY"), formats.md5(b"MZ" * 700)))],
            id="wrong digest",
        ),
        pytest.param(
            put("bin/data/old.dat", b"x"), [("bin/data/old.dat", UNLISTED)], id="unlisted file"
        ),
        pytest.param(
            put("bin/old/old.dat", b"x"), [("bin/old", UNLISTED)], id="unlisted directory"
        ),
        pytest.param(
            uppercase,
            [(GAME_MANIFEST, f"read me.txt: has the digest {HASH.upper()}, "
              "which is not in lowercase hexadecimal digits")],
            id="uppercase digest",
        ),
        pytest.param(
            listed_so(["bin/data", "bin"]),
            [(GAME_MANIFEST, "bin/data: its parent directory bin is not listed before it")],
            id="child first",
        ),
        pytest.param(
            listed_so(["bin/data"]),
            [
                (GAME_MANIFEST, "bin/data: its parent directory bin is not listed before it"),
                (GAME_MANIFEST, "bin: is not listed, but 1 of the files are in it"),
            ],
            id="missing parent",
        ),
        pytest.param(
            listed_so(["bin"]),
            [(GAME_MANIFEST, "bin/data: is not listed, but 1 of the files are in it")],
            id="file without its directory",
        ),
        pytest.param(twice, [(GAME_MANIFEST, "read me.txt: is listed twice")], id="twice"),
        pytest.param(
            two_cases,
            [(GAME_MANIFEST, "READ me.txt: differs from read me.txt only in case")],
            id="two cases",
        ),
        pytest.param(
            directory_in_other_case,
            [
                (GAME_MANIFEST, "bin/Data/level 1.dat: spells the directory bin/data differently"),
                (LEVEL, "is listed as bin/Data/level 1.dat"),
            ],
            id="directory in another case",
        ),
        pytest.param(
            both_kinds,
            [(GAME_MANIFEST, "read me.txt: is listed as a directory and as a file")],
            id="directory and file",
        ),
        pytest.param(
            backslash,
            [(GAME_MANIFEST, "bin\\data\\level 1.dat: is written with a backslash")],
            id="backslash",
        ),
        pytest.param(
            staging,
            [
                (GAME_MANIFEST, f"Intermediate/Update{name}: the Launcher stages updates in Intermediate\\Update")
                for name in ("", "/x")
            ],
            id="staging",
        ),
        *(
            pytest.param(
                listed_so(add=[formats.file_line(name, b"x")]),
                [(GAME_MANIFEST, f"{name}: {rule}"), (name, INVALID)],
                id=name,
            )
            for name, rule in [
                ("/x", OUTSIDE), ("//host/x", OUTSIDE), ("bin/../../x", OUTSIDE), ("\\x", OUTSIDE),
                ("bin//x", "has an empty part"),
            ]
        ),
        pytest.param(
            listed_so(["bin", "bin/data", "..", "C:/x"]),
            [(GAME_MANIFEST, f"{name}: {OUTSIDE}") for name in ("..", "C:/x")],
            id="directories outside",
        ),
        pytest.param(
            without_the_game, [(GAME_MANIFEST, "bin/Velmorant Player.exe: is not listed")], id="no game"
        ),
        pytest.param(put(RECORD, b"{}"), [(RECORD, "is damaged")], id="damaged record"),
        pytest.param(listed("bin/100%.dat"), [(GAME_MANIFEST, f"bin/100%.dat: {ADDRESS}")], id="percent"),
        pytest.param(listed("bin/a#b"), [(GAME_MANIFEST, f"bin/a#b: {ADDRESS}")], id="number sign"),
        pytest.param(
            listed("launcher.exe"),
            [(GAME_MANIFEST, "launcher.exe: the Launcher cannot replace itself while it runs")],
            id="the Launcher",
        ),
        pytest.param(
            listed_so(["bin", "bin/data", "con"]),
            [(GAME_MANIFEST, "con: 'con' is a reserved device name on Windows")],
            id="device",
        ),
        pytest.param(
            long_name,
            [(GAME_MANIFEST, f"bin/{'x' * 232}: its path in the staging folder has 256 characters; "
              "the Launcher opens at most 255")],
            id="long name",
        ),
        pytest.param(
            listed_so(add=["'huge' -5 0123456789abcdef0123456789abcdef"]),
            [
                (GAME_MANIFEST, "huge: has 18446744073709551611 bytes"),
                ("huge", MISSING),
            ],
            id="a size below nought",
        ),
        pytest.param(
            other_case_on_disk,
            [("bin/data/Level 1.dat", f"is listed as {LEVEL}")],
            id="another case on disk",
        ),
        pytest.param(
            remove(GAME_MANIFEST),
            [(GAME_MANIFEST, "Failed to download game-update-manifest file with error: "
              "'404 - no such file.'")],
            id="no manifest",
        ),
        pytest.param(
            rejected_manifest,
            [(GAME_MANIFEST, "Invalid empty file size at line 0, for file 'read me.txt'")],
            id="rejected manifest",
        ),
        pytest.param(
            put(GAME_VERSION, formats.game_version(1, 2, 3, 4, header="GameVersio")),
            [(GAME_VERSION, "Remove game-version file had unexpected header 'GameVersio'.")],
            id="version's header",
        ),
        pytest.param(
            put(GAME_VERSION, b""), [(GAME_VERSION, "Invalid header 0 for binary file.")], id="empty version"
        ),
        pytest.param(
            put(GAME_VERSION, formats.game_version(1, 2, 3, 4)[:-1]),
            [(GAME_VERSION, "the file ends before its version does")],
            id="version that breaks off",
        ),
        pytest.param(
            put(UPDATER_MANIFEST, b"Velmorant Updater\nFileVersion: 1\nVersion 6"),
            [(UPDATER_MANIFEST, "Unknown updater version name 'Version 6' "
              "(should have been 'Version')")],
            id="updater manifest",
        ),
        pytest.param(
            remove(UPDATER_MANIFEST),
            [(UPDATER_MANIFEST, "Failed to download updater-manifest file with error: "
              "'404 - no such file.'")],
            id="no updater manifest",
        ),
        pytest.param(
            put(UPDATER_DATA, formats.updater_data("")),
            [(UPDATER_DATA, "Empty URL in UpdaterData.vpak.")],
            id="settings",
        ),
        pytest.param(
            remove(UPDATER_DATA),
            [(UPDATER_DATA, "Failed to download updater-data file with error: "
              "'404 - no such file.'")],
            id="no settings",
        ),
        pytest.param(remove(UPDATER_EXECUTABLE), [(UPDATER_EXECUTABLE, NO_EXECUTABLE)], id="no executable"),
        pytest.param(
            two_executables,
            [(UPDATER_EXECUTABLE + ".publishing", UNLISTED)],
            id="two executables",
        ),
        pytest.param(
            not_a_launcher, [(UPDATER_EXECUTABLE, "has no version resource")], id="no version resource"
        ),
        pytest.param(
            put(UPDATER_MANIFEST, formats.updater_manifest(NEXT_VERSION)),
            [(UPDATER_EXECUTABLE, f"is version {OWN_VERSION}, but updater.manifest offers {NEXT_VERSION}")],
            id="another version",
        ),
        pytest.param(
            everything,
            [
                ("read me.txt", MISSING),
                (LEVEL, "has 5 bytes instead of the 2304 listed"),
                ("unlisted", UNLISTED),
                (UPDATER_MANIFEST, "Failed to download updater-manifest file with error: "
                 "'404 - no such file.'"),
                (UPDATER_EXECUTABLE, NO_EXECUTABLE),
            ],
            id="all at once",
        ),
    ],
)
def test_a_damaged_tree_is_refused(tree, damage, errors):
    damage(tree)
    run = tree.verify()
    assert (run.code, run.stderr) == (1, "")
    assert sorted(run.errors) == tree.findings(*errors)
    assert run.warnings == []


def test_a_payload_in_the_launchers_folder_is_refused(tree):
    own_names(tree)
    rule = "this folder belongs to the Launcher"
    run = tree.verify()
    assert run.code == 1
    for error in tree.findings(*((GAME_MANIFEST, f"Updater{name}: {rule}") for name in ("", "/extra.txt"))):
        assert error in run.errors


def test_characters_beyond_ascii_are_refused(tree):
    tree.put(GAME_MANIFEST, (tree.channel / GAME_MANIFEST).read_bytes().replace(b"level 1", b"l\xe9vel 1"))
    run = tree.verify()
    assert run.code == 1
    beyond = [text for text in run.errors if "non-ASCII or control characters" in text]
    assert len(beyond) == 1
    assert beyond[0].startswith(tree.location(GAME_MANIFEST))


@pytest.mark.parametrize(
    ("damage", "warnings"),
    [
        pytest.param(
            listed_so(["bin", "bin/data", "bin"]),
            [(GAME_MANIFEST, "bin: is listed twice")],
            id="a directory twice",
        ),
        pytest.param(
            listed_so(["bin", "bin/data", "BIN"]),
            [(GAME_MANIFEST, "BIN: differs from bin only in case")],
            id="directories in two cases",
        ),
        pytest.param(
            put(UPDATER_DATA, formats.updater_data(URL, "beta")),
            [(UPDATER_DATA, "names the channel beta")],
            id="settings of another channel",
        ),
        pytest.param(
            put(UPDATER_DATA, formats.updater_data(URL) + b"xyz"),
            [(UPDATER_DATA, "3 bytes follow the record")],
            id="bytes behind the settings",
        ),
    ],
)
def test_odd_but_valid_trees_are_warned_of(tree, damage, warnings):
    damage(tree)
    run = tree.verify()
    assert (run.code, run.errors) == (0, [])
    assert sorted(run.warnings) == tree.findings(*warnings)


# --- A channel between the two renames of a publish ---


def test_a_channel_that_an_interrupted_publish_took_away_is_refused(tree, build):
    Tree(build, tree.server, "demo")
    previous = tree.channel.with_name(".release.previous")
    tree.channel.rename(previous)
    message = f"is missing: a publish was interrupted and left {windows_path(previous)}"
    error = f"{windows_path(tree.channel)}: {message}"
    for options, channels in (((), ["demo"]), (("--channel", "release"), [])):
        run = tree.verify(*options)
        assert (run.code, run.errors, run.warnings) == (1, [error], [])
        assert "rename" in run.report["errors"][0]["hint"]
        assert [channel["channel"] for channel in run.report["channels"]] == channels


def test_what_an_interrupted_publish_left_beside_the_channel_is_no_error(tree):
    for name in (".release.previous", ".release.next", ".release.discarded"):
        tree.channel.with_name(name).mkdir()
    run = tree.verify()
    assert (run.code, run.errors, run.warnings) == (0, [], [])


def test_a_channel_that_is_asked_for_and_absent_is_refused(tree):
    run = tree.verify("--channel", "beta")
    assert (run.code, run.report["channels"]) == (1, [])
    assert run.errors == [f"{windows_path(tree.channel.with_name('beta'))}: there is no such folder"]


# --- The Launcher's content ---


def difference(tree: Tree, what: str, expected: bytes) -> str:
    content = (tree.channel / UPDATER_EXECUTABLE).read_bytes()
    return f"is not {what}: its digest is {formats.md5(content)} instead of {formats.md5(expected)}"


def damage_executable(tree: Tree) -> bytes:
    """Changes a byte behind everything that Windows looks at; returns the sound content."""
    sound = (tree.channel / UPDATER_EXECUTABLE).read_bytes()
    tree.put(UPDATER_EXECUTABLE, sound[:-1] + bytes([sound[-1] ^ 1]))
    return sound


def test_an_executable_that_is_not_the_published_one_is_refused(tree):
    sound = damage_executable(tree)
    run = tree.verify()
    message = difference(tree, "what was published", sound)
    assert (run.code, run.errors) == (1, tree.findings((UPDATER_EXECUTABLE, message)))


def test_an_executable_is_compared_with_the_one_at_hand(tree, build, temp_dir):
    own = temp_dir / "own.exe"
    own.write_bytes((tree.channel / UPDATER_EXECUTABLE).read_bytes())
    tree.remove(RECORD)
    run = tree.verify("--exe", windows_path(own))
    assert (run.code, run.errors, run.warnings) == (0, [], [])
    damage_executable(tree)
    run = tree.verify("--exe", windows_path(own))
    message = difference(tree, "the file of --exe", own.read_bytes())
    assert (run.code, run.errors) == (1, tree.findings((UPDATER_EXECUTABLE, message)))


def test_an_executable_at_hand_that_does_not_exist_is_refused(tree, temp_dir):
    run = tree.verify("--exe", windows_path(temp_dir / "none.exe"))
    assert run.code == 1
    assert run.errors[0].startswith(f"{windows_path(temp_dir / 'none.exe')}: cannot be read")


def test_a_tree_without_a_record_is_warned_of(tree):
    tree.remove(RECORD)
    run = tree.verify()
    message = "cannot be read (404 - no such file.), so the Launcher's content is not checked"
    assert (run.code, run.errors, run.warnings) == (0, [], tree.findings((RECORD, message)))
    assert run.report["channels"][0]["launcher"]["executable"] == "Launcher.exe"


def test_the_executable_has_the_name_that_was_published(tree):
    os.rename(tree.channel / UPDATER_EXECUTABLE, tree.channel / "updater/Start.exe")
    tree.write_record("Start.exe")
    tree.write_manifest(None, [*tree.lines(), tree.add("Start.exe")])
    run = tree.verify()
    rule = "Start.exe: the Launcher cannot replace itself while it runs"
    assert (run.code, run.errors) == (1, tree.findings((GAME_MANIFEST, rule)))
    assert run.report["channels"][0]["launcher"]["executable"] == "Start.exe"


# --- Plain http ---


PLAIN = "http://updates.example/"
PLAIN_HTTP = PLAIN + " is plain http: anyone between server and player can replace files"


def test_settings_with_plain_http_are_warned_of(tree):
    tree.put(UPDATER_DATA, formats.updater_data(PLAIN))
    run = tree.verify()
    assert (run.code, run.errors) == (0, [])
    assert run.warnings == tree.findings((UPDATER_DATA, PLAIN_HTTP))


def test_a_redirect_to_plain_http_is_warned_of(tree):
    (tree.server / REDIRECT).write_bytes(PLAIN.encode())
    run = tree.verify()
    assert f"{windows_path(tree.server / REDIRECT)}: {PLAIN_HTTP}" in run.warnings


# --- Over HTTP ---


@pytest.fixture
def nginx(tree, temp_dir):
    server = NginxServer(temp_dir / "nginx", tree.server)
    server.start()
    yield server
    server.stop()


def verify_url(tree: Tree, url: str, *options: str) -> Published:
    return publish(tree.build, "verify", "--url", url, *options)


def test_a_sound_tree_passes_over_http(tree, nginx):
    url = f"http://127.0.0.1:{nginx.port}/"
    tree.put(UPDATER_DATA, formats.updater_data(url))
    run = verify_url(tree, url)
    assert (run.code, run.errors, run.warnings, run.stderr) == (0, [], [], "")
    assert run.report["channels"] == [
        {
            "channel": "release",
            "location": url + "updates/release/",
            "version": "1.4.0.2",
            "directories": 2,
            "files": 3,
            "bytes": 7 + 1400 + 2304,
            "launcher": {
                "version": OWN_VERSION,
                "url": url,
                "channel": "release",
                "executable": "Launcher.exe",
            },
        }
    ]
    nginx.settle()
    fetched = [request.path for request in nginx.new_requests() if request.status == 200]
    below = "/updates/release/"
    names = [GAME_VERSION, GAME_MANIFEST, UPDATER_MANIFEST, UPDATER_DATA, UPDATER_EXECUTABLE, RECORD, *FILES]
    assert sorted(fetched) == sorted(below + name.replace(" ", "%20") for name in names)


def test_a_payload_that_nginx_sends_compressed_is_refused(tree, temp_dir):
    server = NginxServer(temp_dir / "nginx", tree.server, "gzip_static always;")
    for path in [path for path in tree.channel.rglob("*") if path.is_file()]:
        if path.name == "read me.txt":
            path.with_name(path.name + ".gz").write_bytes(gzip.compress(path.read_bytes()))
    server.start()
    try:
        url = f"http://127.0.0.1:{server.port}/"
        tree.put(UPDATER_DATA, formats.updater_data(url))
        run = verify_url(tree, url)
    finally:
        server.stop()
    compressed = len((tree.channel / "read me.txt.gz").read_bytes())
    assert run.code == 1
    assert run.errors == [
        f"{url}updates/release/read me.txt: has {compressed} bytes instead of the 7 listed"
    ]


def test_files_are_fetched_eight_at_a_time(tree, scripted):
    """Each of eight answers waits until all eight requests are there."""
    names = [f"bin/data/{number}.dat" for number in range(8)]
    tree.write_manifest(None, [*tree.lines(), *(tree.add(name, name.encode()) for name in names)])
    path = "updates/release/"
    scripted.serve(path + GAME_MANIFEST, (tree.channel / GAME_MANIFEST).read_bytes())
    together = threading.Barrier(8, timeout=TIMEOUT)
    for name in names:
        scripted.serve(path + name, name.encode())
        scripted.hold(path + name).hold = together.wait
    run = verify_url(tree, scripted.url, "--channel", "release")
    assert (run.code, run.errors) == (0, [])


@pytest.mark.parametrize("after", [None, 0, 100], ids=["no answer", "no body", "half a body"])
def test_a_server_that_stops_sending_is_given_up(tree, scripted, after):
    """Without a time-out the run would wait for the server, which waits for the run's end."""
    scripted.hold(f"updates/release/{LEVEL.replace(' ', '%20')}", after)
    run = verify_url(tree, scripted.url, "--channel", "release", "--timeout", "1")
    location = f"{scripted.url}updates/release/{LEVEL}"
    (error,) = run.errors
    assert re.fullmatch(
        re.escape(f"{location}: Failed to download game-file '{location}' with error: '") + r"[A-Z][a-z ]+\.'", error
    )


def test_a_damaged_executable_is_refused_over_http(tree, scripted):
    sound = damage_executable(tree)
    scripted.serve(f"updates/release/{UPDATER_EXECUTABLE}", (tree.channel / UPDATER_EXECUTABLE).read_bytes())
    run = verify_url(tree, scripted.url, "--channel", "release")
    message = difference(tree, "what was published", sound)
    assert (run.code, run.errors) == (1, [f"{scripted.url}updates/release/{UPDATER_EXECUTABLE}: {message}"])


@pytest.fixture
def scripted(tree):
    """The tree behind a server whose answers can be spoiled."""
    server = ScriptedServer()
    tree.put(UPDATER_DATA, formats.updater_data(server.url))
    for path in tree.channel.rglob("*"):
        if path.is_file():
            name = path.relative_to(tree.server).as_posix().replace(" ", "%20")
            server.serve(name, path.read_bytes())
    yield server
    server.close()


def spoiled(server: ScriptedServer, name: str, **options) -> None:
    path = "updates/release/" + name.replace(" ", "%20")
    server.serve(path, Answer(server.answers["/" + path].body, **options))


FETCHES = {
    GAME_VERSION: "Failed to download game-version file with error: '{}'",
    GAME_MANIFEST: "Failed to download game-update-manifest file with error: '{}'",
    LEVEL: "Failed to download game-file '<url>" + LEVEL + "' with error: '{}'",
    UPDATER_MANIFEST: "Failed to download updater-manifest file with error: '{}'",
    UPDATER_DATA: "Failed to download updater-data file with error: '{}'",
    UPDATER_EXECUTABLE: "Failed to download new updater-exe 'Launcher.exe'. {}",
}


@pytest.mark.parametrize("name", FETCHES)
@pytest.mark.parametrize(
    ("options", "error"),
    [
        pytest.param({"status": 404}, "404 - no such file.", id="404"),
        pytest.param({"status": 403}, "403 - unknown error code.", id="403"),
        pytest.param({"length": None}, None, id="no Content-Length"),
        pytest.param({"chunked": True}, None, id="chunked"),
    ],
)
def test_a_file_that_cannot_be_fetched_is_refused_with_the_launchers_message(
    tree, scripted, name, options, error
):
    spoiled(scripted, name, **options)
    run = verify_url(tree, scripted.url, "--channel", "release")
    url = f"{scripted.url}updates/release/"
    assert run.code == 1
    assert len(run.errors) == 1
    begin, end = FETCHES[name].replace("<url>", url).split("{}")
    refusal = run.errors[0].removeprefix(f"{url}{name}: ")
    assert refusal.startswith(begin)
    assert refusal.endswith(end)
    told = refusal[len(begin) : len(refusal) - len(end)]
    # The platform's own words, or its number where it has none.
    assert told == error if error else told
    assert run.warnings == []


def test_a_truncated_payload_is_refused(tree, scripted):
    spoiled(scripted, LEVEL, cut_after=1000)
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/{LEVEL}"
    assert (run.code, run.warnings) == (1, [])
    # The Launcher takes what it got for the whole.
    assert run.errors == [f"{location}: has 1000 bytes instead of the 2304 listed"]


def test_a_truncated_manifest_is_refused(tree, scripted):
    manifest = (tree.channel / GAME_MANIFEST).read_bytes()
    cut = manifest.index(b"level")
    spoiled(scripted, GAME_MANIFEST, cut_after=cut)
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/{GAME_MANIFEST}"
    assert run.code == 1
    assert run.errors == [
        f"{location}: the body has {cut} bytes, but its Content-Length is {len(manifest)}",
        f"{location}: Invalid file-name at line 2: ''",
    ]


@pytest.mark.parametrize("name", [GAME_VERSION, GAME_MANIFEST, LEVEL, UPDATER_MANIFEST, UPDATER_DATA, UPDATER_EXECUTABLE])
def test_a_response_of_another_length_than_it_announces_is_refused(tree, scripted, name):
    """What came is whole here: only the announced length shows the error."""
    body = scripted.answers["/updates/release/" + name.replace(" ", "%20")].body
    spoiled(scripted, name, length=str(len(body) + 1))
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/{name}"
    rule = f"the body has {len(body)} bytes, but its Content-Length is {len(body) + 1}"
    assert (run.code, run.errors, run.warnings) == (1, [f"{location}: {rule}"], [])


def test_a_redirect_of_another_length_than_it_announces_is_refused(tree, scripted):
    body = scripted.url.encode()
    scripted.serve(REDIRECT, Answer(body, length=str(len(body) + 2)))
    run = verify_url(tree, scripted.url, "--channel", "release")
    rule = f"the body has {len(body)} bytes, but its Content-Length is {len(body) + 2}"
    assert (run.code, run.errors) == (1, [f"{scripted.url}redirect.txt: {rule}"])


@pytest.mark.parametrize(
    ("options", "reason"),
    [({"status": 403}, "403 - unknown error code."), ({"length": None}, None)],
    ids=["403", "no Content-Length"],
)
def test_a_redirect_that_launchers_do_not_get_is_warned_of(tree, scripted, options, reason):
    scripted.serve(REDIRECT, Answer(b"http://elsewhere.example/", **options))
    run = verify_url(tree, scripted.url, "--channel", "release")
    (warning,) = run.warnings
    begin = f"{scripted.url}redirect.txt: cannot be fetched: "
    assert warning.startswith(begin) and (not reason or warning == begin + reason)
    assert (run.code, run.errors) == (0, [])


def test_a_compressed_payload_is_refused(tree, scripted):
    path = "updates/release/read%20me.txt"
    body = gzip.compress(FILES["read me.txt"])
    scripted.serve(path, Answer(body, headers=("Content-Encoding: gzip",)))
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/read me.txt"
    assert (run.code, run.warnings) == (1, [])
    assert run.errors == [f"{location}: has {len(body)} bytes instead of the 7 listed"]


def test_a_payload_of_other_content_is_refused(tree, scripted):
    scripted.serve("updates/release/read%20me.txt", b"Hullo.\n")
    run = verify_url(tree, scripted.url)
    other = formats.md5(b"Hullo.\n")
    location = f"{scripted.url}updates/release/read me.txt"
    assert (run.code, run.errors) == (1, [f"{location}: {DIGEST.format(other, HASH)}"])


def test_a_channel_answers_by_its_updater_manifest_alone(tree, scripted):
    del scripted.answers["/updates/release/" + GAME_VERSION]
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/{GAME_VERSION}"
    message = FETCHES[GAME_VERSION].format("404 - no such file.")
    assert (run.code, run.errors) == (1, [f"{location}: {message}"])


def test_a_server_that_answers_for_no_channel_is_refused(tree, scripted):
    scripted.answers.clear()
    run = verify_url(tree, scripted.url)
    silence = ", ".join(f"{name}: 404 - no such file." for name in (GAME_VERSION, UPDATER_MANIFEST))
    assert (run.code, run.report["channels"]) == (1, [])
    assert run.errors == [
        f"{scripted.url}: {channel} cannot be fetched ({silence})"
        for channel in ("alpha", "beta", "demo", "release")
    ]


def test_a_redirect_is_followed_as_the_launcher_does(tree, scripted):
    first = ScriptedServer()
    try:
        first.serve(REDIRECT, scripted.url.encode())
        run = verify_url(tree, first.url, "--channel", "release")
        assert (run.code, run.errors) == (0, [])
        assert run.report["channels"][0]["location"] == scripted.url + "updates/release/"
        assert run.warnings == [
            f"{scripted.url}updates/release/{UPDATER_DATA}: names the URL {scripted.url}"
        ]
        assert first.requests == ["/" + REDIRECT]
    finally:
        first.close()


def test_the_executable_is_asked_for_by_its_name(tree, scripted):
    run = verify_url(tree, scripted.url, "--channel", "release", "--launcher", "Play.exe")
    location = f"{scripted.url}updates/release/updater/Play.exe"
    message = "Failed to download new updater-exe 'Play.exe'. 404 - no such file."
    assert (run.code, run.errors) == (1, [f"{location}: {message}"])


def test_an_executable_of_another_version_is_refused_over_http(tree, scripted):
    scripted.serve("updates/release/" + UPDATER_MANIFEST, formats.updater_manifest(OLDER_VERSION))
    run = verify_url(tree, scripted.url)
    location = f"{scripted.url}updates/release/{UPDATER_EXECUTABLE}"
    assert (run.code, run.errors) == (
        1, [f"{location}: is version {OWN_VERSION}, but updater.manifest offers {OLDER_VERSION}"]
    )
