"""Character charts of a report for a terminal or a log.

Each chart is ``height`` rows of ``width`` columns, one column for each point that the curve is
resampled to. Around this area stand the percent labels and the axis at the left, and below it the
axis, a line of dates and the legend. The legend carries the sign with which each curve is drawn,
so that they are told apart without colour too. Colours are used in a terminal only, and not where
the environment variable ``NO_COLOR`` is set. A terminal that cannot show box-drawing characters
gets ASCII ones.
"""

from __future__ import annotations

import math
import operator
import sys

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.markets.stamps import has_dates_only
from corvex.terminal.canvas import MARGIN, Curve, draw

__all__ = ["label_width", "plot_cumulative_return", "plot_drawdown"]

_Floats = npt.NDArray[np.float64]

_LOG_FROM = 20
_LARGEST = 1e100  # what lies beyond is drawn there, so that differences stay finite


def plot_cumulative_return(
    series: pd.Series,
    benchmark: pd.Series | None = None,
    title: str = "Cumulative Return",
    height: int = 12,
    width: int = 80,
) -> None:
    """Print a chart of the cumulative return of a curve, in percent since its first value.

    Parameters
    ----------
    series : Series
        Cumulative wealth or prices by date. Missing values carry the last one.
    benchmark : Series, optional
        The same of a benchmark; shown on the dates of `series`, from its first value there.
    title : str, default "Cumulative Return"
        First line of the chart; an empty one is left out.
    height : int, default 12
        Rows of the plot, without title, axis, dates and legend (four lines). Less than 1 counts
        as 1.
    width : int, default 80
        Columns of the plot, each a point of the curve, without the labels at the left (see
        `label_width`). Less than 1 counts as 1.

    Raises
    ------
    TypeError
        When `height` or `width` is not a whole number.
    ValueError
        When a curve holds something else than numbers.

    Notes
    -----
    Where the largest wealth is more than 20 times the smallest, the rows are spaced by factors
    and the title says "(log scale)"; else everything but the last years would lie in one row. A
    curve without any value gives a chart that says "no data".
    """
    rows, columns = _size(height), _size(width)
    wealth = _read(series, "series")
    curves = [_growth_curve("strategy", wealth, columns)]
    if benchmark is not None:
        aligned = _align(_read(benchmark, "benchmark"), wealth.index)
        curves.append(_growth_curve("benchmark", aligned, columns))
    log = _spans_factors(curves)
    if log and title:
        title += " (log scale)"
    labels = _sample_labels(wealth.index, columns)
    print("\n".join(draw(curves, labels, title, rows, sys.stdout, log=log)))


def plot_drawdown(
    series: pd.Series,
    benchmark: pd.Series | None = None,
    title: str = "Drawdown",
    height: int = 6,
    width: int = 80,
) -> None:
    """Print a chart of the drawdown of a curve: how far it lies below its highest value so far.

    Parameters
    ----------
    series, benchmark, title, height, width
        As for `plot_cumulative_return`. Each column shows the deepest value of the dates that
        fall into it, so that no fall is lost; the top row is 0 %, the legend gives the deepest.

    Raises
    ------
    TypeError, ValueError
        As for `plot_cumulative_return`.
    """
    rows, columns = _size(height), _size(width)
    wealth = _read(series, "series")
    curves = [_fall_curve("strategy", wealth, columns)]
    if benchmark is not None:
        aligned = _align(_read(benchmark, "benchmark"), wealth.index)
        curves.append(_fall_curve("benchmark", aligned, columns))
    labels = _sample_labels(wealth.index, columns)
    print("\n".join(draw(curves, labels, title, rows, sys.stdout, top=0.0)))


def label_width() -> int:
    """Return how many characters a line of a chart is longer than its ``width``.

    A chart that is to fill a terminal of 80 characters has the width ``80 - label_width()``.
    Larger values than fit are written as powers of ten.
    """
    return MARGIN


def _size(value: int) -> int:
    return max(operator.index(value), 1)


def _read(series: pd.Series, name: str) -> pd.Series:
    """Return a curve as finite floats in the order of its dates, gaps filled forward."""
    try:
        values = pd.Series(series).astype(float)
    except (TypeError, ValueError) as error:
        raise ValueError(f"the {name} must hold numbers: {error}") from None
    values = values[~values.index.duplicated(keep="last")].sort_index()
    return values.where(np.isfinite(values)).ffill()


def _align(benchmark: pd.Series, index: pd.Index) -> pd.Series:
    """Carry a benchmark to the dates of the strategy.

    Dates meet as they are, whatever their zones; where only one has a zone, by wall clock.
    """
    own, other = benchmark.index, index
    if isinstance(own, pd.DatetimeIndex) and isinstance(other, pd.DatetimeIndex):
        dates = has_dates_only(own) and has_dates_only(other)
        if dates or (own.tz is None) != (other.tz is None):
            own, other = own.tz_localize(None), other.tz_localize(None)
        benchmark = benchmark.set_axis(own)
        benchmark = benchmark[~benchmark.index.duplicated(keep="last")]
    return benchmark.reindex(other, method="ffill").set_axis(index)


def _growth_curve(name: str, wealth: pd.Series, columns: int) -> Curve:
    growth = _growth(wealth)
    present = growth[np.isfinite(growth)]
    last = float(present[-1]) if present.size else math.nan
    return Curve(name, _sample(growth, columns), last)


def _fall_curve(name: str, wealth: pd.Series, columns: int) -> Curve:
    fall = _fall(wealth)
    present = fall[np.isfinite(fall)]
    deepest = float(present.min()) if present.size else math.nan
    return Curve(name, _deepest(fall, columns), deepest)


def _spans_factors(curves: list[Curve]) -> bool:
    wealth = 1 + np.concatenate([curve.values for curve in curves])
    wealth = wealth[np.isfinite(wealth)]
    if not wealth.size or wealth.min() <= 0:
        return False
    return bool(wealth.max() > _LOG_FROM * wealth.min())


def _growth(wealth: pd.Series) -> _Floats:
    values = wealth.to_numpy(dtype=np.float64)
    present = values[np.isfinite(values)]
    if not present.size or present[0] == 0:
        return np.full(values.shape, np.nan)
    with np.errstate(all="ignore"):
        growth: _Floats = values / present[0] - 1
    return np.clip(growth, -_LARGEST, _LARGEST)


def _fall(wealth: pd.Series) -> _Floats:
    values = wealth.to_numpy(dtype=np.float64)
    peak = np.fmax.accumulate(values) if values.size else values
    with np.errstate(all="ignore"):
        fall = values / peak - 1
    return np.clip(np.where(np.isfinite(fall), fall, np.nan), -_LARGEST, _LARGEST)


def _columns_of(rows: int, columns: int) -> npt.NDArray[np.intp]:
    """Return the row that each column shows, the first and the last row among them."""
    if rows <= 1:  # one point takes one column, not a line that would look like a history
        return np.where(np.arange(columns) < rows, 0, -1)
    if columns == 1:
        return np.array([rows - 1])
    return np.rint(np.linspace(0, rows - 1, columns)).astype(np.intp)


def _sample(values: _Floats, columns: int) -> _Floats:
    # A row of -1 shows nothing: it reads the NaN put behind the values.
    return np.append(values, np.nan)[_columns_of(len(values), columns)]


def _deepest(values: _Floats, columns: int) -> _Floats:
    if len(values) <= columns:
        return _sample(values, columns)
    starts = np.arange(columns) * len(values) // columns
    return np.fmin.reduceat(values, starts)


def _sample_labels(index: pd.Index, columns: int) -> list[str]:
    """Return a label for each column: dates, with the time of day where they span few days."""
    rows = _columns_of(len(index), columns)
    known = np.flatnonzero(rows >= 0)
    some = index.take(rows[known])
    if isinstance(index, pd.DatetimeIndex) and isinstance(some, pd.DatetimeIndex) and len(index):
        short = index[-1] - index[0] < pd.Timedelta(days=3)
        clocked = short and bool((index != index.normalize()).any())
        names = some.strftime("%m-%d %H:%M" if clocked else "%Y-%m-%d")
    else:
        names = some.astype(str)
    labels = [""] * columns
    for column, name in zip(known.tolist(), names, strict=True):
        labels[column] = name
    return labels
