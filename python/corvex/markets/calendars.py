"""Trading calendars: which dates are sessions, and when each opens and closes.

Sessions are named by naive midnight timestamps (calendar dates of the exchange); openings and
closes are moments, aware, in the exchange's zone.
"""

from __future__ import annotations

import abc
import datetime
import threading
import warnings
from functools import lru_cache
from typing import Any, NamedTuple, override

import numpy as np
import pandas as pd

__all__ = [
    "AlwaysOpenCalendar",
    "CalendarRangeError",
    "DateLike",
    "ExchangeCalendar",
    "TradingCalendar",
    "as_calendar",
    "to_timestamp",
]

type DateLike = str | datetime.date | datetime.datetime | np.datetime64 | pd.Timestamp

_DAY = pd.Timedelta(days=1)
# The longest closure to look across: Taiwan's new-year break takes up to twelve days.
_LONGEST_CLOSURE = pd.Timedelta(days=31)


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
        day = _day(date)
        return self._edge(self.sessions(day - _LONGEST_CLOSURE, day), -1, "before", day)

    def next_session(self, date: DateLike) -> pd.Timestamp:
        """Return the first session after `date`."""
        day = _day(date)
        return self._edge(self.sessions(day + _DAY, day + _LONGEST_CLOSURE), 0, "after", day)

    def previous_session(self, date: DateLike) -> pd.Timestamp:
        """Return the last session before `date`."""
        return self.last_session(_day(date) - _DAY)

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
        return pd.date_range(_day(start), _day(end), freq="D", unit="ns")

    @override
    def session_open(self, date: DateLike) -> pd.Timestamp:
        return _day(date).tz_localize("UTC")

    @override
    def session_close(self, date: DateLike) -> pd.Timestamp:
        return (_day(date) + _DAY).tz_localize("UTC")


class _Opened(NamedTuple):
    """The sessions of a span of whole years; `first` and `last` are the span asked for."""

    first: pd.Timestamp
    last: pd.Timestamp
    sessions: pd.DatetimeIndex
    opens: pd.DatetimeIndex
    closes: pd.DatetimeIndex
    tz: str


# Shared by all markets of the process, so that a calendar is opened once and never pickled.
_opened: dict[tuple[str, tuple[str, ...]], _Opened] = {}
_lock = threading.Lock()


class ExchangeCalendar(TradingCalendar):
    """Sessions, half days and holidays from the `exchange_calendars` package.

    Parameters
    ----------
    code : str
        The package's name of the exchange, such as "XTAI", "XNYS" or "XHKG".
    closed_days : tuple of str, optional
        ISO dates without trading that the package does not record (storms, mourning).

    Notes
    -----
    Nothing is opened before the first question. Then the whole years asked for and one year
    beyond are opened, and widened when a later question goes further.
    """

    def __init__(self, code: str, closed_days: tuple[str, ...] = ()) -> None:
        self.code = code
        self.closed_days = tuple(closed_days)

    def __repr__(self) -> str:
        return f"ExchangeCalendar({self.code!r})"

    @property
    @override
    def tz(self) -> str:
        today = pd.Timestamp.now()
        opened = _opened.get((self.code, self.closed_days))
        return (opened or self._cover(today, today)).tz

    @override
    def sessions(self, start: DateLike, end: DateLike) -> pd.DatetimeIndex:
        first, last = _day(start), _day(end)
        if last < first:
            return pd.DatetimeIndex([])
        known = self._cover(first, last).sessions
        return known[known.searchsorted(first) : known.searchsorted(last, side="right")]

    @override
    def session_open(self, date: DateLike) -> pd.Timestamp:
        opened, at = self._locate(date)
        return pd.Timestamp(opened.opens[at])

    @override
    def session_close(self, date: DateLike) -> pd.Timestamp:
        opened, at = self._locate(date)
        return pd.Timestamp(opened.closes[at])

    def _locate(self, date: DateLike) -> tuple[_Opened, int]:
        day = _day(date)
        opened = self._cover(day, day)
        at = int(opened.sessions.searchsorted(day))
        if at == len(opened.sessions) or opened.sessions[at] != day:
            raise ValueError(f"{day:%Y-%m-%d} is not a session of {self.code}")
        return opened, at

    def _cover(self, first: pd.Timestamp, last: pd.Timestamp) -> _Opened:
        """Return the opened calendar, widened where it does not reach."""
        key = (self.code, self.closed_days)
        opened = _opened.get(key)
        if opened is not None and opened.first <= first and last <= opened.last:
            return opened
        start, end = pd.Timestamp(first.year, 1, 1), pd.Timestamp(last.year + 1, 12, 31)
        with _lock:
            opened = _opened.get(key)
            if opened is not None:
                start, end = min(start, opened.first), max(end, opened.last)
            fresh = _open(self.code, (start, end), (first, last), self.closed_days)
            _opened[key] = fresh
        return fresh


def _open(
    code: str,
    span: tuple[pd.Timestamp, pd.Timestamp],
    needed: tuple[pd.Timestamp, pd.Timestamp],
    closed_days: tuple[str, ...],
) -> _Opened:
    """Open a calendar for a span; where that is not recorded, for as much as is needed of it."""
    import exchange_calendars  # type: ignore[import-untyped]

    # The package's own use of pandas may be about to be deprecated: not our users' business.
    (start, end), (first, last) = span, needed
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        try:
            found = exchange_calendars.get_calendar(code, start=start, end=end)
        except exchange_calendars.errors.InvalidCalendarName as error:
            raise ValueError(
                f"no trading calendar {code!r}; exchange_calendars.get_calendar_names() lists them"
            ) from error
        except ValueError:  # not all of these years are recorded: open those that are
            low, high = _recorded_span(code)
            start, end = max(start, low), min(end, high)
            if first < start or last > end:
                raise CalendarRangeError(
                    f"the holidays of {code} are recorded from {low:%Y-%m-%d} to {high:%Y-%m-%d}; "
                    f"asked for {first:%Y-%m-%d} to {last:%Y-%m-%d}"
                ) from None
            found = exchange_calendars.get_calendar(code, start=start, end=end)
        return _take(found, start, end, closed_days)


@lru_cache(maxsize=64)
def _recorded_span(code: str) -> tuple[pd.Timestamp, pd.Timestamp]:
    """Return the span that an exchange's holidays are recorded for; most have no bound."""
    import exchange_calendars

    factory = exchange_calendars.get_calendar(code)
    low, high = factory.bound_min(), factory.bound_max()
    return (
        pd.Timestamp(1900, 1, 1) if low is None else pd.Timestamp(low),
        pd.Timestamp(2200, 12, 31) if high is None else pd.Timestamp(high),
    )


def _take(
    found: Any, first: pd.Timestamp, last: pd.Timestamp, closed_days: tuple[str, ...] = ()
) -> _Opened:
    tz = str(found.tz)
    keep = ~found.sessions.isin(pd.DatetimeIndex(list(closed_days)))
    sessions = pd.DatetimeIndex(found.sessions[keep].to_numpy())
    opens = pd.DatetimeIndex(found.opens[keep]).tz_convert(tz)
    closes = pd.DatetimeIndex(found.closes[keep]).tz_convert(tz)
    return _Opened(first, last, sessions, opens, closes, tz)


class _FixedCalendar(ExchangeCalendar):
    """A calendar object of `exchange_calendars` that the user opened, within its own span."""

    def __init__(self, found: Any) -> None:
        super().__init__(str(found.name))
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            self._all = _take(found, found.first_session, found.last_session)

    @property
    @override
    def tz(self) -> str:
        return self._all.tz

    @override
    def _cover(self, first: pd.Timestamp, last: pd.Timestamp) -> _Opened:
        if last < self._all.first or first > self._all.last:
            raise CalendarRangeError(
                f"the calendar {self.code} was opened from {self._all.first:%Y-%m-%d} to "
                f"{self._all.last:%Y-%m-%d}; asked for {first:%Y-%m-%d} to {last:%Y-%m-%d}"
            )
        return self._all


def as_calendar(calendar: Any) -> TradingCalendar:
    """Take a calendar in any accepted form.

    Parameters
    ----------
    calendar : TradingCalendar, str or exchange_calendars.ExchangeCalendar
        A calendar of this library, the name of an exchange ("XTAI"), or an opened calendar of
        the `exchange_calendars` package.

    Raises
    ------
    TypeError
        When it is something else.
    """
    if isinstance(calendar, TradingCalendar):
        return calendar
    if isinstance(calendar, str):
        return ExchangeCalendar(calendar)
    if all(hasattr(calendar, part) for part in ("sessions", "opens", "closes", "tz", "name")):
        return _FixedCalendar(calendar)
    raise TypeError(
        "calendar must be a TradingCalendar, the name of an exchange such as 'XTAI' or a calendar "
        f"of the exchange_calendars package, got {type(calendar)}"
    )


def _day(date: DateLike) -> pd.Timestamp:
    return to_timestamp(date).tz_localize(None).normalize().as_unit("ns")
