"""Several reports side by side, over the time that all of them cover."""

from __future__ import annotations

import os
from collections.abc import Iterable, Mapping
from dataclasses import dataclass, field

import numpy as np
import pandas as pd

from corvex.core.dashboard.curves import RISK_FREE_RATE, wall_days
from corvex.core.dashboard.risk_figures import risk_figures
from corvex.core.report import Report
from corvex.ffn_core import PerformanceStats
from corvex.ffn_core.catalogue import catalogue, show
from corvex.plaintext import printable, text_table
from corvex.utils import write_text

__all__ = ["RISK_FREE_RATE", "Comparison", "compare"]

_MOST_BESIDE = 6  # reports side by side with all their figures; more are ranked
_MOST_SHOWN = 10  # of the ranked ones in the tables of years and correlations


@dataclass(frozen=True, eq=False, repr=False)
class Comparison:
    """What `compare` returns. In a notebook it shows itself as its page.

    Attributes
    ----------
    curves : DataFrame
        Value of each report, 1.0 at the first common date; common dates x reports.
    runs : DataFrame
        What each report is, reports x ``start``, ``end`` (ISO dates of its whole curve),
        ``market``, ``trades`` (number of them), ``fee_ratio`` and ``tax_ratio``.
    riskfree_rate : float
        Per year, a fraction: what the figures count as earned without risk.
    figures : DataFrame
        Headline figures x reports, named as in ``Report.get_stats()``; returns are fractions.
    yearly_returns : DataFrame
        Fractional return of each calendar year x reports. The first year counts from the first
        common date (and is left out when it has no other), the last one to the last.
    correlation : DataFrame
        Pearson correlation of the returns from one common date to the next, reports x reports;
        NaN for a curve that does not move.
    """

    curves: pd.DataFrame
    runs: pd.DataFrame
    riskfree_rate: float = RISK_FREE_RATE
    figures: pd.DataFrame = field(init=False)
    yearly_returns: pd.DataFrame = field(init=False)
    correlation: pd.DataFrame = field(init=False)

    def __post_init__(self) -> None:
        columns = {name: _figures(curve, self.riskfree_rate) for name, curve in self.curves.items()}
        figures = pd.DataFrame(columns, index=list(catalogue().views["compared"]), dtype="float64")
        object.__setattr__(self, "figures", figures)
        object.__setattr__(self, "yearly_returns", _yearly_returns(self.curves))
        returns = self.curves.pct_change(fill_method=None).iloc[1:]
        object.__setattr__(self, "correlation", returns.corr())

    def to_html(self, path: str | os.PathLike[str], title: str | None = None) -> None:
        """Write the page: one file that opens from a disk and loads nothing.

        Parameters
        ----------
        path : path
            The file; it is written whole or not at all.
        title : str, optional
            Title of the browser tab and of the page; the reports' names by default.
        """
        from corvex.core.dashboard.comparison_page import comparison_html

        write_text(path, comparison_html(self, title=title))

    def _repr_html_(self) -> str:
        from corvex.core.dashboard.comparison_page import comparison_html

        return comparison_html(self, with_iframe=True)

    @property
    def ranking(self) -> list[str]:
        """The reports' names, that of the largest Sharpe ratio first, those without one last."""
        ratios = -self.figures.loc["daily_sharpe"].to_numpy(dtype=np.float64)
        return [str(self.figures.columns[i]) for i in np.argsort(ratios, kind="stable")]

    def to_text(self) -> str:
        """Return the three tables as text: figures, returns in percent, correlation.

        Up to six reports stand side by side with all figures. More are ranked by their Sharpe
        ratios, a line for each; the other tables are then those of the first ten.
        """
        dates = self.curves.index
        yearly = (100 * self.yearly_returns).round(2) + 0.0  # no -0.00
        span = f"{dates[0]:%Y-%m-%d} ~ {dates[-1]:%Y-%m-%d}, {len(dates)} common dates"
        if len(self.curves.columns) <= _MOST_BESIDE:
            chosen = [str(name) for name in self.curves]
            heads = [printable(name) for name in chosen]
            rows = self.figures.to_numpy()
            figures = text_table(
                ["", *heads],
                [
                    [str(key), *(f"{value:.4f}" for value in row)]
                    for key, row in zip(self.figures.index, rows, strict=True)
                ],
            )
        else:
            figures = self._ranked_text()
            chosen = self.ranking[:_MOST_SHOWN]
            heads = [str(rank) for rank in range(1, len(chosen) + 1)]
        correlation = self.correlation.loc[chosen, chosen].to_numpy()
        yearly_rows = [
            [str(year), *(f"{value:.2f}" for value in row)]
            for year, row in yearly[chosen].iterrows()
        ]
        correlation_rows = [
            [name, *(f"{value:.2f}" for value in row)]
            for name, row in zip(heads, correlation, strict=True)
        ]
        years = "Return by year, %\n" + text_table(["year", *heads], yearly_rows)
        pairs = "Correlation of daily returns\n" + text_table(["", *heads], correlation_rows)
        return "\n\n".join((span, figures, years, pairs))

    def _ranked_text(self) -> str:
        columns = {"cagr": "CAGR", "daily_vol": "volatility", "daily_sharpe": "Sharpe",
                   "max_drawdown": "drawdown", "total_return": "total"}  # fmt: skip
        rows = [
            [
                str(rank),
                printable(name),
                *(show(key, self.figures.at[key, name]) for key in columns),
            ]
            for rank, name in enumerate(self.ranking, start=1)
        ]
        header = ["", "by Sharpe ratio", *columns.values()]
        return text_table(header, rows, left=2, wide=28)

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
    """A report's daily values on the days of its own exchange, those above zero only."""
    curve = report.daily_creturn
    days = wall_days(curve.index).astype("datetime64[D]").astype("datetime64[s]")
    values = pd.Series(np.asarray(curve, dtype=np.float64), pd.DatetimeIndex(days))
    values = values[~values.index.duplicated(keep="last")]
    return values[np.isfinite(values)]


def _run(report: Report, curve: pd.Series) -> dict[str, object]:
    return {
        "start": f"{curve.index[0]:%Y-%m-%d}",
        "end": f"{curve.index[-1]:%Y-%m-%d}",
        "market": str(report.market.get_name()),
        "trades": len(report.trades),
        "fee_ratio": float(report.fee_ratio),
        "tax_ratio": float(report.tax_ratio),
    }


def _figures(curve: pd.Series, riskfree_rate: float) -> dict[str, float]:
    stats = PerformanceStats(curve, riskfree_rate)
    risk = risk_figures(curve.to_numpy(), wall_days(curve.index))
    return {
        name: risk[name] if name in risk else getattr(stats, name)
        for name in catalogue().views["compared"]
    }


def _yearly_returns(curves: pd.DataFrame) -> pd.DataFrame:
    years = pd.DatetimeIndex(curves.index).year
    ends = curves.groupby(years).last()
    before = ends.shift()
    before.iloc[0] = curves.iloc[0]
    returns = (ends / before - 1).rename_axis("year")
    # A first year that holds nothing but the starting value has no return.
    return returns.iloc[1:] if years[1] != years[0] else returns
