"""Bringing tables to the dates of the close table: one form of stamp for all of a market."""

from __future__ import annotations

from collections.abc import Mapping
from typing import cast

import numpy as np
import pandas as pd

from corvex.markets.number_dates import dates_of_numbers
from corvex.markets.stamps import TableStamps, Zone, in_zone
from corvex.tables.date_limits import require_in_range

__all__ = ["align_benchmark", "align_facts", "align_prices", "align_tables", "clean_benchmark"]

_FACTS = ("market_value",)


def align_tables(tables: Mapping[str, pd.DataFrame], zone: Zone) -> dict[str, pd.DataFrame]:
    """Bring the tables of a market to the dates of the (adjusted, if there are) closes.

    Parameters
    ----------
    tables : mapping of str to DataFrame
        By field; "close" or "adj_close" among them.
    zone : str or callable that gives it
        The market's zone.

    Returns
    -------
    dict of str to DataFrame
        Tables that have these dates already are the very same objects.
    """
    close = tables["adj_close"] if "adj_close" in tables else tables["close"]
    onto = TableStamps(cast("pd.DatetimeIndex", close.index), zone)
    return {
        field: (align_facts if field in _FACTS else align_prices)(table, onto)
        for field, table in tables.items()
    }


def align_prices(table: pd.DataFrame, onto: TableStamps) -> pd.DataFrame:
    """Stamp a price table as the closes are stamped.

    Days meet days by their date, bars meet bars by their moment. A row that the closes do not have
    stays, in their form; a day's prices are those of no bar within it.
    """
    if not _differs(table, onto):
        return table
    index = cast("pd.DatetimeIndex", table.index)
    own = TableStamps(index, lambda: onto.zone)
    by_day = own.daily and onto.daily
    return table.set_axis(_by_date(own.dates, onto) if by_day else onto.moments(index), axis=0)


def align_facts(table: pd.DataFrame, onto: TableStamps) -> pd.DataFrame:
    """Bring a table of facts that hold for a day, such as market values, to the closes' dates.

    Beside bars within the day each of them has the facts of its date; of several rows on one date
    the last counts beside daily closes. A date that is not in the table is in the result neither.
    """
    if not _differs(table, onto):
        return table
    if not (table.index.is_monotonic_increasing and table.index.is_unique):
        table = table[~table.index.duplicated(keep="last")].sort_index()
    own = TableStamps(cast("pd.DatetimeIndex", table.index), lambda: onto.zone)
    if own.daily and not onto.daily:
        rows = own.dates.get_indexer(onto.dates)
        found = np.flatnonzero(rows >= 0)
        return table.iloc[rows[found]].set_axis(onto.index[found], axis=0)
    if onto.daily and not own.daily:
        last = np.flatnonzero(~own.dates.duplicated(keep="last"))
        return table.iloc[last].set_axis(_by_date(own.dates[last], onto), axis=0)
    return align_prices(table, onto)


def _differs(table: pd.DataFrame, onto: TableStamps) -> bool:
    """Whether a table has dates, and others than the closes."""
    index = table.index
    if not isinstance(index, pd.DatetimeIndex) or index.hasnans or onto.index.hasnans:
        return False
    return len(index) > 0 and len(onto.index) > 0 and not index.equals(onto.index)


def _by_date(dates: pd.DatetimeIndex, onto: TableStamps) -> pd.DatetimeIndex:
    """Write dates with the stamps of the closes; those that these do not have, in their form."""
    rows = onto.dates.get_indexer(dates)
    stamps = onto.index.take(np.maximum(rows, 0))
    return pd.DatetimeIndex(stamps.where(rows >= 0, onto.written(dates)))


def align_benchmark(benchmark: pd.Series, prices: pd.DatetimeIndex, tz: str) -> pd.Series:
    """Stamp a benchmark as the price table is stamped, without moving a value to another session.

    Parameters
    ----------
    benchmark : Series
        Prices by date, aware or naive, daily or intraday.
    prices : DatetimeIndex
        Dates of the price table.
    tz : str
        The market's zone.

    Returns
    -------
    Series
        In the zone of `prices`, or naive. Daily values stand at the midnight (in that zone) of
        the day on which the price table has the same session; intraday ones keep their moment.
    """
    values = clean_benchmark(benchmark)
    index = pd.DatetimeIndex(values.index)
    own, onto = TableStamps(index, tz), TableStamps(prices, tz)
    if not own.daily:
        return values.set_axis(onto.moments(index), axis=0)
    shift = _day_shift(onto)
    return values.set_axis(in_zone(own.dates + shift if shift else own.dates, prices.tz), axis=0)


def clean_benchmark(benchmark: pd.Series) -> pd.Series:
    """Return the values of a benchmark that are there, on rising dates; of a date the last one."""
    values = benchmark.dropna() if benchmark.hasnans else benchmark
    if pd.api.types.is_integer_dtype(values.index.dtype):
        dates = dates_of_numbers(values.index)
        values = values if dates is None else values.set_axis(dates, axis=0)
    if not isinstance(values.index, pd.DatetimeIndex):
        raise ValueError(f"the benchmark must have dates as index, got {values.index.dtype}")
    require_in_range(values.index, "the index of the benchmark", traded=True)
    if not (values.index.is_monotonic_increasing and values.index.is_unique):
        values = values[~values.index.duplicated(keep="last")].sort_index()
    return values


def _day_shift(prices: TableStamps) -> pd.Timedelta:
    """How many days the price stamps' own dates lie off their session dates (-1, 0 or 1)."""
    if prices.index.tz is None or len(prices.index) == 0:
        return pd.Timedelta(0)
    own = prices.index.tz_localize(None).normalize()
    return pd.Series(own - prices.dates).mode().iloc[0]
