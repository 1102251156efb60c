"""Putting a report together from what a run yields."""

from __future__ import annotations

from collections.abc import Callable, Collection, Mapping
from functools import partial
from types import MappingProxyType
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

from corvex.core.report import Report
from corvex.data.context import now
from corvex.data.readiness import readiness_record
from corvex.market import Market
from corvex.markets.bound import BoundMarket
from corvex.simulation.read.benchmark_notices import warn_about_benchmark
from corvex.simulation.report.daily_curve import daily_curve
from corvex.simulation.report.deferred import Deferred
from corvex.simulation.report.next_holdings import HandOver
from corvex.simulation.report.trades_table import mae_mfe_table
from corvex.trades.reasons import STOPS

__all__ = ["Outcome", "build_report"]


class Outcome(NamedTuple):
    """What a report is made of.

    Attributes
    ----------
    trades, fills : callables
        Make these tables when they are first asked for, each time another one.
    closed_returns : callable, optional
        Tells the returns of the trades without a missing value, before there is a table of them.
    kept : collection of labels
        The assets whose prices a saved report needs: those traded, held or to be held.
    attributes : mapping of str to object
        Settings of the run, assigned under their names.
    deferred : dict of str to callable
        What makes further attributes when they are first read.
    """

    creturn: pd.Series
    position: pd.DataFrame
    trades: Callable[[], pd.DataFrame]
    hand_over: HandOver
    next_trading_date: pd.Timestamp
    market: Market
    kept: Collection[object]
    fills: Callable[[], pd.DataFrame | None] = lambda: None
    closed_returns: Callable[[], np.ndarray] | None = None
    trade_at: Any = "close"
    fee_ratio: float = 0.0
    tax_ratio: float = 0.0
    historical: bool = False
    attributes: Mapping[str, Any] = MappingProxyType({})
    deferred: Mapping[str, Callable[[], Any]] = MappingProxyType({})


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


_BENCHMARKS = ("benchmark", "daily_benchmark")
_HOLDINGS = ("weights", "next_weights", "actions", "current_trades")
_TRADES = ("trades", "mae_mfe")


def build_report(outcome: Outcome) -> Report:
    """Make the report and assign all that its constructor leaves to the driver.

    What takes long is made when first read, as far as it cannot change until then.
    """
    held = outcome.hand_over
    if outcome.historical:
        outcome = outcome._replace(market=outcome.market.for_history())
    market = outcome.market
    market.restrict_pickle_to(outcome.kept)
    report = Report.__new__(Report)
    report._init_without_curves(
        outcome.creturn,
        outcome.position,
        outcome.fee_ratio,
        outcome.tax_ratio,
        outcome.trade_at,
        outcome.next_trading_date,
        market,
    )
    attributes = vars(report)
    creturn = attributes.pop("creturn")
    ordered = {
        "creturn": creturn,
        "daily_creturn": None,
        **dict.fromkeys(_BENCHMARKS),
        **attributes,
        **_DEFAULTS,
        **outcome.attributes,
        **dict.fromkeys(outcome.deferred),
        "mae_mfe": None,
        "current_rebalance_date": held.current_date,
        "next_rebalance_date": held.next_date,
        "planned_rebalance_date": held.planned_rebalance_date,
        "data_readiness": None,
        "current_trades": None,
    }
    deferred = Deferred(ordered)
    equity, dates = _equity(outcome.creturn), outcome.position.index
    curve = _curve(*equity, outcome.creturn.name)
    deferred.add(["daily_creturn"], lambda: _daily(curve))
    deferred.add_fact("daily_curve", "daily_creturn", lambda: daily_curve(*equity))
    deferred.add(_BENCHMARKS, lambda: _benchmarks(curve, dates, market))
    deferred.add(_TRADES, lambda: _trades(outcome.trades()))
    if outcome.closed_returns is not None:
        deferred.add_fact("closed_returns", "trades", outcome.closed_returns)
    # From a table of their own: a user may have changed the report's by then.
    deferred.add(_HOLDINGS, lambda: _holdings(outcome.trades(), held))
    deferred.add(["fills"], lambda: {"fills": outcome.fills()})
    for name, make in outcome.deferred.items():
        deferred.add([name], partial(_named, name, make))
    deferred.add(["data_readiness"], _readiness(market, historical=outcome.historical))
    attributes.clear()
    attributes.update(
        {name: value for name, value in ordered.items() if not deferred.makes(name)},
        _deferred=deferred,
    )
    if not isinstance(market, BoundMarket):  # it answers as of the moment in which it is asked
        _ = report.benchmark, report.data_readiness
    elif market.benchmark_source == "default":
        market.read_benchmark()
    else:
        warn_about_benchmark(report)
    return report


def _named(name: str, make: Callable[[], Any]) -> dict[str, Any]:
    return {name: make()}


def _equity(creturn: pd.Series) -> tuple[np.ndarray, pd.Index]:
    """The values and dates of the equity as it is now."""
    return creturn.to_numpy(copy=True), creturn.index.view()


def _curve(values: np.ndarray, index: pd.Index, name: Any) -> Callable[[], Report]:
    """What makes a view with the strategy's curves."""

    def make() -> Report:
        view = Report.__new__(Report)
        view._init_strategy_curves(pd.Series(values, index, name=name, copy=True))
        return view

    return make


def _daily(curve: Callable[[], Report]) -> dict[str, Any]:
    return {"daily_creturn": vars(curve())["daily_creturn"]}


def _benchmarks(curve: Callable[[], Report], dates: pd.Index, market: Market) -> dict[str, Any]:
    view = curve()
    view._init_benchmarks(pd.DataFrame(index=dates), market)
    return {name: vars(view)[name] for name in _BENCHMARKS}


def _trades(trades: pd.DataFrame) -> dict[str, Any]:
    return {"trades": trades, "mae_mfe": mae_mfe_table(trades)}


def _holdings(trades: pd.DataFrame, held: HandOver) -> dict[str, Any]:
    view = Report.__new__(Report)
    vars(view).update(held.tables(), trades=trades)
    view.calculate_current_trades()
    return {name: vars(view)[name] for name in _HOLDINGS}


def _readiness(market: Market, *, historical: bool) -> Callable[[], dict[str, Any]]:
    moment = now()
    return lambda: {"data_readiness": readiness_record(market, historical=historical, now=moment)}
