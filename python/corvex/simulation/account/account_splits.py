"""The splits of a run on its report's market, for all that follows prices over time."""

from __future__ import annotations

from typing import cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.market import Market
from corvex.markets.bound import BoundMarket
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.market_choice import bound_alone

__all__ = ["market_with_splits"]

type _Events = tuple[npt.NDArray[np.int64], npt.NDArray[np.int64], npt.NDArray[np.float64]]


def market_with_splits(market: Market, splits: _Events, labels: pd.Index, clock: Clock) -> Market:
    """Return the market with the shares that one share of the beginning has become by session.

    Parameters
    ----------
    splits : three arrays
        Session, asset among `labels`, and new shares for each old one.
    """
    bound = cast("BoundMarket", market if isinstance(market, BoundMarket) else bound_alone(market))
    columns = bound.get_price("close").columns
    found = match_columns(labels, columns)
    sessions, assets, ratios = splits
    places = assets if found is None else found[assets]
    known = places >= 0
    own, at = np.unique(places[known], return_inverse=True)
    index = bound.price_index
    steps = np.ones((len(index), len(own)))
    np.multiply.at(steps, (index.get_indexer(clock.index[sessions[known]]), at), ratios[known])
    whole = pd.DataFrame(steps.cumprod(axis=0), index, columns[own], copy=False)
    return cast("Market", bound.with_split_factors(whole))
