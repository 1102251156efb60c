"""The money of a run that kept an account: by session, by asset, and in its round trips."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.simulation.account.account_currencies import Currencies
from corvex.simulation.account.account_notices import CUTS

if TYPE_CHECKING:
    from corvex._engine import AccountResult

__all__ = [
    "ACCOUNT_COLUMNS",
    "account_costs",
    "account_table",
    "bookings_table",
    "currency_columns",
    "fx_table",
    "trip_columns",
]

_Floats = npt.NDArray[np.float64]
_Ints = npt.NDArray[np.int64]
type _Columns = Mapping[str, npt.NDArray[Any]]

#: The columns of `report.account`, all in money.
ACCOUNT_COLUMNS = (
    *("cash", "long", "short", "gross", "equity", "interest", "financing", "borrow"),
    *("dividends", "fees", "tax", "slippage", "impact", "flows"),
)
_KINDS = pd.Index(["borrow", "dividend", "split"])
_DAYS = 365.25


def account_table(
    rows: _Columns, length: int, sessions: pd.DatetimeIndex, base: str | None = None
) -> pd.DataFrame:
    """Return the money of each session; ``attrs`` hold the yearly money-weighted return.

    Parameters
    ----------
    rows, length : dict of arrays and int
        The sessions' columns, and the sessions of the run, as the engine gives them.
    sessions : DatetimeIndex
        The dates of the curve's sessions: the last ones of the run.
    base : str, optional
        The currency of an account with several: what their rates brought is told too.
    """
    columns = {name: _padded(rows[name], length, len(sessions)) for name in rows}
    columns["gross"] = columns["long"] - columns["short"]
    names = ACCOUNT_COLUMNS if base is None else (*ACCOUNT_COLUMNS, "currency")
    table = pd.DataFrame({name: columns[name] for name in names}, index=sessions)
    start = _start(columns)
    table.attrs = {
        "capital": start,
        "money_weighted_return": _money_weighted(start, table["flows"], columns["equity"][-1]),
    }
    if base is not None:
        table.attrs["currency"] = base
    return table


def account_costs(found: AccountResult, *, currencies: bool = False) -> dict[str, float]:
    """Return what was paid and received in all, in units of the first equity, as the curve is.

    With several currencies also what the moves of their rates brought.
    """
    columns = found["sessions"]
    units = columns["units"]
    before = np.concatenate([units[:1], units[:-1]])  # a flow comes after what was accrued

    def total(name: str) -> float:
        accrued = name in ("financing", "borrow", "interest")
        return float(np.cumsum(columns[name] / (before if accrued else units))[-1])

    paid = ("fees", "tax", "slippage", "impact", "financing", "borrow")
    sums = {name: total(name) for name in paid}
    others = ("interest", "dividends", "currency") if currencies else ("interest", "dividends")
    received = {name: total(name) for name in others}
    return {**sums, "total": sum(sums.values()), **received}


def bookings_table(rows: _Columns, labels: pd.Index, sessions: pd.DatetimeIndex) -> pd.DataFrame:
    """Return what single assets paid or cost beside trades.

    Returns
    -------
    DataFrame
        ``date``, ``symbol`` (categories), ``kind`` ("dividend", "borrow" or "split"), ``money``
        (paid is negative, dividends without the tax withheld) and ``shares`` held by then.
    """
    return pd.DataFrame(
        {
            "date": sessions.take(rows["session"]),
            "symbol": pd.Categorical.from_codes(rows["asset"], categories=labels),
            "kind": pd.Categorical.from_codes(rows["kind"], categories=_KINDS),
            "money": rows["money"],
            "shares": rows["shares"],
        },
        copy=False,
    )


def fx_table(currencies: Currencies, sessions: pd.DatetimeIndex) -> pd.DataFrame:
    """Return what one unit of each foreign currency cost in the account's own by session."""
    table = pd.DataFrame(
        currencies.rates[len(currencies.rates) - len(sessions) :, 1:].copy(),
        sessions,
        list(currencies.names[1:]),
    )
    table.attrs = {"base": currencies.names[0]}
    return table


def currency_columns(
    currencies: Currencies, assets: _Ints, entry: _Ints, exit_: _Ints
) -> dict[str, Any]:
    """Return what the table of trades tells of currencies.

    ``currency`` that the asset is quoted in, and ``currency_return``: how its rate moved from the
    first fill to the exit or, of an open trade, to the last session.
    """
    ends = np.where(exit_ >= 0, exit_, len(currencies.rates) - 1)
    moved = currencies.rate(ends, assets) / currencies.rate(np.maximum(entry, 0), assets) - 1.0
    names = pd.Index(currencies.names)
    return {
        "currency": names.take(currencies.of_asset[assets]),
        "currency_return": np.where(entry >= 0, moved, np.nan),
    }


def trip_columns(trips: _Columns, filled: npt.NDArray[np.bool_]) -> dict[str, Any]:
    """Return what the table of trades has beside its usual columns.

    ``shares`` of the first fill, ``money`` gained with all that was paid and received, and
    ``cut``: why orders traded less than was wanted, "" where they did not.
    """
    texts = [
        ", ".join(name for bit, name in enumerate(CUTS) if code >> bit & 1)
        for code in range(1 << len(CUTS))
    ]
    return {
        "shares": np.where(filled, trips["shares"], np.nan),
        "money": np.where(filled, trips["money"], np.nan),
        "cut": pd.Index(texts).take(trips["cut"]),
    }


def _padded(values: _Floats, length: int, last: int) -> _Floats:
    """Return the last entries of a column; after a ruin nothing is written down any more."""
    missing = length - len(values)
    whole = np.concatenate([values, np.zeros(missing)]) if missing else values
    return cast("_Floats", whole[len(whole) - last :])


def _start(columns: dict[str, _Floats]) -> float:
    """The money before the first session, from its identity."""
    return float(columns["units"][0] - columns["flows"][0])


def _money_weighted(start: float, flows: pd.Series, end: float) -> float:
    """Return the yearly rate at which the start and the flows have grown to the end.

    A flow counts from the close before its session. NaN where no rate above -100 % does that.
    """
    index = cast("pd.DatetimeIndex", flows.index)
    days = (index - index[0]) / pd.Timedelta(days=1)
    years = np.asarray(days, dtype=np.float64) / _DAYS
    if years[-1] <= 0.0:
        return float("nan")
    since = np.concatenate([years[:1], years[:-1]])
    amounts = flows.to_numpy() + np.where(np.arange(len(flows)) == 0, start, 0.0)
    paid = np.flatnonzero(amounts)

    def gap(log_rate: float) -> float:
        return float((amounts[paid] * np.exp(log_rate * (years[-1] - since[paid]))).sum()) - end

    high = min(50.0, 600.0 / years[-1])  # what a float can still raise to its power
    low = -high
    if not gap(low) < 0.0 < gap(high):
        return float("nan")
    for _ in range(60):
        middle = (low + high) / 2.0
        low, high = (middle, high) if gap(middle) < 0.0 else (low, middle)
    return float(np.expm1((low + high) / 2.0))
