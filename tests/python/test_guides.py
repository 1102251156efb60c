"""The guides and the docstrings hold what they say."""

import doctest
import importlib.util
import re
from pathlib import Path

import pytest

from corvex import ffn_core, schemas
from corvex.core import trade_columns
from corvex.core.metrics import Metrics
from corvex.explain import attribution
from corvex.ordering import ORDER_COLUMNS
from corvex.significance import lookahead, trials, uncertainty
from corvex.simulation import driver, given_curves

DOCS = Path(__file__).parents[2] / "docs"
MODULES = [
    attribution,
    given_curves,
    driver,
    ffn_core,
    lookahead,
    schemas,
    trade_columns,
    trials,
    uncertainty,
]


def guide(name):
    return (DOCS / f"{name}.md").read_text(encoding="utf-8")


@pytest.mark.parametrize(
    ("name", "least"),
    [
        ("confidence", 12),
        ("markets", 12),
        ("metrics", 16),
        ("simulate", 51),
        ("statistics", 21),
        ("transport", 16),
    ],
)
def test_examples_of_the_guides_run(name, least):
    failed, tried = doctest.testfile(
        str(DOCS / f"{name}.md"), module_relative=False, optionflags=doctest.ELLIPSIS
    )
    assert (failed, tried >= least) == (0, True)


@pytest.mark.parametrize("module", MODULES, ids=lambda module: module.__name__)
def test_examples_of_the_docstrings_run(module):
    failed, tried = doctest.testmod(module)
    assert (failed, tried > 0) == (0, True)


def test_tables_of_figures_are_those_of_the_catalogue():
    place = Path(__file__).parents[2] / "tools" / "figure_tables.py"
    spec = importlib.util.spec_from_file_location("figure_tables", place)
    tool = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(tool)
    tables = tool.tables()
    for path, text in tables.items():
        assert path.read_text(encoding="utf-8") == text, "make docs writes it"
    listed = set(re.findall(r"^\| `\w+` \| `(\w+)` \|", "".join(tables.values()), re.M))
    assert listed == {name for name in vars(Metrics) if name[0] != "_"}
    for method in ffn_core.PANDAS_METHODS:
        assert f"`{method.__name__}(" in guide("statistics")


def test_columns_are_the_ones_of_the_program():
    rows = [line.strip("| ").split(" | ") for line in guide("transport").splitlines()]
    table = {row[0].strip("`"): row[1:] for row in rows if len(row) in (2, 4)}
    for column, (wire, meaning, unit) in trade_columns.WIRE_COLUMNS.items():
        assert table[column] == [f"`{wire}`", unit, meaning]
    for name, meaning in ORDER_COLUMNS.items():
        assert table[name] == [meaning]
