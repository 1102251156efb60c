"""Performance statistics of price and wealth curves, as methods of pandas objects.

Importing this module gives ``pandas.Series`` and ``pandas.DataFrame`` the methods listed in
``PANDAS_METHODS`` and no others. The figures are computed by the engine in C++; what each one
means, and its edge cases, stands in ``docs/statistics.md``.

Examples
--------
>>> import pandas as pd
>>> import corvex.ffn_core
>>> dates = pd.bdate_range("2024-01-02", periods=5)
>>> curve = pd.Series([100.0, 102.0, 99.0, 101.0, 104.0], index=dates)
>>> stats = curve.calc_stats()
>>> round(stats.total_return, 4), round(stats.max_drawdown, 4)
(0.04, -0.0294)
>>> stats.stats["periods_per_year"]
252

Notes
-----
For timing, the three calls that count are (``curve`` a float64 series on business days)::

    curve.calc_stats().stats.to_dict()                  # all of it, from Python

    values = curve.to_numpy()
    times = curve.index.as_unit("ns").asi8
    corvex._engine.performance_record(values, times)    # the engine's own call
    corvex._engine.largest_drawdowns(values, 10)        # the ten largest drawdowns
"""

from __future__ import annotations

import pandas as pd

from corvex.ffn_core.drawdowns import drawdown_details, largest_drawdowns, to_drawdown_series
from corvex.ffn_core.group import GroupStats, calc_stats
from corvex.ffn_core.performance import PerformanceStats
from corvex.ffn_core.ratios import (
    calc_cagr,
    calc_calmar_ratio,
    calc_max_drawdown,
    calc_sharpe,
    calc_sortino_ratio,
    calc_total_return,
)
from corvex.ffn_core.transforms import (
    rebase,
    to_excess_returns,
    to_log_returns,
    to_monthly,
    to_price_index,
    to_returns,
)

PANDAS_METHODS = (
    calc_cagr,
    calc_calmar_ratio,
    calc_max_drawdown,
    calc_sharpe,
    calc_sortino_ratio,
    calc_stats,
    calc_total_return,
    rebase,
    to_drawdown_series,
    to_excess_returns,
    to_log_returns,
    to_monthly,
    to_price_index,
    to_returns,
)
"""The functions that importing this module adds to Series and DataFrame under their own names."""

__all__ = [
    "PANDAS_METHODS",
    "GroupStats",
    "PerformanceStats",
    "calc_cagr",
    "calc_calmar_ratio",
    "calc_max_drawdown",
    "calc_sharpe",
    "calc_sortino_ratio",
    "calc_stats",
    "calc_total_return",
    "drawdown_details",
    "largest_drawdowns",
    "rebase",
    "to_drawdown_series",
    "to_excess_returns",
    "to_log_returns",
    "to_monthly",
    "to_price_index",
    "to_returns",
]


def __dir__() -> list[str]:
    return sorted(__all__)


for _method in PANDAS_METHODS:
    for _pandas_type in (pd.Series, pd.DataFrame):
        setattr(_pandas_type, _method.__name__, _method)
del _method, _pandas_type
