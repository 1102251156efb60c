"""Where a report's return came from, what it was exposed to and how much it traded."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from corvex.explain.ledger import Ledger, ledger_of

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["COSTS", "INTEREST", "OTHER", "contributions", "exposure", "turnover"]

#: The entries of `contributions` that belong to no asset.
COSTS = "(costs)"
INTEREST = "(interest)"
OTHER = "(other)"

_ROUNDING = 1e-9


def contributions(
    report: Report, freq: str | None = None, *, by_kind: bool = False
) -> pd.Series | pd.DataFrame:
    """Return what each asset added to the report's return.

    Parameters
    ----------
    report : Report
        The report to explain.
    freq : str, optional
        A pandas frequency such as "YE" or "ME": contributions of each period. Default: of the
        whole time.
    by_kind : bool, default False
        A table of the whole time instead, asset by asset: what ``price``, ``dividends``,
        ``borrow`` and ``costs`` brought, and their ``total``. Of an account with several
        currencies also ``currency``: what the value at each close gained by the move of the rate
        to the next one. The price's own move then counts at the new rate. "(interest)" and
        "(other)" have rows of their own, in the column ``price``.

    Returns
    -------
    Series or DataFrame
        Fractions, by asset label in descending order, for `freq` with a row per period. The last
        entry, "(costs)", are fees, taxes and slippage. An entry "(other)" before it is there only
        where something else moved the equity: debt that a ruin wrote off, or prices that were
        revised since the simulation. The sum is the return of the curve (of the period), to
        rounding. Of a run that kept an account an entry "(interest)" tells what cash earned, less
        what loans cost, and an asset's part holds its dividends and what borrowing it cost.
        ``attrs["estimated"]`` is True where the report keeps no fills (one of an older version) and
        they were guessed from its target weights.

    Raises
    ------
    ValueError
        When the report has no curve, or its market no prices of the assets.

    Notes
    -----
    A holding's profit in a session is its value at the session before times the return of its
    price; what is bought or sold within a session counts from or to its fill price. Profits are
    taken in money, that is in units of the equity at the beginning of the time explained, and
    summed up: since money adds up where returns do not, no linking of periods is needed. An
    asset's contribution over several periods is therefore larger in later ones when the equity
    has grown.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks").loc["2015":, ["AAPL", "MSFT"]]
    >>> report = corvex.simulate(prices > 0, prices, resample="ME", fee_ratio=0.001)
    >>> parts = corvex.contributions(report)
    >>> bool(abs(parts.sum() - (report.creturn.iloc[-1] - 1)) < 1e-12)
    True
    """
    ledger = _priced(report)
    gained = ledger.gained
    interest = {} if ledger.interest is None else {INTEREST: ledger.interest}
    rest = gained - ledger.profit.sum(axis=1) - interest.get(INTEREST, 0.0)
    if by_kind:
        return _by_kind(ledger, freq, float((rest + ledger.cost).sum()))
    extra = {**interest, COSTS: rest}
    if np.abs(rest + ledger.cost).max() > _ROUNDING:
        extra = {**interest, OTHER: rest + ledger.cost, COSTS: -ledger.cost}
    profit = pd.DataFrame(
        np.column_stack([ledger.profit, *extra.values()]),
        ledger.index,
        pd.Index([*ledger.assets, *extra]),
    )
    whole = profit.sum()
    largest_first = whole.iloc[: -len(extra)].sort_values(ascending=False, kind="stable").index
    order = [*largest_first, *extra]
    if freq is None:
        return _marked(whole[order].rename("contribution"), ledger)
    ends = pd.Series(ledger.equity, ledger.index).resample(freq).last().ffill()
    base = ends.shift(1, fill_value=ledger.equity[0] - gained[0])
    sums = profit[order].resample(freq).sum()
    return _marked(sums.div(base.where(base > 0.0), axis=0), ledger)


def _by_kind(ledger: Ledger, freq: str | None, other: float) -> pd.DataFrame:
    """Return what each asset's prices, dividends, borrowing and costs added; interest has none."""
    if freq is not None:
        raise ValueError("by_kind goes over the whole time; leave freq out")
    nothing = np.zeros_like(ledger.profit)
    dividends = nothing if ledger.dividends is None else ledger.dividends
    borrow = nothing if ledger.borrow is None else ledger.borrow
    parts = {
        "price": ledger.profit - dividends - borrow,
        "currency": ledger.currency,
        "dividends": dividends,
        "borrow": borrow,
        "costs": -ledger.cost_of,
    }
    if ledger.currency is not None:
        parts["price"] = ledger.profit - dividends - borrow - ledger.currency
    table = pd.DataFrame(
        {kind: part.sum(axis=0) for kind, part in parts.items() if part is not None}, ledger.assets
    )
    if ledger.interest is not None:
        table.loc[INTEREST] = 0.0
        table.loc[INTEREST, "price"] = ledger.interest.sum()
    if abs(other) > _ROUNDING:
        table.loc[OTHER] = 0.0
        table.loc[OTHER, "price"] = other
    table["total"] = table.sum(axis=1)
    return _marked(table, ledger)


def exposure(report: Report) -> pd.DataFrame:
    """Return how much was invested at each close.

    Parameters
    ----------
    report : Report
        The report to describe.

    Returns
    -------
    DataFrame, dates of the curve x 5
        ``long`` and ``short`` (0 or below), ``gross`` (long - short) and ``net`` (long + short)
        as fractions of the equity, and ``holdings``, the number of assets held. The holdings
        drift with the prices between rebalances, so gross can exceed the target weights; where
        the market has no prices of the assets, the target weights count. A row without equity
        is 0.
    """
    ledger = ledger_of(report)
    alive = ledger.equity > 0.0
    share = ledger.value / np.where(alive, ledger.equity, 1.0)[:, None]
    share[~alive] = 0.0
    longs, shorts = np.maximum(share, 0.0).sum(axis=1), np.minimum(share, 0.0).sum(axis=1)
    table = pd.DataFrame(
        {
            "long": longs,
            "short": shorts,
            "gross": longs - shorts,
            "net": longs + shorts,
            "holdings": np.count_nonzero(share, axis=1),
        },
        index=ledger.index,
    )
    return _marked(table, ledger)


def turnover(report: Report, freq: str | None = None) -> pd.DataFrame:
    """Return how much was traded.

    Parameters
    ----------
    report : Report
        The report to describe.
    freq : str, optional
        A pandas frequency; "YE" gives the turnover of each calendar year. Default: of each
        session.

    Returns
    -------
    DataFrame, dates of the curve (or ends of the periods) x 3
        ``bought`` and ``sold``, traded value as a fraction of the equity of its day, and
        ``turnover``, half of both: 1.0 means that the whole portfolio was replaced once. Of a
        simulated report the sum of the sessions over the years is ``report.yearly_turnover``.
        Where the market has no prices of the assets, the changes of the target weights count.
    """
    ledger = ledger_of(report)
    base = np.where(ledger.equity > 0.0, ledger.equity, np.inf)
    bought, sold = ledger.bought / base, ledger.sold / base
    table = pd.DataFrame(
        {"bought": bought, "sold": sold, "turnover": (bought + sold) / 2.0}, index=ledger.index
    )
    return _marked(table if freq is None else table.resample(freq).sum(), ledger)


def _marked[T: (pd.Series, pd.DataFrame)](table: T, ledger: Ledger) -> T:
    table.attrs["estimated"] = ledger.estimated
    return table


def _priced(report: Report) -> Ledger:
    ledger = ledger_of(report)
    if not len(ledger.index):
        raise ValueError("the report has no curve to explain")
    if not ledger.priced and len(ledger.assets):
        raise ValueError(
            "the report's market has no close prices of the assets held, so their contributions "
            "are unknown"
        )
    return ledger
