"""What an account paid and received by kind, and what it holds at the end."""

from __future__ import annotations

from typing import TYPE_CHECKING, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.explain.account_ledger import shares_at_end
from corvex.explain.ledger import ledger_of

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["ACCRUED", "PAID", "RECEIVED", "account_drag", "account_holdings"]

#: The kinds of money of an account, by the columns of `report.account`.
PAID = ("fees", "tax", "slippage", "impact", "financing", "borrow")
RECEIVED = ("interest", "dividends")
#: What is counted on the balances of the close before, so before the flows of its session.
ACCRUED = ("financing", "borrow", "interest")

_DAY = pd.Timedelta(days=1)
_DAYS = 365.25


def account_drag(account: pd.DataFrame) -> pd.DataFrame:
    """Return what each kind took from the equity, or added to it.

    Parameters
    ----------
    account : DataFrame
        As `report.account`.

    Returns
    -------
    DataFrame, kinds x 2
        ``money`` in all, and ``yearly``: each session's money over the equity that it came out
        of, summed, over the years; NaN within a day. The equity is that of the close before,
        with the flows that came after what was accrued. Both are positive for what was paid, too.
        Of an account with several currencies a row ``currency`` tells what their rates brought.
    """
    index = cast("pd.DatetimeIndex", account.index)
    years = (index[-1] - index[0]) / _DAY / _DAYS
    equity = account["equity"].to_numpy()
    before = np.concatenate([[account.attrs.get("capital", equity[0])], equity[:-1]])
    base = {True: before, False: before + account["flows"].to_numpy()}

    def yearly(kind: str) -> float:
        of = base[kind in ACCRUED]
        parts = np.divide(account[kind], of, out=np.zeros(len(of)), where=of > 0.0)
        return float(parts.sum() / years) if years > 0.0 else float("nan")

    kinds = [*PAID, *RECEIVED, *({"currency"} & {*account.columns})]
    return pd.DataFrame(
        {"money": account[kinds].sum(), "yearly": [yearly(kind) for kind in kinds]}, index=kinds
    )


def account_holdings(report: Report) -> pd.DataFrame:
    """Return the shares held after the last session, and their money at its close.

    Returns
    -------
    DataFrame
        ``shares`` and ``money`` by asset label, both negative when short; no row of what is not
        held. Without prices in the market ``money`` is NaN. Empty without an account.
    """
    account: pd.DataFrame | None = getattr(report, "account", None)
    if account is None or account["equity"].iloc[-1] <= 0.0:
        return pd.DataFrame({"shares": [], "money": []}, dtype="float64")
    ledger = ledger_of(report)
    fills: pd.DataFrame = getattr(report, "fills", pd.DataFrame())
    bookings = cast("pd.DataFrame", report.bookings)
    shares = shares_at_end(ledger.index, fills, bookings, ledger.assets)
    units = account["equity"].iloc[-1] / ledger.equity[-1]
    money: npt.NDArray[np.float64] = ledger.value[-1] * units
    if not ledger.priced:
        money = np.full(len(shares), np.nan)
    table = pd.DataFrame({"shares": shares, "money": money}, index=ledger.assets)
    return table[table["shares"] != 0.0]
