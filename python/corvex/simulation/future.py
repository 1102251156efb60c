"""Bars beyond the end of the price table, by the market's calendar."""

from __future__ import annotations

from functools import cached_property

import numpy as np
import pandas as pd

from corvex.market import Market
from corvex.markets.bars import has_weekends, usual_gap
from corvex.markets.calendars import CalendarRangeError
from corvex.simulation.dates import Clock
from corvex.simulation.notices import date_text
from corvex.utils import logger

__all__ = ["FutureBars"]

_DAY = pd.Timedelta(days=1)
_YEAR = pd.Timedelta(days=366)


class FutureBars:
    """The bars that a market will have after the last row of a price table.

    Parameters
    ----------
    market : Market
        Its calendar says which days are sessions. Where the calendar's records end, the weekdays
        of the table go on.
    clock : Clock
        The dates of the table.
    """

    def __init__(self, market: Market, clock: Clock) -> None:
        self._market = market
        self._clock = clock
        # Dates need no conversion; moments belong to the market's day.
        self._moments = clock.index.tz is not None and not clock.dates_only

    @cached_property
    def next_bar(self) -> pd.Timestamp:
        """The first bar after the last row, in the zone of the table."""
        index = self._clock.index if self._moments else self._clock.wall
        try:
            bar = self._market.next_bar(index)
        except CalendarRangeError:
            bar = self._next_weekday(index)
        return self._clock.zoned(pd.DatetimeIndex([bar.as_unit("ns")]))[0]

    def last_before(self, start: int, end: int) -> pd.Timestamp | None:
        """Return the last bar of a period that holds the last row.

        Parameters
        ----------
        start, end : int
            Nanoseconds of the table's own local time; `end` is not in the period.

        Returns
        -------
        Timestamp or None
            In the zone of the table. None when the table holds the whole period.
        """
        following = self.next_bar
        first = following.tz_localize(None).as_unit("ns").value
        if first >= end:
            return None
        always_open = self._market.calendar_name is None and not self._clock.is_daily
        if always_open or end - start < _DAY.as_unit("ns").value:
            gap = usual_gap(self._clock.index)
            final = self._clock.zoned(pd.DatetimeIndex([pd.Timestamp(end - 1, unit="ns")]))[0]
            return following + (final - following) // gap * gap
        bars = self._last_bars(_YEAR)
        if len(bars) and bars[-1].tz_localize(None).as_unit("ns").value < end:
            span = pd.Timedelta(end - start, unit="ns") + _YEAR
            bars = self._last_bars(span)
        inside = bars[bars.tz_localize(None).as_unit("ns").asi8 < end]
        return max(following, inside[-1]) if len(inside) else following

    def _last_bars(self, span: pd.Timedelta) -> pd.DatetimeIndex:
        """The usual last bar of the last row's day and of each session in a span after it."""
        index = self._clock.index
        local = index.tz_convert(self._market.tz) if self._moments else self._clock.wall
        day = local[-1].normalize()
        time = local[-1] - day
        if not self._clock.is_daily:
            earlier = local[local < day]
            if len(earlier):
                time = max(time, earlier[-1] - earlier[-1].normalize())
        day = day.tz_localize(None)
        bars = self._sessions(day, day + span) + time
        if not self._moments:
            return self._clock.zoned(bars)
        first = np.ones(len(bars), dtype=bool)
        zoned = bars.tz_localize(self._market.tz, ambiguous=first, nonexistent="shift_forward")
        return zoned.tz_convert(index.tz)

    def _sessions(self, start: pd.Timestamp, end: pd.Timestamp) -> pd.DatetimeIndex:
        try:
            return self._market.sessions(start, end)
        except CalendarRangeError:
            days = pd.date_range(start, end, freq="D", unit="ns")
            return days if self._has_weekends else days[days.day_of_week < 5]

    def _next_weekday(self, index: pd.DatetimeIndex) -> pd.Timestamp:
        logger.warning(
            "the calendar of %s does not reach %s; weekdays are taken for sessions",
            self._market.get_name(), date_text(self._clock.last),
        )  # fmt: skip
        bar = index[-1] + _DAY
        while not self._has_weekends and bar.day_of_week >= 5:
            bar += _DAY
        return bar

    @property
    def _has_weekends(self) -> bool:
        return has_weekends(self._clock.wall)
