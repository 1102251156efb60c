"""The dates on which a portfolio is rebalanced, and the row of weights that counts on each."""

from __future__ import annotations

import datetime
import warnings
from collections.abc import Callable, Iterable

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.simulation.read.clock import Clock, Stamps, as_dates
from corvex.simulation.read.weights import WeightTable
from corvex.tables.date_limits import require_in_range

__all__ = [
    "Resample", "Rule", "Schedule", "Timetable", "build_schedule", "make_timetable", "read_offset",
    "read_resample",
]  # fmt: skip

type Resample = str | pd.offsets.BaseOffset | datetime.timedelta | Iterable[object] | None
type Rule = str | pd.DatetimeIndex | None


class Schedule:
    """Rebalances in order of time, the first one with a weight in it first.

    Attributes
    ----------
    candidates : DatetimeIndex
        The dates on which there could have been one, in the zone of the prices.
    kept : int64 array of shape (rebalances,), slice or None
        Which of them are signal dates; None for all.
    sessions : int64 array of shape (rebalances,)
        Row of the session of each signal; it fills on the next one. -1 before the table; the
        last row means that there is no fill yet.
    targets : float64 array of shape (rebalances, assets)
        The target weights.
    planned_date : Timestamp or None
        The next known date that no session has reached yet.
    planned_targets : float64 array of shape (assets,) or None
        The targets of the latest row, on which that rebalance would act today.
    """

    __slots__ = ("candidates", "kept", "planned_date", "planned_targets", "sessions", "targets")

    def __init__(
        self,
        candidates: pd.DatetimeIndex,
        kept: np.ndarray | slice | None,
        sessions: np.ndarray,
        targets: np.ndarray,
        planned_date: pd.Timestamp | None = None,
        planned_targets: np.ndarray | None = None,
    ) -> None:
        self.candidates = candidates
        self.kept = kept
        self.sessions = sessions
        self.targets = targets
        self.planned_date = planned_date
        self.planned_targets = planned_targets

    def __len__(self) -> int:
        return len(self.sessions)

    @property
    def dates(self) -> pd.DatetimeIndex:
        """The signal dates; made anew each time, as thousands of runs never look at theirs."""
        return self.candidates if self.kept is None else self.candidates[self.kept]


def read_resample(resample: Resample) -> Rule:
    """Read `resample`: a frequency as a text, or dates.

    Raises
    ------
    ValueError
        When it holds something else than dates, or none, or is a frequency without a name.
    """
    if resample is None or isinstance(resample, str):
        return resample
    if isinstance(resample, pd.offsets.BaseOffset | datetime.timedelta):
        return _frequency_name(resample)
    values = resample.to_numpy() if isinstance(resample, pd.Series) else resample
    if isinstance(values, datetime.date | np.datetime64):
        values = [values]
    try:
        dates = as_dates(values if isinstance(values, pd.Index) else list(values), "resample")
    except TypeError as error:
        raise ValueError(
            f"resample must be a frequency such as 'ME', dates or None, got {resample!r}"
        ) from error
    if len(dates) == 0:
        raise ValueError("resample is an empty list of dates; give at least one, or None")
    return dates


def _frequency_name(offset: pd.offsets.BaseOffset | datetime.timedelta) -> str:
    """Return the name of a frequency that is given as an object."""
    if isinstance(offset, pd.offsets.Week) and getattr(offset, "weekday", None) is None:
        offset = pd.Timedelta(days=7 * offset.n)  # counted from the first session, as pandas does
    frequency = pd.tseries.frequencies.to_offset(offset)
    name = str(frequency.freqstr)
    try:
        named = pd.tseries.frequencies.to_offset(name)
    except ValueError:
        named = None
    if named != frequency or frequency.n < 1:
        raise ValueError(
            f"resample={offset!r} has no name among pandas' frequencies; give its dates, as "
            "pd.date_range(first, last, freq=...) does"
        )
    return name


def read_offset(resample: Rule, offset: object) -> pd.Timedelta:
    """Read `resample_offset`, a length of time such as "1D" or a timedelta."""
    if offset is None:
        return pd.Timedelta(0)
    if resample is None:
        raise ValueError("resample_offset moves the dates of resample, which is None")
    try:
        length = pd.Timedelta(offset)  # type: ignore[arg-type]
    except (TypeError, ValueError):
        length = pd.NaT  # type: ignore[assignment]
    if pd.isna(length):
        raise ValueError(f"resample_offset must be a length of time such as '1D', got {offset!r}")
    return length


class Timetable:
    """When a portfolio may be rebalanced, whatever its weights are.

    Attributes
    ----------
    dates : DatetimeIndex of length n
        The signal dates, in the zone of the prices.
    sessions, rows : int64 arrays of shape (n,)
        Row of the session of each signal, and of the weights that count there.
    only_changes : bool
        Nothing is traded where the targets are those of the row before.
    planned : callable
        The next known date that no session has reached yet, or None.
    planned_row : int
        Row of the weights on which that rebalance would act; -1 without one.
    """

    def __init__(
        self,
        dates: pd.DatetimeIndex,
        sessions: np.ndarray,
        rows: np.ndarray,
        only_changes: bool,
        planned: Callable[[], pd.Timestamp | None],
        planned_row: int,
    ) -> None:
        self.dates = dates
        self.sessions = sessions
        self.rows = rows
        self.only_changes = only_changes
        self.planned = planned
        self.planned_row = planned_row


def make_timetable(rows: Stamps, clock: Clock, resample: Rule, offset: pd.Timedelta) -> Timetable:
    """Find the dates of the rebalances.

    Parameters
    ----------
    rows : Stamps
        The dates of the rows of weights on the clock.
    clock : Clock
        The sessions; it knows whether the period in which they end is over.
    resample : None, str or DatetimeIndex
        None: whenever the targets change. A frequency: on the last session of each period.
        Dates: on these.
    offset : Timedelta
        Moves the ends of the periods, or the dates.
    """
    if resample is None:
        return _by_row(rows, clock)
    if not isinstance(resample, str):
        return _on_dates(rows, clock, _listed(resample, offset, clock))
    shift = offset.as_unit("ns").value
    try:
        bounds = _engine.period_bounds(clock.wall_nanos - shift, resample)
    except ValueError as error:
        dates = _other_dates(resample, clock, error)
        return _on_dates(rows, clock, _listed(dates, offset, clock))
    return _by_period(rows, clock, resample, shift, (bounds[0] + shift, bounds[1] + shift))


def build_schedule(weights: WeightTable, timetable: Timetable) -> Schedule:
    """Return the rebalances of some weights, the first one with a weight in it first."""
    at = timetable
    first: np.ndarray | slice
    if at.only_changes:
        first, targets = weights.changes(at.rows)
    else:
        targets = weights.targets(at.rows)
        held = (targets != 0.0).any(axis=1)
        first = slice(int(np.argmax(held)) if held.any() else len(held), None)
        targets = targets[first]
    whole = len(targets) == len(at.rows)
    schedule = Schedule(
        candidates=at.dates,
        kept=None if whole else first,
        sessions=at.sessions if whole else at.sessions[first],
        targets=targets,
    )
    if at.planned_row < 0:
        return schedule if at.only_changes else _with_plan(schedule, at.planned(), None)
    coming = weights.targets(np.array([at.planned_row]))[0]
    if at.only_changes:
        before = targets[-1] if len(targets) else np.zeros_like(coming)
        if (coming == before).all():
            return schedule
    return _with_plan(schedule, at.planned(), coming)


def _with_plan(
    schedule: Schedule, date: pd.Timestamp | None, targets: np.ndarray | None
) -> Schedule:
    if date is None and targets is None:
        return schedule
    known = (schedule.candidates, schedule.kept, schedule.sessions, schedule.targets)
    return Schedule(*known, date, targets)


def _by_row(rows: Stamps, clock: Clock) -> Timetable:
    known = len(rows)
    if rows.whole_days:  # a day that is not over yet gives no signal yet
        known = int(np.searchsorted(rows.keys, clock.known, side="right"))
    # Of several rows with one and the same fill only the last ever holds.
    sessions = rows.sessions[:known]
    at = np.flatnonzero(np.diff(sessions, append=len(clock)) > 0)
    return Timetable(
        dates=rows.dates[at],
        sessions=sessions[at],
        rows=at,
        only_changes=True,
        planned=lambda: clock.planned(rows, known),
        planned_row=known if known < len(rows) else -1,
    )


def _by_period(
    rows: Stamps, clock: Clock, rule: str, shift: int, bounds: tuple[int, int]
) -> Timetable:
    """Rebalance at the end of each period; the table ends in that of `bounds`."""
    sessions, row_times = clock.wall_nanos, clock.walls(rows)
    planned = clock.future.last_before(*bounds)
    # A row dated after its period's last session, such as a Saturday's, belongs to the period.
    inside = row_times[(row_times >= sessions[0]) & (row_times < bounds[1])]
    times = np.union1d(sessions, inside)
    ends = times[_engine.period_last_sessions(times - shift, rule)]
    if planned is not None:
        ends = ends[:-1]
    at = np.searchsorted(sessions, ends, side="right") - 1
    row = np.searchsorted(row_times, ends, side="right") - 1
    last = np.diff(at, append=len(sessions)) > 0
    at, row = at[last & (row >= 0)], row[last & (row >= 0)]
    later = row_times[row] > sessions[at]
    dates = pd.DatetimeIndex(clock.index[at].where(~later, rows.dates[row]))
    latest = -1
    if planned is not None:
        latest = int(np.searchsorted(row_times, bounds[1])) - 1
    return Timetable(dates, at, row, False, lambda: planned, latest)


def _on_dates(rows: Stamps, clock: Clock, listed: Stamps) -> Timetable:
    past = int(np.searchsorted(listed.keys, clock.known, side="right"))
    row = np.searchsorted(rows.keys, listed.keys, side="right") - 1
    sessions = listed.sessions[:past]
    last = np.diff(sessions, append=len(clock)) > 0
    at = np.flatnonzero(last & (row[:past] >= 0))
    planned, latest = None, -1
    if past < len(listed) and row[past] >= 0:
        planned, latest = clock.planned(listed, past), int(row[past])
    return Timetable(listed.dates[at], sessions[at], row[at], False, lambda: planned, latest)


def _listed(dates: pd.DatetimeIndex, offset: pd.Timedelta, clock: Clock) -> Stamps:
    try:
        moved = dates + offset
    except (ArithmeticError, ValueError):
        moved = dates.as_unit("s") + offset.as_unit("s")
    require_in_range(moved, "resample with its resample_offset", traded=True)
    return clock.place(moved.unique().sort_values())


def _other_dates(rule: str, clock: Clock, error: ValueError) -> pd.DatetimeIndex:
    """The dates of a pandas frequency that is no plain period, such as "MS" or "WOM-3FRI"."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # old pandas warns of letters of another case
            frequency = pd.tseries.frequencies.to_offset(rule)
    except (ArithmeticError, ValueError):  # a multiple of 0, or beyond all numbers, too
        raise error from None
    if frequency is None or isinstance(frequency, pd.tseries.offsets.Tick) or frequency.n < 1:
        raise error
    first = clock.wall[0].normalize()
    try:
        last = max(clock.wall[-1].normalize() + frequency, clock.wall[-1] + pd.Timedelta(days=1))
        return pd.date_range(first, last, freq=frequency)
    except (ArithmeticError, ValueError) as beyond:
        raise ValueError(f"resample={rule!r} reaches beyond the dates that can be told") from beyond
