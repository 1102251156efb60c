"""Quoted (unadjusted) fill prices, where a market has both kinds."""

from __future__ import annotations

from typing import cast

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.market import Market
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_tables import PriceMatrices, TradeAt, fill_table
from corvex.simulation.report.trades_table import RawPrice

__all__ = ["raw_price_of"]


def raw_price_of(
    market: Market, clock: Clock, labels: pd.Index, prices: PriceMatrices, trade_at: TradeAt
) -> RawPrice | None:
    """Return what turns adjusted fill prices into quoted ones; None where there is one kind."""
    close = market.get_price("close", adj=False)
    if isinstance(trade_at, pd.DataFrame) or close is market.get_price("close", adj=True):
        return None
    fill = fill_table(market, trade_at, adj=False)
    if not (close.size and fill.size):
        return None

    def cells(table: pd.DataFrame, sessions: np.ndarray, assets: np.ndarray) -> np.ndarray:
        rows = clock.rows_in(cast("pd.DatetimeIndex", table.index))[0][sessions]
        found = match_columns(labels, table.columns)
        columns = assets if found is None else found[assets]
        values = np.full(len(rows), np.nan)
        there = (rows >= 0) & (columns >= 0)
        values[there] = table.to_numpy()[rows[there], columns[there]]
        return values

    def raw(sessions: np.ndarray, assets: np.ndarray, adjusted: np.ndarray) -> np.ndarray:
        at = np.maximum(sessions, 0)
        here = prices.fill[at, assets]
        quoted = cells(fill, at, assets)
        factor = quoted / here
        # An asset whose prices ended was closed at its last one, on a session without any.
        ended = np.flatnonzero(np.isnan(factor) & ~np.isnan(adjusted))
        if len(ended):
            last = _engine.last_priced_sessions(prices.close)[assets[ended]]
            factor[ended] = cells(close, last, assets[ended]) / prices.close[last, assets[ended]]
        return np.where(adjusted == here, quoted, adjusted * factor)

    return raw
