"""Random portfolios of a run that kept an account: each is simulated on its terms, one by one."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.accounts import Account
from corvex.accounts.exchange import currency_code, pairs_of, way_between
from corvex.simulation.account.account_terms import read_account
from corvex.simulation.batch import batch_dates
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan
from corvex.simulation.plan.schedule import Schedule
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.read.price_tables import TradeAt

__all__ = ["account_figures", "drawn_from"]

_Floats = npt.NDArray[np.float64]

#: Terms by asset that have to name an asset, and those that have to have a value for it.
_NAMED = ("fee_ratio", "tax_ratio", "slippage_ratio", "price_limit")
_VALUED = ("lot_size", "currency")
_BASE = 100.0  # what the daily curve of a report starts at


def drawn_from(account: Account, labels: pd.Index) -> npt.NDArray[np.bool_]:
    """Tell which assets can be drawn: those that the account has every term of.

    Where lots, costs or currencies are given by asset, and one has none, or one in a currency
    without a rate, it could not have been chosen in that account.
    """
    known = np.ones(len(labels), dtype=np.bool_)
    for name in (*_NAMED, *_VALUED):
        given = getattr(account, name)
        if isinstance(given, Mapping):
            given = pd.Series(given, dtype=object)
        if not isinstance(given, pd.Series) or isinstance(given.index, pd.DatetimeIndex):
            continue
        values = pd.Series(0.0, given.index) if name in _NAMED else given
        known &= _values_of(values, labels).notna().to_numpy()
    if account.currency is None or isinstance(account.currency, str):
        return known
    base = currency_code(account.base, "base")
    codes = _values_of(pd.Series(account.currency, dtype=object), labels)
    names = {code: currency_code(code, "currency") for code in codes.dropna().unique()}
    pairs = {} if account.fx is None else pairs_of(account.fx, names.values(), base)
    fees = [one for one in (account.min_fee, account.fee_per_share) if isinstance(one, Mapping)]
    payable = {
        code: (name == base or way_between(name, base, pairs) is not None)
        and all(name in one for one in fees)
        for code, name in names.items()
    }
    return known & np.array([payable.get(code, False) for code in codes], dtype=np.bool_)


def _values_of(given: pd.Series, labels: pd.Index) -> pd.Series:
    if not len(given):
        return pd.Series(np.nan, range(len(labels)))
    found = match_columns(labels, given.index)
    places = np.arange(len(labels)) if found is None else found
    values = given.array.take(np.maximum(places, 0))
    return pd.Series(values).where(places >= 0)


def account_figures(
    data: PriceData,
    plan: Plan,
    universe: pd.Index,
    drawable: npt.NDArray[np.bool_],
    account: Account,
    options: Options,
    trade_at: TradeAt,
    riskfree_rate: float,
) -> Callable[[_Floats], _Floats]:
    """Return what simulates tables of targets for all assets of the prices and tells their figures.

    Parameters
    ----------
    universe : Index
        The assets, by the labels of the plan where it has them.
    drawable : bool array of shape (assets,)
        Which of them may be held.

    Returns
    -------
    callable
        Of targets (draws x rebalances x assets); gives figures (draws x figures of the statistics
        record), missing ones of a draw that could not pay a withdrawal.
    """
    sessions = np.ascontiguousarray(plan.schedule.sessions, dtype=np.int64)
    anything = np.broadcast_to(drawable.astype(np.float64), (len(sessions), len(universe)))
    schedule = Schedule(plan.schedule.candidates, plan.schedule.kept, sessions, anything)
    terms = read_account(account, data, plan._replace(labels=universe, schedule=schedule))
    prices = data.of_assets(
        pd.Index(data.close.columns), trade_at, with_bars=options.touched_exit
    ).shared
    first = plan.first_session
    dates = batch_dates(data.clock.index, [first])

    def figures(targets: _Floats) -> _Floats:
        result: Any = _engine.simulate(
            prices,
            targets,
            sessions,
            first_session=first,
            options=options,
            record_positions=False,
            record_trades=False,
            record_excursions=False,
            account=terms,
        )
        if result["account"]["overdrawn_session"] >= 0:
            return np.full(len(_engine.FIGURE_NAMES), np.nan)
        equity, start = result["equity"], result["start_row"]
        rows = dates.closes[dates.closes >= first + start]
        values, times = equity[rows - first], dates.times[rows]
        if result["starts_before"] and dates.before_first[0] < times[0]:
            values = np.concatenate(([1.0], values))
            times = np.concatenate((dates.before_first, times))
        record = _engine.performance_record(_engine.rebase(values, _BASE), times, riskfree_rate)
        return np.array(record[0])

    return lambda tables: np.array([figures(np.ascontiguousarray(one)) for one in tables])
