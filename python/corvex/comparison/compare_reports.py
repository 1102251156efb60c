"""Several reports side by side, over the time that all of them cover."""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping

import numpy as np
import pandas as pd

from corvex.comparison.compared_tables import RISK_FREE_RATE, ComparedTables
from corvex.comparison.comparison_page import comparison_html
from corvex.comparison.comparison_text import comparison_text
from corvex.core.dashboard.figures.activity import costs
from corvex.core.dashboard.figures.curve_series import wall_days
from corvex.core.report import Report
from corvex.utils import write_text

__all__ = ["Comparison", "compare"]


class Comparison(ComparedTables):
    """What `compare` returns. In a notebook it shows itself as its page.

    It has the tables of `ComparedTables`: ``figures``, ``yearly_returns``, ``correlation``,
    ``curves``, ``runs``, and the ``riskfree_rate`` that the figures count with.
    """

    def to_html(self, path: str | os.PathLike[str], title: str | None = None) -> None:
        """Write the page: one file that opens from a disk and loads nothing.

        Parameters
        ----------
        path : path
            The file; it is written whole or not at all.
        title : str, optional
            Title of the browser tab and of the page; the reports' names by default.
        """
        write_text(path, comparison_html(self, title=title))

    def _repr_html_(self) -> str:
        return comparison_html(self, with_iframe=True)

    def to_text(self) -> str:
        """Return the three tables as text: figures, returns in percent, correlation.

        Up to six reports stand side by side with all figures. More are ranked by their Sharpe
        ratios, a line for each; the other tables are then those of the first ten.
        """
        return comparison_text(self)

    def __repr__(self) -> str:
        return self.to_text()


def compare(
    reports: Mapping[str, Report] | Iterable[Report], riskfree_rate: float = RISK_FREE_RATE
) -> Comparison:
    """Set several reports side by side.

    Parameters
    ----------
    reports : mapping of name to Report, or iterable of Report
        At least two. Without a mapping the reports' own names count; a report without a name is
        called "report 1" by its place, and a name that occurs again gets a number: "name (2)".
    riskfree_rate : float, default 0.02
        Per year, a fraction.

    Returns
    -------
    Comparison
        Tables (``figures``, ``yearly_returns``, ``correlation``, ``curves``, ``runs``) and a page
        (``to_html``). All figures are of the common dates: the days on which every report has a
        value. Nothing outside of them counts, so that a longer history is no advantage.

    Raises
    ------
    TypeError
        For anything that is not a report.
    ValueError
        For fewer than two reports, and for reports with fewer than three dates in common.

    Notes
    -----
    Figures are those of `corvex.ffn_core.PerformanceStats`.
    Common dates on weekdays only are annualised with 252 days, also for a crypto report, which
    then has its weekends in its Mondays.

    Examples
    --------
    >>> import pandas as pd, corvex
    >>> days = pd.bdate_range("2024-01-01", periods=4)
    >>> up = corvex.from_equity(pd.Series([1.0, 1.1, 1.0, 1.2], days), name="up")
    >>> flat = corvex.from_equity(pd.Series([5.0, 5.1, 5.0, 5.0], days), name="flat")
    >>> corvex.compare([up, flat]).figures.loc["total_return"].round(2).to_dict()
    {'up': 0.2, 'flat': 0.0}
    """
    named = _named(reports)
    curves = {name: _curve(report) for name, report in named.items()}
    common = pd.concat(curves, axis="columns", join="inner").dropna()
    if len(common) < 3:
        periods = ", ".join(
            f"{name!r} covers {curve.index[0]:%Y-%m-%d} to {curve.index[-1]:%Y-%m-%d}"
            if len(curve)
            else f"{name!r} has no values"
            for name, curve in curves.items()
        )
        raise ValueError(f"the reports need at least three dates in common: {periods}")
    runs = {name: _run(report, curves[name]) for name, report in named.items()}
    return Comparison(
        common / common.iloc[0], pd.DataFrame.from_dict(runs, orient="index"), riskfree_rate
    )


def _named(reports: Mapping[str, Report] | Iterable[Report]) -> dict[str, Report]:
    if isinstance(reports, Report) or not isinstance(reports, Iterable):
        raise TypeError(f"reports must be a mapping or a list, got a {type(reports).__name__}")
    if isinstance(reports, Mapping):
        pairs = [(str(name), report) for name, report in reports.items()]
    else:
        pairs = [
            (str(getattr(report, "name", None) or f"report {i}"), report)
            for i, report in enumerate(reports, start=1)
        ]
    named: dict[str, Report] = {}
    for name, report in pairs:
        if not isinstance(report, Report):
            raise TypeError(f"{name!r} is a {type(report).__name__}, not a Report")
        named[_unused(name, named)] = report
    if len(named) < 2:
        raise ValueError(f"a comparison needs at least two reports, got {len(named)}")
    return named


def _unused(name: str, taken: Mapping[str, Report]) -> str:
    unused, number = name, 1
    while unused in taken:
        number += 1
        unused = f"{name} ({number})"
    return unused


def _curve(report: Report) -> pd.Series:
    """A report's daily values on the days of its own exchange, without the missing ones."""
    curve = report.daily_creturn
    days = wall_days(curve.index).astype("datetime64[D]").astype("datetime64[s]")
    values = pd.Series(np.asarray(curve, dtype=np.float64), pd.DatetimeIndex(days))
    values = values[~values.index.duplicated(keep="last")]
    return values[np.isfinite(values)]


def _run(report: Report, curve: pd.Series) -> dict[str, object]:
    paid = costs(report)
    rates = {name: paid[name] for name in ("fee_ratio", "tax_ratio")}
    return {
        "start": f"{curve.index[0]:%Y-%m-%d}",
        "end": f"{curve.index[-1]:%Y-%m-%d}",
        "market": str(report.market.get_name()),
        "trades": len(report.trades),
        # An account may have more than one.
        **{name: rate if isinstance(rate, float) else np.nan for name, rate in rates.items()},
    }
