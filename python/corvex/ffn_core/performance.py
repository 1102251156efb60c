"""The performance record of one curve."""

from __future__ import annotations

import math
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core import text
from corvex.ffn_core._curve import Curve, FloatArray, IntArray, read_curve
from corvex.ffn_core.drawdowns import details_of
from corvex.ffn_core.transforms import to_log_returns, to_returns
from corvex.files import write_csv

FIGURES = ("start", "end", "rf", *_engine.FIGURE_NAMES, "bar", "periods_per_year")
LOOKBACKS = (
    "mtd",
    "three_month",
    "six_month",
    "ytd",
    "one_year",
    "three_year",
    "five_year",
    "ten_year",
    "incep",
)
TABLE_COLUMNS = (*range(1, 13), "YTD")

_INDEX = pd.Index(FIGURES, dtype=object)
_MONTHS = pd.Index(TABLE_COLUMNS, dtype=object)


class PerformanceStats:
    """Performance figures of one curve of prices or cumulative wealth.

    Each figure is an entry of `stats` and an attribute too (``stats.cagr``), as a fraction, not in
    percent. ``docs/statistics.md`` defines them all.

    Parameters
    ----------
    prices : Series
        The curve, of shape (rows,), with increasing dates; missing values are dropped.
    rf : float, default 0.0
        Risk-free rate per year, a fraction.
    periods_per_year : int, optional
        Bars in a year for the daily figures. By default told by the dates: the median distance
        between two rows gives the bar; days count 365 a year where weekends have bars, else 252.

    Raises
    ------
    TypeError
        If the index does not hold dates.
    ValueError
        If a value is no finite number, a date is missing, repeated or out of order, or a setting is
        out of range.

    Notes
    -----
    An empty or all-missing curve has no dates and no figures: ``start`` and ``end`` are NaT, every
    figure is NaN, ``bar`` is "unknown" and ``periods_per_year`` 0. A single value has dates only.
    """

    def __init__(
        self, prices: pd.Series, rf: float = 0.0, *, periods_per_year: int | None = None
    ) -> None:
        self._given = prices
        self._rf = _checked_rate(rf)
        self._periods = _checked_periods(periods_per_year)
        self._range: tuple[Any, Any] = (None, None)
        self._calculate()

    def _calculate(self) -> None:
        start, end = self._range
        chosen = self._given if start is None and end is None else self._given.loc[start:end]
        self._prices = chosen
        self._curve = read_curve(chosen)
        self._calculate_figures()

    def _calculate_figures(self) -> None:
        self._stats: pd.Series | None = None
        self._record = _engine.performance_record(
            self._curve.values, self._curve.times, self._rf, self._periods
        )

    # -- what the record says ----------------------------------------------------------------

    @property
    def stats(self) -> pd.Series:
        """Every figure by name: dates, the rate, the figures, and the convention used."""
        if self._stats is None:
            figures, _, _, _, bar, periods, _ = self._record
            entries = [self.start, self.end, self._rf, *figures, bar, periods]
            self._stats = pd.Series(entries, index=_INDEX, dtype=object, name=self.name)
        return self._stats

    @property
    def name(self) -> Any:
        """The name of the series."""
        return self._given.name

    @property
    def rf(self) -> float:
        """Risk-free rate per year, a fraction."""
        return self._rf

    @property
    def start(self) -> pd.Timestamp:
        """Date of the first present value; NaT when there is none."""
        return self._date(self._record[2])

    @property
    def end(self) -> pd.Timestamp:
        """Date of the last present value; NaT when there is none."""
        return self._date(self._record[3])

    def _date(self, row: int) -> pd.Timestamp:
        if self._record[1] == 0:
            return pd.NaT  # type: ignore[return-value]  # in place of a Timestamp, as in pandas
        return self._curve.dates[row]

    @property
    def bar(self) -> str:
        """The usual distance between two rows: "intraday", "daily", "weekly", ..., "yearly"."""
        return self._record[4]

    @property
    def periods_per_year(self) -> int:
        """What the daily figures are annualised with; 0 when unknown."""
        return self._record[5]

    @property
    def convention(self) -> str:
        """How the figures were annualised, in a sentence."""
        return text.convention(self.bar, self.periods_per_year, self._record[6], self._periods > 0)

    def __getattr__(self, name: str) -> float:
        if name in _POSITIONS:
            return self._record[0][_POSITIONS[name]]
        raise AttributeError(f"{type(self).__name__!r} object has no attribute {name!r}")

    def __dir__(self) -> list[str]:
        return sorted({*super().__dir__(), *_POSITIONS})

    @property
    def lookback_returns(self) -> pd.Series:
        """The returns up to the last value, from the month to date to the whole curve."""
        return self.stats[list(LOOKBACKS)].astype(float)

    @property
    def return_table(self) -> pd.DataFrame:
        """Returns by year (rows) and month (columns 1 to 12), with the year's own as "YTD".

        Months without a value are missing. Curves with bars longer than a month have years only.
        """
        years, cells = _engine.return_table(self._curve.values, self._curve.times)
        return pd.DataFrame(cells, index=years, columns=_MONTHS)

    @property
    def drawdown_details(self) -> pd.DataFrame:
        """Every drawdown in the order of time; see `corvex.ffn_core.drawdown_details`."""
        return details_of(self._curve.present())

    # -- the curve seen at other frequencies ---------------------------------------------------

    @property
    def prices(self) -> pd.Series:
        """The curve without its missing values."""
        return self._prices.dropna()

    @property
    def daily_prices(self) -> pd.Series:
        """The last value of each day."""
        present = self._curve.present()
        return self._thinned(present, _engine.day_end_rows(present.times))

    @property
    def monthly_prices(self) -> pd.Series:
        """The last value of each month, under its own date."""
        present = self._curve.present()
        return self._thinned(present, _engine.month_end_rows(present.times))

    @property
    def yearly_prices(self) -> pd.Series:
        """The last value of each year, under its own date."""
        present = self._curve.present()
        return self._thinned(present, _engine.year_end_rows(present.times))

    def _thinned(self, curve: Curve, rows: IntArray) -> pd.Series:
        return pd.Series(curve.values[rows], index=curve.dates[rows], name=self.name)

    @property
    def returns(self) -> pd.Series:
        """Simple returns from row to row; the first is missing."""
        return to_returns(self.prices)

    @property
    def log_returns(self) -> pd.Series:
        """Logarithmic returns from row to row; the first is missing."""
        return to_log_returns(self.prices)

    @property
    def drawdown(self) -> pd.Series:
        """How far each value lies below the highest value so far."""
        present = self._curve.present()
        depths: FloatArray = _engine.drawdown_curve(present.values)
        return pd.Series(depths, index=present.dates, name=self.name)

    # -- settings --------------------------------------------------------------------------------

    def set_riskfree_rate(self, rf: float) -> None:
        """Set the risk-free rate per year (a fraction) and work the figures out again."""
        self._rf = _checked_rate(rf)
        self._calculate_figures()

    def set_date_range(self, start: Any = None, end: Any = None) -> None:
        """Look at the curve from `start` to `end` only, both included; None for no limit."""
        self._range = (start, end)
        self._calculate()

    # -- text -------------------------------------------------------------------------------------

    def to_text(self) -> str:
        """Return the figures as a text of several lines."""
        return text.performance(self)

    def display(self) -> None:
        """Print the figures."""
        print(self.to_text())

    def display_lookback_returns(self) -> None:
        """Print the returns up to the last value."""
        print(text.lookbacks({self.name: self}))

    def display_monthly_returns(self) -> None:
        """Print the table of monthly and yearly returns."""
        print(text.return_table(self.return_table))

    def to_csv(self, path: str | Path | None = None, sep: str = ",") -> str | None:
        """Write the figures as a CSV of names and values, or return it when `path` is None."""
        return write_csv(self.stats, path, sep=sep, header=False)

    def __str__(self) -> str:
        return self.to_text()

    def __repr__(self) -> str:
        name = "" if self.name is None else f" {self.name!r}"
        return f"<{type(self).__name__}{name} {text.span(self)}, {self.bar} bars>"

    def __getstate__(self) -> dict[str, Any]:
        """Keep what was given; the figures are worked out again on loading."""
        kept = ("_given", "_rf", "_periods", "_range")
        return {name: self.__dict__[name] for name in kept}

    def __setstate__(self, state: dict[str, Any]) -> None:
        self.__dict__.update(state)
        self._calculate()


def figures_of(curve: Curve, rf: float) -> dict[str, Any]:
    """Return the figures of a curve with the table of its returns, as a report's statistics do.

    Parameters
    ----------
    curve : Curve
        At least one value, none missing.
    rf : float
        Risk-free rate per year, a fraction.

    Returns
    -------
    dict
        What `PerformanceStats.stats` holds, its dates as ISO texts, and "return_table": the
        returns by year and column.
    """
    rate = _checked_rate(rf)
    figures, _, *rows, bar, periods, _ = _engine.performance_record(curve.values, curve.times, rate)
    days = np.datetime_as_string(curve.times[rows].view("M8[ns]"), unit="D").tolist()
    years, cells = _engine.return_table(curve.values, curve.times)
    table = zip(years.tolist(), cells.tolist(), strict=True)
    return {
        **dict(zip(FIGURES, [*days, rate, *figures, bar, periods], strict=True)),
        "return_table": {year: dict(zip(TABLE_COLUMNS, row, strict=True)) for year, row in table},
    }


_POSITIONS = {name: position for position, name in enumerate(_engine.FIGURE_NAMES)}


def _checked_rate(rf: float) -> float:
    try:
        rate = float(rf)
    except (TypeError, ValueError):
        raise TypeError(
            f"the risk-free rate must be a number per year, such as 0.02, not {rf!r}"
        ) from None
    if not (math.isfinite(rate) and rate > -1.0):
        raise ValueError(f"the risk-free rate must be a finite fraction above -1, not {rate}")
    return rate


def _checked_periods(periods: int | None) -> int:
    if periods is None:
        return 0
    if periods != int(periods) or periods < 1:
        raise ValueError(f"the periods in a year must be a whole number from 1 on, not {periods!r}")
    return int(periods)
