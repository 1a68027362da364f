"""The file formats that the Launcher reads, written independently of the Launcher's own sources."""

import hashlib
import struct

MAGIC = 0x6126FCA1

STRING = 0x2F4C20B8
WIDE_STRING = 0x2F467C32


class Archive:
    """A .vpak archive under construction, plain or checked."""

    def __init__(self, checked: bool = False, magic: int = MAGIC, version: int = 1) -> None:
        self.checked = checked
        self.data = struct.pack("<IIB", magic, version, 1 if checked else 0)

    def _tag(self, identifier: int) -> None:
        if self.checked:
            self.data += struct.pack("<I", identifier)

    def u32(self, value: int) -> "Archive":
        if self.checked:
            self.data += struct.pack("<I", 4)
        self.data += struct.pack("<I", value)
        return self

    def block16(self, block: bytes) -> "Archive":
        assert len(block) == 16
        if self.checked:
            self.data += struct.pack("<I", 16)
        self.data += block
        return self

    def string(self, text: str) -> "Archive":
        self._tag(STRING)
        self.u32(len(text.encode()))
        self.data += text.encode()
        return self

    def wide_string(self, text: str) -> "Archive":
        encoded = text.encode("utf-16-le")
        self._tag(WIDE_STRING)
        self.u32(len(encoded) // 2)
        self.data += encoded
        return self


def updater_data(
    url: str, channel: str = "release", *, header: str = "UpdaterData", version: int = 1, checked: bool = False
) -> bytes:
    archive = Archive(checked).string(header).u32(version).wide_string(url).wide_string(channel)
    return archive.data


def game_version(
    *words: int, header: str = "GameVersion", version: int = 1, checked: bool = False
) -> bytes:
    """The version file for the words W1 to W4; W4 weighs most."""
    return Archive(checked).string(header).u32(version).block16(struct.pack("<4i", *words)).data


def updater_manifest(version: int | str, file_version: int | str = 1) -> bytes:
    return f"Velmorant Updater\nFileVersion: {file_version}\nVersion: {version}".encode()


def md5(content: bytes) -> str:
    return hashlib.md5(content).hexdigest()


def file_line(name: str, content: bytes, digest: str | None = None) -> str:
    return f"'{name}' {len(content)} {digest or md5(content)}"


def game_manifest(directories: list[str], lines: list[str], encoding: str = "utf-8") -> bytes:
    head = ["GameUpdate", "FileVersion: 1", f"Directories: {len(directories)}"]
    return "\n".join([*head, *directories, "Files:", *lines, ""]).encode(encoding)
