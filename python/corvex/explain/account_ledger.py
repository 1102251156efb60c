"""The ledger of a run that kept an account: its money, in units of the curve."""

from __future__ import annotations

from typing import Any, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.explain.ledger_record import Ledger, bought_shares, known_marks

__all__ = ["ledger_of_account", "shares_at_end"]

_Floats = npt.NDArray[np.float64]
_Ints = npt.NDArray[np.int64]


def ledger_of_account(
    index: pd.DatetimeIndex,
    fills: pd.DataFrame,
    bookings: pd.DataFrame,
    account: pd.DataFrame,
    fx: pd.DataFrame | None,
    equity: _Floats,
    assets: pd.Index,
    close: _Floats,
) -> Ledger:
    """Sum up fills, splits, dividends and borrowing.

    A unit of the curve is the money that one of it stands for; only flows change it. They come
    after what was accrued since the close before, which therefore counts in the units of that
    close.
    """
    money = account.reindex(index).fillna(0.0)
    units = _units(money["equity"].to_numpy(), equity)
    before = np.concatenate([units[:1], units[:-1]])[:, None]
    now = units[:, None]

    cells, after, price, cost = _holdings(index, fills, bookings, assets)
    rates = None if fx is None else _rates(index, fills, fx, assets)
    change = bought_shares(cells % len(assets), after) * np.nan_to_num(price)
    if rates is not None:
        change = change * rates.flat[cells]

    def summed(values: _Floats, cells: _Ints = cells) -> _Floats:
        return np.bincount(cells, values, close.size).reshape(close.shape)

    shares = np.full(close.shape, np.nan)
    shares.flat[cells] = after
    shares = np.nan_to_num(pd.DataFrame(shares, copy=False).ffill().to_numpy())
    filled = ~np.isnan(price)
    value = shares * known_marks(close, cells[filled], price[filled])
    currency = None
    if rates is not None:
        value = value * rates
        moved = rates[1:] / rates[:-1] - 1.0
        currency = np.vstack([np.zeros_like(value[:1]), value[:-1] * moved]) / now
    moves = (np.diff(value, axis=0, prepend=0.0) - summed(change)) / now

    places, known = _cells(index, bookings, assets)
    kinds, booked = bookings["kind"].to_numpy()[known], bookings["money"].to_numpy()[known]
    dividends = summed(np.where(kinds == "dividend", booked, 0.0), places) / now
    borrow = summed(np.where(kinds == "borrow", booked, 0.0), places) / before
    cost_of = summed(cost) / now
    return Ledger(
        index,
        assets,
        equity,
        shares / now,
        value / now,
        moves + dividends + borrow,
        (summed(np.maximum(change, 0.0)) / now).sum(axis=1),
        (summed(np.maximum(-change, 0.0)) / now).sum(axis=1),
        cost_of.sum(axis=1),
        priced=True,
        estimated=False,
        cost_of=cost_of,
        dividends=dividends,
        borrow=borrow,
        interest=(money["interest"] - money["financing"]).to_numpy() / before[:, 0],
        currency=currency,
    )


def shares_at_end(
    index: pd.DatetimeIndex, fills: pd.DataFrame, bookings: pd.DataFrame, assets: pd.Index
) -> _Floats:
    """Return what is held of each asset after the last fill and the last split."""
    cells, after, _, _ = _holdings(index, fills, bookings, assets)
    shares = np.zeros(len(assets))
    shares[cells % len(assets)] = after  # of several the last one counts
    return shares


def _rates(
    index: pd.DatetimeIndex, fills: pd.DataFrame, fx: pd.DataFrame, assets: pd.Index
) -> _Floats:
    """What a unit of each asset's currency costs by session; 1 of what was never held.

    The rates of the first session count before it, too, and the last ones after the last.
    """
    known = fx.reindex(index).ffill().bfill()
    first = fills.drop_duplicates("symbol")
    quoted = dict(zip(first["symbol"].tolist(), first["currency"].tolist(), strict=True))
    codes = np.array([quoted.get(label) for label in assets], dtype=object)
    rates = np.ones((len(index), len(assets)))
    for name in known.columns:
        rates[:, codes == name] = known[[name]].to_numpy()
    return rates


def _units(money: _Floats, equity: _Floats) -> _Floats:
    alive = equity > 0.0
    units = np.where(alive & (money > 0.0), money / np.where(alive, equity, 1.0), np.nan)
    return cast("_Floats", pd.Series(units).ffill().bfill().to_numpy())


def _holdings(
    index: pd.DatetimeIndex, fills: pd.DataFrame, bookings: pd.DataFrame, assets: pd.Index
) -> tuple[_Ints, _Floats, _Floats, _Floats]:
    """Cell, shares held afterwards, price and cost of fills, and of splits: these have no price."""
    splits = bookings[(bookings["kind"] == "split").to_numpy()]
    parts: list[tuple[Any, ...]] = []
    for table, price, cost in (
        (splits, np.full(len(splits), np.nan), np.zeros(len(splits))),
        (fills, fills["price"].to_numpy(), fills["cost"].to_numpy()),
    ):
        cells, known = _cells(index, table, assets)
        parts.append((cells, table["shares"].to_numpy()[known], price[known], cost[known]))
    cells, shares, price, cost = (np.concatenate(column) for column in zip(*parts, strict=True))
    order = np.argsort(cells // len(assets), kind="stable")  # of one date the split comes first
    return cells[order], shares[order], price[order], cost[order]


def _cells(
    index: pd.DatetimeIndex, table: pd.DataFrame, assets: pd.Index
) -> tuple[_Ints, npt.NDArray[np.bool_]]:
    """Where the entries of a table stand in dates x assets, and which of them do."""
    rows = index.get_indexer(pd.DatetimeIndex(table["date"]))
    labels = table["symbol"].cat
    columns = assets.get_indexer(labels.categories)[labels.codes]
    known = (rows >= 0) & (columns >= 0)
    return rows[known] * len(assets) + columns[known], known
