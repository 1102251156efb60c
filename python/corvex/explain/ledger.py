"""What a report held, gained and traded in each session, from the fills of its simulation."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.explain.account_ledger import ledger_of_account
from corvex.explain.ledger_record import Ledger, bought_shares, known_marks
from corvex.simulation.options import Options
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.columns import match_columns
from corvex.simulation.report.fills_table import fills_table
from corvex.trades.trade_lookup import market_table

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Ledger", "ledger_from_fills", "ledger_of"]

_Floats = npt.NDArray[np.float64]


def ledger_of(report: Report) -> Ledger:
    """Return the ledger of a report: fills, summed up, times the closes."""
    index = cast("pd.DatetimeIndex", report.creturn.index)
    curve: _Floats = np.asarray(report.creturn, dtype=np.float64)
    fills: pd.DataFrame | None = getattr(report, "fills", None)
    estimated = fills is None
    equity = curve / curve[0] if estimated and len(curve) else curve
    position = report.position.reindex(index)
    held = np.nan_to_num(position.to_numpy(dtype=np.float64))
    used = np.flatnonzero((held != 0.0).any(axis=0))
    assets = position.columns[used]
    close = _prices(report, "get_price", "close", index=index, assets=assets)
    if close is None or not len(index):
        return _by_weights(index, assets, equity, held[:, used], estimated=estimated)
    if fills is None:
        fills = _guessed_fills(report, index, assets, held[:, used], close)
    account: pd.DataFrame | None = getattr(report, "account", None)
    if account is not None and fills is not None:
        bookings = cast("pd.DataFrame", report.bookings)
        fx = report.fx
        return ledger_of_account(index, fills, bookings, account, fx, equity, assets, close)
    return ledger_from_fills(index, fills, equity, assets, close, estimated=estimated)


def ledger_from_fills(
    index: pd.DatetimeIndex,
    fills: pd.DataFrame,
    equity: _Floats,
    assets: pd.Index,
    close: _Floats,
    *,
    estimated: bool = False,
) -> Ledger:
    """Sum up fills; `close` has the closes of the assets on the dates of the curve."""
    rows = index.get_indexer(pd.DatetimeIndex(fills["date"]))
    labels = fills["symbol"].cat
    columns = assets.get_indexer(labels.categories)[labels.codes]
    known = (rows >= 0) & (columns >= 0)
    rows, columns = rows[known], columns[known]
    after, price, cost = (fills[name].to_numpy()[known] for name in ("shares", "price", "cost"))
    change = bought_shares(columns, after) * price

    cells = rows * len(assets) + columns
    shares = np.full(close.shape, np.nan)
    shares.flat[cells] = after  # of several fills in one session the last one counts
    shares = np.nan_to_num(pd.DataFrame(shares, copy=False).ffill().to_numpy())
    value = shares * known_marks(close, cells, price)
    spent = np.bincount(cells, change, close.size).reshape(close.shape)
    profit = np.diff(value, axis=0, prepend=0.0) - spent
    if estimated:  # what such a report holds from its first date on was not bought on that day
        profit[0] = 0.0
        change, cost = np.where(rows > 0, change, 0.0), np.where(rows > 0, cost, 0.0)
    sessions = len(index)
    return Ledger(
        index,
        assets,
        equity,
        shares,
        value,
        profit,
        np.bincount(rows, np.maximum(change, 0.0), sessions),
        np.bincount(rows, np.maximum(-change, 0.0), sessions),
        np.bincount(rows, cost, sessions),
        priced=True,
        estimated=estimated,
        cost_of=np.bincount(cells, cost, close.size).reshape(close.shape),
    )


def _by_weights(
    index: pd.DatetimeIndex,
    assets: pd.Index,
    equity: _Floats,
    weights: _Floats,
    *,
    estimated: bool,
) -> Ledger:
    """Take the target weights for the holdings, as no price tells how they drifted."""
    change = np.diff(weights, axis=0, prepend=weights[:1]) * equity[:, None]
    nothing = np.zeros_like(weights)
    return Ledger(
        index,
        assets,
        equity,
        nothing,
        weights * equity[:, None],
        nothing,
        np.maximum(change, 0.0).sum(axis=1),
        -np.minimum(change, 0.0).sum(axis=1),
        np.zeros(len(index)),
        priced=False,
        estimated=estimated,
        cost_of=nothing,
    )


def _prices(
    report: Report, method: str, *args: Any, index: pd.DatetimeIndex, assets: pd.Index
) -> _Floats | None:
    """Return a market's prices on the dates of the curve; None where it knows no asset."""
    table = market_table(report.market, method, *args)
    if table.empty:
        return None
    found = match_columns(assets, table.columns)
    columns = np.arange(len(assets)) if found is None else found
    rows = table.index.get_indexer(index)
    known = columns >= 0
    if not known.any() or not (rows >= 0).any():
        return None
    out = np.full((len(index), len(assets)), np.nan)
    part = table.iloc[:, columns[known]].to_numpy(dtype=np.float64)
    out[np.ix_(rows >= 0, known)] = part[rows[rows >= 0]]
    return out


def _guessed_fills(
    report: Report, index: pd.DatetimeIndex, assets: pd.Index, weights: _Floats, close: _Floats
) -> pd.DataFrame:
    """Guess the fills of a report without any: each change of its weights is a rebalance.

    A stop, too, then brings the other assets back to their targets, and fills at the same price
    as they.
    """
    changed = np.flatnonzero((np.diff(weights, axis=0, prepend=0.0) != 0.0).any(axis=1))
    rows = np.union1d(changed, _rows_after(report, index)).astype(np.int64)
    fill = _prices(report, "get_trading_price", report.trade_at, index=index, assets=assets)
    settings = getattr(report, "settings", None) or {}
    prices = _engine.PriceSet(
        close=close,
        fill_at="close" if fill is None or report.trade_at == "close" else "other",
        fill=fill,
    )
    options = Options(
        fee_ratio=float(report.fee_ratio or 0.0),
        tax_ratio=float(report.tax_ratio or 0.0),
        slippage_ratio=float(settings.get("slippage_ratio") or 0.0),
    )
    run = _engine.simulate(
        prices,
        np.ascontiguousarray(weights[rows]),
        rows - 1,
        options=options,
        record_positions=False,
        record_trades=False,
        record_fills=True,
    )
    return fills_table(cast("dict[str, npt.NDArray[Any]]", run["fills"]), assets, index)


def _rows_after(report: Report, index: pd.DatetimeIndex) -> npt.NDArray[np.int64]:
    """Return the rows after the signal dates that a frequency of rebalancing gives."""
    rule: Any = getattr(report, "resample", None)
    if not isinstance(rule, str):
        return np.empty(0, dtype=np.int64)
    try:
        rows = _engine.period_last_sessions(Clock(index, report.market).wall_nanos, rule) + 1
    except ValueError:  # a frequency that is no plain period; the changed weights must do
        return np.empty(0, dtype=np.int64)
    return rows[rows < len(index)]
