"""The money of a report that kept an account: what the page's costs and holdings show of it."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.core.dashboard.embed import rounded
from corvex.core.dashboard.figures.curve_series import wall_days

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["account_facts", "account_series", "benchmark_money", "held_money"]

_DIGITS = 7
_BALANCES = ("equity", "long", "short", "cash")


def account_facts(report: Report) -> dict[str, Any] | None:
    """Return what was paid and received by kind, and how the money grew.

    Returns
    -------
    dict or None
        ``kinds`` and ``total`` (of what was paid): ``money`` in all and ``yearly``, the part of
        the equity that it took a year; the money at ``start`` and ``end``, ``flows`` (None
        without any) and the yearly ``money_weighted`` return; the ``currency`` of the money where
        there are several. None without an account.
    """
    account = _account(report)
    if account is None:
        return None
    from corvex.explain.account_figures import (  # it needs the simulation, which needs the report
        PAID,
        account_drag,
    )

    drag = account_drag(account)
    return {
        "currency": account.attrs.get("currency"),
        "kinds": drag.to_dict(orient="index"),
        "total": drag.loc[list(PAID)].sum(skipna=False).to_dict(),
        "start": account.attrs.get("capital"),
        "end": account["equity"].iloc[-1],
        "flows": account["flows"].sum() if account["flows"].any() else None,
        "money_weighted": account.attrs.get("money_weighted_return"),
    }


def account_series(report: Report) -> dict[str, Any] | None:
    """Return the balances at the end of each day, and what was paid and received until then."""
    account = _account(report)
    if account is None:
        return None
    from corvex.explain.account_figures import PAID, RECEIVED

    days = wall_days(account.index)
    last = np.flatnonzero(np.diff(days, append=days[-1] + 1))
    columns = {name: account[name] for name in _BALANCES}
    columns["paid"] = account[list(PAID)].sum(axis=1).cumsum()
    columns["received"] = account[list(RECEIVED)].sum(axis=1).cumsum()
    shown = {name: column.to_numpy()[last] for name, column in columns.items()}
    return {
        "days": days[last].tolist(),
        **{name: rounded(values, _DIGITS) for name, values in shown.items() if values.any()},
    }


def held_money(report: Report) -> dict[str, Any] | None:
    """Return shares and money by asset label, the cash, and the date of the close they are of."""
    account = _account(report)
    if account is None:
        return None
    from corvex.explain.account_figures import account_holdings

    held = account_holdings(report)
    rows = {str(label): row for label, row in held.to_dict(orient="index").items()}
    return {"rows": rows, "cash": float(account["cash"].iloc[-1]), "date": account.index[-1]}


def benchmark_money(report: Report) -> dict[str, str] | None:
    """Tell in which currency the benchmark is compared, where an account has several.

    Returns
    -------
    dict or None
        The currencies that it was converted ``from`` and ``to``; ``to`` alone, that of the account,
        where nobody said what it is quoted in. None where there is nothing to say.
    """
    rates = getattr(report, "fx", None)
    if not isinstance(rates, pd.DataFrame) or rates.columns.empty:
        return None
    base = str(rates.attrs.get("base"))
    terms = (getattr(report, "settings", None) or {}).get("account") or {}
    quoted = str(terms.get("benchmark_currency") or "").strip().upper()
    if not quoted:
        given = getattr(report.market, "benchmark_source", None) == "given"
        return None if given else {"to": base}
    return None if quoted == base else {"from": quoted, "to": base}


def _account(report: Report) -> pd.DataFrame | None:
    found = getattr(report, "account", None)
    return found if isinstance(found, pd.DataFrame) and len(found) else None
