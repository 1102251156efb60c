"""Putting a benchmark on the dates of a price table."""

from __future__ import annotations

import datetime

import numpy as np
import pandas as pd

__all__ = ["align_benchmark", "session_dates"]


def session_dates(index: pd.DatetimeIndex, tz: str) -> pd.DatetimeIndex:
    """Return the session date of each stamp, as naive midnights.

    Midnights are taken as dates in their own zone: a daily table stamped at midnight UTC means
    that day, although New York's clocks still show the evening before. Other moments take the
    date that they have in the market's zone `tz`.
    """
    if index.tz is None:
        return index.normalize()
    if bool((index == index.normalize()).all()):
        return index.tz_localize(None)
    return index.tz_convert(tz).tz_localize(None).normalize()


def align_benchmark(benchmark: pd.Series, prices: pd.DatetimeIndex, tz: str) -> pd.Series:
    """Stamp a benchmark as the price table is stamped, without moving a value to another session.

    Parameters
    ----------
    benchmark : Series
        Prices by date, aware or naive, daily or intraday.
    prices : DatetimeIndex
        Dates of the price table.
    tz : str
        The market's zone; naive moments are read in it.

    Returns
    -------
    Series
        In the zone of `prices`, or naive. Daily values stand at the midnight (in that zone) of
        the day on which the price table has the same session; intraday ones keep their moment.
    """
    values = benchmark.dropna() if benchmark.hasnans else benchmark
    if not isinstance(values.index, pd.DatetimeIndex):
        raise ValueError(f"the benchmark must have dates as index, got {values.index.dtype}")
    if not (values.index.is_monotonic_increasing and values.index.is_unique):
        values = values[~values.index.duplicated(keep="last")].sort_index()
    index = pd.DatetimeIndex(values.index)
    dates = session_dates(index, tz)
    if dates.is_unique:
        shift = _day_shift(prices, tz)
        stamps = (dates + shift if shift else dates).tz_localize(
            prices.tz, ambiguous=np.ones(len(dates), dtype=bool), nonexistent="shift_forward"
        )
    else:
        stamps = _same_moments(index, prices.tz, tz)
    return values.set_axis(stamps, axis=0)


def _day_shift(prices: pd.DatetimeIndex, tz: str) -> pd.Timedelta:
    """How many days the price stamps' own dates lie off their session dates (-1, 0 or 1)."""
    if prices.tz is None or len(prices) == 0:
        return pd.Timedelta(0)
    own = prices.tz_localize(None).normalize()
    return pd.Series(own - session_dates(prices, tz)).mode().iloc[0]


def _same_moments(
    index: pd.DatetimeIndex, zone: datetime.tzinfo | None, tz: str
) -> pd.DatetimeIndex:
    if index.tz is None and zone is None:
        return index
    aware = index.tz_localize(tz, ambiguous="NaT", nonexistent="NaT") if index.tz is None else index
    return aware.tz_convert(tz).tz_localize(None) if zone is None else aware.tz_convert(zone)
