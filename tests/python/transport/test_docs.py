"""The guide to what leaves the process holds what it says."""

from __future__ import annotations

import doctest
from pathlib import Path

from corvex import schemas
from corvex.core import trade_columns
from corvex.ordering import ORDER_COLUMNS

GUIDE = Path(__file__).parents[3] / "docs" / "transport.md"


def test_examples_run():
    failed, tried = doctest.testfile(
        str(GUIDE), module_relative=False, optionflags=doctest.ELLIPSIS
    )
    assert (failed, tried > 15) == (0, True)
    assert doctest.testmod(trade_columns).failed + doctest.testmod(schemas).failed == 0


def test_columns_are_the_ones_of_the_program():
    rows = [line.strip("| ").split(" | ") for line in GUIDE.read_text().splitlines()]
    table = {row[0].strip("`"): row[1:] for row in rows if len(row) in (2, 4)}
    for column, (wire, meaning, unit) in trade_columns.WIRE_COLUMNS.items():
        assert table[column] == [f"`{wire}`", unit, meaning]
    assert {name: table[name] for name in ORDER_COLUMNS} == {
        name: [meaning] for name, meaning in ORDER_COLUMNS.items()
    }
