"""Figures of one curve that the statistics record does not hold."""

from __future__ import annotations

import math

import numpy as np

from corvex import _engine
from corvex.core.dashboard.figures.curve_series import Days, Floats, changes
from corvex.core.dashboard.figures.return_figures import month_end_returns

__all__ = ["risk_figures"]


def risk_figures(values: Floats, days: Days) -> dict[str, float]:
    """Describe the drawdowns and the days of a curve, as fractions unless said otherwise.

    Parameters
    ----------
    values, days : arrays of shape (rows,)
        Cumulative value, NaN where missing, and its days since 1970-01-01.

    Returns
    -------
    dict
        ``longest_drawdown_days``: most calendar days from a high to the day that reaches it
        again, or to the end. ``time_under_water``: share of the days below an earlier high.
        ``ulcer_index``: root of the mean squared drawdown (P. Martin and B. McCann, "The
        Investor's Guide to Fidelity Funds", 1989). ``tail_ratio``: 95 % over 5 % quantile of the
        daily returns, both without sign. ``omega``: sum of the daily gains over that of the
        losses (Keating and Shadwick, 2002, with a threshold of 0). ``win_day_perc`` and
        ``win_month_perc``: shares of days and months above 0. NaN where undefined; empty for
        fewer than two values.
    """
    known = np.isfinite(values)
    values, days = values[known], days[known]
    if values.size < 2:
        return {}
    fall = _engine.drawdown_curve(values)
    returns = changes(values)
    returns = returns[np.isfinite(returns)]
    months = month_end_returns(values, days)[0]
    loss = -float(returns[returns < 0].sum())
    return {
        "longest_drawdown_days": _longest_drawdown(values, days),
        "time_under_water": float(np.mean(fall < 0)),
        "ulcer_index": math.sqrt(float(np.mean(fall**2))),
        "tail_ratio": _engine.tail_risk(values)[2],
        "omega": float(returns[returns > 0].sum()) / loss if loss > 0 else math.nan,
        "win_day_perc": float(np.mean(returns > 0)) if returns.size else math.nan,
        "win_month_perc": float(np.mean(months > 0)) if months.size else math.nan,
    }


def _longest_drawdown(values: Floats, days: Days) -> float:
    rows, _ = _engine.drawdown_episodes(values)
    ends = np.where(rows[:, 3] < 0, len(days) - 1, rows[:, 3])
    return float((days[ends] - days[rows[:, 0]]).max()) if len(rows) else 0.0
