"""Values of market tables on the dates of trades."""

from __future__ import annotations

from functools import cached_property
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.tables.asset_labels import match_labels

if TYPE_CHECKING:
    from collections.abc import Mapping

    from corvex.core.report import Report

__all__ = [
    "TradeLookup",
    "capital_per_share",
    "known_table",
    "listed_facts",
    "market_table",
    "through_splits",
    "traded_values",
]

_Floats = npt.NDArray[np.float64]
_Places = npt.NDArray[np.int64]

_UNITS_PER_DAY = {"s": 86_400, "ms": 86_400_000, "us": 86_400_000_000, "ns": 86_400_000_000_000}

_NO_TABLE = (LookupError, NotImplementedError, OSError, ValueError)


def market_table(market: Any, method: str, *args: Any, **kwargs: Any) -> pd.DataFrame:
    """Ask a market for a table; an empty one where it has no such method or table."""
    table = known_table(market, method, *args, **kwargs)
    return pd.DataFrame() if table is None else table


def known_table(market: Any, method: str, *args: Any, **kwargs: Any) -> pd.DataFrame | None:
    """Ask a market for a table; None where it has no such method, or nothing in the table.

    Markets are written by users too, and may raise for a table that they do not have.
    """
    question = getattr(market, method, None)
    if question is None:
        return None
    try:
        table = question(*args, **kwargs)
    except _NO_TABLE:
        return None
    if not isinstance(table, pd.DataFrame) or len(table.index) == 0 or len(table.columns) == 0:
        return None
    return table


def through_splits(market: Any, prices: pd.DataFrame) -> pd.DataFrame:
    """Return prices that splits do not interrupt, so that those of different dates compare.

    The same table where the market knows of no splits: its prices are adjusted, or had none.
    """
    factors = getattr(market, "split_factors", None)
    if not isinstance(factors, pd.DataFrame) or prices.empty:
        return prices
    places = match_labels(pd.Index(factors.columns), pd.Index(prices.columns))
    rows = pd.DatetimeIndex(factors.index).get_indexer(pd.DatetimeIndex(prices.index))
    values = prices.to_numpy(dtype=np.float64, copy=True)
    known = np.flatnonzero(places >= 0)
    shares = factors.to_numpy()[np.maximum(rows, 0)][:, known]
    values[:, places[known]] *= np.where(rows[:, None] >= 0, shares, 1.0)
    return pd.DataFrame(values, prices.index, prices.columns)


class TradeLookup:
    """Reads market tables on the dates of a trade table.

    Where the trades' dates and assets stand is worked out once for all tables that list the same
    dates and assets; the trade table is not to change meanwhile.

    Parameters
    ----------
    trades : DataFrame
        A row per trade: dates, and the asset in ``symbol`` or ``stock_id``.
    """

    def __init__(self, trades: pd.DataFrame) -> None:
        self.trades = trades
        self._rows: dict[str, list[tuple[pd.Index, _Places]]] = {}
        self._columns: list[tuple[pd.Index, _Places]] = []

    @cached_property
    def entered(self) -> npt.NDArray[np.bool_]:
        """Which trades were filled on their entry."""
        if "entry_date" not in self.trades.columns:
            return np.zeros(len(self.trades), dtype=bool)
        return ~np.asarray(self.trades["entry_date"].array.isna())

    @cached_property
    def _assets(self) -> tuple[_Places, list[str]]:
        """Return a number for each trade's label, -1 for a missing one, and the labels."""
        column = "symbol" if "symbol" in self.trades.columns else "stock_id"
        if column not in self.trades.columns:
            return np.full(len(self.trades), -1, dtype=np.intp), []
        codes, labels = pd.factorize(self.trades[column])
        return codes, [str(label) for label in np.asarray(labels, dtype=object)]

    @property
    def named(self) -> npt.NDArray[np.bool_]:
        """Which trades name their asset."""
        return self._assets[0] >= 0

    def table(self, values: Mapping[str, _Floats]) -> pd.DataFrame:
        """Return values of the trades as a table of dates x asset labels.

        Parameters
        ----------
        values : mapping of str to float array of shape (trades,)
            By the column that holds their dates. Trades without a date or an asset are left out.
        """
        codes, labels = self._assets
        names = np.array([*labels, None], dtype=object)[codes]
        parts = [
            pd.DataFrame({"date": self.trades[name].array, "asset": names, "value": found})
            for name, found in values.items()
        ]
        known = pd.concat(parts).dropna(subset=["date", "asset"])
        known = known.drop_duplicates(["date", "asset"])
        return known.pivot(index="date", columns="asset", values="value")

    def values(self, table: pd.DataFrame, date_column: str) -> _Floats:
        """Read one value per trade from a table of dates x assets.

        Parameters
        ----------
        table : DataFrame
            Numbers or booleans; dates x assets (see `columns_in`).
        date_column : str
            The column of the trades that holds the dates, such as "entry_date". Only a row of
            exactly this date counts: what was traded on a day says nothing about another.

        Returns
        -------
        float array of shape (trades,)
            NaN where the table lacks the date or the asset, or the trade has none.
        """
        rows, columns = self.rows_in(table.index, date_column), self.columns_in(table.columns)
        return _engine.table_cells(table.to_numpy(dtype=np.float64), rows, columns)

    def rows_in(self, index: pd.Index, date_column: str) -> _Places:
        """Return the row of each trade's date in an index, -1 where it is not there."""
        known = self._rows.setdefault(date_column, [])
        places = _remembered(known, index)
        if places is None:
            places = _rows_of(index, self.trades[date_column].array)
            known.append((index, places))
        return places

    def columns_in(self, columns: pd.Index) -> _Places:
        """Return the column of each trade's asset, -1 where it is not there.

        The column of the same label, else that of the same id (see `corvex.tables.asset_labels`).
        """
        places = _remembered(self._columns, columns)
        if places is None:
            codes, labels = self._assets
            places = np.append(match_labels(labels, columns), -1)[codes]  # -1: one entry more
            self._columns.append((columns, places))
        return places


def _remembered(known: list[tuple[pd.Index, _Places]], index: pd.Index) -> _Places | None:
    for other, places in known:
        if other is index or other.equals(index):
            return places
    return None


def _rows_of(index: pd.Index, dates: Any) -> _Places:
    if isinstance(index, pd.DatetimeIndex) and dates.dtype == index.dtype and _rises(index):
        return _engine.rows_of_times(index.asi8, dates.asi8, _UNITS_PER_DAY[index.unit])
    kept = np.flatnonzero(~index.duplicated(keep="last"))
    places = np.append(kept, -1)[index[kept].get_indexer(pd.Index(dates))]
    return np.where(dates.isna(), -1, places)  # a missing date is none of a table's


def _rises(index: pd.DatetimeIndex) -> bool:
    return index.is_monotonic_increasing and index.is_unique and not index.hasnans


def listed_facts(lookup: TradeLookup, table: pd.DataFrame) -> _Floats:
    """Return what a table that lists certain assets only, such as restricted ones, says of entries.

    An asset that it does not list has 0. NaN, unknown, where it does not have the date, and for
    trades that were not entered or name no asset.
    """
    if not lookup.entered.any():
        return np.full(len(lookup.trades), np.nan)
    facts = np.nan_to_num(lookup.values(table, "entry_date"))
    unknown = lookup.rows_in(table.index, "entry_date") < 0
    facts[unknown | ~lookup.entered | ~lookup.named] = np.nan
    return facts


def traded_values(report: Report, lookup: TradeLookup, date_column: str) -> _Floats:
    """Return how much of each trade's asset was traded on one of the trade's dates.

    In the market's currency, or in the base of an account with several; NaN for trades that were
    not entered and where no volume is known.
    """
    tables = _close_and_volume(report)
    if tables is None or date_column not in lookup.trades.columns:
        return np.full(len(lookup.trades), np.nan)
    close, volume = tables
    value = lookup.values(close, date_column) * lookup.values(volume, date_column)
    value[~lookup.entered] = np.nan
    fx: pd.DataFrame | None = getattr(report, "fx", None)
    return value if fx is None else value * _rates(fx, lookup.trades, date_column)


def _rates(fx: pd.DataFrame, trades: pd.DataFrame, date_column: str) -> _Floats:
    """Return what a unit of each trade's currency cost on one of its dates; 1 of the base."""
    rows = fx.index.get_indexer(pd.DatetimeIndex(trades[date_column]))
    columns = fx.columns.get_indexer(pd.Index(trades["currency"]))
    rates = np.column_stack([fx.to_numpy(), np.ones(len(fx))])[rows, columns]
    return np.where((rows < 0) & (columns >= 0), np.nan, rates)


def capital_per_share(report: Report, lookup: TradeLookup) -> _Floats:
    """Return, for each fill, the capital that would trade all of that day's traded value.

    Traded value over entry weight, in the currency of `traded_values`, entries first, then exits.
    A share of it is the capital that takes this share of the day's trading. Empty without volume
    or weights; fills on days without known volume are left out.
    """
    if "position" not in lookup.trades.columns or _close_and_volume(report) is None:
        return np.empty(0)
    weight = lookup.trades["position"].to_numpy(dtype=np.float64)
    with np.errstate(divide="ignore", invalid="ignore"):
        capital = np.concatenate(
            [traded_values(report, lookup, name) for name in ("entry_date", "exit_date")]
        ) / np.abs(np.concatenate([weight, weight]))
    return capital[np.isfinite(capital)]


def _close_and_volume(report: Report) -> tuple[pd.DataFrame, pd.DataFrame] | None:
    volume = known_table(report.market, "get_price", "volume", adj=False)
    if volume is None:
        return None
    close = known_table(report.market, "get_price", "close", adj=False)
    return None if close is None else (close, volume)
