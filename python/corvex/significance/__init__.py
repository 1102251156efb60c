"""Skill or luck: how far a result could have come about by chance."""

from corvex.significance.lookahead import LookaheadCheck, check_lookahead
from corvex.significance.trials import TrialStatistics, trial_statistics
from corvex.significance.uncertainty import Confidence, confidence

__all__ = [
    "Confidence",
    "LookaheadCheck",
    "TrialStatistics",
    "check_lookahead",
    "confidence",
    "trial_statistics",
]
