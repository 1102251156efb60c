"""Bars beyond the end of the price table, by the market's calendar."""

from __future__ import annotations

from functools import cached_property

import pandas as pd

from corvex.market import Market
from corvex.markets.bars import has_weekends, usual_gap
from corvex.markets.calendars import CalendarRangeError
from corvex.markets.stamps import TableStamps
from corvex.simulation.notices import date_text
from corvex.utils import logger

__all__ = ["FutureBars"]

_DAY = pd.Timedelta(days=1)
# A rule of thousands of weeks reaches beyond what nanoseconds can tell.
_LAST = (pd.Timestamp.max.normalize() - pd.Timedelta(days=7)).value


class FutureBars:
    """The bars that a market will have after the last row of a price table.

    Parameters
    ----------
    market : Market
        Its calendar says which days are sessions. Where the calendar's records end, the weekdays
        of the table go on.
    stamps : TableStamps
        The dates of the table.
    """

    def __init__(self, market: Market, stamps: TableStamps) -> None:
        self._market = market
        self._stamps = stamps

    @cached_property
    def next_bar(self) -> pd.Timestamp:
        """The first bar after the last row, in the zone of the table."""
        index = self._stamps.index
        try:
            return self._market.next_bar(index).as_unit("ns")
        except CalendarRangeError:
            return self._next_weekday(index)

    def last_before(self, start: int, end: int) -> pd.Timestamp | None:
        """Return the last bar of a period that begins before the next bar.

        Parameters
        ----------
        start, end : int
            Nanoseconds that compare with the `wall_nanos` of the clock; `end` is not in the period.

        Returns
        -------
        Timestamp or None
            In the zone of the table. None when the table holds the whole period.
        """
        end = min(end, _LAST)
        following = self._stamps.local_of(self.next_bar)
        if following.as_unit("ns").value >= end:
            return None
        always_open = self._market.calendar_name is None and not self._stamps.daily
        if always_open or end - start < _DAY.as_unit("ns").value:
            gap = usual_gap(self._stamps.index)
            last = self._stamps.written(pd.DatetimeIndex([pd.Timestamp(end - 1, unit="ns")]))[0]
            return self.next_bar + (last - self.next_bar) // gap * gap
        bars = self._last_bars(pd.Timestamp(end, unit="ns"))
        inside = bars[bars.as_unit("ns").asi8 < end]
        last = max(following, inside[-1]) if len(inside) else following
        return self._stamps.written(pd.DatetimeIndex([last.as_unit("ns")]))[0]

    def _last_bars(self, end: pd.Timestamp) -> pd.DatetimeIndex:
        """Return the usual last bar of the last row's day and of each session until `end`."""
        wall = self._stamps.local
        day = wall[-1].normalize()
        time = wall[-1] - day
        if not self._stamps.daily:
            earlier = wall[wall < day]
            if len(earlier):
                time = max(time, earlier[-1] - earlier[-1].normalize())
        return self._sessions(day, max(day, end.normalize())) + time

    def _sessions(self, start: pd.Timestamp, end: pd.Timestamp) -> pd.DatetimeIndex:
        try:
            return self._market.sessions(start, end)
        except CalendarRangeError:
            days = pd.date_range(start, end, freq="D", unit="ns")
            return days if self._has_weekends else days[days.day_of_week < 5]

    def _next_weekday(self, index: pd.DatetimeIndex) -> pd.Timestamp:
        logger.warning(
            "the calendar of %s does not reach %s; weekdays are taken for sessions",
            self._market.get_name(), date_text(self._stamps.index[-1]),
        )  # fmt: skip
        bar = index[-1] + pd.DateOffset(days=1)
        while not self._has_weekends and bar.day_of_week >= 5:
            bar += pd.DateOffset(days=1)
        return bar.as_unit("ns")

    @property
    def _has_weekends(self) -> bool:
        return has_weekends(self._stamps.local[-400:])
