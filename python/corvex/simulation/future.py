"""Bars beyond the end of the price table, by the market's calendar."""

from __future__ import annotations

from typing import cast

import pandas as pd

from corvex.market import Market
from corvex.markets.bars import usual_gap
from corvex.markets.calendars import CalendarRangeError
from corvex.simulation.dates import Clock
from corvex.simulation.notices import date_text
from corvex.simulation.periods import PeriodRule
from corvex.utils import logger

__all__ = ["FutureBars"]

_DAY = pd.Timedelta(days=1)
_STEP = pd.Timedelta(days=100)
_HORIZON = pd.Timedelta(days=4000)


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
        index = clock.index
        # Dates need no conversion; moments belong to the market's day.
        if index.tz is None or clock.dates_only:
            self._local, self._zone = clock.wall, None
        else:
            self._local = index.tz_convert(market.tz).tz_localize(None)
            self._zone = market.tz

    @property
    def next_bar(self) -> pd.Timestamp:
        """The first bar after the last row, in the zone of the table."""
        index = self._local if self._zone is None else self._clock.index
        try:
            bar = self._market.next_bar(index)
        except CalendarRangeError:
            bar = self._fallback_bar(index)
        return bar if bar.tz is not None or self._clock.index.tz is None else self._back(bar)

    def last_of_period(self, rule: PeriodRule) -> pd.Timestamp | None:
        """The last bar of the period in which the table ends; None when the table holds it."""
        current = rule.numbers(self._clock.wall[-1:])[0]
        following = self.next_bar
        if self._number(rule, following) != current:
            return None
        if rule.is_intraday:
            gap = usual_gap(self._clock.index)
            while self._number(rule, following + gap) == current:
                following += gap
            return following
        return max(following, self._last_day(rule, current))

    def _last_day(self, rule: PeriodRule, current: int) -> pd.Timestamp:
        """The usual last bar of the last session whose own falls in the period."""
        days = self._local.normalize()
        time = self._local[-1] - days[-1]
        if not self._clock.is_daily:
            earlier = self._local[days < days[-1]]
            if len(earlier):
                time = max(time, earlier[-1] - earlier[-1].normalize())
        start, found = days[-1], self._back(days[-1] + time)
        while start < days[-1] + _HORIZON:
            bars = self._sessions(start, start + _STEP - _DAY) + time
            zoned = pd.DatetimeIndex([self._back(bar) for bar in bars])
            inside = rule.numbers(zoned.tz_localize(None)) == current
            if inside.any():
                found = zoned[inside][-1]
            if len(inside) and not inside[-1]:
                break
            start += _STEP
        return found

    def _sessions(self, start: pd.Timestamp, end: pd.Timestamp) -> pd.DatetimeIndex:
        try:
            return self._market.sessions(start, end)
        except CalendarRangeError:
            days = pd.date_range(start, end, freq="D", unit="ns")
            return days if self._weekends else days[days.dayofweek < 5]

    def _fallback_bar(self, index: pd.DatetimeIndex) -> pd.Timestamp:
        logger.warning(
            "the calendar of %s does not reach %s; weekdays are taken for sessions",
            self._market.get_name(), date_text(self._clock.last),
        )  # fmt: skip
        bar = index[-1] + _DAY
        while not self._weekends and bar.dayofweek >= 5:
            bar += _DAY
        return cast("pd.Timestamp", bar)

    @property
    def _weekends(self) -> bool:
        return bool((self._local[-400:].dayofweek >= 5).any())

    def _number(self, rule: PeriodRule, bar: pd.Timestamp) -> int:
        return int(rule.numbers(pd.DatetimeIndex([bar.tz_localize(None).as_unit("ns")]))[0])

    def _back(self, local: pd.Timestamp) -> pd.Timestamp:
        """A local time of the market in the zone of the table."""
        zone = self._clock.index.tz
        if zone is None:
            return local
        stamp = local.tz_localize(
            self._zone or str(zone), ambiguous=True, nonexistent="shift_forward"
        )
        return stamp.tz_convert(zone)
