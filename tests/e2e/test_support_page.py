"""docs/support.md: it has every dialog and every log text of the Launcher, and no other.

In the sources "{}" stands for a value, in the page "<...>" or an example.
"""

import pathlib
import re

import pytest

from harness import dialogs
from harness.constants import PROJECT
from harness.dialogs import Dialog

PAGE = (PROJECT / "docs" / "support.md").read_text("utf-8")

# Of the Launcher; the tool's own messages are not a player's.
LAYERS = ("core", "archive", "net", "ui", "updater", "launcher")
SOURCES = sorted(path for layer in LAYERS for path in (PROJECT / layer).iterdir() if path.suffix in (".cpp", ".h"))

LITERAL = r'"((?:[^"\\\n]|\\.)*)"'
ADJACENT_LITERALS = re.compile(rf"L?{LITERAL}(?:\s+L?{LITERAL})*")
PLACEHOLDER = re.compile(r"\{\d*\}")


def code_of(path: pathlib.Path) -> str:
    return re.sub(r"^\s*(//.*|#include.*)$", "", path.read_text("utf-8"), flags=re.M)


def messages() -> list[str]:
    """The literals that are sentences, without their line breaks; those of several lines joined."""
    found = set()
    for path in SOURCES:
        for match in ADJACENT_LITERALS.finditer(code_of(path)):
            text = "".join(re.findall(LITERAL, match[0])).replace("\\n", "").replace("\\\\", "\\")
            if re.search(r"[A-Za-z]{2}", text) and " " in text.strip():
                found.add(text)
    return sorted(found)


def operations() -> set[str]:
    """Of filesystem errors, whose text is composed by the standard library."""
    code = "".join(map(code_of, SOURCES))
    return set(re.findall(r'(?:ThrowFilesystemError\(|ReportCreation\([^"]*?)"(\w+(?:::\w+)?)"', code))


def pattern_of(message: str) -> str:
    return ".*?".join(map(re.escape, PLACEHOLDER.split(message)))


def flat(text: str) -> str:
    return re.sub(r"\s*\n(> )?", " ", text)


def cells() -> list[str]:
    """The texts that tables of the page have in their first column."""
    return re.findall(r"^\| `([^`]+)`(?: with the reason directly behind it)? \|", PAGE, re.M)


@pytest.mark.parametrize("message", messages())
def test_every_message_is_in_the_page(message):
    assert re.search(pattern_of(message), flat(PAGE)), message


@pytest.mark.parametrize("operation", sorted(operations()))
def test_every_filesystem_error_is_in_the_page(operation):
    assert f"`filesystem error: {operation}: <" in PAGE


@pytest.mark.parametrize("dialog", [dialog for dialog in vars(dialogs).values() if isinstance(dialog, Dialog)])
def test_every_dialog_is_in_the_page(dialog):
    row = f"| {dialog.caption} | {dialog.text} | {', '.join(dialog.buttons)} |"
    assert row in PAGE


def test_the_page_has_no_text_that_the_launcher_does_not_have():
    known = [pattern_of(message) for message in messages()]
    known += [rf"filesystem error: {operation}: <.+> \[.+\]" for operation in operations()]
    known += ["std::bad_alloc", r"Updater\\\w+\.vpak"]
    # Of the C runtime.
    known += [r"[A-Z][a-z ]+ \(\d+\)"]
    unknown = [cell for cell in cells() if not any(re.fullmatch(pattern, cell) for pattern in known)]
    assert unknown == []
    assert len(cells()) > 60
