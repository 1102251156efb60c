"""When newer data should exist, and whether the data at hand is fresh enough to trade on.

A table expires when the next row should be there: at the close of the session after its last date,
by the market's calendar. A table written while its last session was still open expires at that
session's close, since its last row is not final.
"""

from __future__ import annotations

import datetime
from typing import TYPE_CHECKING, NamedTuple

import pandas as pd

from corvex.data.context import _default_context, in_utc, now
from corvex.data.tables import LoadedTable, facts

if TYPE_CHECKING:
    from corvex.market import Market

__all__ = [
    "Freshness",
    "expiry_of",
    "freshness",
    "is_tradable",
    "next_data_expiry",
    "next_future_expiry",
    "suggested_tradable_time",
]


class Freshness(NamedTuple):
    """Up to when one table is fresh."""

    name: str
    last_date: pd.Timestamp
    expires_at: datetime.datetime


def next_data_expiry() -> datetime.datetime | None:
    """Return the earliest expiry of the tables read so far.

    Returns
    -------
    datetime or None
        UTC, perhaps in the past; None when no table with dates was read.
    """
    return min((table.expires_at for table in freshness()), default=None)


def next_future_expiry() -> datetime.datetime | None:
    """Return the earliest expiry that is still to come, UTC; None when there is none."""
    present = now()
    return min((t.expires_at for t in freshness() if t.expires_at > present), default=None)


def is_tradable(market: Market) -> bool:
    """Tell whether the data of a market is fresh enough to trade on.

    Parameters
    ----------
    market : Market
        A market bound to tables is judged by these; any other by the tables of that market which
        were read so far.

    Returns
    -------
    bool
        True when there is such data and none of it has expired.
    """
    present = now()
    tables = freshness(market)
    return bool(tables) and all(present < table.expires_at for table in tables)


def suggested_tradable_time(market: Market) -> datetime.datetime | None:
    """Return from when on data that makes `is_tradable` true should be there to load.

    Returns
    -------
    datetime or None
        UTC. The close of the market's last finished session, so usually in the past: load the
        tables again now. None when the data is tradable already, or when there is none.
    """
    if is_tradable(market) or not freshness(market):
        return None
    present = pd.Timestamp(now())
    close = in_utc(market.market_close_at_timestamp(present))
    if close > present:
        day = market.previous_session(present.tz_convert(market.tz).tz_localize(None))
        close = in_utc(market.market_close_at_timestamp(day))
    return close


def freshness(market: Market | None = None) -> list[Freshness]:
    """Return the freshness of every table read so far, or of those that a market stands on.

    Tables without dates (industries, say) do not expire and are left out.
    """
    prices = getattr(market, "price_index", None)
    if market is not None and prices is not None:
        return [_judge("prices", prices, market, getattr(market, "bound_at", now()))]
    found = []
    for name in sorted(_default_context._loaded_datasets):
        table = facts(name)
        if table is None or not isinstance(table.index, pd.DatetimeIndex) or len(table.index) == 0:
            continue
        owner = _market_of(name, table)
        if market is None or owner == market.get_name():
            found.append(_judge(name, table.index, market or _by_name(owner), table.as_of))
    return found


def expiry_of(
    index: pd.DatetimeIndex, market: Market, as_of: datetime.datetime
) -> datetime.datetime:
    """Return when a table with these dates, written at `as_of`, should have a newer row.

    Parameters
    ----------
    index : DatetimeIndex
        The table's dates, rising, not empty.
    market : Market
        Whose sessions count.
    as_of : datetime
        Aware.

    Returns
    -------
    datetime
        UTC. Daily: the close of the next session. Weekly, monthly and longer: the last close of
        the next period. Intraday: one bar after the next bar's stamp, when that bar is finished
        whether its stamp is its start or its end. Where the calendar's records end, weekdays count
        as sessions that close at midnight UTC.
    """
    from corvex.markets.bars import infer_freq
    from corvex.markets.calendars import CalendarRangeError

    freq = infer_freq(index)
    try:
        return in_utc(_calendar_expiry(index, market, as_of, freq))
    except CalendarRangeError:
        return in_utc(_weekday_expiry(market.session_date(index[-1]), freq))


def _calendar_expiry(
    index: pd.DatetimeIndex, market: Market, as_of: datetime.datetime, freq: str
) -> pd.Timestamp:
    from corvex.markets.bars import is_intraday, usual_gap

    last = pd.Timestamp(index[-1])
    if is_intraday(freq):
        bar = market.next_bar(index) + usual_gap(index)
        return bar.tz_localize(market.tz) if bar.tzinfo is None else bar
    close = market.market_close_at_timestamp(last)
    if as_of < in_utc(close):
        return close
    date = market.session_date(last)
    if freq == "D":
        return market.market_close_at_timestamp(market.next_session(date))
    return market.market_close_at_timestamp(_period_end(date, freq))


def _weekday_expiry(date: pd.Timestamp, freq: str) -> pd.Timestamp:
    """The same where no holidays are recorded: weekdays are sessions, to midnight UTC."""
    from corvex.markets.bars import is_intraday

    daily = freq == "D" or is_intraday(freq)
    last = date + pd.offsets.BDay() if daily else _period_end(date, freq)
    return (last + pd.Timedelta(days=1)).tz_localize("UTC")


def _period_end(date: pd.Timestamp, freq: str) -> pd.Timestamp:
    return pd.tseries.frequencies.to_offset(freq).rollforward(date + pd.Timedelta(days=1))


def _judge(
    name: str, index: pd.DatetimeIndex, market: Market, as_of: datetime.datetime
) -> Freshness:
    return Freshness(name, pd.Timestamp(index[-1]), expiry_of(index, market, as_of))


def _market_of(name: str, table: LoadedTable) -> str:
    """Name the market that a table belongs to: by its name, else by its labels."""
    from corvex.markets import infer_market_name, market_names

    if table.market is not None:
        return table.market
    named = [market for market in market_names() if name.startswith(f"{market}_")]
    return max(named, key=len) if named else infer_market_name(table.labels)


def _by_name(name: str) -> Market:
    from corvex.markets import get_market_by_name

    return get_market_by_name(name)
