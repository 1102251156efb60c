"""Values of market tables on the dates of trades, and the trades that count as closed."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["asset_ids", "closed_trades", "entered_trades", "market_table", "values_at"]

_NO_TABLE = (LookupError, NotImplementedError, OSError, ValueError)


def closed_trades(report: Report) -> pd.DataFrame:
    """Return the trades that were left and have a return; empty where the report has none."""
    trades: pd.DataFrame = report.trades
    if "return" not in trades.columns:
        return trades.iloc[:0]
    closed = trades["return"].notna()
    if "exit_date" in trades.columns:
        closed &= trades["exit_date"].notna()
    return trades[closed]


def entered_trades(report: Report) -> pd.DataFrame:
    """Return the trades whose entry was filled; empty where the report has none."""
    trades: pd.DataFrame = report.trades
    if "entry_date" not in trades.columns:
        return trades.iloc[:0]
    return trades[trades["entry_date"].notna()]


def asset_ids(trades: pd.DataFrame) -> pd.Index:
    """Return the asset id of each trade: its label up to the first blank."""
    column = "symbol" if "symbol" in trades.columns else "stock_id"
    if column not in trades.columns:
        return pd.Index([""] * len(trades), dtype=object)
    return pd.Index([str(label).split(" ")[0] for label in trades[column]], dtype=object)


def market_table(market: Any, method: str, *args: Any, **kwargs: Any) -> pd.DataFrame:
    """Ask a market for a table; an empty one where it has no such method or table.

    Markets are written by users too, and may raise for a table that they do not have.
    """
    question = getattr(market, method, None)
    if question is None:
        return pd.DataFrame()
    try:
        table = question(*args, **kwargs)
    except _NO_TABLE:
        return pd.DataFrame()
    return table if isinstance(table, pd.DataFrame) else pd.DataFrame()


def values_at(table: pd.DataFrame, dates: pd.Series, ids: pd.Index) -> npt.NDArray[np.float64]:
    """Read one value per trade from a table of dates x asset ids.

    Parameters
    ----------
    table : DataFrame
        Numbers or booleans; dates x asset ids.
    dates : Series of shape (trades,)
        The date of each trade. Only a row of exactly this date counts: what was traded on a
        day says nothing about another.
    ids : Index of shape (trades,)
        The asset id of each trade.

    Returns
    -------
    float array of shape (trades,)
        NaN where the table lacks the date or the asset.
    """
    if not table.index.is_unique:
        table = table[~table.index.duplicated(keep="last")]
    if not table.columns.is_unique:
        table = table.loc[:, ~table.columns.duplicated()]
    out = np.full(len(dates), np.nan)
    rows = table.index.get_indexer(pd.Index(dates))
    columns = pd.Index(table.columns.astype(str), dtype=object).get_indexer(ids)
    known = (rows >= 0) & (columns >= 0)
    if known.any():
        out[known] = table.to_numpy()[rows[known], columns[known]].astype(np.float64)
    return out
