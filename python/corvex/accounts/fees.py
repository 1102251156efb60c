"""What an order pays beside the ratio of its value; the engine works it out."""

from __future__ import annotations

import math
from typing import NamedTuple

from corvex import _engine

__all__ = ["Fees"]


class Fees(NamedTuple):
    """The terms of a commission; the engine reads these by their names.

    Attributes
    ----------
    min_fee, fee_per_share : float
        Of each order, and for each share, in money.
    max_fee_ratio : float
        The commission is never a larger part of the order's value.
    fee_table : tuple of (float, float)
        From which part of an order's value on a ratio holds, ascending; empty for none.
    """

    min_fee: float = 0.0
    fee_per_share: float = 0.0
    max_fee_ratio: float = math.inf
    fee_table: tuple[tuple[float, float], ...] = ()

    def commission(self, value: float, shares: float, ratio: float) -> float:
        """Return the commission of an order of some value and number of shares."""
        return _engine.order_fee(self, value, shares, ratio)
