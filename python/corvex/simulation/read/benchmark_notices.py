"""Telling where the benchmark that a user named does not cover the curve."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from corvex.ffn_core.benchmarks import known_benchmark
from corvex.simulation.notices import date_text, warn

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["warn_about_benchmark"]

# Exchanges differ in their holidays; holes beyond these want a word.
_LONGEST_HOLE = 10
_LARGEST_SHARE = 0.05
_COUNTED = "figures beside it and against it count the dates alone on which both have a value"


def warn_about_benchmark(report: Report) -> None:
    """Warn of a named benchmark that is empty, starts late, ends early or has holes; with dates.

    The weekends of a curve do not count, as most benchmarks have none.
    """
    if getattr(report.market, "benchmark_source", "default") == "default":
        return
    own = report.market.get_benchmark()
    if not own.notna().any():  # a flat line stands in for it
        warn(f"{_called(own)} has no value on any date; nothing is compared with it")
        return
    known = known_benchmark(report)
    known = known[pd.DatetimeIndex(known.index).day_of_week < 5]
    rows = np.flatnonzero(known.notna())
    if len(known) == 0 or len(rows) == len(known):
        return
    name = _called(report.benchmark)
    days = [date_text(day) for day in (known.index[0], known.index[-1])]
    if len(rows) == 0:
        warn(f"{name} has no value from {days[0]} to {days[1]}; nothing is compared with it")
        return
    first, last = (date_text(known.index[row]) for row in (rows[0], rows[-1]))
    if rows[0] > 0 or rows[-1] < len(known) - 1:
        warn(f"{name} covers {first} to {last} of {days[0]} to {days[1]}; {_COUNTED}")
    gaps = np.diff(rows) - 1
    if gaps.sum() > _LARGEST_SHARE * (rows[-1] - rows[0]) or gaps.max(initial=0) > _LONGEST_HOLE:
        hole = date_text(known.index[rows[int(np.argmax(gaps > 0))] + 1])
        warn(
            f"{name} has no value on {gaps.sum()} dates between {first} and {last}, the first of "
            f"them {hole}; {_COUNTED}"
        )


def _called(benchmark: pd.Series) -> str:
    title = benchmark.name
    return f"the benchmark {title!r}" if isinstance(title, str) else "the benchmark"
