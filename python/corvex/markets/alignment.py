"""Putting a benchmark on the dates of a price table."""

from __future__ import annotations

import datetime

import pandas as pd

from corvex.markets.number_dates import dates_of_numbers
from corvex.markets.stamps import TableStamps, in_zone

__all__ = ["align_benchmark"]


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
    if pd.api.types.is_integer_dtype(values.index.dtype):
        dates = dates_of_numbers(values.index)
        values = values if dates is None else values.set_axis(dates, axis=0)
    if not isinstance(values.index, pd.DatetimeIndex):
        raise ValueError(f"the benchmark must have dates as index, got {values.index.dtype}")
    if not (values.index.is_monotonic_increasing and values.index.is_unique):
        values = values[~values.index.duplicated(keep="last")].sort_index()
    index = pd.DatetimeIndex(values.index)
    own = TableStamps(index, tz)
    if own.daily:
        shift = _day_shift(prices, tz)
        stamps = in_zone(own.dates + shift if shift else own.dates, prices.tz)
    else:
        stamps = _same_moments(index, prices.tz, tz)
    return values.set_axis(stamps, axis=0)


def _day_shift(prices: pd.DatetimeIndex, tz: str) -> pd.Timedelta:
    """How many days the price stamps' own dates lie off their session dates (-1, 0 or 1)."""
    if prices.tz is None or len(prices) == 0:
        return pd.Timedelta(0)
    own = prices.tz_localize(None).normalize()
    return pd.Series(own - TableStamps(prices, tz).dates).mode().iloc[0]


def _same_moments(
    index: pd.DatetimeIndex, zone: datetime.tzinfo | None, tz: str
) -> pd.DatetimeIndex:
    if index.tz is None and zone is None:
        return index
    aware = index.tz_localize(tz, ambiguous="NaT", nonexistent="NaT") if index.tz is None else index
    return aware.tz_convert(tz).tz_localize(None) if zone is None else aware.tz_convert(zone)
