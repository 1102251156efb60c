"""How far trades went against and in favour of their holder."""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.analysis import Analysis
from corvex.analysis._edge import edge_by_bars
from corvex.trades.trade_rows import EXCURSIONS, closed_trades, excursions

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

    from corvex.core.report import Report

__all__ = ["MaeMfeAnalysis"]


class MaeMfeAnalysis(Analysis):
    """Maximum adverse and favourable excursions of the closed trades.

    Parameters
    ----------
    quantiles : sequence of float, default (0.05, 0.25, 0.5, 0.75, 0.95)
        Quantiles of the distribution table.
    bars : sequence of int, default (1, 2, 3, 5, 10, 20, 40, 60)
        Bars after the entry for which the edge ratio is computed.

    Raises
    ------
    ValueError
        When a quantile is not from 0 to 1, or there are no bars or negative ones.

    Notes
    -----
    The excursions come with the trades of a simulation. A report without them gets an analysis
    that says so: the table of missing columns, and no figures in their place.
    """

    title = "Maximum adverse and favourable excursion"

    def __init__(
        self,
        quantiles: Sequence[float] = (0.05, 0.25, 0.5, 0.75, 0.95),
        bars: Sequence[int] = (1, 2, 3, 5, 10, 20, 40, 60),
    ) -> None:
        if not all(0 <= q <= 1 for q in quantiles):
            raise ValueError(f"quantiles must be from 0 to 1, got {list(quantiles)}")
        if not bars or min(bars) < 0:
            raise ValueError(f"bars must be whole numbers of 0 or more, got {list(bars)}")
        self.quantiles = tuple(quantiles)
        self.bars = tuple(bars)
        self._table = pd.DataFrame()

    def analyze(self, report: Report) -> dict[str, Any]:
        """Describe the excursions of all closed trades, the winners and the losers.

        Returns
        -------
        dict
            ``groups``: for "all", "winners" (return above 0) and "losers" the number of
            ``trades``, the mean of ``return`` and of every known excursion, and the
            ``edge_ratio``, mean MFE over the size of the mean MAE (above 1, trades went further
            in favour than against); ``distribution``: the quantiles of each column;
            ``edge``: the mean excursions and the edge ratio by bars since entry, on the market's
            close prices (a list of ``bars``, ``held``, ``mae``, ``mfe``, ``edge_ratio``, empty
            without prices); ``missing``: the excursions that the report does not have.
            Fractions; unknown figures are None.
        """
        trades, known = closed_trades(report), excursions(report)
        table = known.assign(**{"return": trades["return"]}) if len(trades) else known
        won = table["return"] > 0 if len(trades) else pd.Series(dtype=bool)
        groups = {"all": table, "winners": table[won], "losers": table[~won]}
        result = {
            "groups": [
                _describe(name, group, [str(c) for c in known]) for name, group in groups.items()
            ],
            "distribution": [
                {"quantile": q, **{str(c): float(table[c].quantile(q)) for c in table.columns}}
                for q in self.quantiles
                if len(table)
            ],
            "edge": edge_by_bars(report, self.bars),
            "missing": [name for name in EXCURSIONS if name not in known.columns],
        }
        self.result = result
        self._table = table
        return result

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return the groups, the distribution and the edge ratio over the holding time."""
        return {
            "Means by outcome": pd.DataFrame(self.result["groups"])
            .astype({"return": float, "edge_ratio": float})
            .round(4),
            "Distribution": pd.DataFrame(self.result["distribution"]).round(4),
            "Edge ratio by bars since entry": pd.DataFrame(self.result["edge"]).round(4),
        }

    def figures(self) -> Mapping[str, Figure]:
        """Return the edge ratio over time, and each trade's return by its excursions."""
        import plotly.graph_objects as go

        figures: dict[str, Figure] = {}
        if self.result["edge"]:
            edge = pd.DataFrame(self.result["edge"])
            figures["Edge ratio by bars since entry"] = go.Figure(
                go.Scatter(x=edge["bars"], y=edge["edge_ratio"], mode="lines+markers"),
                {"xaxis": {"title": "bars"}, "yaxis": {"title": "mean MFE / mean |MAE|"}},
            )
        for name in ("mae", "mfe"):
            if name not in self._table.columns:
                continue
            parts = {"won": self._table["return"] > 0, "lost": self._table["return"] <= 0}
            chart = go.Figure(layout={"xaxis": {"title": name}, "yaxis": {"title": "return"}})
            for label, rows in parts.items():
                part = self._table[rows]
                chart.add_scatter(x=part[name], y=part["return"], mode="markers", name=label)
            figures[f"Return by {name.upper()}"] = chart
            figures[f"Distribution of {name.upper()}"] = go.Figure(
                go.Histogram(x=self._table[name]), {"xaxis": {"title": name}}
            )
        return figures

    def notes(self) -> Iterable[str]:
        """Tell which excursions the report does not have."""
        if self.result["missing"]:
            yield "Not in this report: " + ", ".join(self.result["missing"]) + "."


def _describe(name: str, group: pd.DataFrame, known: list[str]) -> dict[str, Any]:
    means = {c: float(group[c].mean()) if len(group) else None for c in ["return", *known]}
    row: dict[str, Any] = {"group": name, "trades": len(group), **means, "edge_ratio": None}
    against, favour = means.get("mae"), means.get("mfe")
    if against and favour is not None:
        row["edge_ratio"] = favour / abs(against)
    return row
