"""The edge ratio of trades by the time since their entry."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.core.trade_lookup import TradeLookup, market_table
from corvex.core.trade_rows import closed_trades

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
        For each of `bars`: ``bars``, ``held`` (trades that lasted so long), the mean ``mae`` and
        ``mfe`` of all trades up to then (a trade that ended earlier keeps its own) and their
        ``edge_ratio`` (None where nothing went against). Empty without prices or trades.
    """
    close = market_table(report.market, "get_price", "close")
    fill = market_table(report.market, "get_trading_price", report.trade_at)
    trades = closed_trades(report)
    if close.empty or trades.empty or not {"entry_date", "exit_date"} <= set(trades.columns):
        return []
    lookup = TradeLookup(trades)
    start = lookup.values(fill if not fill.empty else close, "entry_date")
    entry = lookup.rows_in(close.index, "entry_date")
    leave = lookup.rows_in(close.index, "exit_date")
    known = (entry >= 0) & (leave >= entry) & np.isfinite(start)
    if not known.any():
        return []
    columns = lookup.columns_in(close.columns)
    path = _Path(close, columns[known], _sides(trades)[known], start[known])
    length = (leave - entry)[known]
    rows: list[dict[str, Any]] = []
    wanted = sorted({int(bar) for bar in bars})
    against, favour = np.zeros(len(length)), np.zeros(len(length))
    for bar in range(wanted[-1] + 1):
        held = np.flatnonzero(length >= bar)
        gain = path.gain(entry[known][held] + bar, held)
        against[held] = np.fmin(against[held], gain)
        favour[held] = np.fmax(favour[held], gain)
        if bar in wanted:
            mae, mfe = float(against.mean()), float(favour.mean())
            ratio = mfe / -mae if mae < 0.0 else None
            rows.append(
                {"bars": bar, "held": len(held), "mae": mae, "mfe": mfe, "edge_ratio": ratio}
            )
    return rows


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
