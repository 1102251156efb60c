"""Warnings of settings that can be used but are hardly meant, each with its cure."""

from __future__ import annotations

import numpy as np

from corvex.market import Market
from corvex.simulation.notices import date_text, warn
from corvex.simulation.options import Options
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.price_data import RunInputs

__all__ = ["warn_about_guessed_costs", "warn_about_run"]


def warn_about_guessed_costs(
    market: Market, fee_ratio: float | None, tax_ratio: float | None
) -> None:
    """Warn where a market that the labels alone chose charges costs that nobody asked for."""
    charged = [
        f"{name}={default:g}"
        for name, given, default in (
            ("fee_ratio", fee_ratio, market.fee_ratio),
            ("tax_ratio", tax_ratio, market.tax_ratio),
        )
        if given is None and default
    ]
    if charged:
        warn(
            f"the labels look like those of the market {market.get_name()!r}, so its "
            f"{' and '.join(charged)} are charged; name the market to settle it: "
            f"market={market.get_name()!r}, or another"
        )


def warn_about_run(inputs: RunInputs, options: Options, schedule: Schedule) -> None:
    """Warn of weights that were scaled or come too late, and of stops that hardly ever fire."""
    first, last = inputs.rows.dates[0], inputs.clock.last
    if first.normalize() > last.normalize():
        warn(
            f"the weights begin on {date_text(first)}, after the last price ({date_text(last)}): "
            "nothing is traded yet; hand over newer prices, or weights of their time"
        )
    scaled = inputs.weights.largest_scaled
    if scaled is not None:
        gross, date = scaled
        warn(
            f"the absolute weights of {date_text(date)} sum to {gross:g} and were scaled to 1; "
            "weights are fractions of the equity (0.3 is 30 %), leverage=True leaves sums above 1"
        )
    _warn_about_stops(options, schedule)


def _warn_about_stops(options: Options, schedule: Schedule) -> None:
    longs, shorts = bool((schedule.targets > 0.0).any()), bool((schedule.targets < 0.0).any())
    cures = "stops are fractions (0.05 is 5 %), None is no stop"
    for name in ("stop_loss", "take_profit", "trail_stop"):
        value = getattr(options, name)
        if not 1.0 < value < np.inf or longs == shorts:
            continue
        if longs and name == "take_profit":
            warn(f"{name}={value:g} waits for a gain of {value:.0%}; {cures}")
        elif longs or name == "take_profit":
            side, way = ("long", "lose") if longs else ("short", "win")
            warn(f"{name}={value:g} never fires, as no {side} position can {way} that; {cures}")
