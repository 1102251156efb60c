"""From the engine's arrays to tables with the user's labels and dates."""

from __future__ import annotations

from typing import TYPE_CHECKING, cast

import numpy as np
import pandas as pd

from corvex.markets.bars import period_before
from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.clock import Clock
from corvex.simulation.report.next_holdings import State

if TYPE_CHECKING:
    from corvex._engine import SimulationResult

__all__ = [
    "cost_totals",
    "curve_and_position",
    "state_after",
    "yearly_turnover",
]

_PER_YEAR = {
    unit: 365.25 * 86_400 * ticks
    for unit, ticks in {"s": 1, "ms": 1_000, "us": 1_000_000, "ns": 1_000_000_000}.items()
}


def curve_and_position(
    result: SimulationResult, labels: pd.Index, clock: Clock, first: int
) -> tuple[pd.Series, pd.DataFrame]:
    """Return the equity curve and the target weights in force, from just before the first fill on.

    Time in which nothing could be bought yet is no time of the strategy. Where a signal of before
    the prices fills on their first session, the curve starts there; a row of equity 1 and nothing
    held is put one period before it where that session itself costs or earns something.

    Parameters
    ----------
    first : int
        The session where the engine's arrays start.
    """
    skipped = result["start_row"]
    index = clock.index[first + skipped :]
    equity = result["equity"][skipped:]
    weights = cast("np.ndarray", result["position"])[skipped:]
    known = np.isfinite(equity)
    if not known.all():
        when = date_text(index[int(np.argmin(known))])
        raise ValueError(
            f"the equity is no finite number on {when}: prices or weights are too large or too "
            "small to be computed with"
        )
    if not result["starts_before"]:
        equity[0] = 1.0
    else:  # the first session of all has the first fill
        before = pd.DatetimeIndex([period_before(index)])
        index = pd.DatetimeIndex(before.append(index))
        equity = np.concatenate(([1.0], equity))
        weights = np.concatenate((np.zeros((1, len(labels))), weights))
    if result["ruin_session"] >= 0:
        ruin = clock.index[result["ruin_session"]]
        warn(
            f"the equity fell to zero on {date_text(ruin)}; everything was closed and it stays at "
            "0 from then on"
        )
    position = pd.DataFrame(weights, index=index, columns=labels, copy=False)
    return pd.Series(equity, index=index, name="creturn", copy=False), position


def state_after(result: SimulationResult, schedule: Schedule) -> State:
    """Return what is held and pending after the last session."""
    waiting = result["waiting_rebalance"]
    closing = waiting >= 0
    if closing.any():
        assets = np.flatnonzero(closing)
        closing[assets] = (schedule.targets[waiting[assets], assets] == 0.0) & (
            result["shares"][assets] != 0.0
        )
    return State(
        executed=result["executed_rebalance"],
        out=result["out_reason"],
        pending=result["pending_reason"],
        pending_session=result["pending_session"],
        waiting=closing,
        ruined=result["ruin_session"] >= 0,
        kept_out=result["cooldown"] > 0,
    )


def cost_totals(result: SimulationResult, *, currencies: bool = False) -> dict[str, float]:
    """Return what was paid in all, in units of the first equity."""
    if "account" in result:
        from corvex.simulation.account.account_tables import account_costs

        return account_costs(result["account"], currencies=currencies)
    # In order of time, as the engine sums those of many runs.
    kinds = {
        "fees": float(np.cumsum(result["fees"])[-1]),
        "tax": float(np.cumsum(result["taxes"])[-1]),
        "slippage": float(np.cumsum(result["slippage"])[-1]),
    }
    return {**kinds, "total": sum(kinds.values())}


def yearly_turnover(traded: np.ndarray, equity: np.ndarray, index: pd.DatetimeIndex) -> float:
    """Return half of the value bought and sold, as a share of the equity, per year.

    Parameters
    ----------
    traded, equity : float64 arrays of shape (sessions,)
        Traded value on both sides and equity, both in units of the first equity.
    index : DatetimeIndex
        The dates of the curve.

    Returns
    -------
    float
        1.0 means that the whole portfolio was replaced once a year; NaN for a single session.
    """
    wall = index if index.tz is None else index.tz_localize(None)  # as all years are counted
    years = int(wall.asi8[-1] - wall.asi8[0]) / _PER_YEAR[wall.unit]
    if years <= 0:
        return float("nan")
    if equity.min() <= 0.0:
        alive = equity > 0.0
        traded, equity = traded[alive], equity[alive]
    return float((traded / equity).sum() / 2.0 / years)
