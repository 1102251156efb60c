"""The span of dates that can be computed with."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np

if TYPE_CHECKING:
    import pandas as pd

__all__ = ["require_in_range"]

_PER_UNIT = {"s": 1_000_000_000, "ms": 1_000_000, "us": 1_000, "ns": 1}
_TOLD = (np.datetime64("1677-09-22", "D"), np.datetime64("2262-04-11", "D"))
_TRADED = (np.datetime64("1678-01-01", "D"), np.datetime64("2261-12-31", "D"))
_NANOS_PER_DAY = 86_400_000_000_000
_LATEST = int(np.iinfo(np.int64).max)


def require_in_range(index: pd.DatetimeIndex, what: str, *, traded: bool = False) -> None:
    """Refuse dates that nanoseconds since 1970 cannot tell; pandas holds such in other units.

    Parameters
    ----------
    index : DatetimeIndex
        Missing dates are left alone.
    what : str
        What the message calls the dates, such as "the index of prices".
    traded : bool, default False
        Leave room for the sessions before and after: a market has those.

    Raises
    ------
    ValueError
        Naming the first such date and the span.
    """
    if len(index) == 0 or (index.unit == "ns" and not traded):
        return
    first, last = _TRADED if traded else _TOLD
    scale = _PER_UNIT[index.unit]
    values = index.asi8
    lowest, highest = (int(day.astype(int)) * _NANOS_PER_DAY for day in (first, last))
    lowest, highest = lowest // scale, min(highest + _NANOS_PER_DAY, _LATEST) // scale
    if index.is_monotonic_increasing and lowest <= values[0] and values[-1] <= highest:
        return
    outside = (values < lowest) | (values > highest)
    outside &= ~np.asarray(index.isna())
    if outside.any():
        date = np.datetime_as_string(values[outside][0].view(f"M8[{index.unit}]"), unit="D")
        raise ValueError(f"{what} holds {date}; dates must lie between {first} and {last}")
