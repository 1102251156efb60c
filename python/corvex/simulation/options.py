"""The numbers that a run takes: costs, stops and limits, checked."""

from __future__ import annotations

import math
import numbers
from dataclasses import dataclass

__all__ = [
    "Costs",
    "Options",
    "checked_cooldown",
    "checked_limit",
    "cost_ratio",
    "stop_fraction",
]


@dataclass(frozen=True, slots=True)
class Costs:
    """Checked costs, as fractions of the traded value."""

    fee_ratio: float = 0.0
    tax_ratio: float = 0.0
    slippage_ratio: float = 0.0


@dataclass(frozen=True, slots=True)
class Options:
    """Checked options of one run; infinity stands for a stop that is off."""

    costs: Costs
    stop_loss: float
    take_profit: float
    trail_stop: float
    touched_exit: bool
    stop_cooldown: int = 0


def cost_ratio(name: str, value: float | None, default: float = 0.0) -> float:
    """Return a cost as a fraction of the traded value, at least 0 and below 1."""
    ratio = default if value is None else _number(name, value)
    if not 0.0 <= ratio < 1.0:
        raise ValueError(
            f"{name} must be a fraction from 0 to below 1 (0.001 is 0.1 %), got {value!r}"
        )
    return ratio


def stop_fraction(name: str, value: float | None) -> float:
    """Return a stop's distance as a fraction; infinity for None, NaN and infinity (off)."""
    if value is None:
        return math.inf
    fraction = _number(name, value)
    if math.isnan(fraction):
        return math.inf
    if fraction <= 0.0:
        raise ValueError(
            f"{name} must be a fraction above 0 (0.1 is 10 %), or None for no such stop, "
            f"got {value!r}"
        )
    return fraction


def checked_limit(value: float | None) -> float:
    """Return the largest absolute weight of one asset; infinity for None."""
    if value is None:
        return math.inf
    limit = _number("position_limit", value)
    if not limit > 0.0:
        raise ValueError(f"position_limit must be a weight above 0, or None, got {value!r}")
    return limit


def checked_cooldown(value: int) -> int:
    """Return how many rebalances a stopped asset stays out of."""
    if isinstance(value, bool) or not isinstance(value, numbers.Integral) or value < 0:
        raise ValueError(
            f"stop_cooldown must be a number of rebalances, a whole number from 0 on, got {value!r}"
        )
    return int(value)


def _number(name: str, value: object) -> float:
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise ValueError(f"{name} must be a number or None, got {value!r}")
    return float(value)
