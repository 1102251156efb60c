"""When a portfolio has to be rebalanced: the timing record of an execution state."""

from __future__ import annotations

import datetime
from typing import Any, Protocol

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.markets.bars import is_intraday
from corvex.markets.calendars import TradingCalendar
from corvex.markets.exchanges import as_calendar
from corvex.markets.stamps import local_date
from corvex.tables.context import in_utc

__all__ = ["execution_timing"]


def __dir__() -> list[str]:
    return sorted(__all__)


class _Execution(Protocol):
    """What `execution_timing` reads of an execution state."""

    weights: Any
    next_weights: Any
    next_trading_date: Any
    market: Any
    resample: Any
    planned_rebalance_date: Any


def execution_timing(
    execution: _Execution,
    now: datetime.datetime | None = None,
    calendar: Any = None,
) -> dict[str, Any]:
    """Tell when the next weights of an execution state apply, by the trading calendar.

    The next weights apply from the close of the session of their signal date: by then the signal
    is complete, and the first trade can be made in the session after it. A signal date without
    session (a month's end on a Sunday, a holiday) counts as the last session before it.

    Parameters
    ----------
    execution : ReportExecution
        Read are `weights` and `next_weights` (their names are the signal dates),
        `next_trading_date`, `market`, `resample` and `planned_rebalance_date`.
    now : datetime, optional
        The moment to judge; a naive one is this machine's local time. By default the machine's
        clock, as for the queries of the execution state, whatever present the data context fixes.
    calendar : TradingCalendar, str or exchange_calendars.ExchangeCalendar, optional
        Sessions to use instead of the market's own; text is the name of an exchange ("XTAI").

    Returns
    -------
    dict
        JSON-ready. Keys ending in ``_at`` are moments, ISO-8601 texts in UTC; keys ending in
        ``_date`` are session dates of the market, ISO-8601 dates without a time; None where
        unknown.

        ``status``
            "known": the calendar places the rebalance. Otherwise everything but ``now_at``,
            ``market`` and the current signal may be None, and the word says why: "no_signal"
            (neither the next weights nor the schedule carry a date), "no_schedule" (the next
            weights are held already, and no later rebalance is planned), "intraday" (the market
            has several bars a session, a calendar of sessions does not place them),
            "no_calendar" (the market has none, or not for these years).
        ``update_start_at``
            From when on the next weights apply. Always there when the status is "known".
        ``rebalance_due``
            Whether that moment has come.
        ``overdue``
            Whether the deadline has passed as well.
        ``current_signal_date``, ``current_signal_at``
            Session of the signal that the current weights follow, and its close.
        ``next_signal_date``, ``next_signal_at``
            The same of the next weights, or of the next planned rebalance. The close is
            ``update_start_at``.
        ``next_session_date``, ``next_session_open_at``
            The first session after the next signal: when it is filled.
        ``deadline_at``
            The close of that session.
        ``planned_rebalance_date``
            Session of the planned rebalance, when the state names one.
        ``next_trading_date``
            Session date of the state's next trading date.
        ``market``, ``now_at``
            The market's name and the moment judged.

    Raises
    ------
    TypeError
        When `calendar` is none of the accepted forms.
    ValueError
        When `calendar` is a text that names no exchange.
    """
    moment = pd.Timestamp(in_utc(now or datetime.datetime.now(datetime.UTC)))
    record = _blank(execution, moment)
    if isinstance(calendar, str):
        as_calendar(calendar).tz  # noqa: B018 - a name that is not known fails here
    try:
        sessions = _Sessions.of(execution.market, calendar)
        if sessions is not None:
            record["status"] = _place(execution, sessions, moment, record)
    except ValueError:  # an exchange that is not recorded, or not for these years
        return _blank(execution, moment)
    return record


def _place(
    execution: _Execution, sessions: _Sessions, now: pd.Timestamp, record: dict[str, Any]
) -> str:
    """Fill the record; return its status."""
    current = _date_name(execution.weights)
    planned = _as_date(getattr(execution, "planned_rebalance_date", None))
    scheduled = _as_date(execution.next_trading_date)
    if current is not None:
        session = sessions.on_or_before(current)
        record.update(current_signal_date=_date(session), current_signal_at=sessions.close(session))
    if planned is not None:
        record["planned_rebalance_date"] = _date(sessions.on_or_before(planned))
    if scheduled is not None:
        record["next_trading_date"] = _date(sessions.local_date(scheduled))
    if is_intraday(_freq(execution.market)):
        return "intraday"
    signal = _next_signal(execution, sessions, current, planned)
    if signal is None:
        return "no_signal" if _date_name(execution.next_weights) is None else "no_schedule"
    _fill_signal(record, sessions, sessions.on_or_before(signal), now)
    return "known"


def _fill_signal(
    record: dict[str, Any], sessions: _Sessions, signal: pd.Timestamp, now: pd.Timestamp
) -> None:
    following = sessions.calendar.next_session(signal)
    start, deadline = sessions.close(signal), sessions.close(following)
    record.update(
        update_start_at=start,
        rebalance_due=bool(now >= pd.Timestamp(start)),
        overdue=bool(now > pd.Timestamp(deadline)),
        next_signal_date=_date(signal),
        next_signal_at=start,
        next_session_date=_date(following),
        next_session_open_at=_utc(sessions.calendar.session_open(following)),
        deadline_at=deadline,
    )


def _next_signal(
    execution: _Execution,
    sessions: _Sessions,
    current: pd.Timestamp | None,
    planned: pd.Timestamp | None,
) -> pd.Timestamp | None:
    """Return the date of the next signal: that of the next weights, else what is planned."""
    named = _date_name(execution.next_weights)
    if named is not None and (current is None or _differ(named, current)):
        return named
    done = current if current is not None else named
    if planned is not None and (done is None or _differ(planned, done)):
        return planned
    if named is None or done is None:
        return None
    return _scheduled_after(execution.resample, sessions, sessions.on_or_before(done))


def _scheduled_after(resample: Any, sessions: _Sessions, done: pd.Timestamp) -> pd.Timestamp | None:
    """Return the next date of a rebalance schedule after a session; None without a schedule."""
    if resample is None:
        return None
    if isinstance(resample, str):
        following = sessions.calendar.next_session(done)
        return _period_end(resample, following)
    dates = sorted(sessions.local_date(pd.Timestamp(date)) for date in resample)
    return next((date for date in dates if sessions.on_or_before(date) > done), None)


def _period_end(rule: str, date: pd.Timestamp) -> pd.Timestamp | None:
    """Return the last day of the period of a frequency that holds a date, as a simulation has it.

    Of a frequency that names dates, such as "MS", the first one from that date on.
    """
    count = rule[: len(rule) - len(rule.lstrip("0123456789"))]
    if count not in ("", "1"):  # every second month, say, counts from a date that is not known here
        return None
    try:
        _, end = _engine.period_bounds(np.array([date.as_unit("ns").value]), rule)
    except ValueError:  # no plain period, such as "MS" or "WOM-3FRI"
        try:
            return pd.Timestamp(pd.tseries.frequencies.to_offset(rule).rollforward(date))
        except ValueError:
            return None
    return pd.Timestamp(end - 1, unit="ns")


class _Sessions:
    """A calendar together with the zone in which the market's dates count."""

    def __init__(self, calendar: TradingCalendar, tz: str, *, moments: bool) -> None:
        self.calendar = calendar
        self.tz = tz
        self._moments = moments

    @classmethod
    def of(cls, market: Any, calendar: Any) -> _Sessions | None:
        if calendar is None:
            calendar = getattr(market, "calendar", None)
        if calendar is None:
            return None
        found = as_calendar(calendar)
        zone = getattr(market, "timezone", None) or found.tz
        return cls(found, zone, moments=getattr(market, "stamps_are_moments", False))

    def local_date(self, when: pd.Timestamp) -> pd.Timestamp:
        return local_date(when, self.tz, moment=self._moments)

    def on_or_before(self, when: pd.Timestamp) -> pd.Timestamp:
        return self.calendar.last_session(self.local_date(when))

    def close(self, session: pd.Timestamp) -> str:
        return _utc(self.calendar.session_close(session))


def _blank(execution: _Execution, now: pd.Timestamp) -> dict[str, Any]:
    name = getattr(execution.market, "get_name", lambda: None)()
    return {
        "status": "no_calendar",
        "market": name,
        "now_at": _utc(now),
        "update_start_at": None,
        "rebalance_due": False,
        "overdue": False,
        "current_signal_date": None,
        "current_signal_at": None,
        "next_signal_date": None,
        "next_signal_at": None,
        "next_session_date": None,
        "next_session_open_at": None,
        "deadline_at": None,
        "planned_rebalance_date": None,
        "next_trading_date": None,
    }


def _freq(market: Any) -> str:
    return str(getattr(market, "get_freq", lambda: "D")() or "D")


def _date_name(weights: Any) -> pd.Timestamp | None:
    """Return the signal date that a weight series is named by; None for any other name.

    As in an execution state, only a datetime is one: no text, nor a date without time.
    """
    name = getattr(weights, "name", None)
    return _as_date(name) if isinstance(name, datetime.datetime) else None


def _as_date(value: Any) -> pd.Timestamp | None:
    return None if pd.isna(value) else pd.Timestamp(value)


def _differ(a: pd.Timestamp, b: pd.Timestamp) -> bool:
    """Whether two dates differ; one with and one without a zone are compared by wall clock."""
    if (a.tzinfo is None) != (b.tzinfo is None):
        a, b = a.replace(tzinfo=None), b.replace(tzinfo=None)
    return a != b


def _date(session: pd.Timestamp) -> str:
    return session.date().isoformat()


def _utc(moment: pd.Timestamp) -> str:
    return moment.tz_convert("UTC").to_pydatetime().isoformat()
