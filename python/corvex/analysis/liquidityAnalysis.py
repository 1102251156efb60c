"""How much of the market's trading the strategy needs."""

from __future__ import annotations

import math
from collections.abc import Iterable, Mapping, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.analysis import Analysis, TradeInfo
from corvex.analysis._trade_info import complete_info
from corvex.core.metrics import Metrics
from corvex.trades.trade_lookup import (
    TradeLookup,
    capital_per_share,
    known_table,
    listed_facts,
    traded_values,
)

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["LiquidityAnalysis"]

_FILLS = ["entry_date", "exit_date"]
_STATUSES = ("disposal", "warning", "full_delivery")
_RATIOS = (*(f"{kind}_stock_ratio" for kind in _STATUSES), "buy_high", "sell_low")


class LiquidityAnalysis(Analysis):
    """Traded value on the days of the fills, and the capital that it can carry.

    Attaches to the trades, where the market has the data for every closed trade:
    "turnover@entry_date" and "turnover@exit_date" (close x volume of the asset that day, in the
    market's currency), and "disposal_stock@entry_date", "warning_stock@entry_date",
    "full_delivery_stock@entry_date" (1 or 0).

    Parameters
    ----------
    shares : sequence of float, default (0.01, 0.02, 0.05, 0.1, 0.2)
        Shares of a day's traded value for which the capacity is computed.
    quantile : float, default 0.1
        The share of fills that may exceed the share of the traded value.

    Raises
    ------
    ValueError
        When a share is not above 0, or `quantile` is not from 0 to 1.
    """

    title = "Liquidity"

    def __init__(
        self, shares: Sequence[float] = (0.01, 0.02, 0.05, 0.1, 0.2), quantile: float = 0.1
    ) -> None:
        if not all(share > 0 for share in shares):
            raise ValueError(f"shares must be above 0, got {list(shares)}")
        if not 0 <= quantile <= 1:
            raise ValueError(f"quantile must be from 0 to 1, got {quantile}")
        self.shares = tuple(shares)
        self.quantile = quantile

    def calculate_trade_info(self, report: Report) -> Iterable[TradeInfo]:
        """Give the traded value and the trading restrictions of the days of the fills."""
        lookup = TradeLookup(report.trades)
        columns = [name for name in _FILLS if name in report.trades.columns]
        turnover = {name: traded_values(report, lookup, name) for name in columns}
        yield from complete_info(lookup, "turnover", turnover)
        for kind in _STATUSES:
            status = known_table(report.market, "get_status", kind)
            if status is None or not lookup.entered.any():
                continue
            listed = listed_facts(lookup, status)
            yield from complete_info(lookup, f"{kind}_stock", {"entry_date": listed})

    def analyze(self, report: Report) -> dict[str, Any]:
        """Describe the liquidity of the fills.

        Returns
        -------
        dict
            ``turnover``: for entries and exits the number of ``fills`` with known volume and the
            ``median`` and ``low`` (the `quantile`) of the traded value; ``capacity``: for each of
            `shares` the ``capital`` at which all but the `quantile` of the fills stay below that
            share; and the ``disposal_stock_ratio``, ``warning_stock_ratio``,
            ``full_delivery_stock_ratio``, ``buy_high`` and ``sell_low`` of `Metrics`. Unknown
            figures are None.
        """
        metrics, lookup = Metrics(report), TradeLookup(report.trades)
        capital = capital_per_share(report, lookup)
        result = {
            "turnover": self._turnover(report, lookup),
            "capacity": [
                {"share": share, "capital": _quantile(share * capital, self.quantile)}
                for share in self.shares
            ],
            **{name: _known(getattr(metrics, name)()) for name in _RATIOS},
        }
        self.result = result
        return result

    def _turnover(self, report: Report, lookup: TradeLookup) -> list[dict[str, Any]]:
        rows = []
        for column in _FILLS:
            found = traded_values(report, lookup, column)
            found = found[np.isfinite(found)]
            rows.append(
                {
                    "fill": column.removesuffix("_date"),
                    "fills": int(found.size),
                    "median": _quantile(found, 0.5),
                    "low": _quantile(found, self.quantile),
                }
            )
        return rows

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return traded value, capacity and the shares of doubtful fills."""
        turnover = pd.DataFrame(self.result["turnover"])
        capacity = pd.DataFrame(self.result["capacity"], columns=["share", "capital"])
        ratios = [{"figure": name, "value": self.result[name]} for name in _RATIOS]
        return {
            "Traded value on the days of the fills": turnover.assign(
                median=turnover["median"].map(_money), low=turnover["low"].map(_money)
            ),
            "Capital by share of the traded value": pd.DataFrame(
                {
                    "share": capacity["share"].map("{:.1%}".format),
                    "capital": capacity["capital"].map(_money),
                }
            ),
            "Shares of the fills": pd.DataFrame(ratios).astype({"value": float}),
        }

    def notes(self) -> Iterable[str]:
        """Tell what the market does not provide."""
        if not any(row["fills"] for row in self.result["turnover"]):
            yield "No traded volume: the market has none for these trades, or there are no trades."


def _quantile(values: npt.NDArray[np.float64], quantile: float) -> float | None:
    return float(np.quantile(values, quantile)) if values.size else None


def _known(value: float) -> float | None:
    return None if math.isnan(value) else value


def _money(value: float | None) -> str:
    return "-" if pd.isna(value) else f"{value:,.0f}"
