"""docs/architecture.md and CONTRIBUTING.md: the layers, files, functions, tests and examples that they name exist."""

import pathlib
import re

import pytest

from harness.constants import PROJECT

ARCHITECTURE = (PROJECT / "docs" / "architecture.md").read_text("utf-8")
CONTRIBUTING = (PROJECT / "CONTRIBUTING.md").read_text("utf-8")

FOLDERS = ("core", "archive", "net", "ui", "updater", "launcher", "publisher", "tests", "bench", "cmake", "scripts")
FILES = [path for folder in FOLDERS for path in (PROJECT / folder).rglob("*") if path.is_file()]
LAYERS = {path.parent.name: path for path in FILES if path.name == "CMakeLists.txt" and "ve_layer(" in path.read_text()}
CODE = "".join(path.read_text("utf-8") for path in FILES if path.suffix in (".cpp", ".h", ".txt", ".cmake"))


def code_spans(page: str) -> list[str]:
    text = re.sub(r"^```.*?^```$", "", page, flags=re.M | re.S)
    return [span.replace("\n", " ") for span in re.findall(r"`([^`]+)`", text)]


def named_files(page: str) -> set[str]:
    """With an extension of a source, or a folder with its last slash."""
    found = {name for span in code_spans(page) for name in re.findall(r"[\w/.]+\.(?:cpp|h|py|cmake)\b", span)}
    return found | {span for span in code_spans(page) if re.fullmatch(rf"(?:{'|'.join(FOLDERS)})(?:/\w+)*/", span)}


def exists(name: str) -> bool:
    return (PROJECT / name).exists() or any(str(path).endswith("/" + name) for path in FILES)


def test_the_table_of_layers_has_what_each_layer_declares():
    rows = re.findall(r"^\| `([a-z/]+)/` \| ([a-z, ]+) \|", ARCHITECTURE, re.M)
    written = {pathlib.PurePath(folder).name: set(depends.split(", ")) - {"none"} for folder, depends in rows}
    declared = {}
    for name, path in LAYERS.items():
        depends = re.search(r"ve_layer\([^)]*\bDEPS ([a-z ]+)", path.read_text())
        declared[name] = set(depends[1].split()) if depends else set()
    assert written == declared


def test_the_drawing_has_each_layer_above_those_that_it_includes():
    drawing = re.search(r"^( {4}Launcher\.exe.*?)\n\n", ARCHITECTURE, re.M | re.S)[1].split("\n")
    row = {name: [i for i, line in enumerate(drawing) if re.search(rf"\b{name}\b", line)] for name in LAYERS}
    for name, path in LAYERS.items():
        assert len(row[name]) == 1, name
        for other in LAYERS:
            if re.search(rf"DEPS [a-z ]*\b{other}\b", path.read_text()):
                assert row[name] < row[other], (name, other)


@pytest.mark.parametrize(
    "name", sorted(name for name in named_files(ARCHITECTURE) | named_files(CONTRIBUTING) if "NAME" not in name)
)
def test_every_file_that_is_named_exists(name):
    assert exists(name)


@pytest.mark.parametrize(
    "name", sorted({span for span in code_spans(ARCHITECTURE) if re.fullmatch(r"k?[A-Z]\w*[a-z]\w*(::\w+)?", span)})
)
def test_every_function_and_type_that_is_named_exists(name):
    for part in name.split("::"):
        assert re.search(rf"\b{part}\b", CODE), part


def commands(page: str) -> set[tuple[str, str]]:
    found = re.findall(r"scripts/test (unit|e2e) -p release -k (\"[^\"]+\"|'[^']+'|\w+)", page)
    return {(kind, pattern.strip("\"'")) for kind, pattern in found}


@pytest.mark.parametrize(("kind", "pattern"), sorted(commands(ARCHITECTURE) | commands(CONTRIBUTING)))
def test_every_command_runs_some_tests(kind, pattern):
    if kind == "unit":
        names = [
            f"{path.parent.name}.{suite}.{test}"
            for path in FILES if path.name.endswith("_test.cpp")
            for suite, test in re.findall(r"^TEST(?:_[FP])?\((\w+), (\w+)\)", path.read_text("utf-8"), re.M)
        ]
        assert any(re.search(pattern, name) for name in names)
        return
    names = [
        name
        for path in FILES if path.suffix == ".py"
        for name in (path.stem, *re.findall(r"^def (test_\w+)", path.read_text("utf-8"), re.M))
    ]
    for word in pattern.split(" or "):
        assert any(word in name for name in names), word


def test_the_examples_of_good_code_are_in_the_code():
    examples = re.findall(r"`([\w/.]+)`:\n\n```cpp\n(.*?)```", CONTRIBUTING, re.S)
    assert len(examples) == CONTRIBUTING.count("```cpp") > 0
    for file, example in examples:
        assert example in (PROJECT / file).read_text("utf-8"), file
