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
class Costs:
    """What trading an asset costs, the step that it is traded in, and its currency's rate."""

    fees: Fees  # in the asset's currency
    fee_ratio: float
    tax_ratio: float
    step: float
    rate: float = 1.0

    def fee(self, value: float, steps: float) -> float:
        """Return the commission of an order of this value, as a simulation charges it."""
        quoted = value / self.rate
        return self.fees.commission(quoted, steps * self.step, self.fee_ratio) * self.rate

    def tax(self, value: float, *, sale: bool) -> float:
        """Return the tax of an order of this value."""
        return value * self.tax_ratio if sale else 0.0


@dataclass(frozen=True, slots=True)
class Asset:
    """One asset: its target weight, price of a share, and quantity held, in steps."""

    label: str
    weight: float
    quote: float
    held: float
    costs: Costs

    @property
    def price(self) -> float:
        """Of one step, in the account's currency."""
        return self.quote * self.costs.step * self.costs.rate

    def cost(self, steps: float) -> float:
        """Return the costs of buying (or, when negative, selling) this many steps."""
        value = abs(steps) * self.price
        return self.costs.fee(value, abs(steps)) + self.costs.tax(value, sale=steps < 0)


def size(assets: list[Asset], capital: float, *, to_nearest: bool = False) -> list[float]:
    """Return the quantity of each asset to hold, in steps.

    Weights are taken of what is left once the trades are paid, which depends on the trades: the
    two are brought together step by step. Quantities are rounded towards zero, or to the nearest
    step. An asset is left
    as it is when it stands less than a step below its target, give or take what it costs to trade
    one step of everything: after the trades nothing is then left to do. Where that would overdraw
    the account although the weights sum to at most 1, purchases are cut: first those that rounding
    raised.
    """
    slack = 2 * sum(asset.cost(-1) for asset in assets if asset.weight)
    equity, seen = capital, [capital]
    targets = _targets(assets, equity, slack, to_nearest)
    for _ in range(_ROUNDS):
        remaining = max(capital - _costs(assets, targets), 0.0)
        if remaining == equity:
            break
        if remaining in seen:  # it goes round and round by a step of some asset
            equity = min(seen[seen.index(remaining) :])
            targets = _targets(assets, equity, slack, to_nearest)
            break
        seen.append(remaining)
        equity = remaining
        targets = _targets(assets, equity, slack, to_nearest)
    if sum(asset.weight for asset in assets) <= 1 + _WHOLE:
        if to_nearest:
            _lower_the_raised(assets, targets, capital, equity)
        _cut_to_cash(assets, targets, capital)
    return targets


def cash_after(assets: list[Asset], targets: list[float], capital: float) -> float:
    """Return the cash once the quantities are reached and the trades are paid."""
    value = sum(steps * asset.price for asset, steps in zip(assets, targets, strict=True))
    return capital - value - _costs(assets, targets)


def _costs(assets: list[Asset], targets: list[float]) -> float:
    return sum(asset.cost(steps - asset.held) for asset, steps in zip(assets, targets, strict=True))


def _targets(assets: list[Asset], equity: float, slack: float, to_nearest: bool) -> list[float]:
    return [
        _target(asset, equity, abs(asset.weight) * slack / asset.price, to_nearest)
        for asset in assets
    ]


def _target(asset: Asset, equity: float, tolerance: float, to_nearest: bool) -> float:
    """Return what to hold, whole steps away from what is held.

    It is not beyond the exact target, or with `to_nearest` at most half a step.
    """
    exact = asset.weight * equity / asset.price
    if exact == 0.0:
        return asset.held - math.trunc(asset.held)
    side = math.copysign(1.0, exact)
    want, held = abs(exact), asset.held * side
    # Less than a step is missing, which no order can add.
    least, most = (-0.5, 0.5) if to_nearest else (0.0, 1.0)
    if held > 0 and least - tolerance <= want - held < most + tolerance:
        return asset.held
    missing = want - held
    whole = math.ceil(missing - 0.5 - _SHARE) if to_nearest else math.floor(missing + _SHARE)
    steps = held + whole
    if steps < 0 < held:  # the odd rest of a holding cannot be sold
        steps += 1
    return steps * side


def _lower_the_raised(
    assets: list[Asset], targets: list[float], capital: float, equity: float
) -> None:
    """Round down instead of up, those orders first that rounding raised most in money."""
    raised = {
        at: targets[at] * asset.price - asset.weight * equity
        for at, asset in enumerate(assets)
        if asset.weight > 0 and targets[at] != asset.held
    }
    for at in sorted((at for at in raised if raised[at] > 0), key=lambda at: -raised[at]):
        if cash_after(assets, targets, capital) >= 0:
            return
        targets[at] -= 1


def _cut_to_cash(assets: list[Asset], targets: list[float], capital: float) -> None:
    """Lower the largest purchases, then the largest holdings, until the cash is not negative."""
    for _ in range(4 * len(assets)):
        missing = -cash_after(assets, targets, capital)
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
