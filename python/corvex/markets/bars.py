"""Bar lengths: how far apart the rows of a table are, and where the next one falls."""

from __future__ import annotations

import datetime
from typing import Any, Protocol

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.markets.calendars import DateLike, TradingCalendar, to_timestamp
from corvex.markets.stamps import in_zone, is_date, known_of, local_time

__all__ = [
    "bar_end",
    "has_weekends",
    "infer_freq",
    "is_intraday",
    "next_bar",
    "period_before",
    "usual_gap",
]

_DAY = pd.Timedelta(days=1)


class _Sessions(Protocol):
    """What is asked of a market here."""

    @property
    def calendar_name(self) -> str | None: ...

    @property
    def calendar(self) -> TradingCalendar: ...

    @property
    def tz(self) -> str: ...

    @property
    def bar_length(self) -> pd.Timedelta | None: ...


# Pandas' names of the engine's bars.
_FREQUENCIES = {
    "unknown": "D",
    "daily": "D",
    "weekly": "W",
    "two-weekly": "2W",
    "monthly": "ME",
    "quarterly": "QE",
    "half-yearly": "2QE",
    "yearly": "YE",
}
_LONG = frozenset(_FREQUENCIES.values())


def infer_freq(index: pd.DatetimeIndex) -> str:
    """Infer the bar length of a table from its dates.

    Returns
    -------
    str
        A pandas frequency: "D" for daily rows whatever the holidays (and for fewer than two
        rows), "W", "2W", "ME", "QE", "2QE" or "YE" for longer ones, else the usual gap of intraday
        rows, such as "h" or "5min". The statistics of a curve name the same bars.
    """
    known = known_of(index)
    if "freq" not in known:
        bar = _engine.infer_convention(_wall_nanos(index))[0]
        if bar == "intraday":
            known["freq"] = str(pd.tseries.frequencies.to_offset(usual_gap(index)).freqstr)
        else:
            known["freq"] = _FREQUENCIES[bar]
    return str(known["freq"])


def has_weekends(index: pd.DatetimeIndex) -> bool:
    """Whether a table has rows at weekends as it has in the week; a stray Saturday is none.

    Rows further apart than a day say nothing about it.
    """
    weekends: bool = _engine.infer_convention(_wall_nanos(index))[2]
    return weekends


def period_before(index: pd.DatetimeIndex) -> pd.Timestamp:
    """Return the date one period before the first one of a table."""
    freq = infer_freq(index)
    if is_intraday(freq):
        before = index[0] - usual_gap(index)
    elif freq == "D":
        before = index[0] - (pd.DateOffset(days=1) if has_weekends(index) else pd.offsets.BDay())
    elif freq in ("W", "2W"):
        before = index[0] - pd.DateOffset(days=7 if freq == "W" else 14)
    else:
        before = index[0] - pd.tseries.frequencies.to_offset(freq)
    return before.as_unit(index.unit)


def is_intraday(freq: str) -> bool:
    """Whether a pandas frequency is shorter than a day."""
    if freq in _LONG:
        return False
    offset = pd.tseries.frequencies.to_offset(freq)
    return isinstance(offset, pd.tseries.offsets.Tick) and pd.Timedelta(offset) < _DAY


def next_bar(market: _Sessions, index: pd.DatetimeIndex) -> pd.Timestamp:
    """Return the stamp of the bar after the last one; `Market.next_bar` tells the rest."""
    if len(index) == 0:
        raise ValueError("the price table has no dates")
    last = pd.Timestamp(index[-1])
    if not is_intraday(infer_freq(index)):
        # A date is one in its own zone; a moment, such as the time of a close, in the market's.
        zone = last.tz if last.tz is not None and is_date(last) else market.tz
        local = last if last.tz is None else last.tz_convert(zone).tz_localize(None)
        return _next_session(market, local, local - local.normalize(), zone, last.tz)
    gap = usual_gap(index)
    if market.calendar_name is None:
        return last + gap
    times = index if index.tz is None else index.tz_convert(market.tz).tz_localize(None)
    local = pd.Timestamp(times[-1])
    first_time, last_time = _usual_times(times)
    following = local + gap
    if last_time is None:
        inside = _inside_session(market, first_time, following)
    else:
        inside = following - local.normalize() <= last_time
    close = market.calendar.session_close(market.calendar.last_session(local))
    if inside and following <= local_time(close, market.tz):
        return last + gap
    return _next_session(market, local, first_time, market.tz, last.tz)


def bar_end(market: _Sessions, when: DateLike) -> pd.Timestamp | None:
    """Return when the bar of a stamp is finished, in the market's zone.

    None where the bars are not intraday, and for what names a whole day.
    """
    stamp, gap = to_timestamp(when), market.bar_length
    if gap is None or (is_date(stamp) and not isinstance(when, datetime.datetime)):
        return None
    local = local_time(stamp, market.tz)
    bar = local.tz_localize(market.tz) if stamp.tzinfo is None else stamp.tz_convert(market.tz)
    if market.calendar_name is None:
        return bar + gap
    session = market.calendar.last_session(local)
    opening, close = market.calendar.session_open(session), market.calendar.session_close(session)
    if local.normalize() != session or (is_date(stamp) and not opening <= bar <= close):
        return None
    return min(bar + gap, close.tz_convert(market.tz)) if bar <= close else bar + gap


def _inside_session(market: _Sessions, first_time: pd.Timedelta, bar: pd.Timestamp) -> bool:
    """Whether a session still has this bar, where no whole day shows when the last one is.

    A table whose first bar is stamped at the opening stamps bars by their start: it has none at
    the close.
    """
    session = market.calendar.last_session(bar)
    close = local_time(market.calendar.session_close(session), market.tz)
    opening = local_time(market.calendar.session_open(session), market.tz)
    by_start = first_time == opening - opening.normalize()
    return bool(bar < close or (bar == close and not by_start))


def _next_session(
    market: _Sessions, local: pd.Timestamp, time: pd.Timedelta, zone: Any, own: Any
) -> pd.Timestamp:
    """Return the session after a local date, at a wall-clock time of a zone, written in `own`."""
    bar = market.calendar.next_session(local) + time
    return bar if own is None else in_zone(pd.DatetimeIndex([bar]), zone)[0].tz_convert(own)


def usual_gap(index: pd.DatetimeIndex) -> pd.Timedelta:
    """Return the usual distance of neighbouring rows, that which tells the bar."""
    return pd.Timedelta(_engine.usual_gap(_wall_nanos(index)), unit="ns")


def _wall_nanos(index: pd.DatetimeIndex) -> np.ndarray:
    local = index if index.tz is None else index.tz_localize(None)
    return (local if local.unit == "ns" else local.as_unit("ns")).asi8


def _usual_times(local: pd.DatetimeIndex) -> tuple[pd.Timedelta, pd.Timedelta | None]:
    """Return the usual times of day of a session's first and last bar.

    The last day may not be whole and is left out; alone, it does not tell the last bar's time.
    """
    days = local.normalize()
    times = pd.Series(local - days, index=days)
    by_day = times.groupby(level=0).agg(["first", "last"])
    if len(by_day) == 1:
        return by_day["first"].iloc[0], None
    settled = by_day.iloc[:-1]
    return settled["first"].mode().iloc[0], settled["last"].mode().iloc[-1]
