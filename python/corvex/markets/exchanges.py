"""Calendars of stock exchanges, from the `exchange_calendars` package."""

from __future__ import annotations

import threading
import warnings
from functools import lru_cache
from typing import Any, override

import pandas as pd

from corvex.markets import session_store
from corvex.markets.calendars import (
    LONGEST_CLOSURE,
    CalendarRangeError,
    DateLike,
    TradingCalendar,
    day_of,
)
from corvex.markets.session_store import StoredSessions

__all__ = ["ExchangeCalendar", "as_calendar"]

_DAY = pd.Timedelta(days=1)


# Shared by all markets of the process, so that a calendar is opened once and never pickled.
_opened: dict[tuple[str, tuple[str, ...]], StoredSessions] = {}
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
        first, last = day_of(start), day_of(end)
        if last < first:
            return pd.DatetimeIndex([])
        known = self._cover(first, last).sessions
        return known[known.searchsorted(first) : known.searchsorted(last, side="right")]

    @override
    def next_session(self, date: DateLike) -> pd.Timestamp:
        day = day_of(date)
        known = self._cover(day + _DAY, day + LONGEST_CLOSURE).sessions
        at = int(known.searchsorted(day, side="right"))
        if at < len(known) and (found := known[at]) <= day + LONGEST_CLOSURE:
            return found
        return super().next_session(date)  # says what is missing

    @override
    def session_open(self, date: DateLike) -> pd.Timestamp:
        opened, at = self._locate(date)
        return pd.Timestamp(opened.opens[at])

    @override
    def session_close(self, date: DateLike) -> pd.Timestamp:
        opened, at = self._locate(date)
        return pd.Timestamp(opened.closes[at])

    def _locate(self, date: DateLike) -> tuple[StoredSessions, int]:
        day = day_of(date)
        opened = self._cover(day, day)
        at = int(opened.sessions.searchsorted(day))
        if at == len(opened.sessions) or opened.sessions[at] != day:
            raise ValueError(f"{day:%Y-%m-%d} is not a session of {self.code}")
        return opened, at

    def _cover(self, first: pd.Timestamp, last: pd.Timestamp) -> StoredSessions:
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
) -> StoredSessions:
    """Open a calendar for a span; where that is not recorded, for as much as is needed of it."""
    unchanged = session_store.may_load()
    found = session_store.load(code, span) if unchanged else None
    if found is None or not (found.first <= needed[0] and needed[1] <= found.last):
        found = _ask(code, span, needed)
        if unchanged:
            session_store.save(code, span, found)
    return _without(found, closed_days)


def _ask(
    code: str, span: tuple[pd.Timestamp, pd.Timestamp], needed: tuple[pd.Timestamp, pd.Timestamp]
) -> StoredSessions:
    import exchange_calendars

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
                    f"asked for {first:%Y-%m-%d} to {last:%Y-%m-%d} "
                    "(a newer exchange_calendars may know more)"
                ) from None
            found = exchange_calendars.get_calendar(code, start=start, end=end)
        return _take(found, start, end)


@lru_cache(maxsize=64)
def _recorded_span(code: str) -> tuple[pd.Timestamp, pd.Timestamp]:
    """Return the span that an exchange's holidays are recorded for; most have no bound."""
    import exchange_calendars

    factory = exchange_calendars.get_calendar(code)
    low, high = factory.bound_min(), factory.bound_max()
    return (
        pd.Timestamp(1700, 1, 1) if low is None else pd.Timestamp(low),
        pd.Timestamp(2261, 12, 31) if high is None else pd.Timestamp(high),
    )


def _take(found: Any, first: pd.Timestamp, last: pd.Timestamp) -> StoredSessions:
    tz = str(found.tz)
    sessions = pd.DatetimeIndex(found.sessions.to_numpy())
    opens = pd.DatetimeIndex(found.opens).tz_convert(tz)
    closes = pd.DatetimeIndex(found.closes).tz_convert(tz)
    return StoredSessions(first, last, sessions, opens, closes, tz)


def _without(found: StoredSessions, closed_days: tuple[str, ...]) -> StoredSessions:
    if not closed_days:
        return found
    keep = ~found.sessions.isin(pd.DatetimeIndex(list(closed_days)))
    return found._replace(
        sessions=found.sessions[keep], opens=found.opens[keep], closes=found.closes[keep]
    )


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
    def _cover(self, first: pd.Timestamp, last: pd.Timestamp) -> StoredSessions:
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
