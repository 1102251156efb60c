"""The largest drawdowns of the strategy and of its benchmark."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.analysis import Analysis
from corvex.ffn_core.benchmarks import carried, known_benchmark
from corvex.ffn_core.drawdowns import LargestDrawdowns, find_in, find_largest

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.ffn_core._curve import Curve

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
        result = {
            "strategy": {"largest_drawdown": self.of_strategy(report)},
            "benchmark": {"largest_drawdown": _rows(benchmark, self.n)},
        }
        self.result = result
        return result

    def of_strategy(self, report: Report) -> list[dict[str, Any]]:
        """Return the strategy's rows alone, for who has no use for the benchmark's."""
        return _rows(report.daily_creturn, self.n)

    def of_curve(self, curve: Curve) -> list[dict[str, Any]]:
        """Return the rows of a daily curve that is known as arrays."""
        return _listed(find_in(curve, self.n))

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return the two lists, depths in percent."""
        return {
            name.capitalize(): _in_percent(pd.DataFrame(part["largest_drawdown"]))
            for name, part in self.result.items()
        }


def _rows(curve: pd.Series, n: int) -> list[dict[str, Any]]:
    return _listed(find_largest(curve, n))


def _listed(found: LargestDrawdowns) -> list[dict[str, Any]]:
    rows = np.array([found.start, found.last, found.valley])
    days = np.datetime_as_string(found.curve.times[rows].view("M8[ns]"), unit="D")
    start, end, valley = days.tolist()
    figures = (found.is_open.tolist(), valley, found.length.tolist(), found.depth.tolist())
    facts = zip(start, end, *figures, strict=True)
    return [
        {
            "start": start,
            "end": None if is_open else end,
            "valley": valley,
            "length": length,
            "depth": depth,
        }
        for start, end, is_open, valley, length, depth in facts
    ]


def _in_percent(table: pd.DataFrame) -> pd.DataFrame:
    if table.empty:
        return table
    return table.assign(depth=table["depth"].map("{:.2%}".format)).fillna({"end": "-"})
