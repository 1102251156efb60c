"""A run: a plan and options, simulated on prices by the engine."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from corvex import _engine
from corvex.simulation.doubts import warn_about_run
from corvex.simulation.held_prices import check_held_prices
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.price_tables import TradeAt

if TYPE_CHECKING:
    from corvex._engine import SimulationResult
    from corvex.accounts import Account
    from corvex.simulation.account.account_currencies import Currencies
    from corvex.simulation.account.account_terms import AccountTerms

__all__ = ["Run", "run_plan"]


class Run:
    """What a run was asked and what came of it; a report is made of it when one is wanted.

    Attributes
    ----------
    plan, options, trade_at
        What was simulated.
    result : dict
        The engine's arrays.
    account : Account or None
        What the run kept an account by.
    currencies : Currencies or None
        Of an account with several.
    splits : three arrays or None
        Session, asset and new shares for each old one, of an account on quoted prices.
    """

    def __init__(
        self,
        plan: Plan,
        options: Options,
        trade_at: TradeAt,
        result: SimulationResult,
        account: Account | None = None,
        currencies: Currencies | None = None,
        splits: Any = None,
    ) -> None:
        self.plan = plan
        self.options = options
        self.trade_at = trade_at
        self.result = result
        self.account = account
        self.currencies = currencies
        self.splits = splits


def run_plan(
    prices: PriceData,
    plan: Plan,
    options: Options,
    trade_at: TradeAt = "close",
    *,
    account: Account | None = None,
    curves_only: bool = False,
) -> Run:
    """Simulate a plan.

    Parameters
    ----------
    prices : PriceData
        The prices that the plan was made for. They are matched and looked through for faults with
        the first run of some assets and not again.
    plan : Plan
        What is to be held.
    options : Options
        Costs and stops.
    trade_at : str or DataFrame, default "close"
        Where orders fill.
    account : Account, optional
        The terms of an account that the run is to keep.
    curves_only : bool, default False
        Record no positions, trades and fills; no report can be made of such a run.

    Raises
    ------
    ValueError
        When prices of what is held cannot be used; the message names asset and date.
    """
    of_assets = prices.of_assets(plan.labels, trade_at, with_bars=options.touched_exit)
    check_held_prices(of_assets, plan, prices.clock)
    warn_about_run(plan, options, prices.clock, earns=account is not None)
    terms = None if account is None else _terms(account, prices, plan)
    result = _engine.simulate(
        of_assets.shared,
        np.ascontiguousarray(plan.schedule.targets),
        np.ascontiguousarray(plan.schedule.sessions, dtype=np.int64),
        first_session=plan.first_session,
        options=options,
        record_positions=not curves_only,
        record_trades=not curves_only,
        record_excursions=not curves_only,
        record_fills=not curves_only,
        account=terms,
    )
    if terms is not None:
        _tell_of_account(result, plan, prices, terms)
    if terms is None:
        return Run(plan, options, trade_at, result)
    splits = terms.splits if len(terms.splits[0]) else None
    return Run(plan, options, trade_at, result, account, terms.currencies, splits)


# Most runs keep no account: what one takes is loaded for those that do.


def _terms(account: Account, prices: PriceData, plan: Plan) -> AccountTerms:
    from corvex.simulation.account.account_terms import read_account

    return read_account(account, prices, plan)


def _tell_of_account(
    result: SimulationResult, plan: Plan, prices: PriceData, terms: AccountTerms
) -> None:
    from corvex.simulation.account.account_notices import tell_of_account

    tell_of_account(result, plan, prices.clock, terms)
