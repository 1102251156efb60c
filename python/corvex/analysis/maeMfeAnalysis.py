"""How far trades went against and in favour of their holder."""

from __future__ import annotations

from collections.abc import Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.analysis import Analysis
from corvex.core.trade_lookup import EXCURSIONS, closed_trades, excursions

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["MaeMfeAnalysis"]


class MaeMfeAnalysis(Analysis):
    """Maximum adverse and favourable excursions of the closed trades.

    Parameters
    ----------
    quantiles : sequence of float, default (0.05, 0.25, 0.5, 0.75, 0.95)
        Quantiles of the distribution table.

    Raises
    ------
    ValueError
        When a quantile is not from 0 to 1.

    Notes
    -----
    The excursions come with the trades of a simulation. A report without them gets an analysis
    that says so: the table of missing columns, and no figures in their place.
    """

    title = "Maximum adverse and favourable excursion"

    def __init__(self, quantiles: Sequence[float] = (0.05, 0.25, 0.5, 0.75, 0.95)) -> None:
        if not all(0 <= q <= 1 for q in quantiles):
            raise ValueError(f"quantiles must be from 0 to 1, got {list(quantiles)}")
        self.quantiles = tuple(quantiles)

    def analyze(self, report: Report) -> dict[str, Any]:
        """Describe the excursions of all closed trades, the winners and the losers.

        Returns
        -------
        dict
            ``groups``: for "all", "winners" (return above 0) and "losers" the number of
            ``trades``, the mean of ``return`` and of every known excursion, and the
            ``edge_ratio``, mean MFE over the size of the mean MAE (above 1, trades went further
            in favour than against); ``distribution``: the quantiles of each column; ``missing``:
            the excursions that the report does not have. Fractions; unknown figures are None.
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
            "missing": [name for name in EXCURSIONS if name not in known.columns],
        }
        self.result = result
        return result

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return the groups and the distribution."""
        return {
            "Means by outcome": pd.DataFrame(self.result["groups"])
            .astype({"return": float, "edge_ratio": float})
            .round(4),
            "Distribution": pd.DataFrame(self.result["distribution"]).round(4),
        }

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
