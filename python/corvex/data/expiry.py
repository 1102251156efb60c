"""When newer prices should exist, and whether those at hand are fresh enough to trade on.

Prices expire when their next row should be there: at the close of the session after the last date,
or at the last close of the period after the last one. Prices written while their last session was
still open expire at that session's close, since the last row is not final.

Only prices tell how fresh data is: the tables ``<market>_close`` and so on, and those that a market
was bound to. Fundamental figures come when they come.
"""

from __future__ import annotations

import datetime
from typing import NamedTuple

import pandas as pd

from corvex.data.rows import Rows, rows_of
from corvex.market import Market
from corvex.markets import get_market_by_name, market_names
from corvex.tables.context import _default_context, now
from corvex.tables.named import facts

__all__ = [
    "Freshness",
    "freshness",
    "is_tradable",
    "next_data_expiry",
    "next_future_expiry",
    "suggested_tradable_time",
]

_FIELDS = ("open", "high", "low", "close", "volume")


class Freshness(NamedTuple):
    """Up to when one table is fresh."""

    name: str
    last_date: pd.Timestamp
    expires_at: datetime.datetime
    rows: Rows


def next_data_expiry() -> datetime.datetime | None:
    """Return the earliest expiry of the prices at hand.

    Those are the price tables read so far, and the prices of every market in use that has its own,
    as that of each report on your own prices has.

    Returns
    -------
    datetime or None
        UTC, perhaps in the past; None when there are no prices.
    """
    return min((table.expires_at for table in freshness()), default=None)


def next_future_expiry() -> datetime.datetime | None:
    """Return the earliest expiry of the prices at hand that is still to come.

    Returns
    -------
    datetime or None
        UTC; None when no prices have an expiry to come.
    """
    present = now()
    return min((t.expires_at for t in freshness() if t.expires_at > present), default=None)


def is_tradable(market: Market) -> bool:
    """Tell whether the prices of a market are fresh enough to trade on.

    Parameters
    ----------
    market : Market
        A market bound to tables is judged by these; any other by the price tables of that market
        which were read so far, or by its own `get_price` where that reads no named tables.

    Returns
    -------
    bool
        True when there are such prices and none of them has expired.
    """
    present = now()
    tables = freshness(market)
    return bool(tables) and all(present < table.expires_at for table in tables)


def suggested_tradable_time(market: Market) -> datetime.datetime | None:
    """Return from when on `is_tradable` is expected to hold, with prices loaded then.

    Returns
    -------
    datetime or None
        UTC. None means that the prices are tradable already. A time in the past means that newer
        prices, or prices at all, should be there to load now: it is the last moment at which a row
        became final, such as the close of the last session, or of the last period of weekly
        prices, or the end of the last bar. So it is for the market of a historical backtest too:
        a run without `end` would be tradable from then on.
    """
    tables = freshness(market)
    present = now()
    stale = [table.rows for table in tables if table.expires_at <= present]
    if not stale:
        if tables and not getattr(market, "is_historical", False):
            return None
        stale = [table.rows for table in tables] or [rows_of(None, market)]
    return max(rows.newest_at(present) for rows in stale)


def freshness(market: Market | None = None) -> list[Freshness]:
    """Return the freshness of all prices at hand, or of those that a market stands on."""
    if market is None:
        named = [_named(name) for name in sorted(_default_context._loaded_datasets)]
        unnamed = [t for own in _default_context.own_markets for t in freshness(own)]
        return [table for table in named if table is not None] + unnamed
    if getattr(market, "price_index", None) is not None:
        return [_bound(market)]
    found = [_named(name, market) for name in sorted(_default_context._loaded_datasets)]
    return [table for table in found if table is not None] or _from_its_own(market)


def _bound(market: Market) -> Freshness:
    return _judge("prices", market.price_index, market, market.bound_at)  # type: ignore[attr-defined]


def _named(name: str, market: Market | None = None) -> Freshness | None:
    """Judge a named table; None where it holds no prices, or not this market's."""
    table = facts(name)
    if table is None or not isinstance(table.index, pd.DatetimeIndex) or len(table.index) == 0:
        return None
    owner = table.market or _owner(name, market_names() if market is None else [market.get_name()])
    if owner is None or (market is not None and owner != market.get_name()):
        return None
    return _judge(name, table.index, market or get_market_by_name(owner), table.as_of)


def _from_its_own(market: Market) -> list[Freshness]:
    """Judge the prices of a market that takes them from elsewhere than named tables."""
    read: set[str] = set()
    with _default_context.override(_loaded_datasets=read):
        try:
            index = market.get_price("close").index
        except (ValueError, LookupError, NotImplementedError):
            return []
    if read or not isinstance(index, pd.DatetimeIndex) or len(index) == 0:
        return []  # what was read for this question alone is no data at hand
    _default_context.note_market(market)
    return [_judge("prices", index, market, now())]


def _judge(
    name: str, index: pd.DatetimeIndex, market: Market, as_of: datetime.datetime
) -> Freshness:
    rows = rows_of(index, market)
    return Freshness(name, pd.Timestamp(index[-1]), rows.expires_at(as_of), rows)


def _owner(name: str, markets: list[str]) -> str | None:
    """Name the market among some whose prices a table holds by its name; None for other tables."""
    ends = [f"_{form}{field}" for form in ("", "adj_") for field in _FIELDS]
    return next((m for m in markets if name.startswith(m) and name.removeprefix(m) in ends), None)
