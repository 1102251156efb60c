"""Tables that stand for a Series: one value by date, or by the label of an asset."""

from __future__ import annotations

from typing import Any

import pandas as pd

from corvex.tables.column_names import ASSET_NAMES
from corvex.tables.frames import arrow_columns, as_table, is_arrow_table
from corvex.tables.long_form import arranged

__all__ = ["series_by_date", "series_by_label", "table_or_series"]

#: What the one column of values is called where it holds for every asset; "RATE" is a ticker.
_FOR_ALL = ("value", "Value", "values", "Values", "rate", "Rate", "rates", "Rates")


def series_by_date(given: Any, what: str) -> Any:
    """Return the Series that a table of dates and one column of values stands for.

    What is no table, or a Series already, is returned as it is.

    Raises
    ------
    ValueError
        When the table has no dates, or not one column of values.
    """
    if not _is_frame(given):
        return given
    table = as_table(given, what)
    if table.shape[1] != 1:
        raise ValueError(
            f"{what} must have one column of values by date, got {table.shape[1]}: "
            f"{', '.join(map(repr, table.columns[:5]))}"
        )
    return table.iloc[:, 0]


def series_by_label(given: Any, what: str) -> Any:
    """Return the Series that a table of asset labels and one column of values stands for.

    The labels stand in the index of a pandas table with one column; else in the column that is
    called "asset", "symbol" and the like, or in the first one.

    Raises
    ------
    ValueError
        When there is not one column of values.
    """
    if not _is_frame(given):
        return given
    table = given if isinstance(given, pd.DataFrame) else arrow_columns(given, what)
    if table.shape[1] == 1 and isinstance(given, pd.DataFrame):
        return table.iloc[:, 0]
    if table.shape[1] != 2:
        raise ValueError(
            f"{what} must have a column of asset labels and one of values, got the columns "
            f"{', '.join(map(repr, table.columns[:5]))}"
        )
    names = [str(name).strip().lower().replace(" ", "_") for name in table.columns]
    labels = 1 if names[1] in ASSET_NAMES and names[0] not in ASSET_NAMES else 0
    column = table.iloc[:, labels]
    if column.isna().any():
        raise ValueError(f"{what} has no label in {column.name!r} at row {column.isna().argmax()}")
    return table.iloc[:, 1 - labels].set_axis(pd.Index(column.astype(str)), axis=0)


def table_or_series(given: Any, what: str) -> Any:
    """Return what a table stands for that may go by date, by label, or by both.

    With dates it is a table of dates x assets, or, where its one column of values is called
    "value", "rate" or as `what` is, a Series by date; without dates it is a Series by label.
    """
    if not _is_frame(given):
        return given
    if isinstance(given, pd.DataFrame):
        table = as_table(given, what)
        if table is given and isinstance(table.index, pd.RangeIndex):  # labels stand in a column
            return series_by_label(table, what)
    else:
        plain = arrow_columns(given, what)
        table = arranged(plain, what, required=False)
        if table is None:
            return series_by_label(plain, what)
    alone = table.shape[1] == 1 and isinstance(name := table.columns[0], str)
    return table.iloc[:, 0] if alone and name in (*_FOR_ALL, what) else table


def _is_frame(given: object) -> bool:
    return isinstance(given, pd.DataFrame) or is_arrow_table(given)
