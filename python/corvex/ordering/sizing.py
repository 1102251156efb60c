"""Whole quantities for target weights, with what the trades cost taken into account."""

from __future__ import annotations

import math
from dataclasses import dataclass

from corvex.accounts.fees import Fees

__all__ = ["Asset", "Costs", "cash_after", "size"]

_ROUNDS = 60
_SHARE = 1e-6  # of a step: nearer than this to a whole number of steps is a whole number
_WHOLE = 1e-9


@dataclass(frozen=True, slots=True)
class Asset:
    """One asset: its target weight, prices, and quantity held, in steps."""

    label: str
    weight: float
    price: float  # of one step
    quote: float  # of one share
    held: float


@dataclass(frozen=True, slots=True)
class Costs:
    """What a trade costs: ratios of its value, and the smallest fee of an order."""

    fee_ratio: float
    tax_ratio: float
    min_fee: float

    def fee(self, value: float) -> float:
        """Return the commission of an order of this value, as a simulation charges it."""
        return Fees(min_fee=self.min_fee).commission(value, 0.0, self.fee_ratio)

    def tax(self, value: float, *, sale: bool) -> float:
        """Return the tax of an order of this value."""
        return value * self.tax_ratio if sale else 0.0

    def of(self, steps: float, price: float) -> float:
        """Return the costs of buying (or, when negative, selling) this many steps."""
        value = abs(steps) * price
        return self.fee(value) + self.tax(value, sale=steps < 0)


def size(assets: list[Asset], capital: float, costs: Costs) -> list[float]:
    """Return the quantity of each asset to hold, in steps.

    Weights are taken of what is left once the trades are paid, which depends on the trades: the
    two are brought together step by step. Quantities are rounded towards zero. An asset is left
    as it is when it stands less than a step below its target, give or take what it costs to trade
    one step of everything: after the trades nothing is then left to do. Where that would overdraw
    the account although the weights sum to at most 1, purchases are cut.
    """
    slack = 2 * sum(costs.of(-1, asset.price) for asset in assets if asset.weight)
    equity, seen = capital, [capital]
    targets = _targets(assets, equity, slack)
    for _ in range(_ROUNDS):
        remaining = max(capital - _costs(assets, targets, costs), 0.0)
        if remaining == equity:
            break
        if remaining in seen:  # it goes round and round by a step of some asset
            targets = _targets(assets, min(seen[seen.index(remaining) :]), slack)
            break
        seen.append(remaining)
        equity = remaining
        targets = _targets(assets, equity, slack)
    if sum(asset.weight for asset in assets) <= 1 + _WHOLE:
        _cut_to_cash(assets, targets, capital, costs)
    return targets


def cash_after(assets: list[Asset], targets: list[float], capital: float, costs: Costs) -> float:
    """Return the cash once the quantities are reached and the trades are paid."""
    value = sum(steps * asset.price for asset, steps in zip(assets, targets, strict=True))
    return capital - value - _costs(assets, targets, costs)


def _costs(assets: list[Asset], targets: list[float], costs: Costs) -> float:
    return sum(
        costs.of(steps - asset.held, asset.price)
        for asset, steps in zip(assets, targets, strict=True)
    )


def _targets(assets: list[Asset], equity: float, slack: float) -> list[float]:
    return [_target(asset, equity, abs(asset.weight) * slack / asset.price) for asset in assets]


def _target(asset: Asset, equity: float, tolerance: float) -> float:
    """Return what to hold, whole steps away from what is held and not beyond the exact target."""
    exact = asset.weight * equity / asset.price
    if exact == 0.0:
        return asset.held - math.trunc(asset.held)
    side = math.copysign(1.0, exact)
    want, held = abs(exact), asset.held * side
    # Less than a step is missing, which no order can add.
    if held > 0 and -tolerance <= want - held < 1 + tolerance:
        return asset.held
    steps = held + math.floor(want - held + _SHARE)
    if steps < 0 < held:  # the odd rest of a holding cannot be sold
        steps += 1
    return steps * side


def _cut_to_cash(assets: list[Asset], targets: list[float], capital: float, costs: Costs) -> None:
    """Lower the largest purchases, then the largest holdings, until the cash is not negative."""
    for _ in range(4 * len(assets)):
        missing = -cash_after(assets, targets, capital, costs)
        if missing <= 0:
            return
        bought = [steps - asset.held for asset, steps in zip(assets, targets, strict=True)]
        long = [at for at, steps in enumerate(targets) if steps >= 1]
        if not long:
            return
        at = max(
            long,
            key=lambda i: (min(bought[i], targets[i]) >= 1, bought[i] * assets[i].price, i),
        )
        most = min(bought[at], targets[at]) if bought[at] >= 1 else targets[at]
        targets[at] -= min(math.ceil(missing / assets[at].price), math.floor(most + _SHARE))
