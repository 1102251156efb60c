"""Whether the strategy of a sweep knows later prices."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from corvex.significance.lookahead import LookaheadCheck, check_lookahead
from corvex.simulation.notices import warn
from corvex.sweeping.grid import Combination
from corvex.sweeping.strategy import Strategy
from corvex.sweeping.values import label

__all__ = ["check_signals"]

#: A check calls the strategy some thirty times, and what looks ahead mostly does so always.
_MOST_CHECKED = 5


def check_signals(
    strategy: Strategy, prices: Any, signals: Sequence[Combination]
) -> list[tuple[dict[str, Any], LookaheadCheck]]:
    """Check some combinations of a strategy's arguments, from the first to the last.

    Parameters
    ----------
    strategy : Strategy
        It must be a function.
    prices : DataFrame or mapping of str to DataFrame
        What it is given.
    signals : sequence of dict
        Its arguments; of many, five are checked.

    Returns
    -------
    list of (dict, LookaheadCheck)
        The labels of the arguments, and what came out. Of one that raises there is no entry.

    Raises
    ------
    ValueError
        When there is no function to call, or no prices to give it.

    Warns
    -----
    UserWarning
        For the first finding, and for the first combination that cannot be checked.
    """
    if not strategy.is_function or prices is None:
        raise ValueError("check_lookahead needs a strategy that is a function, and its prices")
    places = np.unique(np.linspace(0, len(signals) - 1, min(_MOST_CHECKED, len(signals))))
    found = []
    failed: str | None = None
    for signal in (signals[int(place)] for place in places):
        labels = {name: label(value) for name, value in signal.items()}
        try:
            check = check_lookahead(lambda given, own=signal: strategy.weights(given, own), prices)
        except Exception as error:  # the strategy may raise whatever it likes
            failed = failed or f"{_told(labels)}{type(error).__name__}: {error}"
            continue
        found.append((labels, check))
    bad = [(labels, check) for labels, check in found if not check]
    if bad:
        labels, check = bad[0]
        warn(f"{_told(labels)}{check} ({len(bad)} of {len(found)} checked combinations)")
    if failed is not None:
        warn(f"the strategy could not be checked for look-ahead on shorter prices: {failed}")
    return found


def _told(labels: dict[str, Any]) -> str:
    return ", ".join(f"{name}={value}" for name, value in labels.items()) + ": " if labels else ""
