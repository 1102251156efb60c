"""What a run starts from: weights, sessions and market, brought together."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, cast

import pandas as pd

from corvex.market import Market
from corvex.markets.alignment import align_tables
from corvex.simulation.read.clock import Clock, Stamps, dated_table
from corvex.simulation.read.market_choice import (
    Benchmark,
    bind_market,
    choose_market,
    with_adjusted_fields,
)
from corvex.simulation.read.price_tables import PriceInput, price_table, user_tables
from corvex.simulation.read.span import cut_clock, cut_weights
from corvex.simulation.read.weights import WeightTable

__all__ = ["RunInputs", "read_inputs"]


@dataclass(frozen=True, slots=True)
class RunInputs:
    """Checked inputs of one run.

    Attributes
    ----------
    weights : WeightTable
        The rows of weights that count.
    rows : Stamps
        Their dates on the clock.
    clock : Clock
        The sessions of the run.
    market : Market
        The report's market: bound to the user's prices where there are some.
    close : DataFrame
        Its close table.
    """

    weights: WeightTable
    rows: Stamps
    clock: Clock
    market: Market
    close: pd.DataFrame


def read_inputs(
    weights: WeightTable,
    prices: PriceInput,
    market: str | Market | type[Market] | None,
    benchmark: Benchmark,
    start: Any,
    end: Any,
) -> RunInputs:
    """Find market and prices of the weights, and cut all to the span of the run."""
    chosen = choose_market(market, weights.labels)
    tables = user_tables(prices, weights.labels)
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
    bound = bind_market(chosen, tables, benchmark)
    # Rows before the run count only where prices there were cut off.
    carry = first is not None and whole.index[0] < clock.index[0]
    kept, rows = cut_weights(weights, clock, carry=carry, end=last)
    return RunInputs(kept, rows, clock, bound, close)
