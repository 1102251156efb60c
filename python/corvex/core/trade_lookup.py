"""Values of market tables on the dates of trades, and the trades that count as closed."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = [
    "EXCURSIONS",
    "asset_ids",
    "capital_per_share",
    "closed_rows",
    "closed_trades",
    "entered_trades",
    "excursions",
    "market_table",
    "traded_value",
    "values_at",
]

#: Per trade, as fractions of the entry price; the last one in bars.
EXCURSIONS = ("mae", "mfe", "mfe_before_mae", "max_drawdown", "days_in_profit")

_NO_TABLE = (LookupError, NotImplementedError, OSError, ValueError)


def closed_rows(trades: pd.DataFrame) -> npt.NDArray[np.bool_]:
    """Tell which trades were left and have a return; none where the table has no returns."""
    if "return" not in trades.columns:
        return np.zeros(len(trades), dtype=bool)
    closed = ~np.isnan(trades["return"].to_numpy(dtype=np.float64))
    if "exit_date" in trades.columns:
        closed &= trades["exit_date"].notna().to_numpy()
    return closed


def closed_trades(report: Report) -> pd.DataFrame:
    """Return the trades that were left and have a return; empty where the report has none."""
    trades: pd.DataFrame = report.trades
    return trades[closed_rows(trades)]


def entered_trades(report: Report) -> pd.DataFrame:
    """Return the trades whose entry was filled; empty where the report has none."""
    trades: pd.DataFrame = report.trades
    if "entry_date" not in trades.columns:
        return trades.iloc[:0]
    return trades[trades["entry_date"].notna()]


def excursions(report: Report) -> pd.DataFrame:
    """Return what is known of the excursions of the closed trades, a column each.

    The columns of `EXCURSIONS` that the trade table has, or else the report's own table of them
    (``mae_mfe``, with the same index). Columns without a single value are left out.
    """
    trades = closed_trades(report)
    table = getattr(report, "mae_mfe", None)
    found: dict[str, pd.Series] = {}
    for name in EXCURSIONS:
        if name in trades.columns:
            found[name] = trades[name]
        elif isinstance(table, pd.DataFrame) and name in table.columns and table.index.is_unique:
            found[name] = table[name].reindex(trades.index)
    return pd.DataFrame(found, index=trades.index).dropna(axis=1, how="all")


def asset_ids(trades: pd.DataFrame) -> pd.Categorical:
    """Return the asset id of each trade: its label up to the first blank."""
    column = "symbol" if "symbol" in trades.columns else "stock_id"
    if column not in trades.columns:
        return pd.Categorical.from_codes(
            np.zeros(len(trades), dtype=np.intp), pd.Index([""], dtype=object)
        )
    codes, labels = pd.factorize(trades[column])
    ids = [str(label).split(" ")[0] for label in labels]
    if len(set(ids)) < len(ids):
        return pd.Categorical(np.asarray(ids, dtype=object)[codes])
    return pd.Categorical.from_codes(codes, pd.Index(ids, dtype=object))


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


def values_at(
    table: pd.DataFrame, dates: pd.Series, ids: pd.Categorical
) -> npt.NDArray[np.float64]:
    """Read one value per trade from a table of dates x asset ids.

    Parameters
    ----------
    table : DataFrame
        Numbers or booleans; dates x asset ids.
    dates : Series of shape (trades,)
        The date of each trade. Only a row of exactly this date counts: what was traded on a
        day says nothing about another.
    ids : Categorical of shape (trades,)
        The asset id of each trade (see `asset_ids`).

    Returns
    -------
    float array of shape (trades,)
        NaN where the table lacks the date or the asset.
    """
    if not table.index.is_unique:
        table = table[~table.index.duplicated(keep="last")]
    columns = table.columns
    if columns.inferred_type != "string":
        columns = columns.astype(str)
    if not columns.is_unique:
        table, columns = table.loc[:, ~columns.duplicated()], columns[~columns.duplicated()]
    out = np.full(len(dates), np.nan)
    rows = table.index.get_indexer(pd.Index(dates))
    # One more entry for the code -1 of a missing label.
    places = np.append(columns.get_indexer(pd.Index(ids.categories, dtype=object)), -1)
    found = places[ids.codes]
    known = (rows >= 0) & (found >= 0) & dates.notna().to_numpy()
    if known.any():
        out[known] = table.to_numpy()[rows[known], found[known]].astype(np.float64)
    return out


def traded_value(report: Report) -> pd.DataFrame:
    """Return how much was traded by date and asset, in the market's currency.

    Close x volume, both as quoted. Empty where the market has no volume.
    """
    close = market_table(report.market, "get_price", "close", adj=False)
    volume = market_table(report.market, "get_price", "volume", adj=False)
    if close.empty or volume.empty:
        return pd.DataFrame()
    used = asset_ids(report.trades).categories
    close = close.loc[:, close.columns.astype(str).isin(used)]
    value: pd.DataFrame = close * volume.reindex(index=close.index, columns=close.columns)
    return value


def capital_per_share(report: Report) -> npt.NDArray[np.float64]:
    """Return, for each fill, the capital that would trade all of that day's traded value.

    Traded value over entry weight, in the market's currency, entries first, then exits. A share
    of it is the capital that takes this share of the day's trading. Empty without volume or
    weights; fills on days without known volume are left out.
    """
    close = market_table(report.market, "get_price", "close", adj=False)
    volume = market_table(report.market, "get_price", "volume", adj=False)
    if close.empty or volume.empty:
        return np.empty(0)
    trades = entered_trades(report)
    if "position" not in trades.columns or trades.empty:
        return np.empty(0)
    weight = trades["position"].abs().to_numpy(dtype=np.float64)
    weight = np.where(weight > 0, weight, np.nan)
    ids = asset_ids(trades)
    capital: npt.NDArray[np.float64] = np.concatenate(
        [
            values_at(close, trades[name], ids) * values_at(volume, trades[name], ids) / weight
            for name in ("entry_date", "exit_date")
            if name in trades.columns
        ]
    )
    return capital[np.isfinite(capital)]
