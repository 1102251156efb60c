"""The prices of a run: tables read, matched to the weights' labels and checked."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any, NamedTuple, cast

import numpy as np
import pandas as pd

from corvex.market import Market
from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import Clock, dated_table
from corvex.simulation.read.columns import match_columns, only_type
from corvex.tables.frames import TableInput, as_prices

__all__ = [
    "PriceInput",
    "PriceMatrices",
    "TradeAt",
    "market_matrix",
    "read_matrices",
    "user_tables",
]

type PriceInput = TableInput | pd.Series | Mapping[str, TableInput] | None
type TradeAt = str | pd.DataFrame

_FIELDS = ("open", "close", "high", "low", "ohlc")


class PriceMatrices(NamedTuple):
    """Prices of the sessions x the weights' assets, C-contiguous float64.

    `fill` is `close` itself where orders fill at the close; `open`, `high` and `low` are there
    where a rule needs them.
    """

    close: np.ndarray
    fill: np.ndarray
    open: np.ndarray | None
    high: np.ndarray | None
    low: np.ndarray | None


def user_tables(
    prices: PriceInput, labels: pd.Index, *, dates: Any = None, assets: Any = None
) -> dict[str, pd.DataFrame] | None:
    """Read the prices that a user handed over, arrays with dates and assets; None without any.

    Returns
    -------
    dict of str to DataFrame
        By field, in lower case; dates rise and are unique. Tables in order are the user's own.

    Raises
    ------
    ValueError
        When there is no close table, or one is empty or not dated.
    """
    if prices is None:
        return None
    prices = as_prices(prices, "prices", dates=dates, assets=assets)
    if isinstance(prices, pd.Series):
        if len(labels) != 1:
            raise ValueError("prices must be a table, one column for each asset of weights")
        prices = prices.to_frame(labels[0])
    given = {"close": prices} if isinstance(prices, pd.DataFrame) else prices
    if not isinstance(given, Mapping):
        raise ValueError(
            "prices must be a table of closes, or a mapping of 'close' and any of 'open', 'high', "
            f"'low', 'volume' to tables, got {type(prices).__name__}"
        )
    tables = {}
    for field, table in given.items():
        name = f"prices[{field!r}]" if isinstance(prices, Mapping) else "prices"
        if not isinstance(table, pd.DataFrame):
            raise ValueError(f"{name} must be a DataFrame, got {type(table).__name__}")
        if table.size == 0:
            raise ValueError(f"{name} is empty: {len(table)} dates, {table.shape[1]} assets")
        tables[str(field).lower()] = dated_table(table, name)
    if "close" not in tables and "adj_close" not in tables:
        raise ValueError(f"prices need a 'close' table; got: {', '.join(tables) or 'none'}")
    return tables


def fill_table(market: Market, trade_at: TradeAt, *, adj: bool = True) -> pd.DataFrame:
    """Return the price table at which orders fill.

    Raises
    ------
    ValueError
        When `trade_at` is not known, or the market has no such prices.
    """
    if not isinstance(trade_at, pd.DataFrame) and trade_at not in _FIELDS:
        raise ValueError(
            f"trade_at must be one of {', '.join(map(repr, _FIELDS))} or a price table, "
            f"got {trade_at!r}"
        )
    return market.get_trading_price(trade_at, adj=adj)


def read_matrices(
    market: Market,
    close: pd.DataFrame,
    clock: Clock,
    labels: pd.Index,
    trade_at: TradeAt,
    *,
    with_bars: bool,
) -> PriceMatrices:
    """Bring the market's tables to the sessions and assets of a run.

    Parameters
    ----------
    market : Market
        It has the tables.
    close : DataFrame
        Its close table.
    clock : Clock
        The sessions: a stretch of the close table's dates.
    labels : Index
        The assets.
    trade_at : str or DataFrame
        Where orders fill.
    with_bars : bool
        Open, high and low are needed too (those that the market has, high and low at least).
    """
    matrices = {"close": _matrix(close, "close", clock, labels)}
    bars: dict[str, np.ndarray | None] = dict.fromkeys(("open", "high", "low"))
    wanted = list(bars) if with_bars else []
    if isinstance(trade_at, str) and trade_at in (*bars, "close"):
        wanted.append(trade_at)
        fill = None
    else:
        table = fill_table(market, trade_at)
        if isinstance(trade_at, pd.DataFrame):
            table = dated_table(table, "trade_at")
        fill = _matrix(table, "trade_at", clock, labels)
    for field in wanted:
        if field not in matrices:
            found = price_table(market, field, required=field != "open" or field == trade_at)
            if found is not None:
                matrices[field] = _matrix(found, field, clock, labels)
    return PriceMatrices(
        close=matrices["close"],
        fill=matrices[cast("str", trade_at)] if fill is None else fill,
        open=matrices.get("open"),
        high=matrices.get("high"),
        low=matrices.get("low"),
    )


def market_matrix(
    market: Market, field: str, clock: Clock, labels: pd.Index, *, required: bool = True
) -> np.ndarray | None:
    """Return one of a market's tables at the sessions and assets; None where it has none."""
    table = price_table(market, field, required=required)
    return None if table is None else _matrix(table, field, clock, labels)


def price_table(market: Market, field: str, *, required: bool = True) -> pd.DataFrame | None:
    """A market's adjusted price table; ValueError (or None) when it has none."""
    try:
        table = market.get_price(field, adj=True)
    except (ValueError, KeyError, LookupError):
        if required:
            raise
        return None
    if table.size == 0:
        if required:
            raise ValueError(
                f"market {market.get_name()!r} has no {field!r} prices; hand over prices=, or put "
                f"a table {market.get_name()}_{field} into the data folder"
            )
        return None
    return table


def _matrix(table: pd.DataFrame, field: str, clock: Clock, labels: pd.Index) -> np.ndarray:
    """The values of a table at the sessions and assets, without a copy where they are in place."""
    columns = match_columns(labels, table.columns)
    rows = _rows(cast("pd.DatetimeIndex", table.index), field, clock)
    if columns is None:
        return np.ascontiguousarray(_at_rows(_floats(table), rows))
    there = columns >= 0
    if _is_float64(table):
        values = np.take(_at_rows(table.to_numpy(), rows), columns[there], axis=1)
    else:
        values = _at_rows(_floats(table.iloc[:, columns[there]]), rows)
    if there.all():
        return np.ascontiguousarray(values)
    wide = np.full((len(clock), len(labels)), np.nan)
    wide[:, there] = values
    return wide


def _at_rows(values: np.ndarray, rows: slice | np.ndarray) -> np.ndarray:
    if isinstance(rows, slice):
        return values[rows]
    return np.where((rows >= 0)[:, None], values[rows], np.nan)


def _rows(index: pd.DatetimeIndex, field: str, clock: Clock) -> slice | np.ndarray:
    """Where the sessions stand in a table's dates."""
    if index is clock.index:
        return slice(0, len(index))
    start = index.get_indexer(clock.index[:1])[0] if len(index) else -1
    if start >= 0 and index[start : start + len(clock)].equals(clock.index):
        return slice(start, start + len(clock))
    found, lost = clock.rows_in(index)
    if not (found >= 0).any():
        raise ValueError(
            f"no date of {field!r} is one of the closes': they run from {date_text(index[0])} to "
            f"{date_text(index[-1])}, the closes from {date_text(clock.index[0])} to "
            f"{date_text(clock.last)}"
        )
    if lost:
        warn(f"{lost} dates of {field!r} that the close table does not have were left out")
    return found


def _is_float64(table: pd.DataFrame) -> bool:
    return table.shape[1] == 0 or only_type(table) == np.float64


def _floats(table: pd.DataFrame) -> np.ndarray:
    if _is_float64(table):
        return table.to_numpy()
    try:
        return table.to_numpy(dtype=np.float64, na_value=np.nan)
    except (TypeError, ValueError):  # of texts, and of the missing values of other types
        return np.column_stack([_numbers(table.iloc[:, at]) for at in range(table.shape[1])])


def _numbers(column: pd.Series) -> np.ndarray:
    numbers = pd.to_numeric(column, errors="coerce")
    bad = (numbers.isna() & column.notna()).to_numpy() | np.iscomplex(numbers.to_numpy())
    if bad.any():
        date, value = column.index[bad][0], column[bad].iloc[0]
        raise ValueError(
            f"the price of {column.name!r} on {date_text(date)} is {value!r}, not a number"
        )
    return np.real(numbers.to_numpy(dtype=complex, na_value=np.nan))
