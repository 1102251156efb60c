"""Dates: reading them, and placing them on the clock of the price table.

Prices may be dated with or without a time zone, by day or by moment, and weights in another way
than prices. Everything is brought to the prices' clock here, so that the rest compares integers.
"""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from functools import cached_property
from typing import Any

import numpy as np
import pandas as pd

from corvex.markets.stamps import has_dates_only
from corvex.simulation.notices import date_text, warn

__all__ = [
    "Clock",
    "Stamps",
    "as_dates",
    "dated_table",
    "local_nanos",
    "nanos_of",
]

_DAY = pd.Timedelta(days=1)
_TICK = pd.Timedelta(1, unit="ns")


def as_dates(values: Any, what: str) -> pd.DatetimeIndex:
    """Read dates: a DatetimeIndex as it is, or ISO texts, date and datetime objects.

    Raises
    ------
    ValueError
        When a value is not a date, or missing.
    """
    index = values if isinstance(values, pd.Index) else pd.Index(values)
    if not isinstance(index, pd.DatetimeIndex):
        if isinstance(index, pd.PeriodIndex):
            raise ValueError(f"{what} holds periods; give dates, as index.to_timestamp() does")
        if pd.api.types.is_numeric_dtype(index.dtype) or isinstance(index, pd.MultiIndex):
            raise ValueError(f"{what} must hold dates, got {index.dtype} values")
        try:
            index = pd.DatetimeIndex(pd.to_datetime(index))
        except (TypeError, ValueError) as error:
            raise ValueError(f"{what} must hold dates: {error}") from error
    if index.hasnans:
        raise ValueError(f"{what} holds a missing date at position {int(np.argmax(index.isna()))}")
    return index


def dated_table(table: pd.DataFrame, what: str) -> pd.DataFrame:
    """Return a table with rising dates, the same object when it has them already.

    Raises
    ------
    ValueError
        When the index is not dates, or holds one twice.
    """
    index = as_dates(table.index, f"the index of {what}")
    if index is not table.index:
        table = table.set_axis(index, axis=0)
    if not index.is_unique:
        twice = pd.Timestamp(index[index.duplicated()][0])
        raise ValueError(f"{what} holds the date {date_text(twice)} more than once")
    if not index.is_monotonic_increasing:
        fall = int(np.argmax(np.diff(index.asi8) < 0)) + 1
        warn(f"{what} was not in order of date (first at {date_text(index[fall])}); it was sorted")
        table = table.sort_index()
    return table


def nanos_of(when: pd.Timestamp) -> int:
    """A stamp as nanoseconds since the epoch, that of its own wall clock when it has no zone."""
    return int(when.as_unit("ns").value)


def local_nanos(index: pd.DatetimeIndex) -> np.ndarray:
    """Local times as int64 nanoseconds, strictly rising where the index is.

    The hour that a change to winter time repeats would go backwards; it is pressed together.
    """
    nanos = index.tz_localize(None).as_unit("ns").asi8
    steps = np.arange(len(nanos))
    return np.maximum.accumulate(nanos - steps) + steps if index.tz is not None else nanos


@dataclass(frozen=True, slots=True)
class Stamps:
    """Dates on the clock of the prices.

    Attributes
    ----------
    dates : DatetimeIndex
        The dates in the zone of the prices, or without one where these have none.
    keys : int64 array
        Nanoseconds that compare with `Clock.keys`. A date alone, beside daily prices, counts as
        the end of its day.
    sessions : int64 array
        Row of the last session at or before each date; -1 before the first.
    """

    dates: pd.DatetimeIndex
    keys: np.ndarray
    sessions: np.ndarray

    def __len__(self) -> int:
        return len(self.keys)

    def between(self, start: int, stop: int) -> Stamps:
        """Some of the dates."""
        return Stamps(self.dates[start:stop], self.keys[start:stop], self.sessions[start:stop])


class Clock:
    """The dates of the price table: the sessions of a run.

    Parameters
    ----------
    index : DatetimeIndex
        Rising and unique.
    market_zone : callable
        Gives the IANA name of the zone in which prices without a zone are dated; asked only when
        moments with a zone meet them.
    """

    def __init__(self, index: pd.DatetimeIndex, market_zone: Callable[[], str]) -> None:
        self.index = index
        self.keys = index.as_unit("ns").asi8
        self._market_zone = market_zone

    def __len__(self) -> int:
        return len(self.index)

    @property
    def last(self) -> pd.Timestamp:
        return self.index[-1]

    @cached_property
    def wall(self) -> pd.DatetimeIndex:
        """The sessions in their own local time, without zone."""
        return self.index.tz_localize(None)

    @cached_property
    def wall_nanos(self) -> np.ndarray:
        """`wall` as int64 nanoseconds since the epoch."""
        return local_nanos(self.index)

    @cached_property
    def is_daily(self) -> bool:
        """Whether no day has more than one row."""
        days = self.wall.normalize().as_unit("ns").asi8
        return bool((np.diff(days) > 0).all())

    @cached_property
    def dates_only(self) -> bool:
        return has_dates_only(self.index)

    def between(self, start: int, stop: int) -> Clock:
        return Clock(self.index[start:stop], self._market_zone)

    def place(self, dates: pd.DatetimeIndex, *, by_day: bool = False) -> Stamps:
        """Bring dates to this clock.

        Parameters
        ----------
        dates : DatetimeIndex
            Dates or moments, in any zone or none.
        by_day : bool, default False
            Beside daily prices let moments, too, count as their day.
        """
        if self.is_daily and (by_day or has_dates_only(dates)) and not self._holds(dates):
            days = dates.tz_localize(None).normalize()
            ends = self.zoned(days.as_unit("ns") + _DAY - _TICK)
            return self._stamps(self.zoned(dates.tz_localize(None)), ends.asi8)
        if dates.tz is not None:
            zone = self.index.tz or self._market_zone()
            dates = dates.tz_convert(zone)
            if self.index.tz is None:
                dates = dates.tz_localize(None)
        dates = self.zoned(dates)
        return self._stamps(dates, dates.as_unit("ns").asi8)

    def _holds(self, dates: pd.DatetimeIndex) -> bool:
        """Whether dates with a zone are moments of this clock, however either writes them."""
        if dates.tz is None or self.index.tz is None:
            return False
        return bool(np.isin(dates.as_unit("ns").asi8, self.keys).all())

    def _stamps(self, dates: pd.DatetimeIndex, keys: np.ndarray) -> Stamps:
        return Stamps(dates, keys, np.searchsorted(self.keys, keys, side="right") - 1)

    def stamp(self, when: Any, what: str, *, end_of_day: bool = False) -> pd.Timestamp:
        """Read one date and bring it to this clock; a date alone may stand for its whole day."""
        try:
            given = pd.Timestamp(when)
        except (TypeError, ValueError) as error:
            raise ValueError(f"{what} must be a date, got {when!r}") from error
        if pd.isna(given):
            raise ValueError(f"{what} must be a date, got {when!r}")
        date_only = given == given.normalize()
        placed = self.place(pd.DatetimeIndex([given.as_unit("ns")])).dates
        if end_of_day and date_only:
            placed = self.zoned(placed.tz_localize(None) + _DAY - _TICK)
        return placed[0]

    def zoned(self, dates: pd.DatetimeIndex) -> pd.DatetimeIndex:
        """Local times of the clock in its zone; of an hour that occurs twice, the first."""
        if dates.tz is not None or self.index.tz is None:
            return dates
        first = np.ones(len(dates), dtype=bool)
        return dates.tz_localize(self.index.tz, ambiguous=first, nonexistent="shift_forward")
