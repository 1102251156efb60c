"""Figures of daily curves: returns, and the strategy's against the benchmark's."""

from __future__ import annotations

import math

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine

__all__ = ["beta", "changes", "days_per_year", "fit"]

_Floats = npt.NDArray[np.float64]


def changes(curve: pd.Series) -> _Floats:
    """Return the fractional change from each value of a curve to the next."""
    values: _Floats = curve.to_numpy(dtype=np.float64)
    with np.errstate(divide="ignore", invalid="ignore"):
        return values[1:] / values[:-1] - 1


def fit(curve: pd.Series, benchmark: pd.Series, periods_per_year: int) -> tuple[float, float]:
    """Return alpha per year and beta of a curve against a benchmark.

    The returns on the dates on which both have one count. NaN for fewer than two of them and for
    a benchmark that does not move.
    """
    if not benchmark.index.equals(curve.index):
        benchmark = benchmark.reindex(curve.index)
    return _engine.benchmark_fit(
        curve.to_numpy(dtype=np.float64), benchmark.to_numpy(dtype=np.float64), periods_per_year
    )


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
