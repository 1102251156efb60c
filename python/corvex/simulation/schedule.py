"""The dates on which a portfolio is rebalanced, and the row of weights that counts on each."""

from __future__ import annotations

import datetime
from collections.abc import Callable, Iterable
from dataclasses import dataclass

import numpy as np
import pandas as pd

from corvex.simulation.dates import Clock, Stamps, as_dates
from corvex.simulation.periods import PeriodRule
from corvex.simulation.targets import WeightTable

__all__ = ["Resample", "Schedule", "build_schedule", "read_offset"]

type Resample = str | Iterable[object] | None
type LastOfPeriod = Callable[[PeriodRule], pd.Timestamp | None]


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
    planned_date: pd.Timestamp | None
    planned_targets: np.ndarray | None

    def __len__(self) -> int:
        return len(self.sessions)


def read_offset(resample: Resample, offset: object) -> pd.Timedelta:
    """Read `resample_offset`, a length of time such as "1D" or a timedelta."""
    if offset is None:
        return pd.Timedelta(0)
    if resample is None:
        raise ValueError("resample_offset moves the dates of resample, which is None")
    try:
        length = pd.Timedelta(offset)  # type: ignore[arg-type]
    except (TypeError, ValueError) as error:
        raise ValueError(
            f"resample_offset must be a length of time such as '1D', got {offset!r}"
        ) from error
    if pd.isna(length):
        raise ValueError(f"resample_offset must be a length of time such as '1D', got {offset!r}")
    return length


def build_schedule(
    weights: WeightTable,
    rows: Stamps,
    clock: Clock,
    resample: Resample,
    offset: pd.Timedelta,
    last_of_period: LastOfPeriod,
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
    resample : None, str or dates
        None: whenever the targets change. A frequency: on the last session of each period.
        Dates: on these.
    offset : Timedelta
        Moves the ends of the periods, or the dates.
    last_of_period : callable
        Gives the last bar of the period in which the table ends, by the market's calendar; None
        when the table holds it.
    """
    if resample is None:
        return _whenever_changed(weights, rows)
    if isinstance(resample, str):
        span = clock.wall if len(rows) == 0 else clock.wall.append(rows.dates.tz_localize(None))
        rule = PeriodRule(resample, offset, clock.wall[0], span.max())
        return _by_period(weights, rows, clock, rule, last_of_period)
    return _on_dates(weights, rows, clock, _listed(resample, offset, clock))


def _whenever_changed(weights: WeightTable, rows: Stamps) -> Schedule:
    # Of several rows with one and the same fill only the last ever holds.
    effective = np.flatnonzero(np.append(np.diff(rows.sessions) > 0, True))
    kept, targets = weights.changes(effective)
    at = effective[kept]
    return Schedule(rows.dates[at], rows.sessions[at], targets, None, None)


def _by_period(
    weights: WeightTable,
    rows: Stamps,
    clock: Clock,
    rule: PeriodRule,
    last_of_period: LastOfPeriod,
) -> Schedule:
    numbers = rule.numbers(clock.wall)
    sessions = np.flatnonzero(np.append(np.diff(numbers) != 0, True))
    planned = last_of_period(rule)
    if planned is not None:
        sessions = sessions[:-1]
    row_numbers = rule.numbers(rows.dates.tz_localize(None))
    at = np.searchsorted(row_numbers, numbers[sessions], side="right") - 1
    sessions, at = sessions[at >= 0], at[at >= 0]
    dates = clock.index[sessions]
    # A row dated after its period's last session, such as a Saturday's, keeps its own date.
    later = rows.dates[at] > dates
    dates = dates.where(~later, rows.dates[at]) if later.any() else dates
    latest = len(rows) - 1 if planned is not None else None
    return _trimmed(weights, dates, sessions, at, planned, latest)


def _on_dates(weights: WeightTable, rows: Stamps, clock: Clock, listed: Stamps) -> Schedule:
    ends = clock.place(clock.index[-1:], by_day=True).keys[0]
    past = np.searchsorted(listed.keys, ends, side="right")
    at = np.searchsorted(rows.keys, listed.keys, side="right") - 1
    planned = listed.dates[past] if past < len(listed) else None
    latest = int(at[past]) if past < len(listed) and at[past] >= 0 else None
    sessions = listed.sessions[:past]
    effective = np.flatnonzero(np.append(np.diff(sessions) > 0, True)[: len(sessions)])
    effective = effective[at[effective] >= 0]
    return _trimmed(
        weights,
        listed.dates[effective],
        sessions[effective],
        at[effective],
        planned if latest is not None else None,
        latest,
    )


def _trimmed(
    weights: WeightTable,
    dates: pd.DatetimeIndex,
    sessions: np.ndarray,
    at: np.ndarray,
    planned: pd.Timestamp | None,
    latest: int | None,
) -> Schedule:
    """The schedule without the leading rebalances that hold nothing."""
    targets = weights.targets(at)
    held = (targets != 0.0).any(axis=1)
    first = int(np.argmax(held)) if held.any() else len(held)
    latest_targets = None if latest is None else weights.targets(np.array([latest]))[0]
    return Schedule(dates[first:], sessions[first:], targets[first:], planned, latest_targets)


def _listed(resample: Iterable[object], offset: pd.Timedelta, clock: Clock) -> Stamps:
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
    return clock.place((dates + offset).unique().sort_values(), by_day=True)
