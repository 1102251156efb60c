"""Dates: reading them, and placing them on the clock of the price table.

Prices may be dated with or without a time zone, by day or by moment, and weights in another way
than prices. Everything is brought to the prices' clock here, so that the rest compares integers.
"""

from __future__ import annotations

import numbers
import re
from functools import cached_property, partial
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.markets.number_dates import are_serial_days, dates_of_numbers
from corvex.markets.stamps import TableStamps, in_zone, is_date, starts_of_days
from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.future import FutureBars
from corvex.tables.date_limits import require_in_range

if TYPE_CHECKING:
    from corvex.market import Market

__all__ = ["Border", "Clock", "Stamps", "as_dates", "dated_table"]

_DAY = pd.Timedelta(days=1)
_PERIOD = re.compile(r"\d{4}(-\d{2})?")


def as_dates(values: Any, what: str) -> pd.DatetimeIndex:
    """Read dates: a DatetimeIndex as it is, or ISO texts, date and datetime objects, 20240131.

    Serial days of a spreadsheet are taken for dates with a warning.

    Raises
    ------
    ValueError
        When a value is not a date, or missing.
    """
    index = values if isinstance(values, pd.Index) else pd.Index(values)
    if not isinstance(index, pd.DatetimeIndex):
        if isinstance(index, pd.PeriodIndex):
            raise ValueError(f"{what} holds periods; give dates, as index.to_timestamp() does")
        if isinstance(index, pd.MultiIndex):
            raise ValueError(f"{what} must hold dates, got {index.dtype} values")
        if pd.api.types.is_numeric_dtype(index.dtype):
            return _numbers_as_dates(index, what)
        try:
            # What stands in memory has passed through pandas already: its own reading is what the
            # user expects, not the guesses that a file asks for (`corvex.tables.date_texts`).
            index = pd.DatetimeIndex(pd.to_datetime(index))
        except (TypeError, ValueError, NotImplementedError) as error:  # the last: years past 9999
            raise ValueError(f"{what} must hold dates: {error}") from error
    if index.hasnans:
        raise ValueError(f"{what} holds a missing date at position {int(np.argmax(index.isna()))}")
    require_in_range(index, what, traded=True)
    return index


def _one_date(when: Any, what: str, *, last: bool) -> pd.Timestamp:
    if isinstance(when, numbers.Number) and not isinstance(when, bool):
        # As in a table: pandas would take nanoseconds since 1970.
        if dates_of_numbers([when]) is None:
            raise ValueError(f"{what} must be a date such as '2024-01-31', got {when!r}")
        return _numbers_as_dates(pd.Index([when]), what)[0]
    try:
        given = pd.Timestamp(when)
        if last and isinstance(when, str) and _PERIOD.fullmatch(when.strip()):
            given = pd.Period(when.strip()).end_time.normalize()
    except (TypeError, ValueError) as error:
        raise ValueError(f"{what} must be a date, got {when!r}") from error
    if pd.isna(given):
        raise ValueError(f"{what} must be a date, got {when!r}")
    return given


def _numbers_as_dates(index: pd.Index, what: str) -> pd.DatetimeIndex:
    dates = None if index.dtype == bool else dates_of_numbers(index)
    if dates is None:
        raise ValueError(
            f"{what} must hold dates, got {index.dtype} values that are neither dates such as "
            "20240131 nor a spreadsheet's serial days"
        )
    if are_serial_days(index):
        warn(f"{what} was read as a spreadsheet's serial days: {index[0]} is {date_text(dates[0])}")
    return dates


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


class Stamps:
    """Dates on the clock of the prices.

    Attributes
    ----------
    dates : DatetimeIndex
        The dates as the prices write theirs.
    keys : int64 array
        Nanoseconds that compare with `Clock.keys`.
    sessions : int64 array
        Row of the last session at or before each date; -1 before the first.
    whole_days : bool
        They are dates beside intraday prices: each stands for the last bar of its day.
    """

    __slots__ = ("dates", "keys", "sessions", "whole_days")

    def __init__(
        self,
        dates: pd.DatetimeIndex,
        keys: np.ndarray,
        sessions: np.ndarray,
        whole_days: bool = False,
    ) -> None:
        self.dates = dates
        self.keys = keys
        self.sessions = sessions
        self.whole_days = whole_days

    def __len__(self) -> int:
        return len(self.keys)

    def between(self, start: int, stop: int) -> Stamps:
        """Some of the dates."""
        some = slice(start, stop)
        return Stamps(self.dates[some], self.keys[some], self.sessions[some], self.whole_days)


class Border:
    """Where a span begins or ends, both included: the date, and its key on the clock."""

    __slots__ = ("date", "key")

    def __init__(self, date: pd.Timestamp, key: int) -> None:
        self.date = date
        self.key = key


class Clock:
    """The dates of the price table: the sessions of a run.

    What its stamps mean is decided once, and holds for all that meets them. Daily prices count by
    date alone, and so do weights, listed dates and borders beside them. Intraday prices count by
    moment, and a date beside them means its whole day.

    Parameters
    ----------
    index : DatetimeIndex
        Rising and unique.
    market : Market
        Tells the zone of dates and of stamps without zone, and the bars to come.
    """

    def __init__(self, index: pd.DatetimeIndex, market: Market) -> None:
        self.index = index
        self._market = market
        self._zone = partial(getattr, market, "tz")  # asked only where it matters
        self._stamps = TableStamps(index, self._zone)

    def __len__(self) -> int:
        return len(self.index)

    @property
    def last(self) -> pd.Timestamp:
        return self.index[-1]

    @property
    def is_daily(self) -> bool:
        """Whether no date has more than one row."""
        return self._stamps.daily

    @property
    def keys(self) -> np.ndarray:
        """Rising int64 nanoseconds: the dates of daily sessions, the moments of bars."""
        return self._stamps.keys

    @property
    def wall(self) -> pd.DatetimeIndex:
        """The sessions without zone: their dates, or the times of bars on the market's clock."""
        return self._stamps.local

    @property
    def days(self) -> np.ndarray:
        """The date of each session, as int64 nanoseconds of its midnight."""
        return self._stamps.dates.as_unit("ns").asi8

    @property
    def has_midnights(self) -> bool:
        """Whether bars stand at midnights, where a date could be taken for one of them."""
        return bool((self.wall == self.wall.normalize()).any())

    def reads_foreign_times(self, dates: pd.DatetimeIndex) -> bool:
        """Whether times without zone meet bars in a zone that is not the market's."""
        if self.is_daily or dates.tz is not None or self.index.tz is None:
            return False
        return not self.index.tz_localize(None).equals(self.wall)

    @cached_property
    def wall_nanos(self) -> np.ndarray:
        """`wall` as int64 nanoseconds since the epoch, strictly rising.

        The hour that a change to winter time repeats would go backwards; it is pressed together.
        """
        steps = np.arange(len(self))
        return np.maximum.accumulate(self.wall.as_unit("ns").asi8 - steps) + steps

    @cached_property
    def future(self) -> FutureBars:
        """The bars after the last session."""
        return FutureBars(self._market, self._stamps)

    @cached_property
    def known(self) -> int:
        """The last key before the next bar: up to there no price is to come."""
        local = self.future.next_bar
        key = self._stamps.local_of(local) if self.is_daily else local
        return int(key.as_unit("ns").value) - 1

    def between(self, start: int, stop: int) -> Clock:
        part = Clock(self.index[start:stop], self._market)
        part._stamps = self._stamps.between(start, stop)
        return part

    def local_of(self, when: pd.Timestamp) -> pd.Timestamp:
        """Return a stamp of the prices as `wall` has it."""
        return self._stamps.local_of(when)

    def written(self, local: pd.DatetimeIndex) -> pd.DatetimeIndex:
        """Write times of `wall` as the prices write theirs."""
        return self._stamps.written(local)

    def place(self, dates: pd.DatetimeIndex) -> Stamps:
        """Bring the dates of another table, in any zone or none, to this clock."""
        given = TableStamps(dates, self._zone)
        if self.is_daily:
            return self._by_date(given)
        if given.dates_only:
            return self._whole_days(given)
        moments = self._stamps.moments(dates)
        return self._at(moments, moments.as_unit("ns").asi8)

    def _by_date(self, given: TableStamps) -> Stamps:
        rows = self._same_moments(given.index)
        if rows is not None:
            return Stamps(self.index[rows], self.keys[rows], rows)
        dates = given.dates
        shown = self.written(dates) if given.dates_only else self._stamps.moments(given.index)
        return self._at(shown, dates.as_unit("ns").asi8)

    def _same_moments(self, dates: pd.DatetimeIndex) -> np.ndarray | None:
        """Return the sessions of dates that are moments of this clock, written in any zone."""
        if dates.tz is None or self.index.tz is None:
            return None
        moments, own = dates.as_unit("ns").asi8, self.index.as_unit("ns").asi8
        rows = np.searchsorted(own, moments)
        found = own[np.minimum(rows, len(own) - 1)] == moments
        return rows if found.all() else None

    def _whole_days(self, given: TableStamps) -> Stamps:
        """Dates beside bars: known when the day is over, and dated at its last bar.

        The day has to be over on the market's clock, on that of the prices and on that of the
        date: who made a signal of it may have used the prices of any of the three.
        """
        following = given.dates + _DAY
        zones: list[Any] = [self.index.tz, given.index.tz or self.index.tz]
        if self.index.tz is not None:
            zones.append(self._market.tz)
        ends = [self._stamps.moments(in_zone(following, z)).as_unit("ns").asi8 for z in zones]
        found = self._at(self.written(given.dates), np.max(ends, axis=0) - 1)
        over = (found.sessions >= 0) & (found.keys <= max(self.known, int(self.keys[-1])))
        bars = self.index[np.maximum(found.sessions, 0)]
        dates = pd.DatetimeIndex(bars.where(over, found.dates))
        keys = np.where(over, self.keys[np.maximum(found.sessions, 0)], found.keys)
        return Stamps(dates, keys, found.sessions, whole_days=True)

    def _at(self, dates: pd.DatetimeIndex, keys: np.ndarray) -> Stamps:
        return Stamps(dates, keys, np.searchsorted(self.keys, keys, side="right") - 1)

    def walls(self, stamps: Stamps) -> np.ndarray:
        """Return dates placed on this clock as int64 nanoseconds that compare with `wall_nanos`."""
        if self.is_daily:
            return stamps.keys
        moments = pd.DatetimeIndex(stamps.keys)
        if self.index.tz is not None:
            moments = moments.tz_localize("UTC").tz_convert(self._market.tz).tz_localize(None)
        local = np.maximum.accumulate(moments.as_unit("ns").asi8) if len(moments) else stamps.keys
        rows = np.maximum(stamps.sessions, 0)
        return np.where(self.keys[rows] == stamps.keys, self.wall_nanos[rows], local)

    def planned(self, stamps: Stamps, at: int) -> pd.Timestamp:
        """Return the date of a rebalance to come; of a whole day its last bar, by the calendar."""
        date = stamps.dates[at]
        if not stamps.whole_days:
            return date
        end = int(self.walls(stamps)[at]) + 1
        return self.future.last_before(end - _DAY.value, end) or date

    def border(self, when: Any, what: str, *, last: bool = False) -> Border:
        """Read where a span begins or, as its `last` moment, ends; a date includes its whole day.

        The text of a year or a month stands for its first day, as the last moment for its last.

        Raises
        ------
        ValueError
            When `when` is not a date.
        """
        given = _one_date(when, what, last=last)
        # Out of an array, which keeps the unit: some versions of pandas make it nanoseconds else.
        require_in_range(pd.DatetimeIndex(np.array([given.asm8])), what, traded=True)
        dates = pd.DatetimeIndex([given.as_unit("ns")])
        if not self.is_daily and is_date(given):
            day = dates.tz_localize(None)
            placed = self.written(day + _DAY if last else day)
            return Border(placed[0], int(placed.as_unit("ns").asi8[0]) - last)
        stamps = self.place(dates)
        return Border(stamps.dates[0], int(stamps.keys[0]))

    def begins(self, dates: pd.DatetimeIndex) -> tuple[np.ndarray, np.ndarray]:
        """Read many dates at once, each by itself as `border` reads where a span begins.

        Returns
        -------
        int64 arrays
            The keys on this clock, and the days that they stand for: nanoseconds of midnights.
        """
        if self.is_daily:
            keys = TableStamps(dates, self._zone).own_dates.as_unit("ns").asi8
            if dates.tz is not None and self.index.tz is not None:
                moments, own = dates.as_unit("ns").asi8, self.index.as_unit("ns").asi8
                rows = np.minimum(np.searchsorted(own, moments), len(own) - 1)
                keys = np.where(own[rows] == moments, self.keys[rows], keys)
            return keys, keys
        first = self.written(dates.tz_localize(None)).as_unit("ns").asi8
        moments = self._stamps.moments(dates).as_unit("ns").asi8
        keys = np.where(starts_of_days(dates), first, moments)
        local = pd.DatetimeIndex(keys)
        if self.index.tz is not None:
            local = local.tz_localize("UTC").tz_convert(self._stamps.zone).tz_localize(None)
        return keys, local.normalize().asi8

    def rows_until(self, index: pd.DatetimeIndex, end: Border) -> int:
        """Return how many rows of another table are whole at the end of a span."""
        table = TableStamps(index, self._zone)
        if self.is_daily:
            return int(np.searchsorted(table.dates.as_unit("ns").asi8, end.key, side="right"))
        if not table.daily:
            moments = self._stamps.moments(index).as_unit("ns").asi8
            return int(np.searchsorted(moments, end.key, side="right"))
        ends = self.written(table.dates + _DAY).as_unit("ns").asi8 - 1
        return int(np.searchsorted(ends, end.key, side="right"))

    def rows_in(self, index: pd.DatetimeIndex) -> tuple[np.ndarray, int]:
        """Find the sessions in another table.

        Returns
        -------
        int64 array of shape (sessions,) and int
            The row of each session, -1 where there is none, and how many rows between the first
            and the last session are none of them.
        """
        table = TableStamps(index, self._zone)
        if self.is_daily != table.daily:  # bars of a day and bars within it have no row in common
            return np.full(len(self), -1), len(index)
        keys = table.keys if self.is_daily else self._stamps.moments(index).as_unit("ns").asi8
        rows = pd.Index(keys).get_indexer(pd.Index(self.keys))
        inside = (keys >= self.keys[0]) & (keys <= self.keys[-1])
        return rows, int(inside.sum()) - int((rows >= 0).sum())
