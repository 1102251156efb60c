"""The numbers that a run takes: costs, stops and limits, checked."""

from __future__ import annotations

import math
import numbers
from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, NamedTuple

from corvex.market import Market
from corvex.trades.reasons import STOPS

if TYPE_CHECKING:
    from corvex.accounts import Account

__all__ = ["Options", "checked_limit", "cost_ratios", "read_options"]


class Options(NamedTuple):
    """What a run can be varied by, beside its weights; the engine reads these by their names.

    Attributes
    ----------
    fee_ratio, tax_ratio, slippage_ratio : float
        Fractions of the traded value, at least 0 and below 1.
    stop_loss, take_profit, trail_stop : float
        Fractions above 0; infinity stands for a stop that is off.
    touched_exit : bool
        Stops fill inside the session.
    stop_cooldown : int
        How many rebalances a stopped asset stays out of.
    """

    fee_ratio: float = 0.0
    tax_ratio: float = 0.0
    slippage_ratio: float = 0.0
    stop_loss: float = math.inf
    take_profit: float = math.inf
    trail_stop: float = math.inf
    touched_exit: bool = False
    stop_cooldown: int = 0


def read_options(market: Market, given: Mapping[str, Any]) -> Options:
    """Check the options that a user gave.

    Parameters
    ----------
    market : Market
        Its fee and tax are those of a run that was given none.
    given : mapping of str to object
        By the names of `Options`.

    Raises
    ------
    ValueError
        When one is out of its range; the message says what is accepted.
    """
    return Options(
        fee_ratio=_cost_ratio("fee_ratio", given.get("fee_ratio"), market.fee_ratio),
        tax_ratio=_cost_ratio("tax_ratio", given.get("tax_ratio"), market.tax_ratio),
        slippage_ratio=_cost_ratio("slippage_ratio", given.get("slippage_ratio")),
        **{stop: _stop_fraction(stop, given.get(stop)) for stop in STOPS},
        touched_exit=bool(given.get("touched_exit", False)),
        stop_cooldown=_cooldown(given.get("stop_cooldown", 0)),
    )


def cost_ratios(
    account: Account | None,
    fee_ratio: float | None,
    tax_ratio: float | None,
    slippage_ratio: float,
) -> dict[str, Any]:
    """Return the cost ratios of a run: its own, or the one number that its account has.

    Raises
    ------
    ValueError
        For an account that is none, and for a ratio that the run and its account both have.
    """
    given = {
        "fee_ratio": fee_ratio,
        "tax_ratio": tax_ratio,
        "slippage_ratio": slippage_ratio or None,
    }
    if account is None:
        return given
    from corvex.accounts import Account

    if not isinstance(account, Account):
        raise ValueError(f"account must be a corvex.Account, got {type(account).__name__}")
    for name, value in given.items():
        own = getattr(account, name)
        if value is not None and own is not None:
            raise ValueError(f"{name} is given twice, to simulate and to its account")
        if isinstance(own, numbers.Real):
            given[name] = float(own)
    return given


def _cost_ratio(name: str, value: float | None, default: float = 0.0) -> float:
    """Return a cost as a fraction of the traded value, at least 0 and below 1."""
    ratio = default if value is None else _number(name, value)
    if not 0.0 <= ratio < 1.0:
        raise ValueError(
            f"{name} must be a fraction from 0 to below 1 (0.001 is 0.1 %), got {value!r}"
        )
    return ratio


def _stop_fraction(name: str, value: float | None) -> float:
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


def _cooldown(value: Any) -> int:
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
