"""The daily curves of a report, and what can be told of them."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.ffn_core.benchmarks import carried, known_benchmark, moves
from corvex.ffn_core.curve_figures import days_per_year

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = [
    "Curves",
    "benchmark_figures",
    "day_of",
    "iso_day",
    "read_curves",
    "relative_figures",
    "riskfree_of",
    "wall_days",
]

RISK_FREE_RATE = 0.02
Floats = npt.NDArray[np.float64]
Days = npt.NDArray[np.int64]

_NANOS_PER_DAY = 86_400_000_000_000


def wall_days(index: pd.Index) -> Days:
    """Return dates as whole days since 1970-01-01 on the wall clock of their own zone.

    A session belongs to the date that its exchange gives it, so no zone may move it.
    """
    naive = pd.DatetimeIndex(index).tz_localize(None).as_unit("ns")
    days: Days = naive.asi8 // _NANOS_PER_DAY
    return days


def day_of(value: Any) -> int | None:
    """Return one date as days since 1970-01-01 on its own wall clock; None where there is none."""
    if value is None or isinstance(value, bool | int | float | str):
        return None
    try:
        stamp = pd.Timestamp(value)
    except (TypeError, ValueError):
        return None
    return None if pd.isna(stamp) else int(stamp.toordinal() - 719_163)


def iso_day(day: int) -> str:
    """Return a day since 1970-01-01 as an ISO date."""
    return str(np.datetime64(int(day), "D"))


@dataclass(frozen=True, slots=True)
class Curves:
    """The strategy's daily curve and its benchmark's on the same days.

    Attributes
    ----------
    days : int array of shape (rows,)
        Days since 1970-01-01, rising.
    strategy : float array of shape (rows,)
        Cumulative value.
    benchmark : float array of shape (rows,) or None
        NaN before the benchmark's first value and after its last; holes between them carry the
        value before. None without a benchmark that moves: the flat line
        that stands in for a missing benchmark is no benchmark.
    known : bool array of shape (rows,)
        The days on which both have a value of their own: figures of the two count these alone.
    periods : int
        Known days in a year, as the statistics count them; all days without a benchmark.
    """

    days: Days
    strategy: Floats
    benchmark: Floats | None
    known: npt.NDArray[np.bool_]
    periods: int

    def rows(self, start: int, end: int) -> tuple[int, int] | None:
        """Return the last rows not after two days; None where the curve does not cover them."""
        if not len(self.days) or self.days[0] > start or self.days[-1] < end:
            return None
        first, last = np.searchsorted(self.days, [start, end], side="right") - 1
        return int(first), int(last)


def read_curves(report: Report) -> Curves:
    """Read the daily curves of a report."""
    curve = report.daily_creturn
    benchmark = known_benchmark(report)
    strategy = np.asarray(curve, dtype=np.float64)
    beside = moves(benchmark)
    known = np.isfinite(strategy) & (np.asarray(benchmark.notna()) if beside else True)
    return Curves(
        days=wall_days(curve.index),
        strategy=strategy,
        benchmark=carried(benchmark).to_numpy() if beside else None,
        known=known,
        periods=days_per_year(curve.index[known]),
    )


def benchmark_figures(report: Report, riskfree_rate: float) -> dict[str, Any] | None:
    """Return the statistics of the benchmark on the dates that it has; None without one.

    `Report.get_benchmark_stats` counts the dates on which it only was carried forward as well.
    """
    known = known_benchmark(report)
    if not moves(known):
        return None
    record: dict[str, Any] = report._ffn_stats_dict(known.dropna(), riskfree_rate)
    return record


def changes(values: Floats) -> Floats:
    """Return the fractional change from each value to the next, NaN next to a missing one."""
    with np.errstate(divide="ignore", invalid="ignore"):
        result: Floats = values[1:] / values[:-1] - 1
    return result


def relative_figures(curves: Curves) -> dict[str, float]:
    """Return the figures that set the strategy against its benchmark; empty without one.

    Paired returns count, from one day on which both have a value to the next. Capture ratios are
    mean returns over the benchmark's up (down) days, divided by the benchmark's own.
    """
    if curves.benchmark is None:
        return {}
    strategy, benchmark = curves.strategy[curves.known], curves.benchmark[curves.known]
    own, market = changes(strategy), changes(benchmark)
    both = np.isfinite(own) & np.isfinite(market)
    own, market = own[both], market[both]
    if own.size < 2:
        return {}
    active = own - market
    alpha, beta = _engine.benchmark_fit(strategy, benchmark, curves.periods)
    error = float(active.std(ddof=1)) * math.sqrt(curves.periods)
    # Up to rounding, a strategy that is its benchmark has no active return to judge.
    has_error = error > 1e-12
    spread = float(own.std() * market.std())
    return {
        "alpha": alpha,
        "beta": beta,
        "correlation": float(np.cov(own, market, ddof=0)[0, 1]) / spread if spread else math.nan,
        "tracking_error": error,
        "information_ratio": float(active.mean()) * curves.periods / error
        if has_error
        else math.nan,
        "up_capture": _capture(own, market, market > 0),
        "down_capture": _capture(own, market, market < 0),
    }


def _capture(own: Floats, market: Floats, chosen: npt.NDArray[np.bool_]) -> float:
    return float(own[chosen].mean() / market[chosen].mean()) if chosen.any() else math.nan


def riskfree_of(report: Report, given: float | None = None) -> float:
    """Return the risk-free rate a year to count with: the one given, the report's own, or 2 %."""
    rate = getattr(report, "riskfree_rate", None) if given is None else given
    return RISK_FREE_RATE if rate is None else float(rate)
