"""The stretch of time that a run covers: `start` and `end`."""

from __future__ import annotations

import numpy as np

from corvex.simulation.notices import date_text
from corvex.simulation.read.clock import Border, Clock

__all__ = ["cut_clock"]


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
    return clock if (first, stop) == (0, len(clock)) else clock.between(first, stop)
