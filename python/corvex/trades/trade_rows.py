"""The trades that count as closed, and the excursions on their way."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt
import pandas as pd

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["EXCURSIONS", "closed_returns", "closed_trades", "excursion", "excursions"]

#: Per trade, as fractions of the entry price; the last one in bars.
EXCURSIONS = ("mae", "mfe", "mfe_before_mae", "max_drawdown", "days_in_profit")


def closed_returns(
    trades: pd.DataFrame,
) -> tuple[npt.NDArray[np.float64], npt.NDArray[np.bool_]]:
    """Return the return of each trade, NaN where it has none, and which trades are closed.

    Closed are those that were left and have a return; none where the table has no returns.
    """
    if "return" not in trades.columns:
        return np.full(len(trades), np.nan), np.zeros(len(trades), dtype=bool)
    returns: npt.NDArray[np.float64] = trades["return"].to_numpy(dtype=np.float64)
    closed = ~np.isnan(returns)
    if "exit_date" in trades.columns:
        closed &= ~np.asarray(trades["exit_date"].array.isna())
    return returns, closed


def closed_trades(report: Report) -> pd.DataFrame:
    """Return the trades that were left and have a return; empty where the report has none."""
    trades: pd.DataFrame = report.trades
    return trades[closed_returns(trades)[1]]


def excursion(report: Report, name: str) -> pd.Series | None:
    """Return one excursion of every trade, or None where the report does not know it.

    A column of the trade table, or else of the report's own table of excursions (``mae_mfe``, with
    the same index).
    """
    trades: pd.DataFrame = report.trades
    if name in trades.columns:
        return trades[name]
    table = getattr(report, "mae_mfe", None)
    if isinstance(table, pd.DataFrame) and name in table.columns and table.index.is_unique:
        return table[name].reindex(trades.index)
    return None


def excursions(report: Report) -> pd.DataFrame:
    """Return what is known of the excursions of the closed trades, a column each.

    The columns are those of `EXCURSIONS`; one without a single value is left out.
    """
    _, closed = closed_returns(report.trades)
    found = {
        name: column[closed]
        for name in EXCURSIONS
        if (column := excursion(report, name)) is not None
    }
    return pd.DataFrame(found, index=report.trades.index[closed]).dropna(axis=1, how="all")
