"""The tables of a comparison."""

from __future__ import annotations

from dataclasses import dataclass, field

import numpy as np
import pandas as pd

from corvex.core.dashboard.figures.curve_series import RISK_FREE_RATE, wall_days
from corvex.core.dashboard.figures.risk_figures import risk_figures
from corvex.ffn_core import PerformanceStats
from corvex.ffn_core.catalogue import catalogue
from corvex.tables.frames import arrow_stream

__all__ = ["RISK_FREE_RATE", "ComparedTables"]


@dataclass(frozen=True, eq=False, repr=False)
class ComparedTables:
    """Reports side by side, as tables.

    Attributes
    ----------
    curves : DataFrame
        Value of each report, 1.0 at the first common date; common dates x reports.
    runs : DataFrame
        What each report is, reports x ``start``, ``end`` (ISO dates of its whole curve),
        ``market``, ``trades`` (number of them), ``fee_ratio`` and ``tax_ratio`` (NaN where an
        account has them by asset, by date or by value).
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

    def __arrow_c_stream__(self, requested_schema: object | None = None) -> object:
        """Hand the figures to other libraries, a row for each report and a column a figure."""
        return arrow_stream(self.figures.T.rename_axis("report"), requested_schema)

    @property
    def ranking(self) -> list[str]:
        """The reports' names, that of the largest Sharpe ratio first, those without one last."""
        ratios = -self.figures.loc["daily_sharpe"].to_numpy(dtype=np.float64)
        return [str(self.figures.columns[i]) for i in np.argsort(ratios, kind="stable")]


def _figures(curve: pd.Series, riskfree_rate: float) -> dict[str, float]:
    stats = PerformanceStats(curve, riskfree_rate)
    risk = risk_figures(curve.to_numpy(), wall_days(curve.index))
    return {
        # A curve that is worth nothing from the first common date on has none of them.
        name: risk[name] if name in risk else getattr(stats, name, np.nan)
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
