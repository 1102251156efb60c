"""The page of a comparison: one self-contained HTML string."""

from __future__ import annotations

import datetime
from typing import Any

import pandas as pd

import corvex
from corvex.comparison.compared_tables import ComparedTables
from corvex.core.dashboard.embed import plain, rounded
from corvex.core.dashboard.figures.curve_series import wall_days
from corvex.core.dashboard.figures.return_figures import next_weekday
from corvex.core.dashboard.page.report_page import SHARED_MODULES, page_script, render
from corvex.ffn_core.curve_figures import days_per_year

__all__ = ["comparison_html"]

_MOST_IN_TITLE = 6
MODULES = (*SHARED_MODULES, "statistics", "sections", "curves", "compare")


def comparison_html(
    comparison: ComparedTables, with_iframe: bool = False, title: str | None = None
) -> str:
    """Render a comparison as `generate_html` renders a report."""
    names = list(map(str, comparison.curves.columns))
    if len(names) > _MOST_IN_TITLE:
        names = [*names[:2], f"… ({len(names)})"]
    heading = title or " · ".join(names)
    facts, series = plain(_facts(comparison)), _series(comparison)
    return render(heading, heading, facts, series, page_script(MODULES), with_iframe=with_iframe)


def _facts(comparison: ComparedTables) -> dict[str, Any]:
    curves = comparison.curves
    dates = pd.DatetimeIndex(curves.index)
    first, last = dates[0].date(), dates[-1].date()
    return {
        "meta": {
            "start": first.isoformat(),
            "end": last.isoformat(),
            "years": (last - first).days / 365.25,
            "days": len(dates),
            "periods": days_per_year(dates),
            "riskfree": comparison.riskfree_rate,
            "version": corvex.__version__,
            "generated": datetime.datetime.now(datetime.UTC).isoformat(timespec="seconds"),
        },
        "names": list(curves.columns),
        "order": [curves.columns.get_loc(name) for name in comparison.ranking],
        "figures": {str(key): list(row) for key, row in comparison.figures.iterrows()},
        "years": [
            _year(int(str(year)), first, last) | {"values": list(row)}
            for year, row in comparison.yearly_returns.iterrows()
        ],
        "correlation": comparison.correlation.to_numpy(),
        "runs": comparison.runs.rename_axis("name").reset_index().to_dict("records"),
    }


def _year(year: int, first: datetime.date, last: datetime.date) -> dict[str, Any]:
    """Name a year, with the dates that bound it where it is known in part."""
    row: dict[str, Any] = {"year": year}
    if year == first.year:
        row["from"] = first.isoformat()
    if year == last.year and next_weekday(last).year == year:
        row["to"] = last.isoformat()
    return row


def _series(comparison: ComparedTables) -> dict[str, Any]:
    curves = comparison.curves
    return {
        "days": wall_days(curves.index).tolist(),
        "curves": [rounded(curves[name], 7) for name in curves],
    }
