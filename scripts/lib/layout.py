#!/usr/bin/env python3
"""Checks how the code is laid out: an include points only down the table of layers in docs/architecture.md, rooms
include each other in no circle, files and functions stay within their lengths, the document's map is true, and so are the
names of tests in the documents.
    scripts/lib/layout.py --picture    also prints which room includes which"""

import pathlib
import re
import sys

FUNCTION_LINES, SOURCE_LINES, HEADER_LINES = 60, 550, 220  # about 500 and 200: a tenth more passes
CORE = pathlib.Path("Sources/TidewrackCore")
FRONT = pathlib.Path("Sources/tidewrack")
faults = []


def table(heading):
    """The rows below a heading of docs/architecture.md, each as the text of its columns."""
    text = pathlib.Path("docs/architecture.md").read_text(encoding="utf-8")
    rows = re.findall(r"^\| (.*) \|$", text.split(f"\n## {heading}\n")[1].split("\n## ")[0], re.M)
    return [row.split(" | ") for row in rows[1:]]


def layers():
    """The rooms, each with the number of its row: folders, and units such as `Store/Store`."""
    return {room: row for row, columns in enumerate(table("Layers")) for room in re.findall(r"`(\S+?)`", columns[0])}


def check_map():
    """Every file that the map names is there: a path in the checkout, or a unit below Sources. Every unit is named, or
    its folder is."""
    named = {name for _, names in table("To change something") for name in re.findall(r"`(\S+?)/?`", names)}
    for name in named:
        if not pathlib.Path(name).exists() and not any([*CORE.glob(name + "*"), *FRONT.glob(name + "*")]):
            faults.append(f"docs/architecture.md: there is no {name}")
    units = {unit_of(path).removeprefix(FRONT.name + "/") for path in FRONT.parent.rglob("*.?pp")} - {"main"}
    for unit in sorted(unit for unit in units if named.isdisjoint([unit, *map(str, pathlib.Path(unit).parents)])):
        faults.append(f"docs/architecture.md: the map lacks {unit}")


def unit_of(path):
    """`Store/Manifest` for its header and its source, `Platform/Flush` for those of every system too."""
    stem = re.sub(r"(Linux|Macos|Shared)$", "", path.stem)
    base = CORE if path.is_relative_to(CORE) else FRONT.parent
    return str(path.relative_to(base).parent / stem)


def room_of(unit, rows):
    """The unit itself where the table names it, else the folder that it names."""
    while unit and unit not in rows:
        unit = unit.rpartition("/")[0]
    return unit


def included(path):
    for line in path.read_text(encoding="utf-8").splitlines():
        found = re.match(r'#include "(.+)"', line)
        if found:
            target = next((base / found[1] for base in (CORE, FRONT) if (base / found[1]).exists()), None)
            if target is None:
                faults.append(f"{path}: {found[1]} is nowhere")
            else:
                yield target


def check_circles(rooms):
    """Depth first; a room that is still open when it is reached again closes a circle."""
    done, still_open = set(), []

    def visit(room):
        if room in still_open:
            faults.append("rooms in a circle: " + " > ".join(still_open[still_open.index(room):] + [room]))
        elif room not in done:
            still_open.append(room)
            for target in sorted(rooms.get(room, ())):
                visit(target)
            done.add(still_open.pop())

    for room in sorted(rooms):
        visit(room)


def check_includes(paths):
    rows, rooms = layers(), {}
    for path in paths:
        room = room_of(unit_of(path), rows)
        if not room:
            faults.append(f"{path}: no layer of docs/architecture.md holds it")
            continue
        for target in included(path):
            to_unit = unit_of(target)
            to_room = room_of(to_unit, rows)
            if to_room != room:
                rooms.setdefault(room, set()).add(to_room)
                if to_room and rows[to_room] < rows[room]:
                    faults.append(f"{path}: includes {to_unit}, which is in a layer above")
    check_circles(rooms)
    if "--picture" in sys.argv:
        for room in sorted(rooms, key=rows.get):
            print(f"{room} > {', '.join(sorted(rooms[room], key=rows.get))}")


def check_file_length(path, lines):
    limit = HEADER_LINES if path.suffix == ".hpp" else SOURCE_LINES
    if len(lines) > limit:
        faults.append(f"{path}: {len(lines)} lines, more than {limit}")


def check_function_lengths(path, lines):
    """Functions as clang-format leaves them: the closing brace stands below the line that begins them."""
    begun = {}
    for number, line in enumerate(lines):
        indent = len(line) - len(line.lstrip())
        if line.lstrip().startswith("}") and indent in begun:
            length = number - begun.pop(indent) - 1
            if length > FUNCTION_LINES:
                faults.append(f"{path}:{number - length}: a function of {length} lines, more than {FUNCTION_LINES}")
        if re.search(r"\)( const| noexcept| override)*( -> .+)? {$", line):
            first, still_open = number, line.count(")") - line.count("(")
            while still_open > 0 and first > 0:
                first -= 1
                still_open += lines[first].count(")") - lines[first].count("(")
            begun[len(lines[first]) - len(lines[first].lstrip())] = number


def check_named_tests():
    """A document that names a test as what shows a promise names one that there is."""
    tests = {".".join(found) for path in pathlib.Path("Tests").rglob("*.cpp")
             for found in re.findall(r"^TEST\w*\((\w+), (\w+)\)", path.read_text(encoding="utf-8"), re.M)}
    suites = {test.split(".")[0] for test in tests}
    for document in sorted(pathlib.Path("docs").glob("*.md")):
        for name in re.findall(r"`([A-Z]\w+\.[a-z]\w+)`", document.read_text(encoding="utf-8")):
            if name.split(".")[0] in suites and name not in tests:
                faults.append(f"{document}: there is no test {name}")
    check_promises(pathlib.Path("docs/threats.md"), tests)


def check_promises(document, tests):
    """Each row of its tables names, in the last column, tests or scripts that there are."""
    rows = [line.split("|")[1:-1] for line in document.read_text(encoding="utf-8").splitlines()
            if line.startswith("| ") and not line.endswith(" shown by |")]
    if not rows:
        faults.append(f"{document}: it promises nothing")
    for *promise, shown in rows:
        names = re.findall(r"`(\S+?)`", shown)
        if not names:
            faults.append(f"{document}: nothing shows \"{promise[0].strip()}\"")
        for name in names:
            if name not in tests and not pathlib.Path(name).is_file():
                faults.append(f"{document}: there is neither a test nor a file {name}")


sources = [p for base in ("Sources", "Tests", "Benchmarks") for p in sorted(pathlib.Path(base).rglob("*.[ch]pp"))]
check_map()
check_named_tests()
check_includes([path for path in sources if path.parts[0] == "Sources"])
for source in sources:
    text = source.read_text(encoding="utf-8").splitlines()
    check_file_length(source, text)
    if source.parts[0] != "Tests":  # whose longest functions are tables
        check_function_lengths(source, text)
print("\n".join(faults), end="\n" if faults else "")
sys.exit(1 if faults else 0)
