"""Markets as data: the name of a known class, its settings and its tables."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.market import Market
from corvex.markets import get_market_by_name
from corvex.markets.bound import BoundMarket, restored, unbound_class
from corvex.safe_file.arrays import DamagedFileError
from corvex.trades.trade_lookup import TradeLookup

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.safe_file.decoder import Decoder
    from corvex.safe_file.encoder import Encoder

__all__ = ["market_from_record", "market_record"]

_CELLS = 2_000_000
_BEFORE, _AFTER, _LAST = 30, 5, 30  # bars kept around a trade, and of all assets at the end


def market_record(market: Market, report: Report, encoder: Encoder, path: str) -> dict[str, Any]:
    """Return the JSON of a market."""
    kind = unbound_class(type(market))
    bound = isinstance(market, BoundMarket)
    state = market.saved_state() if isinstance(market, BoundMarket) else dict(vars(market))
    if bound:
        tables = state["_tables"]
        if sum(table.size for table in tables.values()) > _CELLS:
            tables = {name: _around_trades(table, report) for name, table in tables.items()}
        state["_tables"] = tables
    return {
        "name": market.get_name(),
        "class": kind.__name__,
        "bound": bound,
        "v": encoder.encode(state, path),
    }


def _around_trades(table: pd.DataFrame, report: Report) -> pd.DataFrame:
    """Blank out the prices that no trade is near of: nothing asks for them."""
    keep: npt.NDArray[np.bool_] = np.zeros(table.shape, dtype=np.bool_)
    keep[-_LAST:] = True
    lookup = TradeLookup(report.trades)
    columns = lookup.columns_in(table.columns)
    first = lookup.rows_in(table.index, "entry_date")
    last = lookup.rows_in(table.index, "exit_date")
    last = np.where(lookup.trades["exit_date"].isna().to_numpy(), len(table) - 1, last)
    for column, start, end in zip(columns, first, last, strict=True):
        if column >= 0 and start >= 0 and end >= start:
            keep[max(0, start - _BEFORE) : end + _AFTER + 1, column] = True
    return table.where(keep)


def market_from_record(record: Any, decoder: Decoder) -> Market:
    """Make the market of a record: a built-in one, or one that is registered here."""
    name = str(record["name"])
    try:
        known = get_market_by_name(name)
    except ValueError:
        raise DamagedFileError(
            f"its market {name!r} is not known here; register it with "
            "corvex.markets.register_market, then open the file again"
        ) from None
    state = decoder.decode(record["v"])
    kind = unbound_class(type(known))
    if not isinstance(state, dict) or any(
        not isinstance(key, str) or key.startswith("__") or callable(getattr(kind, key, None))
        for key in state
    ):
        raise DamagedFileError("its market has no settings")
    if not record["bound"]:
        known.__dict__.update(state)
        return known
    tables = state.get("_tables")
    if not isinstance(tables, dict) or not all(
        isinstance(table, pd.DataFrame) for table in tables.values()
    ):
        raise DamagedFileError("its market has no prices")
    return cast("Market", restored(kind, state))
