"""The trades in a compact form, their figures, and the way that each went."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.core.dashboard.embed import rounded
from corvex.core.dashboard.figures.curve_series import wall_days
from corvex.tables.context import _default_context
from corvex.trades.trade_lookup import TradeLookup, market_table, through_splits
from corvex.trades.trade_rows import EXCURSIONS, closed_returns

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = [
    "asset_column",
    "by_reason",
    "encoded",
    "figures_by",
    "floats",
    "price_paths",
    "shown_return",
    "trade_columns",
    "trade_figures",
]

Floats = npt.NDArray[np.float64]
Ints = npt.NDArray[np.int64]

# Fractions travel as whole numbers of a unit. That of the returns is fine enough for two readings
# of one return, here and in a table elsewhere, to be rounded alike.
_FRACTION = 1e-5
_RETURN = 1e-8
_LARGEST = 2.0**53  # a browser's whole numbers end here
_DATES = ("entry_sig_date", "entry_date", "exit_sig_date", "exit_date")
_PRICES = ("trade_price@entry_date", "trade_price@exit_date")
_MINUTE = 60_000_000_000


def trade_columns(trades: pd.DataFrame) -> dict[str, Any] | None:
    """Return the trade table by column; None without trades.

    Returns
    -------
    dict
        ``assets`` (labels) and ``asset`` (their numbers), ``reasons`` and ``reason`` likewise
        where the table has exit reasons, ``currencies`` and ``currency`` those that the assets are
        quoted in; the four dates in ``unit``s ("day" or "minute") since 1970-01-01 on the wall
        clock; ``return`` and ``currency_return`` in units of 1e-8, ``position`` and the excursions
        in units of 1e-5; prices, ``shares`` and ``money`` to six digits; ``period`` and
        ``days_in_profit`` in bars. None is a missing value; a column that the table lacks is left
        out.
    """
    if not len(trades) or not {asset_column(trades), "return"} <= set(trades.columns):
        return None
    labels, numbers = encoded(trades[asset_column(trades)])
    result: dict[str, Any] = {"count": len(trades), "assets": labels, "asset": numbers}
    if "exit_reason" in trades.columns:
        result["reasons"], result["reason"] = encoded(trades["exit_reason"])
    if "currency" in trades.columns:
        result["currencies"], result["currency"] = encoded(trades["currency"])
    result.update(_dates(trades))
    for name in ("return", "currency_return"):
        if name in trades.columns:
            result[name] = _whole(floats(trades[name]) / _RETURN)
    for name in ("position", *EXCURSIONS[:-1]):
        if name in trades.columns:
            result[name] = _whole(floats(trades[name]) / _FRACTION)
    for name in ("period", "days_in_profit"):
        if name in trades.columns:
            result[name] = _whole(floats(trades[name]))
    for name in (*_PRICES, "shares", "money"):
        if name in trades.columns:
            result[name] = rounded(floats(trades[name]))
    return result


def shown_return(value: float) -> float:
    """Return a trade's return as the trade table shows it."""
    return round(value / _RETURN) * _RETURN if math.isfinite(value) else value


def asset_column(trades: pd.DataFrame) -> str:
    """Return the name of the column that holds the asset labels."""
    return "symbol" if "symbol" in trades.columns else "stock_id"


def floats(column: pd.Series) -> Floats:
    """Return a column as numbers, NaN for what is none."""
    return np.asarray(pd.to_numeric(column, errors="coerce"), dtype=np.float64)


def encoded(column: pd.Series) -> tuple[list[str], list[int]]:
    """Return the texts of a column, each once, and which of them stands in each row."""
    numbers, labels = pd.factorize(column.astype(object).fillna(""))
    return [str(label) for label in labels], numbers.tolist()


def _whole(values: Floats) -> list[int | None]:
    known = np.isfinite(values)
    near = np.clip(np.where(known, values, 0.0), -_LARGEST, _LARGEST)
    whole = np.rint(near).astype(np.int64).tolist()
    return whole if known.all() else [w if k else None for w, k in zip(whole, known, strict=True)]


def _dates(trades: pd.DataFrame) -> dict[str, Any]:
    columns = {name: pd.DatetimeIndex(trades[name]) for name in _DATES if name in trades.columns}
    nanos = {name: dates.tz_localize(None).as_unit("ns") for name, dates in columns.items()}
    known = [dates[dates.notna()] for dates in nanos.values()]
    whole_days = all((dates == dates.normalize()).all() for dates in known)
    step = 1440 * _MINUTE if whole_days else _MINUTE
    result: dict[str, Any] = {"unit": "day" if whole_days else "minute"}
    for name, dates in nanos.items():
        counts = (dates.asi8 // step).tolist()
        result[name] = [None if gap else n for n, gap in zip(counts, dates.isna(), strict=True)]
    return result


def trade_figures(trades: pd.DataFrame) -> dict[str, Any] | None:
    """Return the figures of the closed trades; None without any.

    A trade that earned exactly nothing counts as one that did not win.
    """
    every, closed = closed_returns(trades)
    returns = every[closed]
    if "exit_date" not in trades.columns or not returns.size:
        return None
    win_rate, expectancy, profit_factor = _engine.trade_figures(every, closed)
    won, lost = returns[returns > 0], returns[returns <= 0]
    figures: dict[str, Any] = {
        "trades": int(returns.size),
        "open_trades": int((trades["entry_date"].notna() & trades["exit_date"].isna()).sum())
        if "entry_date" in trades.columns
        else None,
        "win_rate": win_rate,
        "expectancy": expectancy,
        "median_trade": float(np.median(returns)),
        "average_win": float(won.mean()) if won.size else None,
        "average_loss": float(lost.mean()) if lost.size else None,
        "payoff_ratio": float(won.mean() / -lost.mean()) if won.size and lost.any() else None,
        "profit_factor": profit_factor,
        "best_trade": float(returns.max()),
        "worst_trade": float(returns.min()),
        "longest_losing_streak": _longest_run(returns <= 0),
    }
    for name, column in (("mean_period", "period"), ("mean_mae", "mae"), ("mean_mfe", "mfe")):
        if column in trades.columns:
            figures[name] = _engine.mean_present(floats(trades[column]), closed)
    return figures


def figures_by(column: pd.Series, returns: Floats) -> dict[str, dict[str, Any]]:
    """Return ``trades``, ``win_rate`` and ``mean`` return for each text of a column.

    Those with most trades come first.
    """
    labels, numbers = encoded(column)
    order = np.argsort(numbers, kind="stable")
    sizes = np.bincount(numbers, minlength=len(labels))
    found = {}
    for label, own in zip(labels, np.split(returns[order], np.cumsum(sizes)[:-1]), strict=True):
        win_rate, mean, _ = _engine.trade_figures(own)
        found[label] = {"trades": int(own.size), "win_rate": win_rate, "mean": mean}
    return dict(sorted(found.items(), key=lambda item: -item[1]["trades"]))


def by_reason(trades: pd.DataFrame) -> list[dict[str, Any]]:
    """Return the figures of the closed trades by their exit reasons."""
    returns, closed = closed_returns(trades)
    if "exit_reason" not in trades.columns or not closed.any():
        return []
    found = figures_by(trades["exit_reason"][closed], returns[closed])
    return [{"reason": reason, **figures} for reason, figures in found.items()]


def _longest_run(flags: npt.NDArray[np.bool_]) -> int:
    edges = np.flatnonzero(np.diff(np.concatenate([[False], flags, [False]]).astype(np.int8)))
    return int((edges[1::2] - edges[::2]).max()) if edges.size else 0


def price_paths(report: Report, budget: int) -> dict[str, Any] | None:
    """Return the unrealised return of the latest trades, close by close.

    Parameters
    ----------
    budget : int
        How many values there may be in all; the latest trades come first.

    Returns
    -------
    dict or None
        ``trade`` (rows of the trade table), and for each its ``row`` in ``days`` (the sessions,
        since 1970-01-01) and its ``length``; ``values``: all paths one after another, in basis
        points of the entry price, from the close of the entry's session to that of the exit's;
        None is a close that is missing. None where the market has no closes for these trades.
    """
    trades = report.trades
    needed = {asset_column(trades), "entry_date", "exit_date", "return"}
    if not needed <= set(trades.columns) or trades.empty:
        return None
    with _default_context.override(_loaded_datasets=set(_default_context._loaded_datasets)):
        close = market_table(report.market, "get_price", "close", adj=True)
        fill = market_table(report.market, "get_trading_price", report.trade_at, adj=True)
    close, fill = (through_splits(report.market, table) for table in (close, fill))
    if close.empty or not close.index.is_unique:
        return None
    lookup = TradeLookup(trades)
    places = _places(lookup, close)
    lengths = np.where(places.known, places.last - places.first + 1, 0)
    latest = np.argsort(-places.first, kind="stable")
    fits = latest[(np.cumsum(lengths[latest]) <= budget) & (lengths[latest] > 0)]
    if not fits.size:
        return None
    chosen = np.sort(fits)
    start = lookup.values(close if fill.empty else fill, "entry_date")
    values = _paths(trades, close, start, places, chosen)
    return {
        "trade": chosen.tolist(),
        "length": lengths[chosen].tolist(),
        "days": wall_days(close.index[: int(places.last[chosen].max()) + 1]).tolist(),
        "row": places.first[chosen].tolist(),
        "values": values,
    }


class _Places:
    """Where each trade stands in a price table: its column, first and last row."""

    def __init__(self, column: Ints, first: Ints, last: Ints) -> None:
        self.column, self.first, self.last = column, first, last
        self.known = (column >= 0) & (first >= 0) & (last >= first)


def _places(lookup: TradeLookup, close: pd.DataFrame) -> _Places:
    column = lookup.columns_in(close.columns)
    first = lookup.rows_in(close.index, "entry_date")
    last = lookup.rows_in(close.index, "exit_date")
    last = np.where(lookup.trades["exit_date"].isna().to_numpy(), len(close) - 1, last)
    return _Places(column, first, last)


def _paths(
    trades: pd.DataFrame, close: pd.DataFrame, start: Floats, places: _Places, chosen: Ints
) -> list[int | None]:
    prices = close.to_numpy(dtype=np.float64)
    side = np.ones(len(trades))
    if "position" in trades.columns:
        side = np.where(floats(trades["position"]) < 0, -1.0, 1.0)
    pieces = []
    for i in chosen:
        first, last, column = places.first[i], places.last[i], places.column[i]
        path = prices[first : last + 1, column] / start[i] - 1
        pieces.append(path * side[i])
    return _whole(np.concatenate(pieces) * 1e4)
