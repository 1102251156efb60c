"""Single figures of a curve or of returns. Of a table, the figure of each column."""

from __future__ import annotations

import math

import pandas as pd

from corvex import _engine
from corvex.ffn_core._columns import reduce_columns
from corvex.ffn_core._curve import FloatArray, read_curve, read_numbers
from corvex.ffn_core.transforms import infer_periods

_FIGURES = {name: position for position, name in enumerate(_engine.FIGURE_NAMES)}


def calc_total_return(prices: pd.Series | pd.DataFrame) -> float | pd.Series:
    """Return last value / first value - 1 (NaN for fewer than two values).

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, with increasing dates; of a table each column by itself.
    """
    return _figure(prices, "total_return")


def calc_cagr(prices: pd.Series | pd.DataFrame) -> float | pd.Series:
    """Return the compound annual growth rate, with years of 365.25 days.

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, with increasing dates; of a table each column by itself.
    """
    return _figure(prices, "cagr")


def calc_max_drawdown(prices: pd.Series | pd.DataFrame) -> float | pd.Series:
    """Return the deepest value / highest value before it - 1, a negative fraction or 0.

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, with increasing dates; of a table each column by itself.
    """
    return _figure(prices, "max_drawdown")


def calc_calmar_ratio(prices: pd.Series | pd.DataFrame) -> float | pd.Series:
    """Return growth per year / size of the largest drawdown (infinite when nothing was lost).

    Parameters
    ----------
    prices : Series or DataFrame
        Prices or cumulative wealth, with increasing dates; of a table each column by itself.
    """
    return _figure(prices, "calmar")


def calc_sharpe(
    returns: pd.Series | pd.DataFrame,
    rf: float = 0.0,
    nperiods: float | None = None,
    annualize: bool = True,
) -> float | pd.Series:
    """Return the Sharpe ratio of simple returns.

    Parameters
    ----------
    returns : Series or DataFrame
        Simple returns as fractions, of shape (periods,) or (periods, columns); missing ones are
        left out.
    rf : float, default 0.0
        Risk-free rate per year, a fraction.
    nperiods : float, optional
        Periods in a year. By default told by the dates.
    annualize : bool, default True
        Whether to multiply by the root of the periods in a year.

    Returns
    -------
    float or Series
        Mean excess return / sample standard deviation; NaN without dispersion.

    Raises
    ------
    ValueError
        If `rf` is -1 or less, or the periods are not positive or cannot be told.
    """
    return _ratio(returns, rf, nperiods, annualize, position=0)


def calc_sortino_ratio(
    returns: pd.Series | pd.DataFrame,
    rf: float = 0.0,
    nperiods: float | None = None,
    annualize: bool = True,
) -> float | pd.Series:
    """Return the Sortino ratio of simple returns.

    Parameters
    ----------
    returns, rf, nperiods, annualize
        As for `calc_sharpe`, and so are the errors.

    Returns
    -------
    float or Series
        Mean excess return / root of the mean of ``min(excess, 0) ** 2`` over all returns. Infinite
        when no return falls short and the mean is positive.
    """
    return _ratio(returns, rf, nperiods, annualize, position=1)


def _figure(prices: pd.Series | pd.DataFrame, name: str) -> float | pd.Series:
    def of_column(column: pd.Series) -> float:
        curve = read_curve(column)
        return _engine.performance_record(curve.values, curve.times)[0][_FIGURES[name]]

    return reduce_columns(prices, of_column)


def _ratio(
    returns: pd.Series | pd.DataFrame,
    rf: float,
    nperiods: float | None,
    annualize: bool,
    *,
    position: int,
) -> float | pd.Series:
    if nperiods is None and (annualize or rf != 0.0):
        nperiods = infer_periods(returns)
    periods = 1.0 if nperiods is None else float(nperiods)

    def of_column(column: pd.Series) -> float:
        values: FloatArray = read_numbers(column)
        ratio = _engine.period_figures(values, float(rf), periods)[position]
        return ratio if annualize else ratio / math.sqrt(periods)

    return reduce_columns(returns, of_column)
