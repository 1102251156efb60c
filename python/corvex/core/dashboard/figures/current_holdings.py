"""What is held now and from the next rebalance on, and how fresh that is."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.core.dashboard.figures.account_money import held_money
from corvex.core.dashboard.figures.curve_series import day_of
from corvex.core.dashboard.figures.trade_series import shown_return

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["freshness", "holdings"]


def holdings(report: Report) -> dict[str, Any]:
    """Describe the weights in force and the next ones.

    Returns
    -------
    dict
        ``rows`` of ``asset``, ``weight``, ``next`` (None where the next weights are unknown),
        ``action``, and of the asset's open trade ``entry`` (ISO date) and ``return``; heaviest
        first. ``cash`` and ``next_cash``: 1 less the sum of the weights, None where unknown.
        ``source``: "weights", or "position" where the report has no weights and the last row of
        its position table stands in. ``signal`` and ``next_signal``: ISO dates of the signals.
        Where an account was kept rows also have ``shares`` and ``money`` of the last close (None
        of what is not held), ``cash_money`` is the cash, ``money_date`` the date of that close;
        else this is None.
    """
    now, source = _series(report, "weights"), "weights"
    following = _series(report, "next_weights")
    if now is None:
        now, source = _last_position(report), "position"
    actions = _texts(getattr(report, "actions", None))
    held = _weights(now)
    coming = None if following is None else _weights(following)
    trades = _open_trades(report)
    money = held_money(report)
    owned = {} if money is None else money["rows"]
    labels = list(dict.fromkeys([*held, *(coming or {}), *actions, *owned]))
    rows = [
        {
            "asset": label,
            "weight": held.get(label, 0.0),
            "next": None if coming is None else coming.get(label, 0.0),
            "action": actions.get(label),
            **owned.get(label, {"shares": None, "money": None}),
            **trades.get(label, {"entry": None, "return": None}),
        }
        for label in labels
    ]
    rows.sort(key=lambda row: (-abs(row["weight"]), -abs(row["next"] or 0.0), row["asset"]))
    return {
        "rows": rows,
        "source": source,
        "cash": 1.0 - math.fsum(held.values()),
        "next_cash": None if coming is None else 1.0 - math.fsum(coming.values()),
        "cash_money": None if money is None else money["cash"],
        "money_date": None if money is None else _iso(money["date"]),
        "signal": _iso(now.name),
        "next_signal": _iso(following.name) if following is not None else None,
    }


def freshness(report: Report) -> dict[str, Any]:
    """Return the dates by which a reader can tell how old the page's figures are, as ISO dates."""
    readiness = getattr(report, "data_readiness", None)
    reason = readiness.get("reason") if isinstance(readiness, dict) else None
    return {
        "data_through": _iso(report.creturn.index[-1]) if len(report.creturn) else None,
        "next_trading_date": _iso(report.next_trading_date),
        "current_rebalance": _iso(getattr(report, "current_rebalance_date", None)),
        "next_rebalance": _iso(getattr(report, "next_rebalance_date", None)),
        "planned_rebalance": _iso(getattr(report, "planned_rebalance_date", None)),
        "historical": reason == "historical_backtest",
    }


def _iso(value: Any) -> str | None:
    """Return a date, with its time where it has one, on its own wall clock."""
    if day_of(value) is None:
        return None
    stamp = pd.Timestamp(value).tz_localize(None)
    return f"{stamp:%Y-%m-%d}" if stamp == stamp.normalize() else f"{stamp:%Y-%m-%d %H:%M}"


def _series(report: Report, name: str) -> pd.Series | None:
    value = getattr(report, name, None)
    return value if isinstance(value, pd.Series) else None


def _last_position(report: Report) -> pd.Series:
    position = report.position
    return position.iloc[-1] if len(position) else pd.Series(dtype="float64")


def _weights(series: pd.Series) -> dict[str, float]:
    """Return the weights other than 0 by label; two of one label count together."""
    found: dict[str, float] = {}
    values = np.nan_to_num(np.asarray(series, dtype=np.float64))
    for i in np.flatnonzero(values).tolist():
        label = str(series.index[i])
        found[label] = found.get(label, 0.0) + float(values[i])
    return found


def _texts(series: Any) -> dict[str, str]:
    if not isinstance(series, pd.Series):
        return {}
    return {str(label): str(text) for label, text in series.items() if not pd.isna(text)}


def _open_trades(report: Report) -> dict[str, dict[str, Any]]:
    trades = report.trades
    column = "symbol" if "symbol" in trades.columns else "stock_id"
    if not {column, "entry_date", "exit_date", "return"} <= set(trades.columns):
        return {}
    still_open = trades[trades["entry_date"].notna() & trades["exit_date"].isna()]
    columns = (still_open[name] for name in (column, "entry_date", "return"))
    return {
        str(label): {"entry": _iso(entry), "return": shown_return(float(gain))}
        for label, entry, gain in zip(*columns, strict=True)
    }
