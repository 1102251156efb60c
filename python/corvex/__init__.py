"""Backtest portfolios fast, and get a report to read, save, publish and trade on.

The names below are loaded on first use, so that importing the package costs nothing by itself.
pandas objects have the methods of `corvex.ffn_core` as soon as both packages are imported.
"""

from __future__ import annotations

__version__ = "0.1.0"

import importlib
from typing import TYPE_CHECKING, Any

from corvex.tables import pandas_methods as _pandas_methods

if TYPE_CHECKING:
    from corvex import data, ffn_core
    from corvex.accounts import Account
    from corvex.cloud.credentials import get_token
    from corvex.comparison import compare
    from corvex.core.report import Report, ReportExecution
    from corvex.explain.attribution import contributions, exposure, turnover
    from corvex.explain.live_performance import live_figures
    from corvex.exporting import save_figure, save_workbook
    from corvex.ordering import orders
    from corvex.safe_file import load, save
    from corvex.significance import (
        check_lookahead,
        confidence,
        random_entries,
        random_portfolios,
        superior_strategies,
        trial_statistics,
    )
    from corvex.simulation import simulate
    from corvex.simulation.given_curves import from_equity, from_returns
    from corvex.sweeping import Sweep, open_sweep, sweep, walk_forward

__all__ = [
    "Account",
    "Report",
    "ReportExecution",
    "Sweep",
    "__version__",
    "check_lookahead",
    "compare",
    "confidence",
    "contributions",
    "data",
    "exposure",
    "ffn_core",
    "from_equity",
    "from_returns",
    "get_token",
    "live_figures",
    "load",
    "open_sweep",
    "orders",
    "random_entries",
    "random_portfolios",
    "save",
    "save_figure",
    "save_workbook",
    "simulate",
    "superior_strategies",
    "sweep",
    "trial_statistics",
    "turnover",
    "walk_forward",
]

_LAZY = {
    "Account": "corvex.accounts",
    "Report": "corvex.core.report",
    "ReportExecution": "corvex.core.report",
    "Sweep": "corvex.sweeping",
    "check_lookahead": "corvex.significance",
    "compare": "corvex.comparison",
    "confidence": "corvex.significance",
    "contributions": "corvex.explain.attribution",
    "exposure": "corvex.explain.attribution",
    "from_equity": "corvex.simulation.given_curves",
    "from_returns": "corvex.simulation.given_curves",
    "get_token": "corvex.cloud.credentials",
    "live_figures": "corvex.explain.live_performance",
    "load": "corvex.safe_file",
    "open_sweep": "corvex.sweeping",
    "orders": "corvex.ordering",
    "random_entries": "corvex.significance",
    "random_portfolios": "corvex.significance",
    "save": "corvex.safe_file",
    "save_figure": "corvex.exporting",
    "save_workbook": "corvex.exporting",
    "simulate": "corvex.simulation",
    "sweep": "corvex.sweeping",
    "superior_strategies": "corvex.significance",
    "trial_statistics": "corvex.significance",
    "turnover": "corvex.explain.attribution",
    "walk_forward": "corvex.sweeping",
}
_MODULES = ("analysis", "data", "ffn_core", "market", "markets", "rebalance", "schemas", "terminal")


def __getattr__(name: str) -> Any:
    if name in _MODULES:
        return importlib.import_module(f"{__name__}.{name}")
    if name in _LAZY:
        value = getattr(importlib.import_module(_LAZY[name]), name)
        globals()[name] = value
        return value
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")


def __dir__() -> list[str]:
    return sorted({*__all__, *_MODULES})


_pandas_methods.add_when_imported()
