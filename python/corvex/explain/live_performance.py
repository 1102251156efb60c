"""The figures of the time traded live beside those of the backtest before it."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core.benchmarks import known_benchmark, moves
from corvex.ffn_core.catalogue import catalogue
from corvex.ffn_core.curve_figures import fit
from corvex.markets.stamps import in_zone, is_date

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["live_figures"]


def live_figures(report: Report, riskfree_rate: float = 0.02) -> pd.DataFrame:
    """Return the figures of the live part of a report beside those of its backtest.

    Parameters
    ----------
    report : Report
        A report whose ``live_performance_start`` is set.
    riskfree_rate : float, default 0.02
        Per year, a fraction.

    Returns
    -------
    DataFrame, figures x parts
        The parts are "backtest" and "live"; where the benchmark moves, also
        "benchmark backtest" and "benchmark live" over the same dates. The figures: ``days``
        (returns that count), `total_return`, ``cagr``, ``daily_vol``, ``daily_sharpe``,
        ``daily_sortino``, ``max_drawdown`` and ``calmar`` as the statistics define them,
        ``alpha`` and ``beta`` as `Metrics` does, and of the closed trades entered in the part
        ``trades``, ``win_ratio`` and ``expectancy``. NaN where a part is too short for a figure.

    Raises
    ------
    ValueError
        When the report has no ``live_performance_start``.

    Notes
    -----
    The live part begins with the return made on the start's date, counted from the value before
    it. So the parts share no return, none is lost, and their total returns compound to that of
    the whole curve.
    """
    start = getattr(report, "live_performance_start", None)
    if start is None or pd.isna(start):
        raise ValueError(
            "the report has no live part: set report.live_performance_start to its first date"
        )
    curve = report.daily_creturn
    day = _as_dated(pd.Timestamp(start), curve.index)
    cut = int(curve.index.searchsorted(day))
    bounds = {"backtest": slice(0, cut), "live": slice(max(cut - 1, 0), None)}
    benchmark = known_benchmark(report)
    columns: dict[str, dict[str, float]] = {}
    for name, rows in bounds.items():
        columns[name] = {
            **_curve_figures(curve.iloc[rows], riskfree_rate),
            **dict(zip(("alpha", "beta"), _fit(curve.iloc[rows], benchmark), strict=True)),
            **_trade_figures(report, day, live=name == "live"),
        }
    if moves(benchmark):
        for name, rows in bounds.items():
            columns[f"benchmark {name}"] = _curve_figures(benchmark.iloc[rows], riskfree_rate)
    return pd.DataFrame(columns, dtype=float)


def _as_dated(day: pd.Timestamp, index: pd.Index) -> pd.Timestamp:
    """Bring a date, or a moment, to the form of an index: the daily curve's dates are midnights."""
    zone = getattr(index, "tz", None)
    if day.tz is not None and zone is not None and not is_date(day):
        day = day.tz_convert(zone)
    return in_zone(pd.DatetimeIndex([day.tz_localize(None).normalize()]), zone)[0]


def _curve_figures(curve: pd.Series, riskfree_rate: float) -> dict[str, float]:
    days = {"days": float(max(curve.notna().sum() - 1, 0))}
    names = catalogue().views["live"]
    if days["days"] < 1:
        return days | dict.fromkeys(names, math.nan)
    stats = curve.calc_stats()
    stats.set_riskfree_rate(riskfree_rate)
    return days | {name: float(stats.stats[name]) for name in names}


def _fit(curve: pd.Series, benchmark: pd.Series) -> tuple[float, float]:
    if len(curve) < 2:
        return math.nan, math.nan
    return fit(curve, benchmark)


def _trade_figures(report: Report, day: pd.Timestamp, *, live: bool) -> dict[str, float]:
    from corvex.trades.trade_rows import closed_trades

    trades = closed_trades(report)
    returns = np.empty(0)
    if "entry_date" in trades.columns:
        entry = pd.DatetimeIndex(trades["entry_date"])
        later = (entry >= _as_dated(day, entry)) == live
        returns = trades["return"].to_numpy(dtype=np.float64)[later]
    win, expectancy, _ = _engine.trade_figures(returns)
    return {
        "trades": float(returns.size),
        "win_ratio": win if returns.size else math.nan,
        "expectancy": expectancy,
    }
