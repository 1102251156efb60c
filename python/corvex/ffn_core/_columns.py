"""Functions of one column, offered for tables too."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import pandas as pd


def columns_of(frame: pd.DataFrame) -> Iterator[tuple[Any, pd.Series]]:
    """Yield each column with its label; a label that occurs twice is refused."""
    if not frame.columns.is_unique:
        twice = frame.columns[frame.columns.duplicated()][0]
        raise ValueError(f"each column needs its own name, but {twice!r} occurs twice")
    yield from frame.items()


def transform_columns(
    frame: pd.DataFrame, transform: Callable[[pd.Series], pd.Series]
) -> pd.DataFrame:
    """Apply a function that keeps the index to each column by position, labels untouched."""
    parts = [transform(frame.iloc[:, i]) for i in range(frame.shape[1])]
    result = pd.DataFrame(dict(enumerate(parts)), index=frame.index)
    result.columns = frame.columns
    return result


def reduce_columns(
    data: pd.Series | pd.DataFrame, reduce: Callable[[pd.Series], float]
) -> float | pd.Series:
    """Reduce a series to a number, or a table to a series with a number for each column."""
    if isinstance(data, pd.Series):
        return reduce(data)
    numbers = [reduce(data.iloc[:, i]) for i in range(data.shape[1])]
    return pd.Series(numbers, index=data.columns, dtype=float)
