"""The dates on which a portfolio is rebalanced, and the row of weights that counts on each."""

from __future__ import annotations

import datetime
import warnings
from collections.abc import Iterable
from dataclasses import dataclass

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.simulation.dates import Clock, Stamps, as_dates, local_nanos
from corvex.simulation.future import FutureBars
from corvex.simulation.targets import WeightTable

__all__ = ["Resample", "Rule", "Schedule", "build_schedule", "read_offset", "read_resample"]

type Resample = str | Iterable[object] | None
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
    """Read `resample`: a frequency as it is, or dates.

    Raises
    ------
    ValueError
        When it holds something else than dates, or none.
    """
    if resample is None or isinstance(resample, str):
        return resample
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
    future: FutureBars,
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
        The sessions.
    future : FutureBars
        Tells whether the period in which the table ends is over.
    resample : None, str or DatetimeIndex
        None: whenever the targets change. A frequency: on the last session of each period.
        Dates: on these.
    offset : Timedelta
        Moves the ends of the periods, or the dates.
    """
    if resample is None:
        return _whenever_changed(weights, rows)
    if not isinstance(resample, str):
        return _on_dates(weights, rows, clock, _listed(resample, offset, clock))
    shift = offset.as_unit("ns").value
    try:
        bounds = _engine.period_bounds(clock.wall_nanos - shift, resample)
    except ValueError as error:
        dates = _other_dates(resample, clock, error)
        return _on_dates(weights, rows, clock, _listed(dates, offset, clock))
    planned = future.last_before(bounds[0] + shift, bounds[1] + shift)
    return _by_period(weights, rows, clock, resample, shift, bounds[1] + shift, planned)


def _whenever_changed(weights: WeightTable, rows: Stamps) -> Schedule:
    # Of several rows with one and the same fill only the last ever holds.
    effective = np.flatnonzero(np.diff(rows.sessions, append=rows.sessions[-1] + 1) > 0)
    kept, targets = weights.changes(effective)
    at = effective[kept]
    return Schedule(rows.dates[at], rows.sessions[at], targets)


def _by_period(
    weights: WeightTable,
    rows: Stamps,
    clock: Clock,
    rule: str,
    shift: int,
    end: int,
    planned: pd.Timestamp | None,
) -> Schedule:
    """Rebalance at the end of each period; `end` is that of the one in which the table ends."""
    sessions = clock.wall_nanos
    row_times = local_nanos(rows.dates)
    # A row dated after its period's last session, such as a Saturday's, belongs to the period.
    inside = row_times[(row_times >= sessions[0]) & (row_times < end)]
    times = np.union1d(sessions, inside)
    ends = times[_engine.period_last_sessions(times - shift, rule)]
    if planned is not None:
        ends = ends[:-1]
    at = np.searchsorted(sessions, ends, side="right") - 1
    row = np.searchsorted(row_times, ends, side="right") - 1
    last = np.diff(at, append=len(sessions)) > 0
    at, row = at[last & (row >= 0)], row[last & (row >= 0)]
    dates = clock.index[at]
    later = rows.dates[row] > dates
    if later.any():
        dates = dates.where(~later, rows.dates[row])
    latest = len(rows) - 1 if planned is not None else -1
    return _trimmed(weights, Schedule(dates, at, weights.targets(row), planned), latest)


def _on_dates(weights: WeightTable, rows: Stamps, clock: Clock, listed: Stamps) -> Schedule:
    present = clock.place(clock.index[-1:], by_day=True).keys[0]
    past = int(np.searchsorted(listed.keys, present, side="right"))
    row = np.searchsorted(rows.keys, listed.keys, side="right") - 1
    sessions = listed.sessions[:past]
    last = np.diff(sessions, append=len(clock)) > 0
    at = np.flatnonzero(last & (row[:past] >= 0))
    planned = listed.dates[past] if past < len(listed) and row[past] >= 0 else None
    latest = int(row[past]) if planned is not None else -1
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
    return clock.place((dates + offset).unique().sort_values(), by_day=True)


def _other_dates(rule: str, clock: Clock, error: ValueError) -> pd.DatetimeIndex:
    """The dates of a pandas frequency that is no plain period, such as "SME" or "WOM-3FRI"."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # old pandas warns of letters of another case
            frequency = pd.tseries.frequencies.to_offset(rule)
    except ValueError:
        raise error from None
    if frequency is None or isinstance(frequency, pd.tseries.offsets.Tick):
        raise error
    first = clock.wall[0].normalize()
    last = max(clock.wall[-1].normalize() + frequency, clock.wall[-1] + pd.Timedelta(days=1))
    return pd.date_range(first, last, freq=frequency)
