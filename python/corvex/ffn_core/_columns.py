"""Functions of one column, offered for tables too."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
import pandas as pd

from corvex.ffn_core._curve import FloatArray, read_numbers


def columns_of(frame: pd.DataFrame) -> Iterator[tuple[Any, pd.Series]]:
    """Yield each column with its label; a label that occurs twice is refused."""
    if not frame.columns.is_unique:
        twice = frame.columns[frame.columns.duplicated()][0]
        raise ValueError(f"each column needs its own name, but {twice!r} occurs twice")
    yield from frame.items()


def transform_columns[T: (pd.Series, pd.DataFrame)](
    data: T, transform: Callable[[FloatArray], FloatArray]
) -> T:
    """Apply a function of values to a series or to each column of a table; labels stay."""
    if isinstance(data, pd.Series):
        return pd.Series(transform(read_numbers(data)), index=data.index, name=data.name)
    columns = [transform(read_numbers(data.iloc[:, i])) for i in range(data.shape[1])]
    values = np.column_stack(columns) if columns else np.empty(data.shape)
    return pd.DataFrame(values, index=data.index, columns=data.columns)


def reduce_columns(
    data: pd.Series | pd.DataFrame, reduce: Callable[[pd.Series], float]
) -> float | pd.Series:
    """Reduce a series to a number, or a table to a series with a number for each column."""
    if isinstance(data, pd.Series):
        return reduce(data)
    numbers = [reduce(data.iloc[:, i]) for i in range(data.shape[1])]
    return pd.Series(numbers, index=data.columns, dtype=float)
