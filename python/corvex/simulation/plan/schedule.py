"""The dates on which a portfolio is rebalanced, and the row of weights that counts on each."""

from __future__ import annotations

import dataclasses
import datetime
import warnings
from collections.abc import Iterable
from dataclasses import dataclass

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.simulation.read.clock import Clock, Stamps, as_dates
from corvex.simulation.read.weights import WeightTable
from corvex.tables.date_limits import require_in_range

__all__ = ["Resample", "Rule", "Schedule", "build_schedule", "read_offset", "read_resample"]

type Resample = str | pd.offsets.BaseOffset | datetime.timedelta | Iterable[object] | None
type Rule = str | pd.DatetimeIndex | None


@dataclass(frozen=True, slots=True)
class Schedule:
    """Rebalances in order of time, the first one with a weight in it first.

    Attributes
    ----------
    dates : DatetimeIndex of length rebalances
        The signal dates, in the zone of the prices.
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

    dates: pd.DatetimeIndex
    sessions: np.ndarray
    targets: np.ndarray
    planned_date: pd.Timestamp | None = None
    planned_targets: np.ndarray | None = None

    def __len__(self) -> int:
        return len(self.sessions)


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


def build_schedule(
    weights: WeightTable,
    rows: Stamps,
    clock: Clock,
    resample: Rule,
    offset: pd.Timedelta,
) -> Schedule:
    """Find the rebalances.

    Parameters
    ----------
    weights : WeightTable
        The weights.
    rows : Stamps
        The dates of its rows on the clock.
    clock : Clock
        The sessions; it knows whether the period in which they end is over.
    resample : None, str or DatetimeIndex
        None: whenever the targets change. A frequency: on the last session of each period.
        Dates: on these.
    offset : Timedelta
        Moves the ends of the periods, or the dates.
    """
    if resample is None:
        return _whenever_changed(weights, rows, clock)
    if not isinstance(resample, str):
        return _on_dates(weights, rows, clock, _listed(resample, offset, clock))
    shift = offset.as_unit("ns").value
    try:
        bounds = _engine.period_bounds(clock.wall_nanos - shift, resample)
    except ValueError as error:
        dates = _other_dates(resample, clock, error)
        return _on_dates(weights, rows, clock, _listed(dates, offset, clock))
    return _by_period(weights, rows, clock, resample, shift, (bounds[0] + shift, bounds[1] + shift))


def _whenever_changed(weights: WeightTable, rows: Stamps, clock: Clock) -> Schedule:
    known = len(rows)
    if rows.whole_days:  # a day that is not over yet gives no signal yet
        known = int(np.searchsorted(rows.keys, clock.known, side="right"))
    # Of several rows with one and the same fill only the last ever holds.
    sessions = rows.sessions[:known]
    effective = np.flatnonzero(np.diff(sessions, append=len(clock)) > 0)
    kept, targets = weights.changes(effective)
    at = effective[kept]
    schedule = Schedule(rows.dates[at], rows.sessions[at], targets)
    if known == len(rows):
        return schedule
    coming = weights.targets(np.array([known]))[0]
    held = targets[-1] if len(targets) else np.zeros_like(coming)
    if (coming == held).all():
        return schedule
    return dataclasses.replace(
        schedule, planned_date=clock.planned(rows, known), planned_targets=coming
    )


def _by_period(
    weights: WeightTable,
    rows: Stamps,
    clock: Clock,
    rule: str,
    shift: int,
    bounds: tuple[int, int],
) -> Schedule:
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
    return _trimmed(weights, Schedule(dates, at, weights.targets(row), planned), latest)


def _on_dates(weights: WeightTable, rows: Stamps, clock: Clock, listed: Stamps) -> Schedule:
    past = int(np.searchsorted(listed.keys, clock.known, side="right"))
    row = np.searchsorted(rows.keys, listed.keys, side="right") - 1
    sessions = listed.sessions[:past]
    last = np.diff(sessions, append=len(clock)) > 0
    at = np.flatnonzero(last & (row[:past] >= 0))
    planned, latest = None, -1
    if past < len(listed) and row[past] >= 0:
        planned, latest = clock.planned(listed, past), int(row[past])
    schedule = Schedule(listed.dates[at], sessions[at], weights.targets(row[at]), planned)
    return _trimmed(weights, schedule, latest)


def _trimmed(weights: WeightTable, schedule: Schedule, latest: int) -> Schedule:
    """The schedule without leading rebalances that hold nothing, with the targets of a row."""
    held = (schedule.targets != 0.0).any(axis=1)
    first = int(np.argmax(held)) if held.any() else len(held)
    return Schedule(
        schedule.dates[first:],
        schedule.sessions[first:],
        schedule.targets[first:],
        schedule.planned_date,
        None if latest < 0 else weights.targets(np.array([latest]))[0],
    )


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
