"""The stretch of time that a run covers: `start`, `end` and what is in force at its borders."""

from __future__ import annotations

import numpy as np
import pandas as pd

from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import Border, Clock, Stamps
from corvex.simulation.read.weights import WeightTable

__all__ = ["cut_clock", "cut_weights"]


def cut_clock(clock: Clock, start: Border | None, end: Border | None) -> Clock:
    """Return the sessions from `start` to `end`.

    Raises
    ------
    ValueError
        When there are none.
    """
    if start is not None and end is not None and start.key > end.key:
        raise ValueError(f"start {date_text(start.date)} lies after end {date_text(end.date)}")
    first = 0 if start is None else int(np.searchsorted(clock.keys, start.key))
    stop = len(clock) if end is None else int(np.searchsorted(clock.keys, end.key, side="right"))
    if first >= stop:
        borders = ", ".join(
            f"{name}={date_text(border.date)}"
            for name, border in (("start", start), ("end", end))
            if border is not None
        )
        raise ValueError(
            f"no prices for {borders}; they run from {date_text(clock.index[0])} to "
            f"{date_text(clock.last)}"
        )
    return clock.between(first, stop)


def cut_weights(
    weights: WeightTable, clock: Clock, *, carry: bool, end: Border | None
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
    end : Border or None
        Rows dated later are not known yet.
    """
    rows = clock.place(weights.index)
    if rows.whole_days and clock.has_midnights:
        warn(
            "weights are dated by day, prices within the day: each row counts from the end of its "
            "day and trades in the first bar after it. If 00:00 is meant as a moment, give the "
            "weights a row for each bar"
        )
    elif not rows.whole_days and clock.reads_foreign_times(weights.index):
        warn(
            f"weights have times without a zone, prices have those of {clock.index.tz}: the times "
            "are read on the clock of the prices; give the weights a zone if they are not"
        )
    stop = len(rows)
    if end is not None:
        stop = int(np.searchsorted(rows.keys, end.key, side="right"))
        if stop == 0:
            raise ValueError(
                f"the weights begin on {date_text(rows.dates[0])}, after end={date_text(end.date)}"
            )
    first = max(int(np.searchsorted(rows.sessions, 0)) - 1, 0) if carry else 0
    weights, rows = weights.between(first, stop), rows.between(first, stop)
    return weights, _carried(rows, clock) if carry and rows.sessions[0] < 0 else rows


def _carried(rows: Stamps, clock: Clock) -> Stamps:
    """The rows with the first one signalled on the first session."""
    dates = pd.DatetimeIndex(clock.index[:1].append(rows.dates[1:]))
    keys, sessions = rows.keys.copy(), rows.sessions.copy()
    keys[0], sessions[0] = clock.keys[0], 0
    return Stamps(dates, keys, sessions, rows.whole_days)
