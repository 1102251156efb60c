"""Placing the rows of weights on the sessions of prices."""

from __future__ import annotations

import numpy as np
import pandas as pd

from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import Clock, Stamps
from corvex.simulation.read.price_data import PriceData

__all__ = ["place_weights"]


def place_weights(dates: pd.DatetimeIndex, prices: PriceData) -> tuple[slice, Stamps]:
    """Return which rows of weights count, and their dates on the clock of the prices.

    Rows after the end of the span are not known yet. Where the run begins later than the prices
    do, the row in force there counts as the signal of its first session.
    """
    clock, end, carry = prices.clock, prices.end, prices.carries
    rows = clock.place(dates)
    if rows.whole_days and clock.has_midnights:
        warn(
            "weights are dated by day, prices within the day: each row counts from the end of its "
            "day and trades in the first bar after it. If 00:00 is meant as a moment, give the "
            "weights a row for each bar"
        )
    elif not rows.whole_days and clock.reads_foreign_times(dates):
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
    part = rows.between(first, stop)
    if carry and part.sessions[0] < 0:
        part = _carried(part, clock)
    return slice(first, stop), part


def _carried(rows: Stamps, clock: Clock) -> Stamps:
    """The rows with the first one signalled on the first session."""
    dates = pd.DatetimeIndex(clock.index[:1].append(rows.dates[1:]))
    keys, sessions = rows.keys.copy(), rows.sessions.copy()
    keys[0], sessions[0] = clock.keys[0], 0
    return Stamps(dates, keys, sessions, rows.whole_days)
