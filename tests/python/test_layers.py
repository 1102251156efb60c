"""The layers of the C++ sources depend on each other in one direction only."""

import importlib
import importlib.machinery
import re
from collections import Counter
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SRC = ROOT / "src"
REPORT = "corvex/core/report"

# What the sources of each folder may include, as path prefixes below src/. The most specific
# folder counts.
ALLOWED = {
    "corvex/engine": ["corvex/engine/"],
    "corvex/pyglue": ["corvex/pyglue/"],
    "corvex/_engine": ["corvex/engine/", "corvex/pyglue/", "corvex/_engine/"],
    REPORT: ["corvex/engine/", "corvex/pyglue/", f"{REPORT}/"],
}
# The views of a report: folders of the module that must not know each other's internals.
VIEWS = ("stats", "payload", "present", "positions")

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
PYTHON_HEADER = re.compile(r"^(Python\.h|nanobind/|numpy/|pybind11/|datetime\.h|structmember\.h)")
# nanobind's typed wrappers take what an attribute or an element holds unchecked: a number in a
# variable of type nb::dict reads wild memory. pyglue's checked casts are there for that.
UNCHECKED = re.compile(
    r"\bnb::(?:dict|list|str|tuple|int_|float_|bytes|set)\s+\w+\s*[={]\s*"
    r"([^;{}]*?(?:\.attr\([^()]*\)|\]))\s*\}?\s*;"
)


def cpp_files(folder: Path) -> list[Path]:
    return [p for p in sorted(folder.rglob("*")) if p.suffix in {".cpp", ".hpp", ".h"}]


def forbidden_includes(name: str, text: str, sibling: frozenset[str] = frozenset()) -> list[str]:
    """Includes of the source `name` (its path below src) that its folder may not have."""
    layer = max((f for f in ALLOWED if name.startswith(f + "/")), key=len)
    found = []
    for bracket, header in INCLUDE.findall(text):
        if bracket == "<":
            bad = layer == "corvex/engine" and PYTHON_HEADER.match(header)
        else:
            target = str(Path(name).parent / header) if header in sibling else header
            bad = not target.startswith(tuple(ALLOWED[layer])) or crosses(name, target)
        if bad:
            found.append(f"{name} includes {header}")
    return found


def crosses(name: str, target: str) -> bool:
    """Whether a view of the report, or a header under them all, reaches into another view.

    Sources outside the views may: somewhere the class is put together from all of them.
    """
    reached = view_of(target)
    own = view_of(name)
    if reached is None or reached == own:
        return False
    return own is not None or not name.endswith(".cpp")


def view_of(name: str) -> str | None:
    return next((v for v in VIEWS if name.startswith(f"{REPORT}/{v}/")), None)


def unchecked_conversions(name: str, text: str) -> list[str]:
    code = re.sub(r"//[^\n]*", "", text)
    return [f"{name}: {match[0]}" for match in UNCHECKED.finditer(code)]


def test_includes_follow_the_layers():
    problems = []
    for path in cpp_files(SRC):
        beside = frozenset(p.name for p in path.parent.iterdir())
        name = path.relative_to(SRC).as_posix()
        problems += forbidden_includes(name, path.read_text(), beside)
    assert not problems, "\n".join(problems)


@pytest.mark.parametrize(
    ("name", "line", "allowed"),
    [
        ("corvex/engine/series/a.cpp", "#include <nanobind/nanobind.h>", False),
        ("corvex/engine/series/a.cpp", '#include "corvex/pyglue/cast.hpp"', False),
        ("corvex/pyglue/a.cpp", '#include "corvex/engine/core/dates.hpp"', False),
        (f"{REPORT}/stats/a.cpp", f'#include "{REPORT}/payload/wire.hpp"', False),
        (f"{REPORT}/stats/a.cpp", f'#include "{REPORT}/report/fields.hpp"', True),
        (f"{REPORT}/module.cpp", f'#include "{REPORT}/stats/table.hpp"', True),
        (f"{REPORT}/report/fields.hpp", f'#include "{REPORT}/stats/table.hpp"', False),
    ],
)
def test_include_check_tells_right_from_wrong(name, line, allowed):
    assert (not forbidden_includes(name, line)) == allowed


def test_no_unchecked_conversion_to_a_typed_wrapper():
    problems = []
    for path in cpp_files(SRC):
        problems += unchecked_conversions(path.relative_to(SRC).as_posix(), path.read_text())
    assert not problems, "\n".join(problems)


def test_conversion_check_tells_right_from_wrong():
    assert unchecked_conversions("a", "nb::list rows =\n    record[key];")
    assert unchecked_conversions("a", 'nb::str s{x.attr("name")};')
    assert not unchecked_conversions("a", 'nb::dict d = as_dict(x.attr("x")); // nb::dict e = f')


def test_sources_include_their_own_header_first():
    # This shows that the header compiles alone; the build compiles the others so.
    for path in cpp_files(SRC):
        own = path.with_suffix(".hpp")
        if path.suffix == ".cpp" and own.exists():
            first = INCLUDE.search(path.read_text())[2]
            assert own in (SRC / first, path.parent / first), f"{path} includes {first} first"


def test_source_folder_holds_no_python():
    # With src on Python's path, a package there would shadow the built modules.
    assert not list(SRC.rglob("*.py"))


def test_no_two_python_files_bear_one_name():
    faces = {"data/context.py", "data/tables.py"}  # old names of what lies in tables
    package = ROOT / "python/corvex"
    names = [p for p in package.rglob("*.py") if p.relative_to(package).as_posix() not in faces]
    # A command's file bears the command's name, which users chose before the files had theirs.
    named = [path for path in names if path.parent.name != "commands"]
    counts = Counter(path.name for path in named if path.name != "__init__.py")
    assert [name for name, count in counts.items() if count > 1] == []


@pytest.mark.parametrize("map_file", ["ARCHITECTURE.md", "CONTRIBUTING.md"])
def test_the_files_that_the_map_names_are_there(map_file):
    kinds = "py|pyi|cpp|hpp|toml|json|md|js|sh"
    named = re.findall(rf"`([\w./]+\.(?:{kinds}))`", (ROOT / map_file).read_text("utf-8"))
    folders = ("bench", "docs", "python", "src", "tests", "tools")
    files = [p for p in ROOT.iterdir() if p.is_file()]
    files += [path for folder in folders for path in (ROOT / folder).rglob("*.*")]
    paths = [f"/{path.relative_to(ROOT).as_posix()}" for path in files]
    missing = [name for name in named if not any(path.endswith(f"/{name}") for path in paths)]
    assert named
    assert not missing


def test_the_map_names_every_room():
    text = (ROOT / "ARCHITECTURE.md").read_text("utf-8")
    rooms = {path.parent.name for path in (ROOT / "python/corvex").glob("*/__init__.py")}
    assert [room for room in sorted(rooms) if f"`{room}/`" not in text] == []


@pytest.mark.parametrize("name", ["corvex._engine", "corvex.core.report"])
def test_built_modules_are_extensions(name):
    file = importlib.import_module(name).__file__
    assert file is not None
    assert file.endswith(tuple(importlib.machinery.EXTENSION_SUFFIXES))
