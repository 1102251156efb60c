"""The guides and the docstrings hold what they say."""

import doctest
import inspect
import re
from pathlib import Path

import pandas as pd
import pytest

from corvex import attribution, curves, ffn_core, schemas
from corvex.core import trade_columns
from corvex.core.metrics import Metrics
from corvex.ordering import ORDER_COLUMNS
from corvex.significance import lookahead, trials, uncertainty
from corvex.simulation import driver

DOCS = Path(__file__).parents[2] / "docs"
MODULES = [
    attribution,
    curves,
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


def first_block(name):
    """The names that the guide's first block of examples makes."""
    names = {}
    for example in doctest.DocTestParser().get_examples(guide(name).split("```")[1]):
        if not example.want:
            exec(example.source, names)
    return names


def shown(value):
    if isinstance(value, pd.Timestamp):
        return f"{value:%Y-%m-%d}"
    return f"{value:.6g}" if isinstance(value, float) else str(value)


def test_statistics_are_all_defined_with_their_examples():
    rows = re.findall(r"^\| `(\w+)` \| [^|]+ \| [^|]+ \| ([^|]+) \|$", guide("statistics"), re.M)
    stats = first_block("statistics")["stats"].stats
    assert dict(rows) == {name: shown(value) for name, value in stats.items()}
    for method in ffn_core.PANDAS_METHODS:
        assert f"`{method.__name__}(" in guide("statistics")


def test_metrics_are_all_defined_with_their_examples():
    rows = re.findall(r"^\| `(\w+)` \| `(\w+)` \|.*\| ([^|]+) \|$", guide("metrics"), re.M)
    figures = [part.items() for part in first_block("metrics")["figures"].values()]
    assert {key: example for key, _, example in rows} == {
        key: shown(value) for part in figures for key, value in part
    }
    methods = [name for name, _ in inspect.getmembers(Metrics, inspect.isfunction)]
    assert {name for _, name, _ in rows} == {name for name in methods if name[0] != "_"}


def test_columns_are_the_ones_of_the_program():
    rows = [line.strip("| ").split(" | ") for line in guide("transport").splitlines()]
    table = {row[0].strip("`"): row[1:] for row in rows if len(row) in (2, 4)}
    for column, (wire, meaning, unit) in trade_columns.WIRE_COLUMNS.items():
        assert table[column] == [f"`{wire}`", unit, meaning]
    for name, meaning in ORDER_COLUMNS.items():
        assert table[name] == [meaning]
