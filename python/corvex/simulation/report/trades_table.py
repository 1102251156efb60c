"""The trades table: round trips with the user's labels and dates."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any

import numpy as np
import pandas as pd

from corvex.trades.reasons import EXIT_REASONS

__all__ = ["EXCURSIONS", "closed_returns", "empty_trades", "mae_mfe_table", "trades_table"]

EXCURSIONS = ("mae", "mfe", "mfe_before_mae", "max_drawdown", "days_in_profit")
_NOTHING = np.iinfo(np.int64).min

type RawPrice = Callable[[np.ndarray, np.ndarray, np.ndarray], np.ndarray]


def trades_table(
    trades: dict[str, np.ndarray],
    labels: pd.Index,
    sessions: pd.DatetimeIndex,
    signals: pd.DatetimeIndex,
    raw_price: RawPrice | None = None,
    extra: Mapping[str, Any] | None = None,
) -> pd.DataFrame:
    """Turn the engine's round trips into a table.

    Parameters
    ----------
    trades : dict of arrays
        As the engine gives them.
    labels : Index
        Label of each asset.
    sessions, signals : DatetimeIndex
        Dates of the sessions and of the rebalances' signals, in one zone.
    raw_price : callable, optional
        Turns fill prices into unadjusted ones, from (sessions, assets, prices).
    extra : mapping of str to array, optional
        More columns.

    Returns
    -------
    DataFrame
        One row per round trip, sorted by `entry_sig_date`, then asset: ``symbol``,
        ``entry_date``, ``exit_date``, ``entry_sig_date``, ``exit_sig_date``, ``position`` (entry
        target weight), ``period`` (bars held), ``return``, ``trade_price@entry_date``,
        ``trade_price@exit_date``, the excursions and ``exit_reason``.
    """
    asset = trades["asset"]
    entry, exit_ = trades["entry_session"], trades["exit_session"]
    entry_price, exit_price = trades["entry_price"], trades["exit_price"]
    if raw_price is not None:
        entry_price = raw_price(entry, asset, entry_price)
        exit_price = raw_price(exit_, asset, exit_price)
    by_rebalance = _dates(signals, trades["exit_rebalance"])
    by_session = _dates(sessions, trades["exit_signal_session"])
    return pd.DataFrame(
        {
            "symbol": labels.take(asset),
            "entry_date": _dates(sessions, entry),
            "exit_date": _dates(sessions, exit_),
            "entry_sig_date": _dates(signals, trades["entry_rebalance"]),
            "exit_sig_date": by_rebalance.where(trades["exit_rebalance"] >= 0, by_session),
            "position": trades["weight"],
            "period": trades["period"],
            "return": trades["return"],
            "trade_price@entry_date": entry_price,
            "trade_price@exit_date": exit_price,
            **{name: trades[name] for name in EXCURSIONS},
            "exit_reason": pd.Index(list(EXIT_REASONS)).take(trades["exit_reason"]),
            **(extra or {}),
        },
        copy=True,  # the run keeps its arrays
    )


def closed_returns(trades: dict[str, np.ndarray]) -> np.ndarray:
    """The returns of the closed round trips: of those rows of the table that miss no value."""
    closed = (trades["exit_rebalance"] >= 0) | (trades["exit_signal_session"] >= 0)
    for rows in ("entry_session", "exit_session", "entry_rebalance"):
        closed &= trades[rows] >= 0
    for numbers in ("weight", "period", "return", "entry_price", "exit_price", *EXCURSIONS):
        closed &= ~np.isnan(trades[numbers])
    return trades["return"][closed]


def mae_mfe_table(trades: pd.DataFrame) -> pd.DataFrame:
    """The excursions of each trade, one row per row of the trades."""
    return trades[list(EXCURSIONS)]


def empty_trades(dates: pd.DatetimeIndex) -> pd.DataFrame:
    """A trades table without rows, its dates in the form of `dates`."""
    ints, floats = np.empty(0, np.int64), np.empty(0)
    names = ("asset", "entry_session", "exit_session", "exit_rebalance", "entry_rebalance")
    numbers = ("weight", "period", "return", "entry_price", "exit_price", *EXCURSIONS)
    arrays = {
        **dict.fromkeys((*names, "exit_signal_session", "exit_reason"), ints),
        **dict.fromkeys(numbers, floats),
    }
    return trades_table(arrays, pd.Index([], dtype="str"), dates, dates[:0])


def _dates(index: pd.DatetimeIndex, positions: np.ndarray) -> pd.DatetimeIndex:
    """The dates at some positions, NaT at -1."""
    if len(index) == 0:
        nothing = pd.DatetimeIndex(np.full(len(positions), _NOTHING, dtype=np.int64))
        nothing = nothing.as_unit(index.unit)
        return nothing if index.tz is None else nothing.tz_localize("UTC").tz_convert(index.tz)
    taken = index.take(np.maximum(positions, 0))
    return taken if (positions >= 0).all() else pd.DatetimeIndex(taken.where(positions >= 0))
