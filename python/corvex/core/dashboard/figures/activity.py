"""How much was held and turned over, at what cost, and what the market can carry."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.core.dashboard.figures.curve_series import day_of, iso_day, wall_days
from corvex.trades.reasons import STOPS

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["assumptions", "costs", "exposure", "liquidity", "yearly_activity"]

Floats = npt.NDArray[np.float64]

_RATIOS = ("fee_ratio", "tax_ratio", "slippage_ratio")
#: The terms of an account that are fractions.
_FRACTIONS = (
    *("cash_rate", "cash_spread", "short_rebate", "financing_rate", "borrow_rate"),
    *("withholding_tax", "max_fee_ratio", "volume_share", "price_limit", "maintenance_margin"),
    *(*_RATIOS, "band"),
)
#: What only a run that kept an account may have paid, or received, beside its trades' fees.
_OF_ACCOUNTS = ("impact", "financing", "borrow", "interest", "dividends", "currency")


def exposure(report: Report) -> dict[str, Any] | None:
    """Return gross and net exposure and the number of holdings wherever a weight changes.

    Returns
    -------
    dict or None
        ``days`` and, from each of them on, ``gross`` (sum of the absolute target weights), ``net``
        (their sum) and ``count``; the last day of the table is always there. None for an empty
        table.
    """
    table = np.nan_to_num(report.position.to_numpy(dtype=np.float64))
    if not table.size:
        return None
    changed = np.flatnonzero((table[1:] != table[:-1]).any(axis=1)) + 1
    rows = np.unique(np.concatenate([[0], changed, [len(table) - 1]]))
    kept = table[rows]
    return {
        "days": wall_days(report.position.index[rows]).tolist(),
        "gross": np.round(np.abs(kept).sum(axis=1), 4).tolist(),
        "net": np.round(kept.sum(axis=1), 4).tolist(),
        "count": np.count_nonzero(kept, axis=1).tolist(),
        "time_in_market": float(np.mean((table != 0).any(axis=1))),
        "mean_gross": float(np.abs(table).sum(axis=1).mean()),
        "mean_net": float(table.sum(axis=1).mean()),
        "mean_count": float(np.count_nonzero(table, axis=1).mean()),
        "max_count": int(np.count_nonzero(kept, axis=1).max()),
    }


def yearly_activity(report: Report) -> list[dict[str, Any]]:
    """Return for each year of the curve its turnover and the trades entered and left in it.

    The turnover is that of `corvex.turnover`: half of what was bought and sold over the equity.
    """
    from corvex.explain.attribution import (
        turnover,  # it needs the simulation, which needs the report
    )

    entered = _count_by_year(report.trades, "entry_date")
    left = _count_by_year(report.trades, "exit_date")
    moved = turnover(report, "YE")["turnover"]
    return [
        {
            "year": str(date.year),
            "turnover": float(share),
            "entered": entered.get(str(date.year), 0) if entered is not None else None,
            "left": left.get(str(date.year), 0) if left is not None else None,
        }
        for date, share in zip(moved.index, moved, strict=True)
    ]


def _count_by_year(trades: pd.DataFrame, column: str) -> dict[str, int] | None:
    if column not in trades.columns:
        return None
    years = pd.DatetimeIndex(trades[column].dropna()).year
    labels, counts = np.unique(np.asarray(years), return_counts=True)
    return {str(label): int(n) for label, n in zip(labels, counts, strict=True)}


def costs(report: Report) -> dict[str, Any]:
    """Return what trading cost: rates, totals in units of the first equity, yearly turnover.

    A figure that the report does not know is None.
    """
    totals = getattr(report, "costs", None)
    totals = totals if isinstance(totals, dict) else {}
    settings = _settings(report)
    given = {
        "fee_ratio": report.fee_ratio,
        "tax_ratio": report.tax_ratio,
        "slippage_ratio": settings.get("slippage_ratio"),
    }
    return {
        **{name: _rate(settings, name, value) for name, value in given.items()},
        "turnover": _number(getattr(report, "yearly_turnover", None)),
        **{name: _number(totals.get(name)) for name in ("fees", "tax", "slippage", "total")},
        **{name: _number(totals[name]) for name in _OF_ACCOUNTS if name in totals},
    }


def _rate(settings: dict[str, Any], name: str, value: Any) -> float | str | None:
    """Return a cost ratio, or how the account of the run has it instead, such as "by asset"."""
    terms = settings.get("account") or {}
    if name == "fee_ratio" and "fee_table" in terms:
        return "by value"
    of_account = terms.get(name)
    if isinstance(of_account, dict | str):
        return "by asset" if isinstance(of_account, dict) else of_account
    return _number(value)


def assumptions(report: Report) -> list[dict[str, Any]]:
    """Return the settings of the run: ``key``, ``value``, and whether it is a ``fraction``."""
    settings = _settings(report)
    trade_at = report.trade_at
    rows = {
        "trade_at": trade_at if trade_at is None or isinstance(trade_at, str) else "custom",
        "resample": _rule(getattr(report, "resample", None)),
        "resample_offset": settings.get("resample_offset"),
        "fee_ratio": _number(report.fee_ratio),
        "tax_ratio": _number(report.tax_ratio),
        "slippage_ratio": _number(settings.get("slippage_ratio")),
        **{stop: _number(getattr(report, stop, None)) for stop in STOPS},
        "touched_exit": settings.get("touched_exit"),
        "stop_cooldown": settings.get("stop_cooldown") or None,
        "position_limit": _number(settings.get("position_limit")),
        "leverage": settings.get("leverage"),
        "market_chosen": settings.get("market_chosen"),
    }
    terms = settings.get("account") or {}
    in_terms = [name for name in _RATIOS if name in terms]
    rows |= dict.fromkeys([*in_terms, *(["fee_ratio"] if "fee_table" in terms else [])])
    rows |= {
        f"account_{name}": _term(name, value) for name, value in terms.items() if name != "latest"
    }
    fractions = {*STOPS, *_RATIOS, "position_limit", *(f"account_{name}" for name in _FRACTIONS)}
    return [
        {"key": key, "value": value, "fraction": key in fractions and not isinstance(value, str)}
        for key, value in rows.items()
        if value is not None
    ]


def _term(name: str, value: Any) -> Any:
    """Return a term of an account as a number or as a text."""
    if name == "fee_table":
        return ", ".join(f"{start:,g}: {ratio * 100:g}%" for start, ratio in value.items())
    if isinstance(value, dict) and name in ("min_fee", "fee_per_share"):
        return ", ".join(f"{amount:,g} {code}" for code, amount in value.items())
    if isinstance(value, dict) and name in ("currency", "fx"):
        return ", ".join(sorted({*map(str, value.values() if name == "currency" else value)}))
    if isinstance(value, dict):
        return "by value" if name == "price_ticks" else "by asset"
    return value


def liquidity(report: Report) -> dict[str, Any] | None:
    """Return how much of the market's trading the strategy needs; None where nothing is known."""
    from corvex.analysis.liquidityAnalysis import LiquidityAnalysis

    found = LiquidityAnalysis().analyze(report)
    fills = any(row["fills"] for row in found["turnover"])
    ratios = {name: value for name, value in found.items() if name not in ("turnover", "capacity")}
    if not fills and not any(value is not None for value in ratios.values()):
        return None
    return {
        "turnover": found["turnover"] if fills else [],
        "capacity": [row for row in found["capacity"] if row["capital"] is not None],
        "ratios": {name: value for name, value in ratios.items() if value is not None},
    }


def _settings(report: Report) -> dict[str, Any]:
    settings = getattr(report, "settings", None)
    return settings if isinstance(settings, dict) else {}


def _number(value: Any) -> float | None:
    try:
        number = float(value)
    except (TypeError, ValueError):
        return None
    return number if np.isfinite(number) else None


def _rule(resample: Any) -> str | None:
    """Return a rebalance rule as text: the frequency, or the span of the listed dates."""
    if resample is None or isinstance(resample, str):
        return resample
    days = [day for day in map(day_of, resample) if day is not None]
    return f"{len(days)} × {iso_day(min(days))} – {iso_day(max(days))}" if days else None
