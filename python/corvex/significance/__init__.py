"""Skill or luck: how far a result could have come about by chance.

The names below are loaded on first use: who reads a saved report needs none of what simulates.
"""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from corvex.significance.lookahead import LookaheadCheck, check_lookahead
    from corvex.significance.random_draws import random_entries, random_portfolios
    from corvex.significance.random_result import RandomDraws
    from corvex.significance.superior import Superiority, superior_strategies
    from corvex.significance.trials import TrialStatistics, trial_statistics
    from corvex.significance.uncertainty import Confidence, confidence

__all__ = [
    "Confidence",
    "LookaheadCheck",
    "RandomDraws",
    "Superiority",
    "TrialStatistics",
    "check_lookahead",
    "confidence",
    "random_entries",
    "random_portfolios",
    "superior_strategies",
    "trial_statistics",
]

_HOMES = {
    "Confidence": "uncertainty",
    "LookaheadCheck": "lookahead",
    "RandomDraws": "random_result",
    "Superiority": "superior",
    "TrialStatistics": "trials",
    "check_lookahead": "lookahead",
    "confidence": "uncertainty",
    "random_entries": "random_draws",
    "random_portfolios": "random_draws",
    "superior_strategies": "superior",
    "trial_statistics": "trials",
}


def __getattr__(name: str) -> Any:
    if name not in _HOMES:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    value = getattr(importlib.import_module(f"{__name__}.{_HOMES[name]}"), name)
    globals()[name] = value
    return value
