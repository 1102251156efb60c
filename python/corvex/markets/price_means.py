"""Small helpers on price tables."""

from __future__ import annotations

from collections.abc import Mapping
from functools import cache

import numpy as np
import pandas as pd

__all__ = ["empty_table", "mean_of_ohlc"]


def empty_table() -> pd.DataFrame:
    """Return a table without dates or assets.

    It is the same one for all, which spares the making: figures ask for many tables that a market
    does not have. One that a caller has filled meanwhile is not given to others.
    """
    if _shared_empty().shape != (0, 0):
        _shared_empty.cache_clear()
    return _shared_empty()


@cache
def _shared_empty() -> pd.DataFrame:
    return pd.DataFrame(index=pd.DatetimeIndex([]), dtype="float64")


def mean_of_ohlc(fields: Mapping[str, pd.DataFrame]) -> pd.DataFrame:
    """Return the mean of open, high, low and close; missing where any of the four is missing."""
    close = fields["close"]
    total = close.to_numpy(dtype="float64", copy=True)
    for field in ("open", "high", "low"):
        table = fields[field]
        if not (table.index.equals(close.index) and table.columns.equals(close.columns)):
            table = table.reindex(index=close.index, columns=close.columns)
        total += table.to_numpy(dtype="float64")
    return pd.DataFrame(np.divide(total, 4.0, out=total), close.index, close.columns)
