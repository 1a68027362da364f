"""Builds to publish, and what a published tree has to look like, made apart from the tool."""

import os
import pathlib

from harness import formats
from harness.constants import GAME_MANIFEST, GAME_VERSION


def make_build(folder: pathlib.Path, files: dict[str, bytes], directories: list[str] | None = None) -> pathlib.Path:
    """A build folder with these files, and with directories that need not hold any."""
    folder.mkdir(parents=True)
    for name in directories or []:
        (folder / name).mkdir(parents=True, exist_ok=True)
    for name, content in files.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return folder


def tree_of(folder: pathlib.Path) -> dict[str, bytes | None]:
    """Every entry below the folder with its whole content; None for a directory."""
    entries: dict[str, bytes | None] = {}
    for parent, directories, files in os.walk(folder):
        for name in directories:
            entries[os.path.relpath(os.path.join(parent, name), folder)] = None
        for name in files:
            path = os.path.join(parent, name)
            entries[os.path.relpath(path, folder)] = pathlib.Path(path).read_bytes()
    return entries


def parents(name: str) -> list[str]:
    parts = name.split("/")[:-1]
    return ["/".join(parts[: end + 1]) for end in range(len(parts))]


def expected_channel(
    files: dict[str, bytes], version: str, directories: list[str] | None = None
) -> dict[str, bytes | None]:
    """The channel's folder after this build was published: what the Launcher's formats ask for."""
    listed = set(directories or [])
    for name in files:
        listed.update(parents(name))
    for name in directories or []:
        listed.update(parents(name))
    lines = [formats.file_line(name, files[name]) for name in sorted(files)]
    words = [int(word) for word in reversed(version.split("."))]
    return {
        **{name: None for name in listed},
        **files,
        GAME_MANIFEST: formats.game_manifest(sorted(listed), lines),
        GAME_VERSION: formats.game_version(*words),
    }
