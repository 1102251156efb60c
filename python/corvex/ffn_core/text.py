"""Performance figures as text."""

from __future__ import annotations

import math
from collections.abc import Mapping, Sequence
from typing import Any, Protocol

import pandas as pd

_GAP = "  "
# Short titles, for columns beside each other.
_SUMMARY_TITLES = {
    "total_return": "Total return",
    "cagr": "CAGR",
    "max_drawdown": "Max drawdown",
    "calmar": "Calmar",
    "daily_sharpe": "Sharpe",
}
_DRAWDOWN_TITLES = {"max_drawdown": "max", "avg_drawdown": "avg", "avg_drawdown_days": "avg days"}
_SHARE_TITLES = {
    "avg_up_month": "avg up month",
    "avg_down_month": "avg down month",
    "win_year_perc": "winning years",
    "twelve_month_win_perc": "winning 12 months",
}
_LOOKBACK_TITLES = {
    "mtd": "mtd",
    "three_month": "3m",
    "six_month": "6m",
    "ytd": "ytd",
    "one_year": "1y",
    "three_year": "3y",
    "five_year": "5y",
    "ten_year": "10y",
    "incep": "incep.",
}
_FREQUENCIES = {"daily": "day", "monthly": "month", "yearly": "year"}


class Figures(Protocol):
    """What is told of one curve; `PerformanceStats` has it."""

    @property
    def name(self) -> Any: ...

    @property
    def stats(self) -> pd.Series: ...

    @property
    def convention(self) -> str: ...

    @property
    def rf(self) -> float: ...

    @property
    def start(self) -> pd.Timestamp: ...

    @property
    def end(self) -> pd.Timestamp: ...

    @property
    def bar(self) -> str: ...


def performance(stats: Figures) -> str:
    """Return the figures of one curve in blocks, with the convention they follow."""
    figures = stats.stats
    summary = {title: show(key, figures[key]) for key, title in _SUMMARY_TITLES.items()}
    drawdowns = {title: show(key, figures[key]) for key, title in _DRAWDOWN_TITLES.items()}
    shares = {title: show(key, figures[key]) for key, title in _SHARE_TITLES.items()}
    lookback = {title: show(key, figures[key]) for key, title in _LOOKBACK_TITLES.items()}
    heading = "Statistics" if stats.name is None else f"Statistics of {stats.name}"
    return "\n".join(
        [
            f"{heading}, {span(stats)}",
            f"{stats.convention} Risk-free rate {percent(stats.rf)} a year.",
            "",
            "Summary",
            *_record(summary),
            "",
            "Returns up to the end (3 years and more: per year)",
            *_record(lookback),
            "",
            "By period (mean, vol, sharpe and sortino: per year)",
            *_by_period(figures),
            "",
            "Drawdowns",
            *_record(drawdowns),
            "",
            "Months and years",
            *_record(shares),
        ]
    )


def group(members: Mapping[Any, Figures]) -> str:
    """Return a table with a row for each figure and a column for each curve."""
    rows: list[list[str]] = [["", *(str(label) for label in members)]]
    if not members:
        return "no curves"
    first = next(iter(members.values()))
    for name in first.stats.index:
        rows.append([name, *(show(name, one.stats[name]) for one in members.values())])
    return "\n".join(_aligned(rows))


def lookbacks(members: Mapping[Any, Figures]) -> str:
    """Return a table of the returns up to the end, a row for each curve."""
    rows = [["", *_LOOKBACK_TITLES.values()]]
    for label, one in members.items():
        cells = [show(key, one.stats[key]) for key in _LOOKBACK_TITLES]
        rows.append(["" if label is None else str(label), *cells])
    return "\n".join(_aligned(rows))


def return_table(table: pd.DataFrame) -> str:
    """Return the monthly and yearly returns in percent, a row for each year."""
    rows = [["", *(str(column) for column in table.columns)]]
    for year, row in zip(table.index, table.to_numpy(), strict=True):
        rows.append([str(year), *(percent(cell) for cell in row)])
    return "\n".join(_aligned(rows))


def convention(bar: str, periods: int, weekends: bool, given: bool) -> str:
    """Return how figures are annualised, as a sentence."""
    if periods == 0:
        return "Too few values to tell the bars."
    if given:
        return f"Bars: {bar}; {periods} a year, as given."
    if bar not in ("daily", "intraday"):
        return f"Bars: {bar}; {periods} a year."
    year = "bars at weekends" if weekends else "no bars at weekends"
    read = "read at each day's last value; " if bar == "intraday" else ""
    return f"Bars: {bar}; {read}{periods} days a year ({year})."


def span(stats: Figures) -> str:
    """Return "first date to last date", with times where the bars are shorter than a day."""
    if pd.isna(stats.start):
        return "no values"
    form = "%Y-%m-%d %H:%M" if stats.bar == "intraday" else "%Y-%m-%d"
    return f"{stats.start.strftime(form)} to {stats.end.strftime(form)}"


def percent(value: float) -> str:
    """Return a fraction as percent with two decimals, "-" when it is missing."""
    return "-" if math.isnan(value) else f"{value * 100:.2f}%"


def _by_period(figures: pd.Series) -> list[str]:
    rows = [["", *_FREQUENCIES]]
    for kind in ("sharpe", "sortino", "mean", "vol", "skew", "kurt"):
        names = [f"{frequency}_{kind}" for frequency in _FREQUENCIES]
        rows.append([kind, *(show(name, figures[name]) for name in names)])
    for kind in ("best", "worst"):
        names = [f"{kind}_{unit}" for unit in _FREQUENCIES.values()]
        rows.append([kind, *(show(name, figures[name]) for name in names)])
    return _aligned(rows)


def _record(cells: dict[str, str]) -> list[str]:
    return _aligned([["", *cells], ["", *cells.values()]])


def _aligned(rows: Sequence[Sequence[str]]) -> list[str]:
    """Right-align every column but the first."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = []
    for row in rows:
        cells = [row[0].ljust(widths[0])]
        cells += [cell.rjust(width) for cell, width in zip(row[1:], widths[1:], strict=True)]
        lines.append(_GAP.join(cells).rstrip())
    return lines


def show(name: str, value: Any) -> str:
    """Return a figure's value as text; the list of figures is read with the first one."""
    from corvex.ffn_core import catalogue

    return catalogue.show(name, value)
