"""Values of trades in the form in which they may be attached to them."""

from __future__ import annotations

from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt

from corvex.trades.trade_rows import closed_returns

if TYPE_CHECKING:
    from collections.abc import Iterator, Mapping

    from corvex.analysis import TradeInfo
    from corvex.trades.trade_lookup import TradeLookup

__all__ = ["complete_info"]


def complete_info(
    lookup: TradeLookup, name: str, values: Mapping[str, npt.NDArray[np.float64]]
) -> Iterator[TradeInfo]:
    """Give the trade info of values for the date columns on which no closed trade lacks one.

    A hole in one closed trade would drop that trade from the win ratio, so a column that is not
    complete is not given at all. The table is made from the values: a market's own may be labelled
    in other ways than `Report.add_trade_info` reads.
    """
    _, closed = closed_returns(lookup.trades)
    complete = {
        column: found
        for column, found in values.items()
        if closed.any() and not np.isnan(found[closed]).any()
    }
    if complete:
        yield name, lookup.table(complete), list(complete)
