"""Windows that roll over the sessions of curves: to choose in, and to judge in."""

from __future__ import annotations

from dataclasses import dataclass
from itertools import pairwise
from typing import Any

import numpy as np
import pandas as pd

from corvex.simulation.notices import date_text

__all__ = ["Window", "roll"]

_DAY = pd.Timedelta(days=1)
# Holidays around the turn of a period may hide its first days.
_GRACE = pd.Timedelta(days=7)
_FEWEST = 3
# Periods are told by their ends.
_STARTS = (
    pd.offsets.MonthBegin,
    pd.offsets.QuarterBegin,
    pd.offsets.YearBegin,
    pd.offsets.SemiMonthBegin,
)
_MONTHS = (
    (pd.offsets.MonthEnd | pd.offsets.BusinessMonthEnd, 1),
    (pd.offsets.QuarterEnd | pd.offsets.BQuarterEnd, 3),
    (pd.offsets.YearEnd | pd.offsets.BYearEnd, 12),
)


@dataclass(frozen=True, slots=True)
class Window:
    """Rows of sessions, the ends left out.

    Attributes
    ----------
    train : slice
        Where parameters are chosen.
    test : slice
        Where they are used.
    """

    train: slice
    test: slice


def roll(
    sessions: pd.DatetimeIndex, train: Any, test: Any, embargo: Any, *, anchored: bool
) -> list[Window]:
    """Return windows that follow each other without a gap, the last one perhaps cut short.

    Parameters
    ----------
    sessions : DatetimeIndex
        The dates of the curves.
    train, test : str, offset or timedelta
        Lengths. A frequency such as "5YE" begins and ends with its periods, a length such as "90D"
        is counted from the first session on.
    embargo : str, offset, timedelta or None
        How long before each test the training ends.
    anchored : bool
        Every training begins with the first session.

    Raises
    ------
    ValueError
        When a length is none, no window fits, or one has too few sessions.
    """
    lengths = [_offset(value, name) for value, name in ((train, "train"), (test, "test"))]
    gap = None if embargo is None else _offset(embargo, "embargo", least=0)
    days = (sessions if sessions.tz is None else sessions.tz_localize(None)).as_unit("ns")
    borders = _borders(days, *lengths)
    windows = []
    for begin, end in pairwise(borders):
        first = 0 if anchored else _row(days, _before(begin, lengths[0]))
        last = _row(days, begin if gap is None else _before(begin, gap))
        rows = slice(_row(days, begin), _row(days, end))
        if rows.stop == rows.start:
            raise ValueError(
                f"there is no session from {date_text(begin)} to {date_text(end - _DAY)}: test="
                f"{test!r} is shorter than the bars"
            )
        if last - first < _FEWEST:
            raise ValueError(
                f"the training before {date_text(begin)} has {max(last - first, 0)} sessions; "
                f"lengthen train={train!r}, or shorten embargo={embargo!r}"
            )
        windows.append(Window(slice(first, last), rows))
    if not windows:
        raise ValueError(
            f"train={train!r} and then test={test!r} do not fit: the curves run from "
            f"{date_text(sessions[0])} to {date_text(sessions[-1])}"
        )
    return windows


def _offset(value: Any, name: str, least: int = 1) -> pd.offsets.BaseOffset:
    offset: pd.offsets.BaseOffset | None
    try:
        offset = pd.tseries.frequencies.to_offset(value)
    except (TypeError, ValueError):
        offset = None
    if offset is None or offset.n < least or isinstance(offset, _STARTS):
        raise ValueError(f"{name} must be a length such as '5YE', '6ME' or '90D', got {value!r}")
    return offset


def _is_length(offset: pd.offsets.BaseOffset) -> bool:
    return isinstance(offset, pd.offsets.Tick | pd.offsets.Day)


def _before(border: pd.Timestamp, offset: pd.offsets.BaseOffset) -> pd.Timestamp:
    """The border one offset earlier; periods end on the day before a border.

    Where the border lies inside a period, as those of tests in months do for a training in years,
    the offset counts as that many months or days: the period's beginning would cut it short.
    """
    if _is_length(offset):
        return border - offset
    end = border - _DAY
    if offset.base.is_on_offset(end):
        return end - offset + _DAY
    if isinstance(offset, pd.offsets.Week):
        return border - 7 * offset.n * _DAY
    for kind, months in _MONTHS:
        if isinstance(offset, kind):
            return border - pd.DateOffset(months=months * offset.n)
    return offset.base.rollback(end) - offset + _DAY


def _row(days: pd.DatetimeIndex, border: pd.Timestamp) -> int:
    return int(np.searchsorted(days.to_numpy(), border.to_datetime64()))


def _borders(
    days: pd.DatetimeIndex, train: pd.offsets.BaseOffset, test: pd.offsets.BaseOffset
) -> list[pd.Timestamp]:
    """Where tests begin, and where the last one ends."""
    first, last = days[0].normalize(), days[-1]
    if _is_length(test):
        begin = first + train if _is_length(train) else _period_start(first, train) + train + _DAY
    else:
        begin = _first_after(first, train, test)
    borders = [begin]
    while borders[-1] <= last:
        end = borders[-1]
        borders.append(end + test if _is_length(test) else (end - _DAY) + test + _DAY)
    return borders


def _first_after(
    first: pd.Timestamp, train: pd.offsets.BaseOffset, test: pd.offsets.BaseOffset
) -> pd.Timestamp:
    """The first border of the test's periods that has a whole training before it."""
    border: pd.Timestamp = test.base.rollforward(first) + _DAY
    while _before(border, train) < first - _GRACE:
        border = (border - _DAY) + test.base + _DAY
    return border


def _period_start(first: pd.Timestamp, train: pd.offsets.BaseOffset) -> pd.Timestamp:
    """The day before the first training."""
    end: pd.Timestamp = train.base.rollback(first - _DAY)
    return end if first - end <= _GRACE + _DAY else end + train.base
