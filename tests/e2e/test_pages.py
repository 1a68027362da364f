"""The pages: their links lead somewhere, and the tests that docs/behaviour.md names exist.

Needs neither Wine nor a build: python3 -m pytest --noconftest tests/e2e/test_pages.py
"""

import pathlib
import re

import pytest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted([*PROJECT.glob("*.md"), *PROJECT.glob("docs/**/*.md")])
BEHAVIOUR = PROJECT / "docs" / "behaviour.md"

UNIT_TEST = re.compile(r"^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.M)
LINK = re.compile(r"\]\(\s*([^)\s]+)[^)]*\)|^\[[^\]]+\]:\s*(\S+)|\b(?:src|href)=\"([^\"]+)\"", re.M)


@pytest.fixture(scope="session", autouse=True)
def desktop():
    """In place of the other tests' one: nothing is started here."""


def text_of(page: pathlib.Path) -> str:
    """The page without its fenced blocks and comments."""
    return re.sub(r"^```.*?^```$|<!--.*?-->", "", page.read_text("utf-8"), flags=re.M | re.S)


def slugs(page: pathlib.Path) -> set[str]:
    """The fragments of the page's headings, as GitHub makes them."""
    found: list[str] = []
    for heading in re.findall(r"^#+ +(.+?)[ #]*$", text_of(page), re.M):
        words = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).lower()
        found.append(re.sub(r"[^\w\- ]", "", words).replace(" ", "-"))
    return {f"{slug}-{n}" if n else slug for i, slug in enumerate(found) for n in [found[:i].count(slug)]}


@pytest.mark.parametrize("page", PAGES, ids=lambda page: str(page.relative_to(PROJECT)))
def test_every_link_leads_to_a_file_and_a_heading(page):
    broken = []
    for link in (next(filter(None, groups)) for groups in LINK.findall(text_of(page))):
        if re.match(r"[a-z]+:", link):
            continue
        name, _, fragment = link.partition("#")
        target = (page.parent / name).resolve() if name else page
        if not target.exists() or (fragment and fragment not in slugs(target)):
            broken.append(link)
    assert broken == []


def test_every_test_that_the_page_on_behaviour_names_exists():
    text = BEHAVIOUR.read_text("utf-8")
    unit = set(re.findall(r"`([A-Z]\w*\.[A-Z]\w*)`", text))
    end_to_end = set(re.findall(r"\b(test_\w+\.py::\w+)", text))
    assert unit and end_to_end
    known = set()
    for source in PROJECT.glob("tests/unit/**/*.cpp"):
        known |= {".".join(names) for names in UNIT_TEST.findall(source.read_text("utf-8"))}
    for source in PROJECT.glob("tests/e2e/test_*.py"):
        names = re.findall(r"^def (test_\w+)\(", source.read_text("utf-8"), re.M)
        known |= {f"{source.name}::{name}" for name in names}
    assert sorted((unit | end_to_end) - known) == []
