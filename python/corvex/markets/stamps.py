"""What the stamps of a table mean: dates, or moments.

A stamp at midnight names a date, whatever its zone: daily prices stamped at midnight UTC are those
of that day, although New York's clocks still show the evening before. A stamp inside a day is a
moment, and its date is the one that it has in the market's zone; without a zone, its own. Where a
table has several rows a day all of its stamps are moments, those at midnight too.

This is the one place that knows; markets, freshness, rebalances and the simulation ask here.
"""

from __future__ import annotations

import weakref
from collections.abc import Callable
from functools import cached_property
from typing import Any

import numpy as np
import numpy.typing as npt
import pandas as pd

__all__ = [
    "TableStamps",
    "Zone",
    "has_dates_only",
    "in_zone",
    "is_date",
    "known_of",
    "local_date",
    "local_time",
    "starts_of_days",
]

type Zone = str | Callable[[], str]

_PER_DAY = {"s": 86_400, "ms": 86_400_000, "us": 86_400_000_000, "ns": 86_400_000_000_000}
# What is known of an index by itself, for as long as it lives: a user's price
# table meets many readers, and many runs.
_KNOWN: dict[int, tuple[weakref.ref[pd.DatetimeIndex], dict[str, Any]]] = {}


def known_of(index: pd.DatetimeIndex) -> dict[str, Any]:
    """Return where facts that rest on an index alone are kept; indexes never change."""
    key = id(index)
    found = _KNOWN.get(key)
    if found is None or found[0]() is not index:
        found = weakref.ref(index, lambda _: _KNOWN.pop(key, None)), {}
        _KNOWN[key] = found
    return found[1]


def _of_index[T](fact: Callable[[TableStamps], T]) -> cached_property[T]:
    """A property that needs no zone where the index has none: then it is found out once."""

    def value(stamps: TableStamps) -> T:
        if stamps.index.tz is not None:
            return fact(stamps)
        known = known_of(stamps.index)
        if fact.__name__ not in known:
            known[fact.__name__] = fact(stamps)
        result: T = known[fact.__name__]
        return result

    value.__doc__ = fact.__doc__
    return cached_property(value)


def _midnights(wall: pd.DatetimeIndex) -> pd.DatetimeIndex:
    """`wall.normalize()` of naive stamps, without pandas' search for a frequency."""
    if wall.hasnans:
        return wall.normalize()
    day = _PER_DAY[wall.unit]
    return pd.DatetimeIndex((wall.asi8 // day * day).view(f"M8[{wall.unit}]"), copy=False)


def starts_of_days(index: pd.DatetimeIndex) -> npt.NDArray[np.bool_]:
    """Return which stamps are the first moment of a day in their own zone.

    That is midnight, or one o'clock where the clocks of a zone go forward at midnight.
    """
    wall = index.tz_localize(None)
    days = _midnights(wall)
    found: npt.NDArray[np.bool_] = wall.asi8 == days.asi8
    if wall.hasnans:
        found &= np.asarray(wall.notna())
    if index.tz is not None and not found.all():
        before = (index - pd.Timedelta(1, "s").as_unit(index.unit)).tz_localize(None)
        late = np.asarray(wall - days == pd.Timedelta(hours=1))
        found = found | (late & np.asarray(before.normalize() < days))
    return found


def has_dates_only(index: pd.DatetimeIndex) -> bool:
    """Whether every stamp is a midnight of its own zone: a date, and not a moment."""
    return bool(starts_of_days(index).all())


def is_date(when: pd.Timestamp) -> bool:
    """Whether one stamp is a midnight of its own zone: a date, and not a moment."""
    return bool(starts_of_days(pd.DatetimeIndex([when]))[0])


def local_time(when: pd.Timestamp, zone: Zone) -> pd.Timestamp:
    """Return the wall-clock time of a moment in the market's zone, without zone."""
    return when if when.tzinfo is None else when.tz_convert(_name(zone)).tz_localize(None)


def local_date(when: pd.Timestamp, zone: Zone, *, moment: bool = False) -> pd.Timestamp:
    """Return the date that one stamp stands for, as a naive midnight.

    Parameters
    ----------
    when : Timestamp
        With or without zone.
    zone : str or callable that gives it
        The market's zone; a callable is asked only where it matters.
    moment : bool, default False
        The stamp is known to be a moment, as the present is, or the bar of an intraday table.
    """
    if not moment and when.tzinfo is not None and is_date(when):
        return when.tz_localize(None).normalize()
    return local_time(when, zone).normalize()


def in_zone(local: pd.DatetimeIndex, zone: Any) -> pd.DatetimeIndex:
    """Return naive local times in a zone (None: as they are).

    Of an hour that occurs twice the first; a time that the clocks leave out becomes the next one.
    """
    if zone is None:
        return local
    first = np.ones(len(local), dtype=bool)
    return local.tz_localize(zone, ambiguous=first, nonexistent="shift_forward")


class TableStamps:
    """How the stamps of one table are read; decided once for the table.

    Parameters
    ----------
    index : DatetimeIndex
        Rising.
    zone : str or callable that gives it
        IANA name of the market's zone; a callable is asked only where it matters.
    """

    def __init__(self, index: pd.DatetimeIndex, zone: Zone) -> None:
        self.index = index
        self._zone = zone

    @property
    def zone(self) -> str:
        """The market's zone."""
        return _name(self._zone)

    @_of_index
    def _starts(self) -> npt.NDArray[np.bool_]:
        return starts_of_days(self.index)

    @cached_property
    def dates_only(self) -> bool:
        """Whether all stamps are dates; a table of no rows counts as one of dates."""
        return bool(self._starts.all()) and self.daily

    @_of_index
    def daily(self) -> bool:
        """Whether no date has several rows: bars of a day or longer."""
        days = self.own_dates.as_unit("ns").asi8
        return bool((np.diff(days) > 0).all())

    @_of_index
    def own_dates(self) -> pd.DatetimeIndex:
        """The dates of the stamps, each read by itself."""
        wall = _midnights(self.index.tz_localize(None))
        if self.index.tz is None or self._starts.all():
            return wall
        local = _midnights(self.index.tz_convert(self.zone).tz_localize(None))
        return local if not self._starts.any() else wall.where(self._starts, local)

    @cached_property
    def local(self) -> pd.DatetimeIndex:
        """Naive times on the market's clock: the dates of daily rows, the times of others."""
        if self.daily:
            return self.own_dates
        if self.index.tz is None:
            return self.index
        return self.index.tz_convert(self.zone).tz_localize(None)

    @cached_property
    def dates(self) -> pd.DatetimeIndex:
        """The date of each row on the market's calendar, as naive midnights."""
        return self.own_dates if self.daily else _midnights(self.local)

    @property
    def last_date(self) -> pd.Timestamp:
        """The last one of `dates`."""
        last = self.index[-1]
        if self.index.tz is not None or pd.isna(last):
            return self.dates[-1]
        return last.normalize()

    @cached_property
    def keys(self) -> npt.NDArray[np.int64]:
        """Nanoseconds that compare with those of tables in the same form.

        The dates of daily rows; the moments of others, without a zone those of the market's clock.
        """
        return (self.local if self.daily else self.index).as_unit("ns").asi8

    def between(self, start: int, stop: int) -> TableStamps:
        """Return some of the rows, read as the whole table is."""
        part = TableStamps(self.index[start:stop], self._zone)
        part.daily = self.daily
        return part

    def local_of(self, when: pd.Timestamp) -> pd.Timestamp:
        """Return one stamp, written as these are, as `local` has it."""
        return local_date(when, self._zone) if self.daily else local_time(when, self._zone)

    def written(self, local: pd.DatetimeIndex) -> pd.DatetimeIndex:
        """Write dates, or times of the market's clock, as the stamps of this table are written."""
        if self.daily:
            if len(self.index) == 0 or self._starts[-1]:
                return in_zone(local, self.index.tz)
            last = local_time(self.index[-1], self._zone)
            local = local + (last - last.normalize())
        if self.index.tz is None:
            return local
        return in_zone(local, self.zone).tz_convert(self.index.tz)

    def moments(self, dates: pd.DatetimeIndex) -> pd.DatetimeIndex:
        """Write moments in the zone of this table, or without one as it does.

        Moments without zone are those of this table's clock; a table without zone has the market's.
        """
        if dates.tz is None:
            return in_zone(dates, self.index.tz)
        if self.index.tz is None:
            return dates.tz_convert(self.zone).tz_localize(None)
        return dates.tz_convert(self.index.tz)


def _name(zone: Zone) -> str:
    return zone if isinstance(zone, str) else zone()
