"""A pandas series read as the plain arrays that the engine takes."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.tables.date_limits import require_in_range

FloatArray = npt.NDArray[np.float64]
IntArray = npt.NDArray[np.int64]


class Curve(NamedTuple):
    """A dated curve: `values` and `times` of equal length, and the dates they came from.

    `times` are nanoseconds of the local wall clock. So a month ends where it ends for the people
    who traded it, and a curve has the same figures with a time zone and without.
    """

    values: FloatArray
    times: IntArray
    dates: pd.DatetimeIndex

    def present(self) -> Curve:
        """Return the curve without its missing values."""
        keep = ~np.isnan(self.values)
        if keep.all():
            return self
        return Curve(self.values[keep], self.times[keep], self.dates[keep])


def read_numbers(series: pd.Series) -> FloatArray:
    """Return the values as float64, missing ones as NaN."""
    if series.dtype == np.float64:
        return series.to_numpy()
    try:
        return series.to_numpy(dtype=np.float64, na_value=np.nan)
    except (TypeError, ValueError) as error:
        raise ValueError(
            f"{_described(series)} must hold numbers, but its dtype is {series.dtype}: {error}"
        ) from None


def read_dates(series: pd.Series) -> pd.DatetimeIndex:
    """Return the index of the series, checked to hold dates."""
    index = series.index
    if not isinstance(index, pd.DatetimeIndex):
        raise TypeError(
            f"{_described(series)} needs dates as its index (a DatetimeIndex), "
            f"not {type(index).__name__}"
        )
    return index


def read_times(series: pd.Series) -> IntArray:
    """Return the wall-clock times of the index in nanoseconds, checked to be increasing."""
    index = read_dates(series)
    require_in_range(index, f"the index of {_described(series)}")
    times: IntArray = index.asi8 if index.unit == "ns" else index.as_unit("ns").asi8
    unordered = _engine.first_unordered(times)
    if unordered >= 0 or (len(times) > 0 and index.hasnans):
        _refuse_dates(series, index, unordered)
    if index.tz is None:
        return times
    # The clock of a zone may go back an hour, so the order is that of the moments above.
    return index.tz_localize(None).as_unit("ns").asi8


def read_curve(series: pd.Series) -> Curve:
    """Read a series of numbers with increasing dates.

    Raises
    ------
    TypeError
        If the index does not hold dates.
    ValueError
        If a value is no number, or dates are missing, repeated or out of order.
    """
    times = read_times(series)
    return Curve(read_numbers(series), times, read_dates(series))


def _described(series: pd.Series) -> str:
    return "the curve" if series.name is None else f"the curve {series.name!r}"


def _refuse_dates(series: pd.Series, index: pd.DatetimeIndex, row: int) -> None:
    if index.hasnans:
        raise ValueError(f"{_described(series)} has a missing date (NaT) in its index")
    what = "repeats" if index[row] == index[row - 1] else "is earlier than the date before it"
    raise ValueError(
        f"{_described(series)} needs increasing dates, but {index[row]} {what}; "
        "sort_index() puts dates in order, and each may occur once"
    )
