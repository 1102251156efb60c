"""The guides and the docstrings hold what they say."""

import doctest
import importlib
import importlib.util
import re
from pathlib import Path

import pytest

import corvex
from corvex import ffn_core
from corvex.core import trade_columns
from corvex.core.metrics import Metrics
from corvex.ordering import ORDER_COLUMNS
from corvex.testing.trial import trial_cloud

DOCS = Path(__file__).parents[2] / "docs"
PACKAGE = Path(corvex.__file__).parent


def guide(name):
    return (DOCS / f"{name}.md").read_text(encoding="utf-8")


def files_with_examples(folder, pattern):
    texts = {path: path.read_text(encoding="utf-8") for path in sorted(folder.rglob(pattern))}
    found = [path.relative_to(folder) for path in texts if ">>> " in texts[path]]
    return pytest.mark.parametrize("path", found, ids=str)


@files_with_examples(DOCS, "*.md")
def test_examples_of_the_guides_run(path):
    failed, tried = doctest.testfile(
        str(DOCS / path), module_relative=False, optionflags=doctest.ELLIPSIS
    )
    assert (failed, tried > 0) == (0, True)


def plain_blocks(path):
    blocks = re.findall(r"^```python\n(.*?)^```", path.read_text(encoding="utf-8"), re.M | re.S)
    return [block for block in blocks if ">>> " not in block]


# Those of sweep.md start clusters.
@pytest.mark.parametrize(
    "path",
    [p for p in sorted(DOCS.glob("*.md")) if plain_blocks(p) and p.stem != "sweep"],
    ids=lambda path: path.stem,
)
def test_programs_of_the_guides_run(path, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    prices = corvex.data.sample("us_stocks").loc["2020":]
    weights = prices.notna()
    names = {"corvex": corvex, "prices": prices, "weights": weights, "curve": prices["AAPL"]}
    names["report"] = corvex.simulate(weights, prices, resample="ME")
    with trial_cloud():
        for block in plain_blocks(path):
            exec(compile(block, str(path), "exec"), names)


@files_with_examples(PACKAGE, "*.py")
def test_examples_of_the_docstrings_run(path):
    name = ".".join(("corvex", *path.with_suffix("").parts)).removesuffix(".__init__")
    failed, tried = doctest.testmod(importlib.import_module(name))
    assert (failed, tried > 0) == (0, True)


def test_tables_of_figures_are_those_of_the_catalogue():
    place = Path(__file__).parents[2] / "tools" / "figure_tables.py"
    spec = importlib.util.spec_from_file_location("figure_tables", place)
    tool = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(tool)
    tables = tool.tables()
    for path, text in tables.items():
        assert path.read_text(encoding="utf-8") == text, "make docs-tables writes it"
    listed = set(re.findall(r"^\| `\w+` \| `(\w+)` \|", "".join(tables.values()), re.M))
    assert listed == {name for name in vars(Metrics) if name[0] != "_"}
    for method in ffn_core.PANDAS_METHODS:
        assert f"`{method.__name__}(" in guide("statistics")


def test_links_of_the_guides_lead_somewhere():
    for page in DOCS.rglob("*.md"):
        targets = re.findall(r"\]\((?!http|#)([^)#\s]+)", page.read_text(encoding="utf-8"))
        missing = [target for target in targets if not (page.parent / target).exists()]
        assert not missing, page


def test_reference_has_every_public_name():
    pages = {p.stem: p.read_text(encoding="utf-8") for p in DOCS.glob("reference/*.md")}
    listed = set(re.findall(r"^   (\w+)$", pages["corvex"], re.M))
    modules = {"data", "ffn_core", "__version__"}
    assert listed | modules | {"Report", "ReportExecution"} == set(corvex.__all__), (
        "docs/reference/corvex.md lists what corvex gives"
    )
    for page, kind in (("report", corvex.Report), ("execution", corvex.ReportExecution)):
        shown = re.findall(rf"^\.\. auto\w+:: {kind.__name__}\.(\w+)$", pages[page], re.M)
        public = {name for name in dir(kind) if name[0] != "_" and name != "SCHEMA_VERSION"}
        assert sorted(shown) == sorted(public)


def test_cpp_snippets_stand_in_the_programs_that_are_built():
    programs = [p.read_text(encoding="utf-8") for p in DOCS.parent.glob("examples/cpp/*.cpp")]
    snippets = re.findall(r"```cpp\n(.*?)```", guide("cpp"), re.S)
    assert snippets
    assert all(any(snippet in program for program in programs) for snippet in snippets)


def test_columns_are_the_ones_of_the_program():
    rows = [line.strip("| ").split(" | ") for line in guide("transport").splitlines()]
    table = {row[0].strip("`"): row[1:] for row in rows if len(row) in (2, 4)}
    for column, (wire, meaning, unit) in trade_columns.WIRE_COLUMNS.items():
        assert table[column] == [f"`{wire}`", unit, meaning]
    for name, meaning in ORDER_COLUMNS.items():
        assert table[name] == [meaning]
