"""docs/publishing.md: its examples do and print what the page shows.

The blocks run in order in one working folder, as a reader would type them. Only the names of the
working folder and of the server differ. Comments in the page say what a block needs:

  <!-- first: NAME -->      `Studio.make_NAME` changes the working folder first
  <!-- not run: REASON -->  the commands are not run here
"""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

from harness.constants import GAME, GAME_MANIFEST, GAME_VERSION, OWN_VERSION, PROJECT
from harness.driver import WINE
from harness.game_folder import windows_path
from harness.nginx_server import NginxServer
from harness.pages import Block, Command, blocks
from harness.published import make_build, tree_of

PAGE = PROJECT / "docs" / "publishing.md"
PAGE_FOLDER = "D:\\velmorant"
PAGE_UNIX_FOLDER = "/srv/velmorant"
PAGE_SERVER = "https://updates.example.com/"
PAGE_VERSION = 6

WINE_SERVER = "/usr/lib/wine/wineserver64"

PLAIN_HTTP = re.compile(r"warning: \S+: http://127\.0\.0\.1:\d+/ is plain http: ")


class Studio:
    """The page's working folder and server."""

    def __init__(self, build, folder: pathlib.Path, page: list[Block]) -> None:
        self.build = build
        self.folder = folder / "work"
        self.folder.mkdir()
        self.server = NginxServer(folder / "nginx", self.folder / "www", server_options(page))
        (self.folder / "www").rmdir()  # The page's commands make it.
        self.server.start()
        shutil.copy(build.publish_keep_dirs, self.folder / "publish.exe")
        shutil.copy(build.keep_dirs, self.folder / "Launcher.exe")
        # The player's size depends on the compiler.
        player = build.player.read_bytes()
        self.files = {
            GAME: player + bytes(900_000 - len(player)),
            "data/level1.pak": bytes(range(256)) * 10_000 + bytes(440_000),
            "data/sounds.pak": b"sounds" * 1_000,
            "readme.txt": b"Read me.\r\n",
        }
        self.write("build", self.files)
        self.write("game", self.files)
        shutil.copy(build.keep_dirs, self.folder / "game" / "Launcher.exe")

    def close(self) -> None:
        self.server.stop()

    def write(self, name: str, files: dict[str, bytes]) -> None:
        shutil.rmtree(self.folder / name, ignore_errors=True)
        make_build(self.folder / name, files)

    # --- What the page describes in words ---

    def make_second_build(self) -> None:
        self.files["data/level1.pak"] = self.files["data/level1.pak"][::-1]
        self.files["data/new.txt"] = b"New"
        del self.files["readme.txt"]
        self.write("build", self.files)

    def make_faulty_build(self) -> None:
        self.write("build", {**self.files, "data/it's.txt": b"it's", "empty.txt": b""})

    def make_third_build(self) -> None:
        self.write("old-build", self.files)
        self.files["data/level2.pak"] = b"level 2" * 1_000
        self.write("build", self.files)

    def make_fourth_build(self) -> None:
        self.files["data/level2.pak"] = b"LEVEL 2" * 1_000
        self.write("build", self.files)

    def make_new_server(self) -> None:
        shutil.copytree(self.folder / "www", self.folder / "new-www")

    # --- Between the page and this machine ---

    def replacements(self) -> list[tuple[str, str]]:
        address = f"http://127.0.0.1:{self.server.port}/"
        return [(PAGE_FOLDER, windows_path(self.folder)), (PAGE_SERVER, address)]

    def to_here(self, text: str) -> str:
        for page, here in self.replacements():
            text = text.replace(page, here)
        return text

    def to_page(self, text: str) -> str:
        for page, here in self.replacements():
            text = text.replace(here, page)
        for words in ("version {}", "Launcher {}"):
            text = re.sub(rf"\b{words.format(OWN_VERSION)}\b", words.format(PAGE_VERSION), text)
        return text

    # --- Running ---

    def run(self, line: str) -> tuple[int, list[str], bool]:
        """The exit code, the output as the page has it, and whether plain http was warned of."""
        words = self.to_here(line).split()
        if words[0] == "copy":
            shutil.copyfile(self.path(words[1]), self.path(words[2]))
        elif words[:3] == ["xcopy", "/e", "/i"]:
            shutil.copytree(self.path(words[3]), self.path(words[4]))
        else:
            assert words[0] == "publish", line
            done = subprocess.run(
                [WINE, *words], cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, timeout=600, check=False,
            )
            return done.returncode, *self.as_shown(done.stdout.decode())
        return 0, [], False

    def path(self, name: str) -> pathlib.Path:
        return self.folder / name.replace("\\", "/")

    def as_shown(self, text: str) -> tuple[list[str], bool]:
        """The output without the warnings that only plain http causes, and whether it had some."""
        shown: list[str] = []
        warned = False
        for line in text.replace("\r", "").splitlines():
            if PLAIN_HTTP.match(line):
                warned = True
            elif not (warned and line == "  Use https."):
                shown.append(self.to_page(line))
        return shown, warned


def server_options(page: list[Block]) -> str:
    """What the page's configuration of nginx has below the name of the folder."""
    (text,) = ["\n".join(block.lines) for block in page if block.lines[0] == "server {"]
    return text[text.index("root /srv/www;\n") + len("root /srv/www;\n") : text.rindex("}")]


def is_shown(printed: list[str], output: list[str]) -> bool:
    """Whether the page shows this output: completely but for "..."; or nothing of it."""
    lines = ["(.*\n)*" if line == "..." else re.escape(line) + "\n" for line in output]
    return not output or re.fullmatch("".join(lines), "".join(f"{line}\n" for line in printed)) is not None


def commands_to_run(block: Block, prompt: str) -> list[Command]:
    if any(kind == "not run" for kind, _ in block.comments):
        return []
    return [command for command in block.commands if command.prompt == prompt]


@pytest.fixture(scope="module")
def page() -> list[Block]:
    return blocks(PAGE)


@pytest.fixture
def studio(build, temp_dir, page):
    made = Studio(build, temp_dir, page)
    yield made
    made.close()


def test_every_command_of_the_tool_has_a_prompt(page):
    """The other tests run what has one."""
    for block in page:
        for line in block.lines:
            assert "publish" not in line.split()[:1], f"{PAGE}:{block.number}: {line}"


@pytest.mark.parametrize(
    "command", ["settings", "game", "launcher", "promote", "verify", "preview", "inspect"]
)
def test_the_section_of_a_command_lists_its_options(build, command):
    """Those of its help, but for --help and --json, which all commands have."""
    done = subprocess.run(
        [WINE, build.publish_keep_dirs, command, "--help"], stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, timeout=600, check=True,
    )
    options = set(re.findall(r"^ +(?:-\w,)?(--[\w-]+)", done.stdout.decode().replace("\r", ""), re.M))
    section = re.search(rf"^## `publish {command}`.*?(?=^## )", PAGE.read_text("utf-8"), re.M | re.S)
    rows = re.findall(r"^\| (`--.*?) \|", section[0], re.M)
    listed = re.findall(r"`(--[\w-]+)`", " ".join(rows))
    assert sorted(listed) == sorted(options - {"--help", "--json"})


def test_the_examples_print_what_the_page_shows(page, studio):
    warned = set()
    for block in page:
        for kind, text in block.comments:
            if kind == "first":
                getattr(studio, "make_" + text)()
        for command in commands_to_run(block, "> "):
            code, printed, is_plain_http = studio.run(command.line)
            seen = "\n".join([f"{PAGE}:{block.number}: {command.line}", f"exit code {code}", *printed])
            assert code == any(line.startswith("error: ") for line in command.output), seen
            assert is_shown(printed, command.output), seen
            if is_plain_http:
                warned.add(command.line.split()[1])
    assert warned == {"settings", "verify"}


def test_the_examples_for_linux_work_without_a_display(page, build, temp_dir):
    """In one shell, in a new Wine prefix."""
    folder = temp_dir / "velmorant"
    make_build(folder / "build", {GAME: b"the game"})
    (folder / "build" / "dangling").symlink_to("nowhere")
    shutil.copy(build.publish_keep_dirs, folder)

    def to_here(text: str) -> str:
        windows = PAGE_UNIX_FOLDER.replace("/", "\\")
        return text.replace(PAGE_UNIX_FOLDER, str(folder)).replace(windows, str(folder).replace("/", "\\"))

    commands = [command for block in page for command in commands_to_run(block, "$ ")]
    script = "".join(
        f"{to_here(command.line)} >{number}.out 2>&1 || exit 1\n" for number, command in enumerate(commands)
    )
    environment = {"PATH": os.environ["PATH"], "HOME": str(temp_dir)}
    shell = ["/bin/sh", "-c", script]
    try:
        done = subprocess.run(shell, cwd=folder, env=environment, timeout=600, check=False)
        printed = [(folder / f"{number}.out").read_text().splitlines() for number in range(len(commands))]
    finally:
        environment["WINEPREFIX"] = str(folder / "wine")
        subprocess.run([WINE_SERVER, "-k"], env=environment, check=False, stderr=subprocess.DEVNULL)
        subprocess.run([WINE_SERVER, "-w"], env=environment, check=False)
    assert done.returncode == 0, printed
    for command, lines in zip(commands, printed, strict=True):
        assert is_shown(lines, [to_here(line) for line in command.output]), lines
    published = tree_of(folder / "www" / "updates" / "release")
    assert published.keys() == {"bin", GAME, GAME_MANIFEST, GAME_VERSION}
