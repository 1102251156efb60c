"""The returns of a curve as the tests of skill take them."""

from __future__ import annotations

from dataclasses import dataclass
from functools import cached_property

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.ffn_core._curve import read_curve

__all__ = ["Sample", "read_sample"]

_Floats = npt.NDArray[np.float64]
_NAMES = _engine.PATH_FIGURE_NAMES
_YEAR = pd.Timedelta(days=365.25)


@dataclass(frozen=True)
class Sample:
    """Returns per bar of one curve.

    Attributes
    ----------
    returns : array of shape (bars,)
        Simple returns, none missing.
    dates : DatetimeIndex of length bars + 1
        The curve's first date, then the date on which each was made.
    periods_per_year : int
        Bars in a year, told by the dates as the statistics tell it.
    riskfree : float
        Riskless return per bar.
    """

    returns: _Floats
    dates: pd.DatetimeIndex
    periods_per_year: int
    riskfree: float

    @property
    def enough(self) -> bool:
        """Whether there is anything to draw from: two returns that are not the same."""
        return self.returns.size >= 2 and not np.isnan(self.moments[0])

    @cached_property
    def moments(self) -> tuple[float, float, float, int]:
        """Sharpe ratio per bar, skewness, kurtosis (normal: 3) and number of returns."""
        return _engine.sharpe_sample(self.returns, self.riskfree)

    @cached_property
    def years(self) -> float:
        """From the first date to the last, of 365.25 days."""
        wall = self.dates.tz_localize(None)
        return float((wall[-1] - wall[0]) / _YEAR)

    def in_years(self, figures: _Floats) -> _Floats:
        """Let time count in years, as the statistics record does, where the engine counts bars.

        Of an array of figures x or of draws x figures, named as the engine names them, the growth
        a year is worked out anew.
        """
        found = figures.copy()
        value, fall = (figures[..., _NAMES.index(name)] for name in ("final_value", "max_drawdown"))
        with np.errstate(divide="ignore", invalid="ignore", over="ignore"):
            growth = value ** (1.0 / self.years) - 1.0
            found[..., _NAMES.index("cagr")] = growth
            found[..., _NAMES.index("calmar")] = growth / np.abs(fall)
        return found

    @cached_property
    def root(self) -> float:
        """What makes a ratio per bar one per year."""
        return float(np.sqrt(self.periods_per_year))


def read_sample(curve: pd.Series, riskfree_rate: float) -> Sample:
    """Take the returns of a curve, with the conventions of the statistics record.

    Parameters
    ----------
    curve : Series
        Cumulative value by date; missing values are left out.
    riskfree_rate : float
        Per year, a fraction.

    Raises
    ------
    ValueError
        If the rate is -1 or less or not finite.
    """
    if not (np.isfinite(riskfree_rate) and riskfree_rate > -1):
        raise ValueError(f"riskfree_rate must be a finite fraction above -1, not {riskfree_rate}")
    read = read_curve(curve).present()
    periods = _engine.infer_convention(read.times)[1] or 252
    before, after = read.values[:-1], np.maximum(read.values[1:], 0.0)
    # After ruin there is nothing to earn a return on, and no more than all can be lost.
    known = np.logical_and.accumulate((before > 0) & np.isfinite(after))
    return Sample(
        returns=np.ascontiguousarray(after[known] / before[known] - 1.0),
        dates=read.dates[: known.sum() + 1],
        periods_per_year=periods,
        riskfree=(1.0 + riskfree_rate) ** (1.0 / periods) - 1.0,
    )
