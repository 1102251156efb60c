"""What a report says about now and next: weights, next weights, actions and their dates."""

from __future__ import annotations

from collections.abc import Callable

import numpy as np
import pandas as pd

from corvex.simulation.plan.schedule import Schedule
from corvex.trades.reasons import EXIT_REASONS

__all__ = ["HandOver", "State", "hand_over", "nothing_held"]


class State:
    """The engine's state after the last session; arrays have one entry per asset.

    `executed` is the rebalance last filled (-1: none). `out`, `pending` hold the reason for which
    an asset was closed, or waits to be closed, since then (0: none); `pending_session` the
    session on which a pending stop fired; `waiting` whether an order to close waits for a price,
    `kept_out` whether the next rebalance leaves a stopped asset out.
    """

    def __init__(
        self,
        executed: int,
        out: np.ndarray,
        pending: np.ndarray,
        pending_session: np.ndarray,
        waiting: np.ndarray,
        ruined: bool,
        kept_out: np.ndarray,
    ) -> None:
        self.executed = executed
        self.out = out
        self.pending = pending
        self.pending_session = pending_session
        self.waiting = waiting
        self.ruined = ruined
        self.kept_out = kept_out


class HandOver:
    """The part of a report that live trading reads.

    Attributes
    ----------
    current_date, next_date : Timestamp or None
        Signal dates of what is held and of what comes next.
    planned_rebalance_date : Timestamp or None
        The next known date that no session has reached yet.
    coming : bool array of shape (assets,)
        Which assets are to be held.
    make_tables : callable
        Makes what `tables` names.
    """

    def __init__(
        self,
        current_date: pd.Timestamp | None,
        next_date: pd.Timestamp | None,
        planned_rebalance_date: pd.Timestamp | None,
        coming: np.ndarray,
        make_tables: Callable[[], tuple[pd.Series, pd.Series, pd.Series]],
    ) -> None:
        self.current_date = current_date
        self.next_date = next_date
        self.planned_rebalance_date = planned_rebalance_date
        self.coming = coming
        self.make_tables = make_tables

    def tables(self) -> dict[str, pd.Series]:
        """`weights`, `next_weights` and `actions`, each by asset label."""
        names = ("weights", "next_weights", "actions")
        return dict(zip(names, self.make_tables(), strict=True))


def hand_over(schedule: Schedule, state: State, labels: pd.Index, last_session: int) -> HandOver:
    """Describe what is held and what comes next.

    Parameters
    ----------
    schedule : Schedule
        The rebalances.
    state : State
        The engine's state after the last session.
    labels : Index
        The assets.
    last_session : int
        Row of the last session.
    """
    weights, current_date = np.zeros(len(labels)), None
    if state.executed >= 0:
        inside = (state.out == 0) & (state.pending == 0)
        weights = np.where(inside, schedule.targets[state.executed], 0.0)
        current_date = schedule.dates[state.executed]
    targets, next_date, planned = weights, current_date, None
    signalled = len(schedule) > 0 and schedule.sessions[-1] == last_session
    if state.ruined:
        pass
    elif signalled:
        targets, next_date = schedule.targets[-1], schedule.dates[-1]
    elif schedule.planned_targets is not None:
        targets, next_date = schedule.planned_targets, schedule.planned_date
        planned = schedule.planned_date
    targets = np.where(state.kept_out, 0.0, targets)

    sessions = schedule.sessions

    def tables() -> tuple[pd.Series, pd.Series, pd.Series]:
        return (
            _series(weights, labels, current_date),
            _series(targets, labels, next_date),
            _actions(weights, targets, state, sessions, labels),
        )

    return HandOver(current_date, next_date, planned, targets != 0.0, tables)


def nothing_held() -> HandOver:
    """A hand-over of empty Series."""

    def tables() -> tuple[pd.Series, pd.Series, pd.Series]:
        no_labels = pd.Index([], dtype="str")
        empty = pd.Series(index=no_labels, dtype="float64")
        return empty, empty.copy(), pd.Series(index=no_labels, dtype="object")

    return HandOver(None, None, None, np.zeros(0, dtype=bool), tables)


def _series(values: np.ndarray, labels: pd.Index, name: pd.Timestamp | None) -> pd.Series:
    held = np.flatnonzero(values)
    return pd.Series(values[held], index=labels.take(held), name=name, dtype="float64")


def _actions(
    weights: np.ndarray, targets: np.ndarray, state: State, sessions: np.ndarray, labels: pd.Index
) -> pd.Series:
    actions = np.full(len(labels), "", dtype=object)
    actions[(weights != 0.0) & (targets == 0.0)] = "exit"
    actions[(weights != 0.0) & (targets != 0.0)] = "hold"
    # A change of sign closes one round trip and opens another.
    actions[(targets != 0.0) & (np.sign(weights) != np.sign(targets))] = "enter"
    actions[(actions == "") & state.waiting] = "exit"
    with_rebalance = np.isin(state.pending_session, sessions)
    for code, reason in enumerate(EXIT_REASONS.values()):
        if reason.action:
            fired = state.pending == code
            actions[fired & ~with_rebalance] = reason.action
            actions[fired & with_rebalance] = f"{reason.action}_"
    named = np.flatnonzero(actions != "")
    return pd.Series(actions[named], index=labels.take(named), dtype="object")
