"""Trading calendars: which dates are sessions, and when each opens and closes.

Sessions are named by naive midnight timestamps (calendar dates of the exchange); openings and
closes are moments, aware, in the exchange's zone.
"""

from __future__ import annotations

import abc
import datetime
from typing import override

import numpy as np
import pandas as pd

__all__ = [
    "LONGEST_CLOSURE",
    "AlwaysOpenCalendar",
    "CalendarRangeError",
    "DateLike",
    "TradingCalendar",
    "day_of",
    "to_timestamp",
]

type DateLike = str | datetime.date | datetime.datetime | np.datetime64 | pd.Timestamp

_DAY = pd.Timedelta(days=1)
# The longest closure to look across: Taiwan's new-year break takes up to twelve days.
LONGEST_CLOSURE = pd.Timedelta(days=31)


class CalendarRangeError(ValueError):
    """A date lies outside the years for which an exchange's holidays are recorded."""


def to_timestamp(when: DateLike) -> pd.Timestamp:
    """Read a date or moment; a missing one is refused.

    Raises
    ------
    ValueError
        When `when` is missing (None, NaT) or not a date.
    """
    try:
        stamp = pd.Timestamp(when)
    except (TypeError, ValueError) as error:
        raise ValueError(f"not a date: {when!r}; give a date, a datetime or ISO text") from error
    if pd.isna(stamp):
        raise ValueError("a date is missing (None or NaT); give a date, a datetime or ISO text")
    return stamp


class TradingCalendar(abc.ABC):
    """The sessions of one exchange.

    Every `date` below counts by its calendar day alone. A calendar of one's own needs `tz`,
    `sessions`, `session_open` and `session_close`; the rest follows from these.
    """

    @property
    @abc.abstractmethod
    def tz(self) -> str:
        """The exchange's time zone, as an IANA name."""

    @abc.abstractmethod
    def sessions(self, start: DateLike, end: DateLike) -> pd.DatetimeIndex:
        """All sessions from `start` to `end`, both included: naive midnights, rising."""

    @abc.abstractmethod
    def session_open(self, date: DateLike) -> pd.Timestamp:
        """Return the opening of the session on `date`, aware; ValueError when there is none."""

    @abc.abstractmethod
    def session_close(self, date: DateLike) -> pd.Timestamp:
        """Return the close of the session on `date`, aware; ValueError when there is none."""

    def last_session(self, date: DateLike) -> pd.Timestamp:
        """Return the session on `date`, or the last one before it."""
        day = day_of(date)
        return self._edge(self.sessions(day - LONGEST_CLOSURE, day), -1, "before", day)

    def next_session(self, date: DateLike) -> pd.Timestamp:
        """Return the first session after `date`."""
        day = day_of(date)
        return self._edge(self.sessions(day + _DAY, day + LONGEST_CLOSURE), 0, "after", day)

    def previous_session(self, date: DateLike) -> pd.Timestamp:
        """Return the last session before `date`."""
        return self.last_session(day_of(date) - _DAY)

    @staticmethod
    def _edge(found: pd.DatetimeIndex, at: int, side: str, day: pd.Timestamp) -> pd.Timestamp:
        if len(found) == 0:
            raise CalendarRangeError(f"no session is known within a month {side} {day:%Y-%m-%d}")
        return pd.Timestamp(found[at])


class AlwaysOpenCalendar(TradingCalendar):
    """Every day is a session, from midnight to the next midnight UTC."""

    @property
    @override
    def tz(self) -> str:
        return "UTC"

    @override
    def sessions(self, start: DateLike, end: DateLike) -> pd.DatetimeIndex:
        return pd.date_range(day_of(start), day_of(end), freq="D", unit="ns")

    @override
    def session_open(self, date: DateLike) -> pd.Timestamp:
        return day_of(date).tz_localize("UTC")

    @override
    def session_close(self, date: DateLike) -> pd.Timestamp:
        return (day_of(date) + _DAY).tz_localize("UTC")


def day_of(date: DateLike) -> pd.Timestamp:
    """Return the calendar day of a date or moment as a naive midnight, whatever its zone."""
    return to_timestamp(date).tz_localize(None).normalize().as_unit("ns")
