"""Market tables in the form in which they may be attached to trades."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import pandas as pd

from corvex.core.trade_lookup import TradeLookup
from corvex.core.trade_rows import closed_trades

if TYPE_CHECKING:
    from collections.abc import Iterator

    from corvex.analysis import TradeInfo
    from corvex.core.report import Report

__all__ = ["complete_info"]


def complete_info(
    report: Report, name: str, table: pd.DataFrame, date_columns: list[str]
) -> Iterator[TradeInfo]:
    """Give the trade info of a table for the date columns on which no closed trade lacks a value.

    A hole in one closed trade would drop that trade from the win ratio, so a column that is not
    complete is not given at all.
    """
    trades = closed_trades(report)
    if trades.empty or table.empty:
        return
    lookup = TradeLookup(trades)
    complete = [
        column
        for column in date_columns
        if column in trades.columns and not np.isnan(lookup.values(table, column)).any()
    ]
    if complete:
        yield name, table, complete
