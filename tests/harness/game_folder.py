"""A game folder on disk, made afresh for one test."""

import hashlib
import os
import pathlib
import re
import shutil

from harness.constants import LOG

HIDDEN_ATTRIBUTE = 0x2
SYSTEM_ATTRIBUTE = 0x4


def windows_path(path: pathlib.Path | str) -> str:
    """The path as Wine's programs see it."""
    return "Z:" + str(path).replace("/", "\\")


def windows_attributes(path: pathlib.Path) -> int:
    """The file attributes that Wine keeps in an extended attribute of the host's file."""
    try:
        return int(os.getxattr(path, "user.DOSATTRIB").decode().rstrip("\0"), 16)
    except OSError:
        return 0


def set_windows_attributes(path: pathlib.Path, attributes: int) -> None:
    os.setxattr(path, "user.DOSATTRIB", f"{attributes:#x}".encode())


def parse_log(raw: bytes) -> list[str]:
    """The bodies of a log's entries, after checking every byte around them.

    An entry is "[", a time stamp in brackets, "]", a line break, the body and two line
    breaks. The file is written in text mode: each line break is two bytes on disk.
    """
    text = raw.decode("utf-8")
    assert not re.search(r"(?<!\r)\n", text), f"a bare line feed in {text!r}"
    text = text.replace("\r\n", "\n")
    stamp = r"\[\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d-\d{3}\]\]\n"
    pieces = re.split(f"({stamp})", text)
    assert pieces[0] == "", f"the log does not begin with a time stamp: {text!r}"
    bodies = pieces[2::2]
    for body in bodies:
        assert body.endswith("\n\n"), f"no blank line after {body!r}"
    return [body[:-2] for body in bodies]


class GameFolder:
    def __init__(self, root: pathlib.Path) -> None:
        self.root = root
        root.mkdir(parents=True)

    def path(self, name: str) -> pathlib.Path:
        return self.root / name

    def put(self, name: str, content: bytes) -> pathlib.Path:
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return path

    def put_copy(self, name: str, source: pathlib.Path) -> pathlib.Path:
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(source, path)
        return path

    def directory(self, name: str) -> None:
        self.path(name).mkdir(parents=True, exist_ok=True)

    def remove(self, name: str) -> None:
        path = self.path(name)
        if path.is_dir():
            shutil.rmtree(path)
        else:
            path.unlink()

    def read(self, name: str) -> bytes:
        return self.path(name).read_bytes()

    def has(self, name: str) -> bool:
        return self.path(name).exists()

    def log(self) -> list[str]:
        return parse_log(self.read(LOG)) if self.has(LOG) else []

    def tree(self) -> dict[str, bytes | str | None]:
        """Every entry below the folder: a directory's value is None, a file's its content, or for
        a large file its digest."""
        entries: dict[str, bytes | str | None] = {}
        for path in sorted(self.root.rglob("*")):
            name = path.relative_to(self.root).as_posix()
            if path.is_symlink():
                entries[name] = f"link {path.readlink()}"
            elif path.is_dir():
                entries[name] = None
            else:
                content = path.read_bytes()
                large = len(content) > 4096
                entries[name] = f"md5 {hashlib.md5(content).hexdigest()}" if large else content
        return entries
