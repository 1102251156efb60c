"""The dates on which a report and its benchmark both have a value."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.ffn_core import rebase

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["carried", "known_benchmark", "moves"]

_DAY = 86_400_000_000_000


def known_benchmark(report: Report) -> pd.Series:
    """Return the daily benchmark of a report, without what was only carried forward.

    `Report.daily_benchmark` repeats the last value over holes and beyond the benchmark's end.
    That is no return of zero, and figures of both curves count the other dates alone.

    Returns
    -------
    Series
        On the dates of `daily_creturn`; NaN where the benchmark has no value of its own on that
        date or since the date before. So a Friday's value counts for a month that ends on a
        Sunday, but not for the Saturday of a daily curve.
    """
    dates = report.daily_creturn.index
    daily = report.daily_benchmark.reindex(dates).astype("float64")
    own = getattr(report, "benchmark", None)
    if not (isinstance(own, pd.Series) and isinstance(dates, pd.DatetimeIndex) and len(dates)):
        return daily
    own = own.dropna()
    if not isinstance(own.index, pd.DatetimeIndex) or (own.index.tz is None) != (dates.tz is None):
        return daily
    if (own.index != own.index.normalize()).any():
        # Moments: the last of a day is its value, as for the strategy, and not that at midnight.
        own = (own if dates.tz is None else own.tz_convert(dates.tz)).resample("1D").last().dropna()
        daily = rebase(own.reindex(dates, method="ffill").astype("float64"))
    return daily.where(_has_own_value(pd.DatetimeIndex(own.index), dates))


def _has_own_value(stamps: pd.DatetimeIndex, dates: pd.DatetimeIndex) -> npt.NDArray[np.bool_]:
    own, rows = stamps.as_unit("ns").asi8, dates.as_unit("ns").asi8
    before_all = rows[0] - (_engine.usual_gap(rows) or _DAY)
    until = np.searchsorted(own, np.concatenate(([before_all], rows)), side="right")
    return np.diff(until) > 0


def carried(known: pd.Series) -> pd.Series:
    """Fill the holes of a series with the last value, but nothing before or after it."""
    return known.ffill().where(known.bfill().notna())


def moves(known: pd.Series) -> bool:
    """Whether there is a benchmark: the flat line that stands in for a missing one is none."""
    return known.nunique() > 1
