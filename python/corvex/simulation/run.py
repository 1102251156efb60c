"""One run: schedule, prices, engine, and the tables that come of it."""

from __future__ import annotations

from typing import Any, cast

import numpy as np
import pandas as pd

from corvex.simulation.doubts import warn_about_run
from corvex.simulation.engine import first_session, run_engine
from corvex.simulation.notices import warn
from corvex.simulation.options import Options
from corvex.simulation.plan.price_faults import check_prices
from corvex.simulation.plan.schedule import Rule, Schedule, build_schedule
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_data import RunInputs
from corvex.simulation.read.price_tables import TradeAt, read_matrices
from corvex.simulation.report.assembly import Outcome
from corvex.simulation.report.fills_table import fills_table
from corvex.simulation.report.next_holdings import hand_over
from corvex.simulation.report.quoted_prices import raw_price_of
from corvex.simulation.report.results import (
    cost_totals,
    curve_and_position,
    state_after,
    yearly_turnover,
)
from corvex.simulation.report.trades_table import trades_table

__all__ = ["run"]


def run(
    inputs: RunInputs,
    options: Options,
    trade_at: TradeAt,
    resample: Rule,
    offset: pd.Timedelta,
    *,
    historical: bool,
    attributes: dict[str, Any],
) -> Outcome:
    """Simulate checked inputs; `attributes` go to the report as they are."""
    clock, labels, market = inputs.clock, inputs.weights.labels, inputs.market
    schedule = build_schedule(inputs.weights, inputs.rows, clock, resample, offset)
    prices = read_matrices(
        market, inputs.close, clock, labels, trade_at, with_bars=options.touched_exit
    )
    prices = check_prices(prices, schedule, clock, labels, inputs.close.columns)
    warn_about_run(inputs, options, schedule)
    first = first_session(schedule, _idle_start(inputs, schedule))
    result = run_engine(prices, schedule, trade_at, options, first)
    creturn, position = curve_and_position(result, inputs, first)
    trades = trades_table(
        cast("dict[str, np.ndarray]", result["trades"]),
        labels,
        clock.index,
        schedule.dates,
        raw_price_of(market, clock, labels, prices, trade_at),
    )
    return Outcome(
        creturn=creturn,
        position=position,
        trades=trades,
        hand_over=hand_over(schedule, state_after(result, schedule), labels, len(clock) - 1),
        next_trading_date=clock.future.next_bar,
        market=market,
        trade_at=_traded_columns(trade_at, labels, trades),
        fee_ratio=options.fee_ratio,
        tax_ratio=options.tax_ratio,
        historical=historical,
        attributes={
            **attributes,
            "fills": fills_table(
                cast("dict[str, np.ndarray]", result["fills"]), labels, clock.index
            ),
            "costs": cost_totals(result),
            "yearly_turnover": yearly_turnover(
                result["traded"], result["equity"], cast("pd.DatetimeIndex", creturn.index)
            ),
        },
    )


def _idle_start(inputs: RunInputs, schedule: Schedule) -> int:
    """Where the curve of a run without any rebalance starts: at the first row of weights."""
    if len(schedule) == 0 and schedule.planned_targets is None:
        warn(
            "no rebalance has a weight other than zero, so nothing is traded and the equity "
            "stays at 1"
        )
    return int(np.clip(inputs.rows.sessions[0], 0, len(inputs.clock) - 1))


def _traded_columns(trade_at: TradeAt, labels: pd.Index, trades: pd.DataFrame) -> TradeAt:
    """A user's own price table without the assets that were never traded: reports stay small."""
    if isinstance(trade_at, str):
        return trade_at
    traded = labels[labels.isin(trades["symbol"])]
    columns = match_columns(traded, trade_at.columns)
    return trade_at if columns is None else trade_at.iloc[:, columns[columns >= 0]]
