"""The record of what a report held, gained and traded, and the arithmetic of fills."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt
import pandas as pd

__all__ = ["Ledger", "bought_shares", "known_marks"]

_Floats = npt.NDArray[np.float64]


@dataclass(frozen=True, slots=True)
class Ledger:
    """Holdings, profits and orders, all in units of the first equity.

    Attributes
    ----------
    index : DatetimeIndex of length sessions
        The dates of the curve.
    assets : Index of length assets
        Labels of the assets that were ever held.
    equity : float64 array of shape (sessions,)
        The curve.
    shares, value : float64 arrays of shape (sessions, assets)
        Each holding at the close; negative when short. Without prices of the assets `value` is
        the target weights' and `shares` is 0.
    profit : float64 array of shape (sessions, assets)
        What each asset gained in the session, before costs; 0 without prices.
    bought, sold, cost : float64 arrays of shape (sessions,)
        Traded value, and what trading cost.
    priced : bool
        False when the report's market has no prices of the assets.
    estimated : bool
        The report keeps no fills; they were guessed from its target weights.
    cost_of : float64 array of shape (sessions, assets)
        What trading each asset cost.
    dividends, borrow : float64 arrays of shape (sessions, assets) or None
        What `profit` holds beside the moves of prices (borrowing below zero); None without an
        account.
    currency : float64 array of shape (sessions, assets) or None
        What of `profit` the moves of exchange rates brought; None without several currencies.
    interest : float64 array of shape (sessions,) or None
        What cash earned, less what loans cost.
    """

    index: pd.DatetimeIndex
    assets: pd.Index
    equity: _Floats
    shares: _Floats
    value: _Floats
    profit: _Floats
    bought: _Floats
    sold: _Floats
    cost: _Floats
    priced: bool
    estimated: bool
    cost_of: _Floats
    dividends: _Floats | None = None
    borrow: _Floats | None = None
    interest: _Floats | None = None
    currency: _Floats | None = None

    @property
    def gained(self) -> _Floats:
        """What the equity gained in each session."""
        # Fills in the first session have moved its equity already.
        return np.diff(self.equity, prepend=self.equity[:1] if self.estimated else 1.0)


def bought_shares(columns: npt.NDArray[np.int64], after: _Floats) -> _Floats:
    """Return the shares that each fill bought: those held after it less those before."""
    order = np.argsort(columns, kind="stable")
    sorted_columns, sorted_after = columns[order], after[order]
    bought = np.diff(sorted_after, prepend=0.0)
    first = np.diff(sorted_columns, prepend=-1) != 0
    bought[first] = sorted_after[first]
    change = np.empty_like(after)
    change[order] = bought
    return change


def known_marks(close: _Floats, cells: npt.NDArray[np.int64], price: _Floats) -> _Floats:
    """Return the price that each holding is valued at: without a close, the last known one."""
    marks = close.copy()
    gaps = np.isnan(marks.flat[cells])
    marks.flat[cells[gaps]] = price[gaps]
    filled: _Floats = np.nan_to_num(pd.DataFrame(marks, copy=False).ffill().to_numpy())
    return filled
