"""The market of a run: chosen from the labels, and bound to the user's prices."""

from __future__ import annotations

import copy
from typing import Any

import numpy as np
import pandas as pd

from corvex.market import Market
from corvex.markets import get_market_by_name, infer_market_name
from corvex.markets.bound import BoundMarket
from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import as_dates
from corvex.tables.frames import ArrowTable, as_table

__all__ = ["Benchmark", "bind_market", "bound_alone", "choose_market", "with_adjusted_fields"]

type Benchmark = pd.Series | pd.DataFrame | ArrowTable | np.ndarray | str | None

_FIELDS = ("open", "high", "low", "close", "volume")


def choose_market(market: str | Market | type[Market] | None, labels: pd.Index) -> Market:
    """Return the market that a user names, or the one that the labels belong to."""
    if market is None:
        return get_market_by_name(infer_market_name(labels))
    if isinstance(market, Market):
        return market
    if isinstance(market, type) and issubclass(market, Market):
        return market()
    if isinstance(market, str):
        return get_market_by_name(market)
    raise ValueError(
        f"market must be a name such as 'us_stock', a Market or None, got {type(market).__name__}"
    )


def bind_market(
    market: Market,
    tables: dict[str, pd.DataFrame] | None,
    benchmark: Benchmark,
    *,
    dates: Any = None,
) -> Market:
    """Return the market bound to tables, or itself when nothing of the user's is to be bound.

    The dates are those of a benchmark that is an array.
    """
    chosen = _one_series(as_table(benchmark, "benchmark", dates=dates))
    if tables is None and chosen is None:
        # A copy: what a report keeps in its file is no business of the user's bound market.
        return copy.copy(market) if isinstance(market, BoundMarket) else market
    return market.bound_to(_own_tables(market) if tables is None else tables, benchmark=chosen)


def bound_alone(market: Market, benchmark: pd.Series | None = None) -> Market:
    """Return a market bound to its own tables; without a benchmark to its own one, too."""
    return market.bound_to(_own_tables(market), benchmark=benchmark)


def _one_series(benchmark: Any) -> Any:
    if isinstance(benchmark, pd.DataFrame):
        if benchmark.shape[1] != 1:
            raise ValueError(
                f"benchmark must be one series of prices, got {benchmark.shape[1]} columns"
            )
        benchmark = benchmark.iloc[:, 0]
    return _mended(benchmark) if isinstance(benchmark, pd.Series) else benchmark


def _mended(benchmark: pd.Series) -> pd.Series:
    """Return a benchmark on rising dates that do not repeat; what had to be done is told."""
    if len(benchmark) == 0:
        return benchmark.set_axis(pd.DatetimeIndex([]))
    dates = as_dates(benchmark.index, "the index of benchmark")
    if dates is not benchmark.index:
        benchmark = benchmark.set_axis(dates)
    if dates.is_monotonic_increasing and dates.is_unique:
        return benchmark
    values = benchmark.dropna()
    twice = values.index[values.index.duplicated()]
    if len(twice):
        warn(
            f"benchmark has dates more than once (as {date_text(twice[0])}); the last value was "
            "kept"
        )
    if not dates.is_monotonic_increasing:
        warn("benchmark was not in order of date; it was sorted")
    return values[~values.index.duplicated(keep="last")].sort_index()


def with_adjusted_fields(tables: dict[str, pd.DataFrame]) -> dict[str, pd.DataFrame]:
    """Adjust open, high and low as the close is, where only that is there in both forms."""
    if "adj_close" not in tables or "close" not in tables:
        return tables
    factor = tables["adj_close"] / tables["close"]
    adjusted = {
        f"adj_{field}": tables[field] * factor
        for field in ("open", "high", "low")
        if field in tables and f"adj_{field}" not in tables
    }
    return {**tables, **adjusted}


def _own_tables(market: Market) -> dict[str, pd.DataFrame]:
    """The market's own price tables, quoted and, where they differ, adjusted."""
    tables = {}
    for field in _FIELDS:
        try:
            quoted, adjusted = (market.get_price(field, adj=adj) for adj in (False, True))
        except (ValueError, LookupError):
            continue  # a market bound to other tables refuses a field that it does not have
        if quoted.size:
            tables[field] = quoted
        if adjusted.size and adjusted is not quoted:
            tables[f"adj_{field}"] = adjusted
    return tables
