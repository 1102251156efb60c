"""The prices of any number of runs: read once, on one clock, bound to one market."""

from __future__ import annotations

import copy
import threading
from typing import Any, Literal, cast

import pandas as pd

from corvex.market import Market
from corvex.markets.alignment import align_tables
from corvex.simulation.read.asset_prices import AssetPrices, look_through
from corvex.simulation.read.clock import Border, Clock, dated_table
from corvex.simulation.read.market_choice import (
    Benchmark,
    bind_market,
    choose_market,
    with_adjusted_fields,
)
from corvex.simulation.read.price_tables import (
    PriceInput,
    TradeAt,
    price_table,
    read_matrices,
    user_tables,
)
from corvex.simulation.read.span import cut_clock

__all__ = ["PriceData", "read_prices"]

_MOST_KEPT = 4
_READING = threading.Lock()


class PriceData:
    """Prices on their sessions; they do not change.

    Attributes
    ----------
    clock : Clock
        The sessions.
    market : Market
        Bound to the user's prices where there are some.
    close : DataFrame
        Its close table.
    start, end : Border or None
        The borders that were asked for.
    carries : bool
        The sessions begin later than the prices do, so that what was in force there counts.
    market_chosen : {"by the labels", "by the user"}
    """

    def __init__(
        self,
        *,
        clock: Clock,
        market: Market,
        close: pd.DataFrame,
        start: Border | None,
        end: Border | None,
        carries: bool,
        market_chosen: Literal["by the labels", "by the user"],
    ) -> None:
        self.clock = clock
        self.market = market
        self.close = close
        self.start = start
        self.end = end
        self.carries = carries
        self.market_chosen = market_chosen
        self._kept: list[tuple[TradeAt, bool, AssetPrices]] = []

    def of_assets(
        self, labels: pd.Index, trade_at: TradeAt = "close", *, with_bars: bool = False
    ) -> AssetPrices:
        """Return the prices of some assets, matched and checked; those of late are kept.

        Parameters
        ----------
        labels : Index
            The assets.
        trade_at : str or DataFrame, default "close"
            Where orders fill.
        with_bars : bool, default False
            Open, high and low are needed too.
        """
        with _READING:  # runs in other threads wait for the first one to have read
            for at, bars, prices in self._kept:
                same = at is trade_at if isinstance(at, pd.DataFrame) else at == trade_at
                same_labels = prices.labels is labels or prices.labels.equals(labels)
                if same is True and bars == with_bars and same_labels:
                    return prices
            matrices = read_matrices(
                self.market, self.close, self.clock, labels, trade_at, with_bars=with_bars
            )
            prices = look_through(matrices, labels, self.close.columns, trade_at)
            self._kept[: -_MOST_KEPT + 1] = []
            self._kept.append((trade_at, with_bars, prices))
            return prices

    def __getstate__(self) -> dict[str, Any]:
        # A market's own pickle keeps the assets of one report alone; here all are wanted.
        market = copy.copy(self.market)
        market.restrict_pickle_to(self.close.columns)
        return {**self.__dict__, "market": market, "_kept": []}


def read_prices(
    prices: PriceInput,
    labels: pd.Index,
    *,
    market: str | Market | type[Market] | None = None,
    benchmark: Benchmark = None,
    start: Any = None,
    end: Any = None,
    dates: Any = None,
    assets: Any = None,
) -> PriceData:
    """Find market and prices, and cut them to the span from `start` to `end`.

    Parameters
    ----------
    prices : table, mapping of str to table, Series or None
        As `simulate` takes them.
    labels : Index
        Asset labels, which choose the market where none is named.
    market, benchmark, start, end, dates, assets
        As `simulate` takes them.
    """
    chosen = choose_market(market, labels)
    tables = user_tables(prices, labels, dates=dates, assets=assets)
    if tables is None:
        close = price_table(chosen, "close")
    else:
        tables = with_adjusted_fields(align_tables(tables, lambda: chosen.tz))
        close = tables.get("adj_close", tables.get("close"))
    close = dated_table(cast("pd.DataFrame", close), "the close prices")
    whole = Clock(cast("pd.DatetimeIndex", close.index), chosen)
    first = None if start is None else whole.border(start, "start")
    last = None if end is None else whole.border(end, "end", last=True)
    clock = cut_clock(whole, first, last)
    if tables is not None and last is not None:
        tables = {
            field: table.iloc[: whole.rows_until(cast("pd.DatetimeIndex", table.index), last)]
            for field, table in tables.items()
        }
    bound = bind_market(chosen, tables, benchmark, dates=dates)
    return PriceData(
        clock=clock,
        market=bound,
        close=close,
        start=first,
        end=last,
        carries=first is not None and whole.index[0] < clock.index[0],
        market_chosen="by the labels" if market is None else "by the user",
    )
