"""The report of a run."""

from __future__ import annotations

import copy
import math
from collections.abc import Callable
from typing import Any, cast

import numpy as np
import pandas as pd

from corvex.core.report import Report
from corvex.market import Market
from corvex.markets.bound import BoundMarket
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.price_tables import TradeAt
from corvex.simulation.report.assembly import Outcome, build_report
from corvex.simulation.report.fills_table import fills_table
from corvex.simulation.report.next_holdings import hand_over
from corvex.simulation.report.origins import Origin, note_origin
from corvex.simulation.report.quoted_prices import raw_price_of
from corvex.simulation.report.results import (
    cost_totals,
    curve_and_position,
    state_after,
    yearly_turnover,
)
from corvex.simulation.report.trades_table import closed_returns, trades_table
from corvex.simulation.run import Run
from corvex.tables.asset_labels import ChosenLabels
from corvex.trades.reasons import STOPS

__all__ = ["report_of"]


def report_of(
    run: Run,
    prices: PriceData,
    *,
    name: str | None = None,
    live_performance_start: pd.Timestamp | None = None,
) -> Report:
    """Make the report of a run on the prices that it was made with.

    Parameters
    ----------
    run : Run
        A run that recorded everything.
    prices : PriceData
        Its prices; the report keeps a market of its own that answers from them.
    name, live_performance_start
        As `simulate` takes them, the date on the clock of the prices.
    """
    plan, result, clock = run.plan, run.result, prices.clock
    labels, index, currencies = plan.labels, clock.index, run.currencies
    creturn, position = curve_and_position(result, plan.labels, clock, plan.first_session)
    state = state_after(result, plan.schedule)
    held = hand_over(plan.schedule, state, plan.labels, len(clock) - 1)
    traded = np.zeros(len(labels), dtype=bool)
    traded[cast("dict[str, np.ndarray]", result["trades"])["asset"]] = True
    kept = traded | held.coming
    fills = cast("dict[str, np.ndarray]", result["fills"])
    trades, closed = _trades(run, prices)
    report = build_report(
        Outcome(
            creturn=creturn,
            position=position,
            trades=trades,
            closed_returns=closed,
            fills=lambda: fills_table(fills, labels, index, currencies),
            hand_over=held,
            next_trading_date=clock.future.next_bar,
            market=_own_market(_market(run, prices)),
            kept=ChosenLabels(labels, kept),
            trade_at=_traded_columns(run.trade_at, labels, traded),
            fee_ratio=run.options.fee_ratio,
            tax_ratio=run.options.tax_ratio,
            historical=prices.end is not None,
            attributes={
                **{stop: _or_none(getattr(run.options, stop)) for stop in STOPS},
                "resample": plan.rule,
                "live_performance_start": live_performance_start,
                "name": name,
                "settings": _settings(run, prices),
                "costs": cost_totals(result, currencies=currencies is not None),
                "yearly_turnover": yearly_turnover(
                    result["traded"], result["equity"], cast("pd.DatetimeIndex", creturn.index)
                ),
            },
            deferred=_account(run, prices),
        )
    )
    ends = prices.end is not None
    note_origin(report, Origin(plan, run.options, run.trade_at, index, ends, run.account))
    return report


def _account(run: Run, prices: PriceData) -> dict[str, Callable[[], pd.DataFrame]]:
    """What only the report of a run that kept an account has; made when first read."""
    found, labels, index = run.result.get("account"), run.plan.labels, prices.clock.index
    if found is None:
        return {}
    from corvex.simulation.account.account_tables import account_table, bookings_table, fx_table

    rows, length, bookings = found["sessions"], found["length"], found["bookings"]
    dates = index[run.plan.first_session + run.result["start_row"] :]
    several = run.currencies
    base = None if several is None else several.names[0]
    makers: dict[str, Callable[[], pd.DataFrame]] = {
        "account": lambda: account_table(rows, length, dates, base),
        "bookings": lambda: bookings_table(bookings, labels, index),
    }
    if several is not None:
        makers["fx"] = lambda: fx_table(several, dates)
    return makers


def _trades(
    run: Run, prices: PriceData
) -> tuple[Callable[[], pd.DataFrame], Callable[[], np.ndarray] | None]:
    """What makes the table of trades, and what tells the returns of those closed without it.

    They keep no more of the run than that takes.
    """
    plan, index = run.plan, prices.clock.index
    labels, signals = plan.labels, plan.schedule.dates
    found = cast("dict[str, np.ndarray]", run.result["trades"])
    matrices = prices.of_assets(
        plan.labels, run.trade_at, with_bars=run.options.touched_exit
    ).matrices
    quoted = raw_price_of(prices.market, prices.clock, plan.labels, matrices, run.trade_at)

    trips = run.result["account"]["trips"] if "account" in run.result else None
    several = run.currencies

    def make() -> pd.DataFrame:
        if not trips:
            return trades_table(found, labels, index, signals, quoted, None)
        from corvex.simulation.account.account_tables import trip_columns

        money = trip_columns(trips, found["entry_session"] >= 0)
        if several is not None:
            from corvex.simulation.account.account_tables import currency_columns

            money |= currency_columns(
                several, found["asset"], found["entry_session"], found["exit_session"]
            )
        return trades_table(found, labels, index, signals, quoted, money)

    if quoted is None:
        return make, lambda: closed_returns(found)
    table = make()  # from the user's own tables, which may change later
    return table.copy, None


def _settings(run: Run, prices: PriceData) -> dict[str, Any]:
    plan, options = run.plan, run.options._asdict()
    return {
        "market": prices.market.get_name(),
        "market_chosen": prices.market_chosen,
        **{name: value for name, value in options.items() if name not in STOPS},
        "trade_at": run.trade_at if isinstance(run.trade_at, str) else "custom",
        "resample_offset": str(plan.offset) if plan.offset else None,
        "position_limit": _or_none(plan.limit),
        "leverage": plan.leverage,
        "start": None if prices.start is None else prices.clock.index[0],
        "end": None if prices.end is None else prices.clock.last,
        **_kept_terms(run),
    }


def _kept_terms(run: Run) -> dict[str, Any]:
    if run.account is None:
        return {}
    from corvex.accounts.kept_terms import kept_terms

    return {"account": kept_terms(run.account)}


def _market(run: Run, prices: PriceData) -> Market:
    """The market of a run; with several currencies its benchmark may be in the account's.

    On quoted prices it knows of the splits.
    """
    market = prices.market
    if run.splits is not None:
        from corvex.simulation.account.account_splits import market_with_splits

        market = market_with_splits(market, run.splits, run.plan.labels, prices.clock)
    elif isinstance(market, BoundMarket) and market.split_factors is not None:
        market = market.with_split_factors(None)  # those of another run, whose market this was
    if run.account is None or run.currencies is None:
        return market
    from corvex.simulation.account.account_benchmark import market_in_base

    return market_in_base(market, run.account, run.currencies, prices.clock, run.plan.first_session)


def _or_none(number: float) -> float | None:
    return number if math.isfinite(number) else None


def _own_market(market: Market) -> Market:
    """Return a market for one report: what that keeps in its file is no business of another's."""
    if not isinstance(market, BoundMarket):
        return market
    if market.benchmark_source == "default":
        market.read_benchmark()  # most reports are never asked for it
    else:
        market.get_benchmark()  # brought to the prices once for all reports
    return copy.copy(market)


def _traded_columns(trade_at: TradeAt, labels: pd.Index, traded: np.ndarray) -> TradeAt:
    """A user's own price table without the assets that were never traded: reports stay small."""
    if isinstance(trade_at, str):
        return trade_at
    columns = match_columns(labels[traded], trade_at.columns)
    return trade_at if columns is None else trade_at.iloc[:, columns[columns >= 0]]
