#!/usr/bin/python3
"""Checks that every source includes only headers of the layers that its CMakeLists.txt declares.

usage: check_includes.py [ROOT]

ve_layer(NAME ... DEPS layers...) declares the layers of the folder NAME itself, ve_unit_tests(NAME ...)
those of its sub-folder NAME. Each may also include its own headers, and tests the common ones in support/.
Prints every other include of a layer's header, and every include of a layer's header by another path
than "layer/header.h", and exits with 1 if there is one.
"""

import pathlib
import re
import sys

DECLARATION = re.compile(r"^\s*(ve_layer|ve_unit_tests)\(\s*(\w+)([^)]*)\)", re.M)
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)


def declared(root: pathlib.Path) -> tuple[dict[str, pathlib.Path], dict[pathlib.Path, set[str]]]:
    """The layers' folders by name, and the layers that the sources of a folder may include."""
    layers: dict[str, pathlib.Path] = {}
    allowed: dict[pathlib.Path, set[str]] = {}
    for path in sorted(root.glob("**/CMakeLists.txt")):
        if path.is_relative_to(root / "build"):
            continue
        for kind, name, arguments in DECLARATION.findall(re.sub(r"#.*", "", path.read_text())):
            words = arguments.split()
            depends = set()
            if "DEPS" in words:
                after = words[words.index("DEPS") + 1 :]
                end = next((i for i, word in enumerate(after) if word.isupper()), len(after))
                depends = set(after[:end])
            if kind == "ve_layer":
                layers[name] = path.parent
                allowed[path.parent] = depends | {name}
            else:
                allowed[path.parent / name] = depends
    return layers, allowed


def main() -> int:
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else __file__ + "/../../..").resolve()
    layers, allowed = declared(root)
    if not layers:
        sys.exit(f"{root}: no ve_layer() in any CMakeLists.txt")
    problems = []
    for folder, depends in sorted(allowed.items()):
        for unknown in sorted(depends - layers.keys()):
            problems.append(f"{folder.relative_to(root)}/CMakeLists.txt: no layer is named {unknown}")
        for source in sorted([*folder.glob("*.cpp"), *folder.glob("*.h")]):
            text = source.read_text()
            for match in INCLUDE.finditer(text):
                quote, header = match.groups()
                target = (source.parent / header).resolve()
                if quote == "<" or not target.is_file():
                    target = (root / header).resolve()
                owner = next((name for name, path in layers.items() if path in target.parents), None)
                if owner is None or not target.is_file():
                    continue
                where = f"{source.relative_to(root)}:{text.count(chr(10), 0, match.start(1)) + 1}"
                if owner not in depends:
                    problems.append(f"{where}: {header}: {folder.name}/ does not declare {owner} in DEPS")
                elif header != str(target.relative_to(root)):
                    problems.append(f'{where}: {header}: write "{target.relative_to(root)}"')
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
