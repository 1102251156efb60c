"""When the rows of a table are final: its last one, the one after, and the newest by now.

Rows are bars within the day, sessions, or periods of a week and longer; each kind knows its own
ends. Where an exchange's records end, weekdays count as sessions that close at midnight UTC.
"""

from __future__ import annotations

import datetime
from typing import Protocol

import pandas as pd

from corvex.market import Market
from corvex.markets.bars import infer_freq, is_intraday, usual_gap
from corvex.markets.calendars import CalendarRangeError
from corvex.markets.stamps import TableStamps, local_time
from corvex.tables.context import in_utc

__all__ = ["Rows", "rows_of"]

_DAY = pd.Timedelta(days=1)
# Period ends and starts may lie this many days off those of the calendar, for want of a session.
_NEAR = 5


class Rows(Protocol):
    """What a table's freshness is judged by."""

    def expires_at(self, as_of: datetime.datetime) -> datetime.datetime:
        """Return when a table written at `as_of` should have a newer row, or a final last one.

        UTC. Daily: the close of the next session. Weekly, monthly and longer: the last close of the
        next period. Intraday: one bar after the next bar's stamp, when that bar is finished whether
        its stamp is its start or its end. Where the calendar's records end, weekdays count as
        sessions that close at midnight UTC.
        """
        ...

    def newest_at(self, now: datetime.datetime) -> datetime.datetime:
        """Return the last moment until `now` at which a row became final."""
        ...


def rows_of(index: pd.DatetimeIndex | None, market: Market) -> Rows:
    """Return the kind of rows that a table of a market has.

    Parameters
    ----------
    index : DatetimeIndex or None
        The table's dates, rising, not empty. None: daily rows of which none is known.
    market : Market
        Whose sessions count.
    """
    sessions = _Sessions(market)
    if index is None:
        return _Days(sessions, None)
    freq = infer_freq(index)
    if is_intraday(freq):
        return _Bars(sessions, index)
    if freq == "D":
        return _Days(sessions, TableStamps(index, lambda: market.tz).dates[-1])
    return _Spans(sessions, index, TableStamps(index[-60:], lambda: market.tz).dates)


class _Sessions:
    """The closes of a market, in UTC; weekdays where its calendar's records end."""

    def __init__(self, market: Market) -> None:
        self.market = market

    def date(self, now: datetime.datetime) -> pd.Timestamp:
        """The date of a moment on the market's clocks."""
        return self.market.session_date(now, moment=True)

    def close(self, date: pd.Timestamp) -> datetime.datetime:
        """The close of the session on a date, or of the last one before."""
        try:
            return in_utc(self.market.market_close_at_timestamp(date))
        except CalendarRangeError:
            day = pd.offsets.BDay().rollback(date)
            return in_utc((day + _DAY).tz_localize("UTC"))

    def close_after(self, date: pd.Timestamp) -> datetime.datetime:
        """The close of the first session after a date."""
        try:
            return self.close(self.market.next_session(date))
        except CalendarRangeError:
            return self.close(date + pd.offsets.BDay())

    def last_close(self, now: datetime.datetime) -> datetime.datetime:
        """The last close until a moment."""
        date = self.date(now)
        while (close := self.close(date)) > now:
            date -= _DAY
        return close


class _Days:
    """Daily rows; each is final at the close of its session."""

    def __init__(self, sessions: _Sessions, last: pd.Timestamp | None) -> None:
        self._sessions = sessions
        self._last = last

    def expires_at(self, as_of: datetime.datetime) -> datetime.datetime:
        if self._last is None:
            return as_of
        close = self._sessions.close(self._last)
        return close if as_of < close else self._sessions.close_after(self._last)

    def newest_at(self, now: datetime.datetime) -> datetime.datetime:
        return self._sessions.last_close(now)


class _Bars:
    """Bars within the day; nothing tells whether a stamp is the start or the end of its bar.

    A bar counts as final one bar after its stamp, which holds for both.
    """

    def __init__(self, sessions: _Sessions, index: pd.DatetimeIndex) -> None:
        self._sessions = sessions
        self._index = index
        self._gap = usual_gap(index)

    def expires_at(self, as_of: datetime.datetime) -> datetime.datetime:
        del as_of
        market = self._sessions.market
        try:
            bar = market.next_bar(self._index) + self._gap
        except CalendarRangeError:
            return self._sessions.close_after(market.session_date(self._index[-1], moment=True))
        return in_utc(bar.tz_localize(market.tz) if bar.tzinfo is None else bar)

    def newest_at(self, now: datetime.datetime) -> datetime.datetime:
        market = self._sessions.market
        present = local_time(pd.Timestamp(now), market.tz)
        last = local_time(self._index[-1], market.tz)
        # The stamps of other days lie as those of the last one do, counted from midnight.
        phase = (last - last.normalize()) % self._gap
        since = (present - present.normalize() - phase) // self._gap * self._gap
        bar = present.normalize() + phase + since
        if market.calendar_name is not None:
            try:
                opening, close = market.session_open(present), market.session_close(present)
            except ValueError:  # no session on this date
                return self._sessions.last_close(now)
            if bar.tz_localize(market.tz) <= opening or now >= close:
                return self._sessions.last_close(now)
        return in_utc(bar.tz_localize(market.tz))


class _Spans:
    """Rows of a week or longer: each stands for a period, as the table itself cuts time.

    A period ends on the table's usual weekday, or where its months end. Rows dated on Mondays, or
    by the first days of months, bear the start of their period; monthly rows dated in between
    stand for themselves. A row is final at the last close of its period.
    """

    _length: pd.tseries.offsets.BaseOffset

    def __init__(
        self, sessions: _Sessions, index: pd.DatetimeIndex, dates: pd.DatetimeIndex
    ) -> None:
        self._sessions = sessions
        self._last = dates[-1]
        days = usual_gap(index) / _DAY
        if days < 25:
            self._by_weeks(dates, max(round(days / 7), 1))
        else:
            self._by_months(dates, max(round(days / 30.44), 1))

    def _by_weeks(self, dates: pd.DatetimeIndex, count: int) -> None:
        usual = int(dates.day_of_week.to_series().mode().iloc[-1])
        self._stamped_by_start = usual == 0
        self._length = pd.DateOffset(weeks=count)
        to_end = ((usual - 1 if self._stamped_by_start else usual) - self._last.day_of_week) % 7
        whole = count - 1 if self._stamped_by_start else 0
        self._end = self._last + pd.Timedelta(days=to_end, weeks=whole)

    def _by_months(self, dates: pd.DatetimeIndex, count: int) -> None:
        at_start = (dates.day <= _NEAR).mean() > 0.5
        at_end = (dates.days_in_month - dates.day < _NEAR).mean() > 0.5
        self._stamped_by_start = bool(at_start)
        self._length = pd.DateOffset(months=count)
        self._end = self._last
        if at_start or at_end:
            self._length = pd.offsets.MonthEnd(count)
            usual = int((dates.month % count).to_series().mode().iloc[-1])
            ends = (usual + count - 1) % count if at_start else usual
            months = (ends - self._last.month) % count
            self._end = self._last + pd.offsets.MonthEnd(0) + pd.offsets.MonthEnd(months)

    def expires_at(self, as_of: datetime.datetime) -> datetime.datetime:
        close = self._sessions.close(self._end)
        if self._stamped_by_start and self._sessions.date(as_of) < self._last:
            return self._sessions.close(self._last)  # no period starts in the future
        # A row by the end of its period that lies before it is of a period still running.
        running = not self._stamped_by_start and self._sessions.close(self._last) < close
        return close if running or as_of < close else self._sessions.close(self._end + self._length)

    def newest_at(self, now: datetime.datetime) -> datetime.datetime:
        end = self._end
        newest = self._sessions.close(end)
        if newest > now:
            return self._sessions.last_close(now)
        while (close := self._sessions.close(end := end + self._length)) <= now:
            newest = close
        return newest
