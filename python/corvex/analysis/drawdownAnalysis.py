"""The largest drawdowns of the strategy and of its benchmark."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.analysis import Analysis
from corvex.ffn_core import largest_drawdowns
from corvex.ffn_core.benchmarks import carried, known_benchmark

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["DrawdownAnalysis"]


class DrawdownAnalysis(Analysis):
    """The largest drawdowns of the daily curves.

    Parameters
    ----------
    n : int, default 10
        How many to list at most.
    """

    title = "Largest drawdowns"

    def __init__(self, n: int = 10) -> None:
        self.n = n

    def analyze(self, report: Report) -> dict[str, dict[str, list[dict[str, Any]]]]:
        """Find the largest drawdowns.

        Returns
        -------
        dict
            ``{"strategy": {"largest_drawdown": rows}, "benchmark": {"largest_drawdown": rows}}``,
            each a list of plain dictionaries, deepest first: ``start`` (the high before the
            fall), ``end`` (the day that reaches it again; None while it does not) and ``valley``
            as ISO dates, ``length`` in calendar days, ``depth`` as a negative fraction. Empty for
            a curve that never falls.
        """
        benchmark = carried(known_benchmark(report))  # and not beyond its end
        curves = {"strategy": report.daily_creturn, "benchmark": benchmark}
        result = {
            name: {"largest_drawdown": _rows(largest_drawdowns(curve, self.n))}
            for name, curve in curves.items()
        }
        self.result = result
        return result

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return the two lists, depths in percent."""
        return {
            name.capitalize(): _in_percent(pd.DataFrame(part["largest_drawdown"]))
            for name, part in self.result.items()
        }


def _rows(found: pd.DataFrame) -> list[dict[str, Any]]:
    columns = (found[name] for name in ("start", "end", "valley", "length", "depth"))
    return [
        {
            "start": _iso_date(start),
            "end": _iso_date(end),
            "valley": _iso_date(valley),
            "length": int(length),
            "depth": float(depth),
        }
        for start, end, valley, length, depth in zip(*columns, strict=True)
    ]


def _iso_date(value: Any) -> str | None:
    return None if pd.isna(value) else str(value.strftime("%Y-%m-%d"))


def _in_percent(table: pd.DataFrame) -> pd.DataFrame:
    if table.empty:
        return table
    return table.assign(depth=table["depth"].map("{:.2%}".format)).fillna({"end": "-"})
