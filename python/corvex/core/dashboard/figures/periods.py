"""Named crises, best and worst periods, and the live part, each against the benchmark."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any

import numpy as np

from corvex.core.dashboard.figures.curve_series import Curves, Floats, changes, day_of, iso_day
from corvex.core.dashboard.figures.return_figures import month_end_returns
from corvex.explain.live_performance import live_figures
from corvex.ffn_core.catalogue import catalogue

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["best_and_worst", "crises", "live_part"]

# Closing high and low of the S&P 500 around each event, both dates included; September 11 counts
# from the last close before it. They are fixed in advance and not fitted to the strategy, whose own
# worst time may lie elsewhere.
_STOCK_CRISES = (
    ("gulf_war", "1990-07-16", "1990-10-11"),
    ("asia_1997", "1997-10-07", "1997-10-27"),
    ("russia_ltcm", "1998-07-17", "1998-08-31"),
    ("dotcom", "2000-03-24", "2002-10-09"),
    ("september_11", "2001-09-10", "2001-09-21"),
    ("financial_crisis", "2007-10-09", "2009-03-09"),
    ("euro_2010", "2010-04-23", "2010-07-02"),
    ("us_downgrade", "2011-07-22", "2011-10-03"),
    ("china_2015", "2015-08-10", "2015-08-25"),
    ("oil_2016", "2015-11-03", "2016-02-11"),
    ("volatility_2018", "2018-01-26", "2018-02-08"),
    ("late_2018", "2018-09-20", "2018-12-24"),
    ("covid", "2020-02-19", "2020-03-23"),
    ("inflation_2022", "2022-01-03", "2022-10-12"),
    ("carry_2024", "2024-07-16", "2024-08-05"),
    ("tariffs_2025", "2025-02-19", "2025-04-08"),
)
# The same of bitcoin in US dollars, days in UTC.
_CRYPTO_CRISES = (
    ("crypto_2018", "2017-12-16", "2018-12-15"),
    ("covid", "2020-02-13", "2020-03-12"),
    ("china_ban", "2021-05-08", "2021-07-20"),
    ("terra", "2022-05-05", "2022-06-18"),
    ("ftx", "2022-11-05", "2022-11-21"),
)


def crises(curves: Curves, crypto: bool) -> list[dict[str, Any]]:
    """Return the crises that the curve covers whole, in the order of time.

    Returns
    -------
    list of dict
        ``key`` of the name, ``start`` and ``end`` (ISO dates), the returns ``strategy`` and
        ``benchmark`` from close to close, and ``drawdown``, the strategy's largest inside.
    """
    rows = []
    for key, start, end in _CRYPTO_CRISES if crypto else _STOCK_CRISES:
        span = curves.rows(_day(start), _day(end))
        if span is not None and span[1] > span[0]:
            rows.append({"key": key, "start": start, "end": end, **_between(curves, *span)})
    return rows


def _day(text: str) -> int:
    return int(np.datetime64(text, "D").astype(np.int64))


def _between(curves: Curves, first: int, last: int) -> dict[str, float | None]:
    window = curves.strategy[first : last + 1]
    top = np.maximum.accumulate(window)
    return {
        "strategy": _gain(curves.strategy, first, last),
        "benchmark": None if curves.benchmark is None else _gain(curves.benchmark, first, last),
        "drawdown": float((window / top - 1).min()) if window[0] > 0 else math.nan,
    }


def _gain(values: Floats, first: int, last: int) -> float:
    """The return between two rows; NaN from a value of 0, which a ruined strategy has."""
    return float(values[last] / values[first] - 1) if values[first] > 0 else math.nan


def best_and_worst(curves: Curves, count: int = 5) -> dict[str, Any]:
    """Return the best and worst days and months of the strategy, with the benchmark's return.

    Returns
    -------
    dict
        For "daily" and "monthly": ``best`` and ``worst``, lists of ``label`` (ISO date or month),
        ``strategy`` and ``benchmark``. The month of the curve's start does not compete.
    """
    daily_labels = curves.days[1:]
    own, months = month_end_returns(curves.strategy, curves.days)
    daily_market = monthly_market = None
    if curves.benchmark is not None:
        daily_market = changes(curves.benchmark)
        monthly_market = month_end_returns(curves.benchmark, curves.days)[0]
    days = _extremes(changes(curves.strategy), daily_market, daily_labels, count)
    for row in (*days["best"], *days["worst"]):
        row["label"] = iso_day(row["label"])
    return {"daily": days, "monthly": _extremes(own, monthly_market, months, count)}


def _extremes(own: Floats, market: Floats | None, labels: Any, count: int) -> dict[str, Any]:
    known = np.flatnonzero(np.isfinite(own))
    order = known[np.argsort(own[known], kind="stable")]
    gains = [i for i in order[::-1][:count] if own[i] > 0]
    losses = [i for i in order[:count] if own[i] < 0]

    def row(i: int) -> dict[str, Any]:
        paired = None if market is None else float(market[i])
        return {"label": labels[i], "strategy": float(own[i]), "benchmark": paired}

    return {"best": [row(i) for i in gains], "worst": [row(i) for i in losses]}


def live_part(report: Report, curves: Curves, rate: float) -> dict[str, Any] | None:
    """Compare the live part with the backtest before it; None where no live part is known.

    Returns
    -------
    dict
        ``start`` (day since 1970-01-01) and ``parts``: "backtest" and "live" with ``from`` and
        ``to`` as ISO dates and the figures of `corvex.live_figures`, by their names in the
        catalogue. The live part counts from the last value before its start, so that no day is lost
        between the two; a part without two values is left out.
    """
    start = day_of(getattr(report, "live_performance_start", None))
    if start is None or not len(curves.days) or start > curves.days[-1]:
        return None
    figures = live_figures(report, rate)
    split = int(np.searchsorted(curves.days, start))
    spans = {"backtest": (0, split), "live": (max(split - 1, 0), len(curves.days))}
    parts = {
        name: {
            "from": iso_day(curves.days[first]),
            "to": iso_day(curves.days[last - 1]),
            **{_page_name(str(key)): value for key, value in figures[name].items()},
        }
        for name, (first, last) in spans.items()
        if last - first >= 2
    }
    return {"start": max(start, int(curves.days[0])), "parts": parts}


def _page_name(figure: str) -> str:
    """Return what the page calls a figure, which is how it finds the label."""
    known = catalogue().find(figure)
    return figure if known is None else known.name
