"""Dates of an account on the sessions: what holds from a date on, and what happens on one."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.simulation.notices import date_text
from corvex.simulation.read.clock import Clock

__all__ = ["rows_as_of", "rows_from"]

_Rows = npt.NDArray[np.int64]


def rows_as_of(clock: Clock, dates: pd.DatetimeIndex, name: str) -> _Rows:
    """Find the last row at or before each session; -1 before the first.

    Raises
    ------
    ValueError
        When the dates do not rise.
    """
    if not (dates.is_unique and dates.is_monotonic_increasing):
        at = int(np.argmax(np.diff(dates.asi8) <= 0)) + 1
        raise ValueError(f"the dates of {name} must rise; see {date_text(dates[at])}")
    return np.searchsorted(clock.place(dates).keys, clock.keys, side="right") - 1


def rows_from(clock: Clock, dates: pd.DatetimeIndex) -> tuple[_Rows, npt.NDArray[np.bool_]]:
    """Find the first session at or after each date, and whether that is on another day.

    A date beside intraday prices is its first bar.
    """
    keys, wanted = clock.begins(dates)
    sessions = np.searchsorted(clock.keys, keys, side="left")
    return sessions, clock.days[np.minimum(sessions, len(clock) - 1)] != wanted
