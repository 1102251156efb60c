"""Curves turned into other curves: returns, price indexes, rebased and thinned-out copies."""

from __future__ import annotations

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core._columns import transform_columns
from corvex.ffn_core._curve import read_dates, read_times


def rebase[T: (pd.Series, pd.DataFrame)](prices: T, value: float = 100) -> T:
    """Return the curve scaled so that its first present value becomes `value`.

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, of shape (rows,) or (rows, columns). Each column is divided by
        its own first present value; missing values stay missing.
    value : float, default 100
        What the curve starts from.
    """
    return transform_columns(prices, lambda values: _engine.rebase(values, float(value)))


def to_returns[T: (pd.Series, pd.DataFrame)](prices: T) -> T:
    """Return the simple returns of `prices`, ``p[i] / p[i - 1] - 1``; the first is missing.

    Nothing is filled: next to a missing price the return is missing.
    """
    return prices / prices.shift(1) - 1


def to_log_returns[T: (pd.Series, pd.DataFrame)](prices: T) -> T:
    """Return the logarithmic returns of `prices`, ``ln(p[i] / p[i - 1])``; the first is missing."""
    ratios: T = prices / prices.shift(1)
    logarithms: T = np.log(ratios)  # type: ignore[assignment]  # numpy keeps the pandas type
    return logarithms


def to_price_index[T: (pd.Series, pd.DataFrame)](returns: T, start: float = 100) -> T:
    """Return the curve that simple returns make of `start`.

    Parameters
    ----------
    returns : Series or DataFrame
        Simple returns as fractions; a missing one counts as 0.
    start : float, default 100
        The value before the first return. Where the first return is missing, as `to_returns`
        leaves it, the curve's first value is `start`.
    """
    index: T = (returns.fillna(0.0) + 1.0).cumprod() * start
    return index


def to_excess_returns[T: (pd.Series, pd.DataFrame)](
    returns: T, rf: float, nperiods: float | None = None
) -> T:
    """Return the returns less the risk-free return of one period.

    Parameters
    ----------
    returns : Series or DataFrame
        Simple returns as fractions.
    rf : float
        Risk-free rate per year, a fraction; ``(1 + rf) ** (1 / nperiods) - 1`` is taken off.
    nperiods : float, optional
        Periods in a year. By default told by the dates (see `calc_stats`).
    """
    periods = infer_periods(returns) if nperiods is None else nperiods
    riskfree: float = (1.0 + rf) ** (1.0 / periods) - 1.0
    excess: T = returns - riskfree
    return excess


def to_monthly[T: (pd.Series, pd.DataFrame)](prices: T) -> T:
    """Return the last row of each month of `prices`, under its own date.

    Months without a row are left out. In a series missing values are dropped first; in a table a
    row counts when any column has a value, and each column carries its last value of that month.
    """
    if isinstance(prices, pd.DataFrame):
        if prices.empty:
            return prices
        kept = prices.dropna(how="all")
        dates = read_dates(kept.iloc[:, 0])
        filled = kept.groupby(np.asarray(dates.year * 12 + dates.month)).ffill()
        return filled.iloc[_engine.month_end_rows(read_times(filled.iloc[:, 0]))]
    kept = prices.dropna()
    months: T = kept.iloc[_engine.month_end_rows(read_times(kept))]
    return months


def infer_periods(data: pd.Series | pd.DataFrame) -> int:
    """Return the periods in a year that the dates tell.

    Raises
    ------
    ValueError
        If there are fewer than two dates.
    """
    dates = pd.Series(0.0, index=data.index)
    _, periods, _ = _engine.infer_convention(read_times(dates))
    if periods == 0:
        raise ValueError("the periods in a year need at least two dates, or pass nperiods")
    return periods
