"""Returns by year and month, and their distribution."""

from __future__ import annotations

import datetime
import math
from collections.abc import Mapping
from typing import Any

import numpy as np

from corvex import _engine
from corvex.core.dashboard.figures.curve_series import Curves, Days, Floats, changes

__all__ = ["distribution", "month_end_returns", "next_weekday", "return_years"]

_TAILS = (0.05, 0.01)
_BINS = 240


def return_years(
    curves: Curves,
    table: Mapping[Any, Mapping[Any, float]],
    benchmark: Mapping[Any, Mapping[Any, float]] | None,
) -> dict[str, Any]:
    """Arrange the returns by year and month, oldest year first.

    Parameters
    ----------
    table, benchmark : mapping of year to mapping of month (1 to 12) and "YTD" to return
        As the statistics give it; a month without a value is NaN or absent.

    Returns
    -------
    dict
        ``years``: rows of ``year``, ``months`` (12 fractions, None where the curve has no such
        month), ``total``, ``benchmark`` (the same for the benchmark, or None) and where they
        apply ``from`` and ``to``, the ISO dates that bound a year known in part. ``partial``:
        the months ("2024-03") that the curve does not hold whole.
    """
    first, last = _date(curves.days[0]), _date(curves.days[-1])
    market_days = curves.days
    if curves.benchmark is not None:
        market_days = market_days[np.isfinite(curves.benchmark)]
    rows = []
    for year in sorted(int(label) for label in table):
        months = _months(table, year, curves.days)
        row: dict[str, Any] = {"year": year, "months": months[:12], "total": months[12]}
        row["benchmark"] = None
        if benchmark is not None and year in benchmark:
            market = _months(benchmark, year, market_days)
            row["benchmark"] = {"months": market[:12], "total": market[12]}
        if year == first.year:
            row["from"] = first.isoformat()
        if year == last.year and next_weekday(last).year == year:
            row["to"] = last.isoformat()
        rows.append(row)
    return {"years": rows, "partial": _partial_months(first, last)}


def _months(table: Mapping[Any, Mapping[Any, float]], year: int, days: Days) -> list[float | None]:
    """The months of a year and the year, blank where the curve's start is the only value."""
    cells = [_known(table[year].get(column, math.nan)) for column in (*range(1, 13), "YTD")]
    start, following = (_date(day) for day in (days[0], days[min(1, len(days) - 1)]))
    if start.year == year and (following.year, following.month) != (year, start.month):
        cells[start.month - 1] = None
        if following.year != year:
            cells[12] = None
    return cells


def _known(value: float) -> float | None:
    return float(value) if math.isfinite(value) else None


def _date(day: int) -> datetime.date:
    return datetime.date.fromordinal(int(day) + 719_163)


def next_weekday(date: datetime.date) -> datetime.date:
    """Return the first of Monday to Friday after a date."""
    step = 3 if date.weekday() == 4 else 2 if date.weekday() == 5 else 1
    return date + datetime.timedelta(days=step)


def _partial_months(first: datetime.date, last: datetime.date) -> list[str]:
    months = {f"{first:%Y-%m}"}  # it counts from its own first value, not from the month before
    if next_weekday(last).month == last.month:
        months.add(f"{last:%Y-%m}")
    return sorted(months)


def month_end_returns(values: Floats, days: Days) -> tuple[Floats, list[str]]:
    """Return the monthly returns of a curve and their months, the month of its start left out."""
    ends = _month_ends(days)
    months = days[ends].astype("datetime64[D]").astype("datetime64[M]")
    return changes(values[ends]), [str(month) for month in months[1:]]


def _month_ends(days: Days) -> np.ndarray[Any, Any]:
    months = days.astype("datetime64[D]").astype("datetime64[M]")
    return np.flatnonzero(np.append(months[1:] != months[:-1], True))


def distribution(curves: Curves) -> dict[str, Any]:
    """Describe the returns by day and by month.

    Returns
    -------
    dict
        For "daily" and "monthly": ``edges`` of the bins and their ``strategy`` and ``benchmark``
        counts, the ``view`` that holds 99.8 % of the returns, and ``tails``: for each share (5 %,
        1 %) the historical value at risk ``var`` (the quantile, interpolated linearly) and
        ``cvar`` (the mean of that lowest share, the lowest ``floor(share (n - 1)) + 1`` of n
        returns), for both. A frequency with fewer than ten returns is left out.
    """
    result = {}
    rows = {"daily": np.arange(len(curves.days)), "monthly": _month_ends(curves.days)}
    for name, chosen in rows.items():
        own = curves.strategy[chosen]
        market = None if curves.benchmark is None else curves.benchmark[chosen]
        if _returns(own).size >= 10:
            result[name] = _describe(own, market)
    return result


def _returns(values: Floats) -> Floats:
    found = changes(values)
    return found[np.isfinite(found)]


def _describe(values: Floats, benchmark: Floats | None) -> dict[str, Any]:
    own, market = _returns(values), None if benchmark is None else _returns(benchmark)
    both = own if market is None else np.concatenate([own, market])
    low, high = float(both.min()), float(both.max())
    bins = _bin_count(own, high - low)
    edges = np.linspace(low, high if high > low else low + 1e-6, bins + 1)
    return {
        "count": int(own.size),
        "view": [float(edge) for edge in np.quantile(both, [0.001, 0.999])],
        "edges": [round(float(edge), 6) for edge in edges],
        "strategy": np.histogram(own, edges)[0].tolist(),
        "benchmark": None if market is None else np.histogram(market, edges)[0].tolist(),
        "tails": [
            {"share": share, "strategy": _tail(values, share), "benchmark": _tail(benchmark, share)}
            for share in _TAILS
        ],
    }


def _bin_count(returns: Floats, span: float) -> int:
    """Return how many bins of the width of Freedman and Diaconis (1981) cover the span."""
    quartiles = np.quantile(returns, [0.25, 0.75])
    width = 2 * float(quartiles[1] - quartiles[0]) / returns.size ** (1 / 3)
    return int(min(max(span / width, 10), _BINS)) if width > 0 else 10


def _tail(values: Floats | None, share: float) -> dict[str, float] | None:
    if values is None:
        return None
    at_risk, shortfall, _ = _engine.tail_risk(np.ascontiguousarray(values), share)
    return {"var": at_risk, "cvar": shortfall}
