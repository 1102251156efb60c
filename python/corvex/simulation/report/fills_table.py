"""The fills of a run: every change of a holding, its price and what it cost."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

import numpy.typing as npt
import pandas as pd

if TYPE_CHECKING:
    from corvex.simulation.account.account_currencies import Currencies

__all__ = ["fills_table"]


def fills_table(
    fills: Mapping[str, npt.NDArray[Any]],
    labels: pd.Index,
    sessions: pd.DatetimeIndex,
    currencies: Currencies | None = None,
) -> pd.DataFrame:
    """Turn the engine's fills into a table.

    Parameters
    ----------
    fills : mapping of str to array
        As the engine gives them: session, asset, shares, price and cost of each.
    labels : Index
        Label of each asset.
    sessions : DatetimeIndex
        Dates of the sessions.
    currencies : Currencies, optional
        Of an account with several: prices are then in ``currency``, at a ``rate`` of it.

    Returns
    -------
    DataFrame
        A row per fill in the order in which they happened: ``date``, ``symbol`` (categories, so
        that it stays small), ``shares`` held afterwards (negative when short), ``price`` before
        slippage and ``cost`` (fee, tax and slippage), in units of the first equity.
    """
    table = pd.DataFrame(
        {
            "date": sessions.take(fills["session"]),
            "symbol": pd.Categorical.from_codes(fills["asset"], categories=labels),
            "shares": fills["shares"],
            "price": fills["price"],
            "cost": fills["cost"],
        },
        copy=False,
    )
    if currencies is not None:
        table["currency"] = pd.Categorical.from_codes(
            currencies.of_asset[fills["asset"]], categories=pd.Index(currencies.names)
        )
        table["rate"] = currencies.rate(fills["session"], fills["asset"])
    return table
