"""Skill or luck: how far a result could have come about by chance."""

from corvex.significance.lookahead import LookaheadCheck, check_lookahead
from corvex.significance.random_draws import (
    RandomDraws,
    random_entries,
    random_portfolios,
)
from corvex.significance.trials import TrialStatistics, trial_statistics
from corvex.significance.uncertainty import Confidence, confidence

__all__ = [
    "Confidence",
    "LookaheadCheck",
    "RandomDraws",
    "TrialStatistics",
    "check_lookahead",
    "confidence",
    "random_entries",
    "random_portfolios",
    "trial_statistics",
]
