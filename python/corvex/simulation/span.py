"""The stretch of time that a run covers: `start`, `end` and what is in force at its borders."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd

from corvex.markets.stamps import has_dates_only
from corvex.simulation.dates import Clock, Stamps, nanos_of
from corvex.simulation.notices import date_text, warn
from corvex.simulation.targets import WeightTable

__all__ = ["cut_clock", "cut_weights", "rows_until", "span_border"]


def span_border(clock: Clock, when: Any, name: str) -> pd.Timestamp | None:
    """Read `start` or `end`; an end that is a date alone includes its whole day."""
    return None if when is None else clock.stamp(when, name, end_of_day=name == "end")


def rows_until(index: pd.DatetimeIndex, end: pd.Timestamp) -> int:
    """How many of some rising dates are not after `end`."""
    return int(np.searchsorted(index.as_unit("ns").asi8, nanos_of(end), side="right"))


def cut_clock(clock: Clock, start: pd.Timestamp | None, end: pd.Timestamp | None) -> Clock:
    """Return the sessions from `start` to `end`.

    Raises
    ------
    ValueError
        When there are none.
    """
    if start is not None and end is not None and start > end:
        raise ValueError(f"start {date_text(start)} lies after end {date_text(end)}")
    first = 0 if start is None else int(np.searchsorted(clock.keys, nanos_of(start)))
    stop = len(clock) if end is None else rows_until(clock.index, end)
    if first >= stop:
        borders = ", ".join(
            f"{name}={date_text(when)}"
            for name, when in (("start", start), ("end", end))
            if when is not None
        )
        raise ValueError(
            f"no prices for {borders}; they run from {date_text(clock.index[0])} to "
            f"{date_text(clock.last)}"
        )
    return clock.between(first, stop)


def cut_weights(
    weights: WeightTable, clock: Clock, *, carry: bool, end: pd.Timestamp | None
) -> tuple[WeightTable, Stamps]:
    """Place the rows of weights on the sessions of a run.

    Parameters
    ----------
    weights : WeightTable
        All weights.
    clock : Clock
        The sessions of the run.
    carry : bool
        The run begins later than the prices do: the row in force there counts as the signal of
        its first session.
    end : Timestamp or None
        Rows dated later are not known yet.
    """
    rows = clock.place(weights.index)
    if not clock.is_daily and len(rows) > 1 and has_dates_only(weights.index):
        warn(
            "weights are dated by day, prices within the day: a date counts as its midnight, so it "
            "trades in the first bar of the same day; date each row by when it is known"
        )
    stop = len(rows)
    if end is not None:
        stop = int(np.searchsorted(rows.keys, nanos_of(end), side="right"))
        if stop == 0:
            raise ValueError(
                f"the weights begin on {date_text(rows.dates[0])}, after end={date_text(end)}"
            )
    first = max(int(np.searchsorted(rows.sessions, 0)) - 1, 0) if carry else 0
    weights, rows = weights.between(first, stop), rows.between(first, stop)
    return weights, _carried(rows, clock) if carry and rows.sessions[0] < 0 else rows


def _carried(rows: Stamps, clock: Clock) -> Stamps:
    """The rows with the first one signalled on the first session."""
    dates = pd.DatetimeIndex(clock.index[:1].append(rows.dates[1:]))
    keys, sessions = rows.keys.copy(), rows.sessions.copy()
    keys[0], sessions[0] = clock.keys[0], 0
    return Stamps(dates, keys, sessions)
