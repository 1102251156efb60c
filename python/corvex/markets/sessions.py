"""What a market answers about its trading sessions."""

from __future__ import annotations

from typing import ClassVar

import pandas as pd

from corvex.markets.bars import bar_end, next_bar
from corvex.markets.calendars import AlwaysOpenCalendar, DateLike, TradingCalendar, to_timestamp
from corvex.markets.exchanges import ExchangeCalendar
from corvex.markets.stamps import in_zone, is_date, local_date

__all__ = ["MarketSessions"]


class MarketSessions:
    """The part of `corvex.market.Market` that deals with sessions; the attributes stand there."""

    calendar_name: ClassVar[str | None] = None
    timezone: ClassVar[str | None] = None
    closed_days: ClassVar[tuple[str, ...]] = ()

    @property
    def calendar(self) -> TradingCalendar:
        """The trading calendar; opened on the first question."""
        if self.calendar_name is None:
            return AlwaysOpenCalendar()
        return ExchangeCalendar(self.calendar_name, self.closed_days)

    @property
    def tz(self) -> str:
        """IANA name of the zone in which the market's dates count."""
        return self.timezone or self.calendar.tz

    @property
    def bar_length(self) -> pd.Timedelta | None:
        """The length of the market's bars where they are shorter than a day, else None."""
        return None

    @property
    def stamps_are_moments(self) -> bool:
        """Whether stamps at midnight are moments too: where the market's bars are intraday."""
        return self.bar_length is not None

    def session_date(self, when: DateLike, *, moment: bool = False) -> pd.Timestamp:
        """Return the date that a stamp stands for on this market, as a naive midnight.

        A stamp without zone, or at a midnight of its own zone, names its date; any other one with
        a zone is a moment and has its date in the market's zone. To a market bound to intraday
        tables all stamps with a zone are moments.

        Parameters
        ----------
        when : date, datetime, Timestamp or ISO text
            The stamp.
        moment : bool, default False
            It is a moment at midnight too, as the present may be.

        Raises
        ------
        ValueError
            When `when` is missing or not a date.
        """
        return local_date(
            to_timestamp(when), lambda: self.tz, moment=moment or self.stamps_are_moments
        )

    def sessions(self, start: DateLike, end: DateLike) -> pd.DatetimeIndex:
        """Return the sessions from `start` to `end`, both included, as naive midnights."""
        return self.calendar.sessions(self.session_date(start), self.session_date(end))

    def next_session(self, when: DateLike) -> pd.Timestamp:
        """Return the first session after the date of `when`.

        A naive midnight for a naive `when`, a midnight in the same zone for a date with a zone;
        for a moment the session's midnight in the market's zone, expressed in the zone of `when`.
        """
        return self._like(self.calendar.next_session(self.session_date(when)), when)

    def previous_session(self, when: DateLike) -> pd.Timestamp:
        """Return the last session before the date of `when`, in the form of `next_session`."""
        return self._like(self.calendar.previous_session(self.session_date(when)), when)

    def session_open(self, when: DateLike) -> pd.Timestamp:
        """Return the opening of the session on the date of `when`, aware.

        Raises
        ------
        ValueError
            When that date is not a session.
        """
        return self.calendar.session_open(self.session_date(when)).tz_convert(self.tz)

    def session_close(self, when: DateLike) -> pd.Timestamp:
        """Return the close of the session on the date of `when`, aware.

        Raises
        ------
        ValueError
            When that date is not a session; `market_close_at_timestamp` takes any date.
        """
        return self.calendar.session_close(self.session_date(when)).tz_convert(self.tz)

    def market_close_at_timestamp(self, date: DateLike) -> pd.Timestamp:
        """Return the moment at which the session of a date closes, or the bar of a stamp.

        Parameters
        ----------
        date : date, datetime, Timestamp or ISO text
            Its date counts, as `session_date` tells it; where the market's bars are intraday, a
            stamp inside a session (an always-open market: every datetime) is that of a bar.

        Returns
        -------
        Timestamp
            Aware, in the market's zone; half days included. For a date without a session, the
            close of the last session before it. An always-open market closes at the next
            midnight UTC. Of a bar: one bar after its stamp, when it is finished whether that is
            its start or its end, but not after the session's close.

        Raises
        ------
        ValueError
            When `date` is missing, not a date, or outside the recorded years.
        """
        end = bar_end(self, date) if self.bar_length is not None else None
        if end is not None:
            return end
        session = self.calendar.last_session(self.session_date(date))
        return self.calendar.session_close(session).tz_convert(self.tz)

    def next_bar(self, index: pd.DatetimeIndex | None = None) -> pd.Timestamp:
        """Return when the bar after the last one of a table is stamped.

        Parameters
        ----------
        index : DatetimeIndex
            Dates of a price table, rising, not empty. A market bound to tables has a default:
            its own.

        Returns
        -------
        Timestamp
            In the form and zone of `index`. Daily: the next session, at the time of day of the
            last stamp. Intraday: one bar on, or the first bar of the next session.
        """
        if index is None:
            raise ValueError("next_bar needs the index of a price table")
        return next_bar(self, index)

    def _like(self, session: pd.Timestamp, when: DateLike) -> pd.Timestamp:
        stamp = to_timestamp(when)
        if stamp.tzinfo is not None and is_date(stamp) and not self.stamps_are_moments:
            return in_zone(pd.DatetimeIndex([session]), stamp.tzinfo)[0]
        local = in_zone(pd.DatetimeIndex([session]), stamp.tzinfo and self.tz)[0]
        return local if stamp.tzinfo is None else local.tz_convert(stamp.tzinfo)
