"""Several reports side by side, over the time that all of them cover."""

from corvex.comparison.compared_tables import RISK_FREE_RATE
from corvex.comparison.reports import Comparison, compare

__all__ = ["RISK_FREE_RATE", "Comparison", "compare"]
