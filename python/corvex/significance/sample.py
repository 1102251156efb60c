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


@dataclass(frozen=True)
class Sample:
    """Returns per bar of one curve.

    Attributes
    ----------
    returns : array of shape (bars,)
        Simple returns, none missing.
    dates : DatetimeIndex of length bars
        The date on which each was made.
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
    with np.errstate(divide="ignore", invalid="ignore"):
        returns = read.values[1:] / read.values[:-1] - 1.0
    known = np.isfinite(returns)  # after ruin there is nothing to earn a return on
    return Sample(
        returns=np.ascontiguousarray(returns[known]),
        dates=read.dates[1:][known],
        periods_per_year=periods,
        riskfree=(1.0 + riskfree_rate) ** (1.0 / periods) - 1.0,
    )
