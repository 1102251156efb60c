"""Values of an account's terms as a user gives them, brought to the tables of pandas."""

from __future__ import annotations

import datetime
import re
from collections.abc import Mapping
from typing import Any

import numpy as np
import pandas as pd

from corvex.tables.frames import as_table, is_array, is_table

__all__ = ["as_pandas"]

_DATE = re.compile(r"\d{4}-\d{2}-\d{2}([ T].*)?")


def as_pandas(given: Any, name: str) -> Any:
    """Return a Series or table with dates as pandas has them; what is neither stays as it is.

    A mapping is a Series by its keys, tables of other libraries become those of pandas, and an
    index of texts such as "2024-01-31", or of `datetime.date`, becomes one of dates.

    Raises
    ------
    ValueError
        When it is not clear what the columns of a table are; the message names them.
    """
    if isinstance(given, Mapping):
        given = pd.Series(given)
    elif not is_table(given) or is_array(given):
        return given
    table = as_table(given, name)
    if not isinstance(table, pd.DataFrame | pd.Series) or not _reads_as_dates(table.index):
        return table
    try:
        return table.set_axis(pd.DatetimeIndex(pd.to_datetime(table.index)), axis=0)
    except (TypeError, ValueError) as error:
        raise ValueError(f"the index of {name} must hold dates: {error}") from None


def _reads_as_dates(index: pd.Index) -> bool:
    """Whether something else than pandas' own dates holds dates, and no labels."""
    if isinstance(index, pd.DatetimeIndex | pd.PeriodIndex | pd.MultiIndex) or not len(index):
        return False
    if pd.api.types.is_datetime64_any_dtype(index.dtype):
        return True
    return not pd.api.types.is_numeric_dtype(index.dtype) and all(map(_is_date, index))


def _is_date(value: object) -> bool:
    if isinstance(value, str):
        return _DATE.fullmatch(value.strip()) is not None
    return isinstance(value, datetime.date | np.datetime64)
