"""Many runs at once: what the engine needs to know of the dates."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.markets.bars import period_before

__all__ = ["BatchDates", "batch_dates"]

_Ints = npt.NDArray[np.int64]


@dataclass(frozen=True)
class BatchDates:
    """The dates of a batch, as `_engine.simulate_many` takes them.

    Attributes
    ----------
    times : int64 array of shape (sessions,)
        Midnight of each session's day on the wall clock, in nanoseconds: figures are those of
        daily values.
    closes : int64 array
        The last session of each day.
    before_first : int64 array of shape (plans,)
        One bar before the first session of each plan.
    """

    times: _Ints
    closes: _Ints
    before_first: _Ints


def batch_dates(index: pd.DatetimeIndex, first_sessions: Sequence[int]) -> BatchDates:
    """Read the dates of a price table for plans that begin at some of its sessions."""
    wall = index.tz_localize(None).as_unit("ns")
    before = {first: period_before(index[first:]) for first in set(first_sessions)}
    starts = pd.DatetimeIndex([before[first] for first in first_sessions])
    return BatchDates(
        times=wall.normalize().asi8,
        closes=_engine.day_end_rows(wall.asi8),
        before_first=starts.tz_localize(None).as_unit("ns").normalize().asi8,
    )
