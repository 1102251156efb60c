"""Figures of daily curves: returns, and the strategy's against the benchmark's."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["SESSIONS_PER_YEAR", "days_per_year", "fit", "statistics", "values_per_year"]

#: Where the dates of a curve are too few to tell.
SESSIONS_PER_YEAR = 252


def statistics(report: Report, riskfree_rate: float = 0.02) -> dict[str, Any]:
    """Return the record of `Report.get_stats`, computed anew and held by nobody else.

    `get_stats` itself gives the same record to all who ask.
    """
    compute = type(report)._get_stats
    record: dict[str, Any] = getattr(compute, "__wrapped__", compute)(report, riskfree_rate)
    return record


def fit(curve: pd.Series, benchmark: pd.Series) -> tuple[float, float]:
    """Return alpha per year and beta of a curve against a benchmark.

    The returns from one date to the next count, of the dates on which both have a value; these
    tell the values in a year, too. NaN for fewer than two returns and for a benchmark that does
    not move.
    """
    if benchmark.index is not curve.index and not benchmark.index.equals(curve.index):
        benchmark = benchmark.reindex(curve.index)
    own, market = curve.to_numpy(dtype=np.float64), benchmark.to_numpy(dtype=np.float64)
    both = np.isfinite(own) & np.isfinite(market)
    return _engine.benchmark_fit(own[both], market[both], days_per_year(curve.index[both]))


def days_per_year(index: pd.Index) -> int:
    """Return how many values of a curve make a year, as the statistics count it.

    Daily 252, or 365 where there are values at weekends. Too few dates to tell: 252.
    """
    times = pd.DatetimeIndex(index).tz_localize(None).as_unit("ns").asi8
    return values_per_year(times)


def values_per_year(times: npt.NDArray[np.int64]) -> int:
    """Return the same from the dates as nanoseconds of the wall clock."""
    return _engine.infer_convention(times)[1] or SESSIONS_PER_YEAR
