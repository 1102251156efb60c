"""Figures of daily curves: returns, and the strategy's against the benchmark's."""

from __future__ import annotations

import math

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine

__all__ = ["beta", "changes", "days_per_year", "paired", "present"]

_Floats = npt.NDArray[np.float64]


def changes(curve: pd.Series) -> _Floats:
    """Return the fractional change from each value of a curve to the next."""
    values: _Floats = curve.to_numpy(dtype=np.float64)
    with np.errstate(divide="ignore", invalid="ignore"):
        return values[1:] / values[:-1] - 1


def present(returns: _Floats) -> _Floats:
    """Return the finite ones of some returns."""
    return returns[np.isfinite(returns)]


def paired(curve: pd.Series, benchmark: pd.Series) -> tuple[_Floats, _Floats]:
    """Return the returns of two curves on the dates on which both have one."""
    strategy, market = changes(curve), changes(benchmark.reindex(curve.index))
    both = np.isfinite(strategy) & np.isfinite(market)
    return strategy[both], market[both]


def beta(strategy: _Floats, benchmark: _Floats) -> float:
    """Return the covariance of paired returns over the variance of the second.

    NaN for fewer than two pairs and for a benchmark that does not move.
    """
    if benchmark.size < 2:
        return math.nan
    spread = benchmark - benchmark.mean()
    variance = float(spread @ spread)
    if variance <= 1e-30 * benchmark.size:  # a constant benchmark, up to rounding
        return math.nan
    return float(spread @ (strategy - strategy.mean())) / variance


def days_per_year(index: pd.Index) -> int:
    """Return how many values of a curve make a year, as the statistics count it.

    Daily 252, or 365 where there are values at weekends. Too few dates to tell: 252.
    """
    times = pd.DatetimeIndex(index).tz_localize(None).as_unit("ns").asi8
    return _engine.infer_convention(times)[1] or 252
