"""Warnings of settings that can be used but are hardly meant, each with its cure."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING

import numpy as np

from corvex.market import Market
from corvex.simulation.notices import date_text, warn
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.clock import Clock
from corvex.trades.reasons import STOPS

if TYPE_CHECKING:
    from corvex.accounts import Account

__all__ = ["warn_about_guessed_costs", "warn_about_run"]


def warn_about_guessed_costs(
    market: Market, account: Account | None, ratios: Mapping[str, float | None]
) -> None:
    """Warn where a market that the labels alone chose charges costs that nobody asked for.

    `ratios` are those of `corvex.simulation.options.cost_ratios`.
    """
    asked = {name for name in ratios if ratios[name] is not None}
    if account is not None:
        asked |= {name for name in ratios if getattr(account, name) is not None}
        asked |= {"fee_ratio"} if account.fee_table is not None else set()
    charged = [
        f"{name}={getattr(market, name):g}"
        for name in ("fee_ratio", "tax_ratio")
        if name not in asked and getattr(market, name)
    ]
    if charged:
        warn(
            f"the labels look like those of the market {market.get_name()!r}, so its "
            f"{' and '.join(charged)} are charged; name the market to settle it: "
            f"market={market.get_name()!r}, or another"
        )


def warn_about_run(plan: Plan, options: Options, clock: Clock, *, earns: bool = False) -> None:
    """Warn of weights that are none, were scaled or come too late, and of stops hardly meant.

    `earns`: an account's cash may, where nothing is traded.
    """
    if plan.begins > clock.last and plan.begins.normalize() > clock.last.normalize():
        warn(
            f"the weights begin on {date_text(plan.begins)}, after the last price "
            f"({date_text(clock.last)}): nothing is traded yet; hand over newer prices, or weights "
            "of their time"
        )
    if plan.scaled is not None:
        gross, date = plan.scaled
        warn(
            f"the absolute weights of {date_text(date)} sum to {gross:g} and were scaled to 1; "
            "weights are fractions of the equity (0.3 is 30 %), leverage=True leaves sums above 1"
        )
    _warn_about_stops(options, plan.schedule)
    if plan.is_idle:
        warn(
            "no rebalance has a weight other than zero, so nothing is traded"
            f"{'' if earns else ' and the equity stays at 1'}"
        )


def _warn_about_stops(options: Options, schedule: Schedule) -> None:
    if not any(1.0 < getattr(options, name) < np.inf for name in STOPS):
        return
    longs, shorts = bool((schedule.targets > 0.0).any()), bool((schedule.targets < 0.0).any())
    cures = "stops are fractions (0.05 is 5 %), None is no stop"
    for name in STOPS:
        value = getattr(options, name)
        if not 1.0 < value < np.inf or longs == shorts:
            continue
        if longs and name == "take_profit":
            warn(f"{name}={value:g} waits for a gain of {value:.0%}; {cures}")
        elif longs or name == "take_profit":
            side, way = ("long", "lose") if longs else ("short", "win")
            warn(f"{name}={value:g} never fires, as no {side} position can {way} that; {cures}")
