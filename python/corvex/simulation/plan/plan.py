"""A plan: what is to be held, on the sessions of some prices."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np
import pandas as pd

from corvex.simulation.plan.placing import place_weights
from corvex.simulation.plan.schedule import (
    Rule,
    Schedule,
    Timetable,
    build_schedule,
    make_timetable,
)
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.weights import WeightTable

__all__ = ["Plan", "Timeline", "make_plan", "make_timeline", "plan_of"]

_NO_OFFSET = pd.Timedelta(0)


class Plan(NamedTuple):
    """Rebalances on the sessions of some prices; any number of runs can take it.

    Attributes
    ----------
    labels : Index
        The assets.
    schedule : Schedule
        The rebalances.
    rule, offset
        How they were found.
    begins : Timestamp
        The date of the first row of weights.
    idle_session : int
        The session at which that row stands; without a rebalance the curve starts there.
    limit, leverage
        How the weights were read.
    scaled : (float, Timestamp) or None
        The largest absolute sum that was scaled to 1, and its date.
    """

    labels: pd.Index
    schedule: Schedule
    rule: Rule
    offset: pd.Timedelta
    begins: pd.Timestamp
    idle_session: int
    limit: float
    leverage: bool
    scaled: tuple[float, pd.Timestamp] | None

    @property
    def first_session(self) -> int:
        """The session where results start: that of the first signal, or the first one."""
        signals = self.schedule.sessions
        return max(int(signals[0]), 0) if len(signals) else self.idle_session

    @property
    def held(self) -> np.ndarray:
        """Which assets ever have a weight; a bool array of shape (assets,)."""
        schedule = self.schedule
        result: np.ndarray = (schedule.targets != 0.0).any(axis=0)
        if schedule.planned_targets is not None:
            result = result | (schedule.planned_targets != 0.0)
        return result

    @property
    def is_idle(self) -> bool:
        """Whether nothing is ever to be held."""
        return len(self.schedule) == 0 and self.schedule.planned_targets is None

    def first_weight(self, asset: int) -> pd.Timestamp | None:
        """Return the signal date of an asset's first weight."""
        rows = np.flatnonzero(self.schedule.targets[:, asset])
        return self.schedule.dates[rows[0]] if len(rows) else self.schedule.planned_date


class Timeline:
    """What plans have in common whose weights have the same dates.

    Attributes
    ----------
    part : slice
        The rows of weights that count.
    timetable : Timetable
        When there may be rebalances.
    rule, offset
        How these were found.
    begins, idle_session
        As in `Plan`.
    """

    def __init__(
        self,
        part: slice,
        timetable: Timetable,
        rule: Rule,
        offset: pd.Timedelta,
        begins: pd.Timestamp,
        idle_session: int,
    ) -> None:
        self.part = part
        self.timetable = timetable
        self.rule = rule
        self.offset = offset
        self.begins = begins
        self.idle_session = idle_session


def make_timeline(
    dates: pd.DatetimeIndex,
    prices: PriceData,
    rule: Rule = None,
    offset: pd.Timedelta = _NO_OFFSET,
) -> Timeline:
    """Bring the dates of weights to the sessions of prices.

    Parameters
    ----------
    dates : DatetimeIndex
        Those of the rows of weights.
    prices : PriceData
        The prices that plans are for.
    rule, offset
        When to rebalance, as `read_resample` and `read_offset` give them.
    """
    part, rows = place_weights(dates, prices)
    return Timeline(
        part=part,
        timetable=make_timetable(rows, prices.clock, rule, offset),
        rule=rule,
        offset=offset,
        begins=rows.dates[0],
        idle_session=int(np.clip(rows.sessions[0], 0, len(prices.clock) - 1)),
    )


def plan_of(weights: WeightTable, timeline: Timeline) -> Plan:
    """Find the rebalances of weights; they are not changed, and other plans may take them too."""
    part = weights.between(timeline.part.start, timeline.part.stop)
    schedule = build_schedule(part, timeline.timetable)
    return Plan(
        labels=part.labels,
        schedule=schedule,
        rule=timeline.rule,
        offset=timeline.offset,
        begins=timeline.begins,
        idle_session=timeline.idle_session,
        limit=part.limit,
        leverage=bool(part.leverage),
        scaled=part.largest_scaled,
    )


def make_plan(
    weights: WeightTable, prices: PriceData, rule: Rule = None, offset: pd.Timedelta = _NO_OFFSET
) -> Plan:
    """Bring weights to the sessions of prices, and find the rebalances; see `make_timeline`."""
    return plan_of(weights, make_timeline(weights.index, prices, rule, offset))
