"""Drawdowns: the curve of them, all episodes, and the largest ones."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.ffn_core._columns import transform_columns
from corvex.ffn_core._curve import Curve, FloatArray, IntArray, read_curve


def to_drawdown_series[T: (pd.Series, pd.DataFrame)](prices: T) -> T:
    """Return how far each value lies below the highest value so far.

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, of shape (rows,) or (rows, columns).

    Returns
    -------
    Series or DataFrame
        ``value / running maximum - 1`` with the index of `prices`: 0 at a new high, negative below
        it. A missing value carries the last one; rows before the first value stay missing.
    """
    return transform_columns(prices, _engine.drawdown_curve)


def drawdown_details(prices: pd.Series) -> pd.DataFrame:
    """Return every drawdown of a curve in the order of time.

    Parameters
    ----------
    prices : Series
        Prices or cumulative wealth with increasing dates; missing values are dropped.

    Returns
    -------
    DataFrame
        One row for each stay below the highest value so far. ``Start`` is the first date below it,
        ``Valley`` the date of the lowest value, ``End`` the date that reaches the high again (the
        last date while it is still below), ``Length`` the days from ``Start`` to ``End``,
        ``drawdown`` the depth as a negative fraction. No row when the curve never falls.
    """
    return details_of(read_curve(prices).present())


def details_of(curve: Curve) -> pd.DataFrame:
    """Return the table of `drawdown_details` for a curve without missing values."""
    rows, depths = _engine.drawdown_episodes(curve.values)
    ends = np.where(rows[:, 3] < 0, len(curve.values) - 1, rows[:, 3])
    return pd.DataFrame(
        {
            "Start": curve.dates[rows[:, 1]],
            "Valley": curve.dates[rows[:, 2]],
            "End": curve.dates[ends],
            "Length": _whole_days(curve, rows[:, 1], ends),
            "drawdown": depths,
        }
    )


def largest_drawdowns(prices: pd.Series, n: int = 10) -> pd.DataFrame:
    """Return the deepest drawdowns of a curve, deepest first.

    Parameters
    ----------
    prices : Series
        Prices or cumulative wealth with increasing dates; missing values are dropped.
    n : int, default 10
        How many to return at most.

    Returns
    -------
    DataFrame
        ``start`` is the date of the high that the curve falls from, ``valley`` that of the lowest
        value, ``end`` the date that reaches the high again (NaT while it is still below),
        ``length`` the calendar days from ``start`` to ``end`` or to the last date, ``depth`` the
        lowest value / the high - 1, a negative fraction. No row when the curve never falls.

    Raises
    ------
    ValueError
        If `n` is negative, or the curve is not one (see `calc_stats`).
    """
    found = find_largest(prices, n)
    dates = found.curve.dates
    return pd.DataFrame(
        {
            "start": dates[found.start],
            "valley": dates[found.valley],
            "end": pd.Series(dates[found.last]).mask(found.is_open),
            "length": found.length,
            "depth": found.depth,
        }
    )


class LargestDrawdowns(NamedTuple):
    """The deepest drawdowns of a curve without missing values: rows of the curve, and figures.

    `last` is the row that reaches the high again, or the last one of the curve where none does.
    """

    curve: Curve
    start: IntArray
    valley: IntArray
    last: IntArray
    is_open: npt.NDArray[np.bool_]
    length: IntArray
    depth: FloatArray


def find_largest(prices: pd.Series, n: int) -> LargestDrawdowns:
    """Find what `largest_drawdowns` lists."""
    return find_in(read_curve(prices).present(), n)


def find_in(curve: Curve, n: int) -> LargestDrawdowns:
    """Find what `largest_drawdowns` lists, in a curve without missing values."""
    if n < 0:
        raise ValueError(f"the number of drawdowns must not be negative, but it is {n}")
    rows, depths = _engine.largest_drawdowns(curve.values, n)
    start, valley, end = rows[:, 0], rows[:, 2], rows[:, 3]
    is_open = end < 0
    last = np.where(is_open, len(curve.values) - 1, end)
    return LargestDrawdowns(
        curve, start, valley, last, is_open, _whole_days(curve, start, last), depths
    )


def _whole_days(curve: Curve, first: IntArray, last: IntArray) -> IntArray:
    """Days between two rows of the calendar that the curve's dates show."""
    nanos_per_day = 86_400_000_000_000
    days: IntArray = curve.times[last] // nanos_per_day - curve.times[first] // nanos_per_day
    return days
