"""The examples in a page of docs/: its indented blocks with what is typed after a prompt.

"> " is the prompt of Windows, "$ " that of a Unix shell. The lines below a command are its output, in
which "..." stands for any lines. A comment <!-- KIND: TEXT --> before a block is about that block.
"""

import dataclasses
import pathlib
import re
import textwrap

PROMPTS = ("> ", "$ ")


@dataclasses.dataclass
class Command:
    prompt: str
    line: str
    output: list[str] = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Block:
    number: int  # of its first line
    heading: str
    comments: list[tuple[str, str]]
    lines: list[str]

    @property
    def commands(self) -> list[Command]:
        commands: list[Command] = []
        for line in self.lines:
            if line.startswith(PROMPTS):
                commands.append(Command(line[:2], line[2:]))
            elif commands:
                commands[-1].output.append(line)
        return commands


def blocks(page: pathlib.Path) -> list[Block]:
    """The page's indented blocks, without their indentation."""
    found: list[Block] = []
    heading = ""
    comments: list[tuple[str, str]] = []
    block: Block | None = None
    for number, line in enumerate(page.read_text("utf-8").splitlines(), 1):
        if line.startswith("    ") or (not line and block):
            if block is None:
                block = Block(number, heading, comments, [])
                found.append(block)
                comments = []
            block.lines.append(line)
            continue
        block = None
        if comment := re.fullmatch(r" *<!-- (.+?): (.+) -->", line):
            comments.append((comment[1], comment[2]))
        elif line:
            comments = []
        if line.startswith("#"):
            heading = line.lstrip("# ")
    for block in found:
        text = textwrap.dedent("\n".join(block.lines)).rstrip("\n")
        block.lines = text.split("\n")
    return found
