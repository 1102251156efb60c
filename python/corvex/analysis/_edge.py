"""The edge ratio of trades by the time since their entry."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.trades.trade_lookup import TradeLookup, market_table, through_splits
from corvex.trades.trade_rows import closed_returns, closed_trades, excursion

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["edge_by_bars"]

_Floats = npt.NDArray[np.float64]


def edge_by_bars(report: Report, bars: Sequence[int]) -> list[dict[str, Any]]:
    """Return how far closed trades had gone for and against their holder some bars after entry.

    Parameters
    ----------
    report : Report
        Its market's close prices are the path; the fill price is where it begins.
    bars : sequence of int
        Bars after the entry.

    Returns
    -------
    list of dict
        For each of `bars`, and for the bars that the longest trade lasted where that is more:
        ``bars``, ``held`` (trades that lasted so long), the mean ``mae`` and ``mfe`` of all trades
        up to then and their ``edge_ratio`` (None where nothing went against). A trade that is over
        counts with the excursions that it ended with, those of the trade table: the closes of its
        last session may come after its exit. Empty without prices or trades.
    """
    close, fill = (
        through_splits(report.market, market_table(report.market, *question))
        for question in (("get_price", "close"), ("get_trading_price", report.trade_at))
    )
    trades = closed_trades(report)
    if close.empty or trades.empty or not {"entry_date", "exit_date"} <= set(trades.columns):
        return []
    lookup = TradeLookup(trades)
    fill = close if fill.empty else fill
    start = lookup.values(fill, "entry_date")
    entry = lookup.rows_in(close.index, "entry_date")
    leave = lookup.rows_in(close.index, "exit_date")
    known = (entry >= 0) & (leave >= entry) & np.isfinite(start)
    if not known.any():
        return []
    columns = lookup.columns_in(close.columns)
    path = _Path(close, columns[known], _sides(trades)[known], start[known])
    at_exit = path.gain_of(lookup.values(fill, "exit_date")[known])
    final = [_recorded(report, name)[known] for name in ("mae", "mfe")]
    entry, length = entry[known], (leave - entry)[known]
    rows: list[dict[str, Any]] = []
    wanted = {int(bar) for bar in bars}
    wanted |= {int(length.max())} if length.max() > max(wanted) else set()
    against, favour = np.zeros(len(length)), np.zeros(len(length))
    for bar in range(max(wanted) + 1):
        held = np.flatnonzero(length > bar)
        gain = path.gain(entry[held] + bar, held)
        over = np.flatnonzero(length == bar)
        for running, extreme, ended in ((against, np.fmin, final[0]), (favour, np.fmax, final[1])):
            running[held] = extreme(running[held], gain)
            own = extreme(running[over], at_exit[over])
            running[over] = np.where(np.isnan(ended[over]), own, ended[over])
        if bar in wanted:
            mae, mfe = float(against.mean()), float(favour.mean())
            ratio = mfe / -mae if mae < 0.0 else None
            lasted = len(held) + len(over)
            rows.append({"bars": bar, "held": lasted, "mae": mae, "mfe": mfe, "edge_ratio": ratio})
    return rows


def _recorded(report: Report, name: str) -> _Floats:
    """Return an excursion that the closed trades ended with; NaN where it is not known."""
    _, closed = closed_returns(report.trades)
    column = excursion(report, name)
    if column is None:
        return np.full(int(closed.sum()), np.nan)
    return column[closed].to_numpy(dtype=np.float64)


def _sides(trades: pd.DataFrame) -> _Floats:
    """Return 1 for each long and -1 for each short trade."""
    weight = trades.get("position")
    return np.ones(len(trades)) if weight is None else np.sign(weight.to_numpy(float))


class _Path:
    """Returns of trades since their entry, short ones with the sign turned."""

    def __init__(
        self, close: pd.DataFrame, columns: npt.NDArray[np.intp], side: _Floats, start: _Floats
    ) -> None:
        self._close: _Floats = close.to_numpy(dtype=np.float64)
        self._columns, self._side, self._start = columns, side, start

    def gain(self, rows: npt.NDArray[np.intp], which: npt.NDArray[np.intp]) -> _Floats:
        price = self._close[rows, self._columns[which]]
        gain: _Floats = self._side[which] * (price / self._start[which] - 1.0)
        return gain

    def gain_of(self, price: _Floats) -> _Floats:
        """Return the gain of each trade at a price of its own."""
        gain: _Floats = self._side * (price / self._start - 1.0)
        return gain
