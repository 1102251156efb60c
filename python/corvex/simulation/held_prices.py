"""Refusing plans that hold what has no prices, or prices that are none."""

from __future__ import annotations

import numpy as np

from corvex.simulation.notices import date_text, warn
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.asset_prices import AssetPrices, Faults
from corvex.simulation.read.clock import Clock

__all__ = ["check_held_prices"]


def check_held_prices(prices: AssetPrices, plan: Plan, clock: Clock) -> None:
    """Refuse assets that are held without any price, and prices that are no prices.

    A missing price is no fault. What is wrong with an asset that is never held does no harm: its
    prices are taken for missing, with a warning; so is that of a label without a price column. A
    warning also tells where a column was chosen by the id alone although it has another name.

    Raises
    ------
    ValueError
        Naming the asset and date.
    """
    if prices.is_sound:
        return
    held = plan.held
    for asset in np.flatnonzero(prices.unpriced & held).tolist():
        date = plan.first_weight(asset)
        when = "" if date is None else f"; its first weight is of {date_text(date)}"
        raise ValueError(f"asset {plan.labels[asset]!r} has weights but no prices{when}")
    if len(prices.unknown):
        names = ", ".join(repr(label) for label in prices.unknown[:5])
        more = "" if len(prices.unknown) <= 5 else f" and {len(prices.unknown) - 5} more"
        warn(f"no prices for {names}{more}; they are never held, so the run goes on")
    if prices.renamed:
        warn(f"prices are found by the id, the label up to its first blank: {prices.renamed}")
    for faults in prices.faults:
        _refuse(faults, held, plan, clock)


def _refuse(faults: Faults, held: np.ndarray, plan: Plan, clock: Clock) -> None:
    asset = faults.first(held)
    every = faults.first(np.ones_like(held))
    name = "trade_at" if faults.field == "fill" else faults.field

    def place(asset: int) -> tuple[str, str]:
        return repr(plan.labels[asset]), date_text(clock.index[faults.rows[asset]])

    if asset is not None:
        label, date = place(asset)
        if faults.field == "crossed":
            raise ValueError(f"the low of {label} on {date} is above its high")
        raise ValueError(
            f"the {name} price of {label} on {date} is {faults.values[asset]}; prices must be "
            "above zero and finite, or missing (NaN)"
        )
    if every is not None and faults.field != "crossed":
        label, date = place(every)
        warn(
            f"{faults.number} {name} prices, the first that of {label} on {date}, are not above "
            "zero and finite; these assets are never held, so they were taken for missing"
        )
