"""Putting a report together from what a run yields."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any

import pandas as pd

from corvex.core.report import Report
from corvex.data.readiness import readiness_record
from corvex.market import Market
from corvex.simulation.read.benchmark_notices import warn_about_benchmark
from corvex.simulation.report.next_holdings import HandOver
from corvex.simulation.report.trades_table import mae_mfe_table
from corvex.trades.reasons import STOPS

__all__ = ["Outcome", "build_report"]


@dataclass(slots=True)
class Outcome:
    """What a report is made of.

    Attributes
    ----------
    attributes : dict of str to object
        Settings of the run, assigned under their names.
    """

    creturn: pd.Series
    position: pd.DataFrame
    trades: pd.DataFrame
    hand_over: HandOver
    next_trading_date: pd.Timestamp
    market: Market
    trade_at: Any = "close"
    fee_ratio: float = 0.0
    tax_ratio: float = 0.0
    historical: bool = False
    attributes: dict[str, Any] = field(default_factory=dict)


# Present on every report, whether it was simulated or not.
_DEFAULTS: dict[str, Any] = {
    "resample": None,
    **dict.fromkeys(STOPS),
    "live_performance_start": None,
    "name": None,
    "yearly_turnover": float("nan"),
    "costs": {},
    "fills": None,
    "settings": {},
}


def build_report(outcome: Outcome) -> Report:
    """Make the report and assign all that its constructor leaves to the driver."""
    held = outcome.hand_over
    if outcome.historical:
        outcome.market = outcome.market.for_history()
    outcome.market.restrict_pickle_to(_kept_assets(outcome))
    report = Report(
        outcome.creturn,
        outcome.position,
        outcome.fee_ratio,
        outcome.tax_ratio,
        outcome.trade_at,
        outcome.next_trading_date,
        outcome.market,
    )
    assigned = {
        **_DEFAULTS,
        **outcome.attributes,
        "trades": outcome.trades,
        "mae_mfe": mae_mfe_table(outcome.trades),
        "weights": held.weights,
        "next_weights": held.next_weights,
        "actions": held.actions,
        "current_rebalance_date": held.weights.name,
        "next_rebalance_date": held.next_weights.name,
        "planned_rebalance_date": held.planned_rebalance_date,
        "data_readiness": readiness_record(outcome.market, historical=outcome.historical),
    }
    for name, value in assigned.items():
        setattr(report, name, value)
    report.calculate_current_trades()
    warn_about_benchmark(report)
    return report


def _kept_assets(outcome: Outcome) -> pd.Index:
    """The assets whose prices a saved report needs: those traded, held or to be held."""
    traded = pd.Index(outcome.trades["symbol"].unique())
    held: pd.Index = traded.union(outcome.hand_over.next_weights.index, sort=False)
    return held
