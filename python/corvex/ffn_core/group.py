"""The performance records of several curves, and the function that makes either kind."""

from __future__ import annotations

from collections.abc import Hashable
from pathlib import Path
from typing import TYPE_CHECKING, Any, cast, overload

import pandas as pd

from corvex.ffn_core import text
from corvex.ffn_core._columns import columns_of
from corvex.ffn_core.performance import PerformanceStats
from corvex.files import write_csv

if TYPE_CHECKING:
    from corvex.tables.frames import ArrowTable


class GroupStats(dict[Hashable, PerformanceStats]):
    """Performance figures of each column of a table, by column label.

    Each column is looked at on its own dates: its missing values are dropped, and those of the
    other columns do not matter.

    Parameters
    ----------
    prices : DataFrame
        Curves of prices or cumulative wealth, of shape (rows, columns), with increasing dates.
    rf, periods_per_year
        As of `PerformanceStats`.

    Raises
    ------
    TypeError, ValueError
        As `PerformanceStats`; also when two columns have the same label.
    """

    def __init__(
        self, prices: pd.DataFrame, rf: float = 0.0, *, periods_per_year: int | None = None
    ) -> None:
        super().__init__()
        self.prices = prices
        for label, column in columns_of(prices):
            self[label] = PerformanceStats(column, rf, periods_per_year=periods_per_year)

    @property
    def stats(self) -> pd.DataFrame:
        """Figures (rows) of each column (columns)."""
        return pd.DataFrame(
            {label: one.stats for label, one in self.items()}, columns=self.prices.columns
        )

    @property
    def lookback_returns(self) -> pd.DataFrame:
        """Returns up to the last value (rows) of each column (columns)."""
        return pd.DataFrame(
            {label: one.lookback_returns for label, one in self.items()},
            columns=self.prices.columns,
        )

    def set_riskfree_rate(self, rf: float) -> None:
        """Set the risk-free rate per year (a fraction) of every column."""
        for one in self.values():
            one.set_riskfree_rate(rf)

    def set_date_range(self, start: Any = None, end: Any = None) -> None:
        """Look at every column from `start` to `end` only, both included; None for no limit."""
        for one in self.values():
            one.set_date_range(start, end)

    def to_text(self) -> str:
        """Return the figures as a text table, a column for each curve."""
        return text.group(self)

    def display(self) -> None:
        """Print the figures."""
        print(self.to_text())

    def display_lookback_returns(self) -> None:
        """Print the returns up to the last value."""
        print(text.lookbacks(self))

    def to_csv(self, path: str | Path | None = None, sep: str = ",") -> str | None:
        """Write the table of figures as CSV, or return it when `path` is None."""
        return write_csv(self.stats, path, sep=sep)

    def __str__(self) -> str:
        return self.to_text()

    def __repr__(self) -> str:
        return f"<{type(self).__name__} of {len(self)} curves: {', '.join(map(str, self))}>"

    def __reduce__(self) -> tuple[Any, ...]:
        """Pickle the curves and their settings; the figures are worked out again on loading."""
        return (_restored_group, (type(self), self.prices, dict(self)))


def _restored_group(
    kind: type[GroupStats], prices: pd.DataFrame, members: dict[Hashable, PerformanceStats]
) -> GroupStats:
    group = kind.__new__(kind)
    group.prices = prices
    group.update(members)
    return group


@overload
def calc_stats(
    prices: pd.Series, rf: float = 0.0, *, periods_per_year: int | None = None
) -> PerformanceStats: ...
@overload
def calc_stats(
    prices: pd.DataFrame | ArrowTable, rf: float = 0.0, *, periods_per_year: int | None = None
) -> GroupStats: ...
def calc_stats(
    prices: pd.Series | pd.DataFrame | ArrowTable,
    rf: float = 0.0,
    *,
    periods_per_year: int | None = None,
) -> PerformanceStats | GroupStats:
    """Return the performance figures of a curve, or of each column of a table.

    Parameters
    ----------
    prices : Series or table
        Prices or cumulative wealth, of shape (rows,) or (rows, columns), with increasing dates.
        Missing values are dropped, column by column.
    rf : float, default 0.0
        Risk-free rate per year, a fraction; `set_riskfree_rate` changes it later.
    periods_per_year : int, optional
        Bars in a year for the daily figures; by default told by the dates.

    Returns
    -------
    PerformanceStats or GroupStats

    Raises
    ------
    TypeError
        If the index does not hold dates.
    ValueError
        If a value is no finite number, a date is missing, repeated or out of order, a setting is
        out of range, or two columns have the same label.
    """
    table: object = prices
    if not (isinstance(prices, pd.Series) and isinstance(prices.index, pd.DatetimeIndex)):
        from corvex.tables.frames import as_table

        table = as_table(prices, "prices")
    if isinstance(table, pd.DataFrame):
        return GroupStats(table, rf, periods_per_year=periods_per_year)
    return PerformanceStats(cast("pd.Series", table), rf, periods_per_year=periods_per_year)
