"""Several reports side by side, over the time that all of them cover."""

from corvex.comparison.compare_reports import Comparison, compare
from corvex.comparison.compared_tables import RISK_FREE_RATE

__all__ = ["RISK_FREE_RATE", "Comparison", "compare"]
