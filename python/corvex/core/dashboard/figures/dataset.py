"""All that a page shows of one report, as plain values."""

from __future__ import annotations

import datetime
import math
from collections.abc import Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np

from corvex import _engine
from corvex.core.dashboard.embed import plain, rounded
from corvex.core.dashboard.figures.account_money import (
    account_facts,
    account_series,
    benchmark_money,
)
from corvex.core.dashboard.figures.activity import (
    assumptions,
    costs,
    exposure,
    liquidity,
    yearly_activity,
)
from corvex.core.dashboard.figures.by_asset import by_asset
from corvex.core.dashboard.figures.confidence_figures import (
    confidence_figures,
    shows_confidence,
)
from corvex.core.dashboard.figures.current_holdings import freshness, holdings
from corvex.core.dashboard.figures.curve_series import (
    RISK_FREE_RATE,
    Curves,
    benchmark_figures,
    iso_day,
    read_curves,
    relative_figures,
    riskfree_of,
)
from corvex.core.dashboard.figures.periods import best_and_worst, crises, live_part
from corvex.core.dashboard.figures.return_figures import distribution, return_years
from corvex.core.dashboard.figures.risk_figures import risk_figures
from corvex.core.dashboard.figures.trade_series import (
    by_reason,
    price_paths,
    trade_columns,
    trade_figures,
)
from corvex.core.dashboard.figures.walk_figures import walk_figures
from corvex.ffn_core.curve_figures import statistics
from corvex.trades.trade_lookup import known_table

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Dataset", "collect"]

_SAMPLE_INDEX = "SP500"  # the built-in index, whose values leave dividends out
_PATH_VALUES = 60_000
_PATH_VALUES_PER_TRADE = 5  # each trade of the table takes the room of about so many path values


@dataclass(frozen=True, slots=True)
class Dataset:
    """What a page is made of.

    Attributes
    ----------
    facts : dict
        Figures, tables and texts, small.
    series : dict
        Curves, trades and the ways they went, large.
    """

    facts: dict[str, Any]
    series: dict[str, Any]


def collect(
    report: Report, riskfree_rate: float | None = None, confidence: bool | None = None
) -> Dataset:
    """Gather what a page shows of a report; the report is not changed.

    Parameters
    ----------
    riskfree_rate : float, optional
        Per year; by default the report's own ``riskfree_rate``, else 0.02.
    confidence : bool, optional
        Work out the uncertainty; by default as the report's own ``show_confidence`` says, else yes.
    """
    rate = riskfree_of(report, riskfree_rate)
    curves = read_curves(report)
    stats = statistics(report, rate)
    market = benchmark_figures(report, rate)
    held = exposure(report)
    facts = {
        "meta": _meta(report, curves, stats),
        "stats": {
            "strategy": _figures(stats) | risk_figures(curves.strategy, curves.days),
            "benchmark": _benchmark_figures(curves, market),
            "relative": relative_figures(curves),
            "trades": trade_figures(report.trades),
        },
        "returns": return_years(
            curves, stats["return_table"], None if market is None else market["return_table"]
        ),
        "distribution": distribution(curves),
        "confidence": confidence_figures(report, rate)
        if shows_confidence(report, confidence)
        else None,
        "now": _now(curves),
        "drawdowns": _drawdowns(curves, stats["drawdown_details"]),
        "crises": crises(curves, getattr(report, "asset_type", None) == "crypto"),
        "extremes": best_and_worst(curves),
        "live": live_part(report, curves, rate),
        "walk": walk_figures(report),
        "holdings": holdings(report),
        "freshness": freshness(report),
        "exposure": _exposure_figures(held),
        "activity": yearly_activity(report) if len(report.creturn) else [],
        "costs": costs(report),
        "account": account_facts(report),
        "assumptions": assumptions(report),
        "liquidity": liquidity(report),
        "assets": by_asset(report),
        "reasons": by_reason(report.trades),
    }
    return Dataset(plain(facts), _series(report, curves, held))


def _meta(report: Report, curves: Curves, stats: Mapping[str, Any]) -> dict[str, Any]:
    name = getattr(report, "name", None)
    days = curves.days
    return {
        "name": str(name) if name else None,
        "market": str(report.market.get_name()),
        "freq": str(report.market.get_freq()),
        "benchmark": _benchmark_name(report) if curves.benchmark is not None else None,
        "start": stats["start"],
        "end": stats["end"],
        "years": (int(days[-1]) - int(days[0])) / 365.25 if len(days) else math.nan,
        "days": len(days),
        "bar": stats.get("bar"),
        "periods": stats.get("periods_per_year"),
        "riskfree": stats.get("rf", RISK_FREE_RATE),
        "prices": _price_kind(report),
        "notes": _notes(report),
        "version": stats["version"],
        "generated": datetime.datetime.now(datetime.UTC).isoformat(timespec="seconds"),
        **_benchmark_span(curves),
        **_benchmark_kind(report),
    }


def _notes(report: Report) -> list[str | dict[str, str]]:
    """Return what a reader is to know beside the figures: texts, or texts by language."""
    given = getattr(report, "notes", None) or ()
    notes = [given] if isinstance(given, str | Mapping) else list(given)
    return [
        {str(language): str(text) for language, text in note.items()}
        if isinstance(note, Mapping)
        else str(note)
        for note in notes
    ]


def _benchmark_kind(report: Report) -> dict[str, Any]:
    """Tell whether the user chose the benchmark, whether it lacks dividends, and its currency."""
    source = getattr(report.market, "benchmark_source", "own")
    name = _benchmark_name(report)
    return {
        "benchmark_default": source == "default" and name is not None,
        "price_index": source in ("default", "table") and name == _SAMPLE_INDEX,
        "benchmark_money": benchmark_money(report),
    }


def _price_kind(report: Report) -> str:
    """Tell whether the trades' prices are "quoted" ones, or those that were "given"."""
    quoted = known_table(report.market, "get_price", "close", adj=False)
    adjusted = known_table(report.market, "get_price", "close", adj=True)
    alike = quoted is None or adjusted is None or quoted is adjusted or quoted.equals(adjusted)
    return "given" if alike or not isinstance(report.trade_at, str) else "quoted"


def _benchmark_name(report: Report) -> str | None:
    name = getattr(report.benchmark, "name", None)
    return name if isinstance(name, str) and name else None


def _benchmark_span(curves: Curves) -> dict[str, str | None]:
    """The benchmark's first and last date, each where the strategy goes beyond it."""
    span: dict[str, str | None] = {"benchmark_from": None, "benchmark_to": None}
    if curves.benchmark is None:
        return span
    days = curves.days[np.isfinite(curves.benchmark)]
    if days[0] > curves.days[0]:
        span["benchmark_from"] = iso_day(days[0])
    if days[-1] < curves.days[-1]:
        span["benchmark_to"] = iso_day(days[-1])
    return span


def _figures(stats: Mapping[str, Any]) -> dict[str, Any]:
    return {name: stats[name] for name in _engine.FIGURE_NAMES if name in stats}


def _benchmark_figures(curves: Curves, stats: Mapping[str, Any] | None) -> dict[str, Any] | None:
    if stats is None or curves.benchmark is None:
        return None
    known = curves.known
    return _figures(stats) | risk_figures(curves.benchmark[known], curves.days[known])


def _now(curves: Curves) -> dict[str, Any]:
    """How far the curve ends below its high, and the date of that high."""
    values = curves.strategy
    if not np.isfinite(values).any():
        return {"drawdown": None, "peak": None}
    peak = int(np.nanargmax(values))
    return {"drawdown": float(values[-1] / values[peak] - 1), "peak": iso_day(curves.days[peak])}


def _drawdowns(curves: Curves, details: list[dict[str, Any]]) -> list[dict[str, Any]]:
    """Add to each drawdown the benchmark's return over the same fall, and the days to recover."""
    return [{**row, **_beside(curves, row)} for row in details]


def _beside(curves: Curves, row: dict[str, Any]) -> dict[str, Any]:
    peak, valley = (_day(row[name]) for name in ("start", "valley"))
    span = curves.rows(peak, valley)
    benchmark = None
    if span is not None and curves.benchmark is not None:
        benchmark = float(curves.benchmark[span[1]] / curves.benchmark[span[0]] - 1)
    recovery = None if row["end"] is None else _day(row["end"]) - valley
    return {"benchmark": benchmark, "fall": valley - peak, "recovery": recovery}


def _day(date: str) -> int:
    return int(np.datetime64(date, "D").astype(np.int64))


def _exposure_figures(held: dict[str, Any] | None) -> dict[str, Any] | None:
    names = ("time_in_market", "mean_gross", "mean_net", "mean_count", "max_count")
    return None if held is None else {name: held[name] for name in names}


def _series(report: Report, curves: Curves, held: dict[str, Any] | None) -> dict[str, Any]:
    trades = report.trades
    budget = max(0, _PATH_VALUES - _PATH_VALUES_PER_TRADE * len(trades))
    names = ("days", "gross", "net", "count")
    return {
        "days": curves.days.tolist(),
        "strategy": rounded(curves.strategy, 7),
        "benchmark": None if curves.benchmark is None else rounded(curves.benchmark, 7),
        "exposure": None if held is None else {name: held[name] for name in names},
        "account": account_series(report),
        "trades": trade_columns(trades),
        "paths": price_paths(report, budget) if budget else None,
    }
