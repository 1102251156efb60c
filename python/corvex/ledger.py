"""What a report held from session to session, worked out from its weights and prices.

A report keeps target weights, not shares. Between rebalances weights drift with the prices, so
the shares are worked out again here, by the simulation's own rules: at a rebalance each asset is
brought to its target share of the equity after costs, a stop closes one asset alone, and nothing
else is traded.
"""

from __future__ import annotations

import heapq
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, cast

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.core.trade_lookup import market_table
from corvex.markets.stamps import has_dates_only
from corvex.simulation.dates import local_nanos
from corvex.simulation.labels import match_columns

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["Ledger", "ledger_of"]

_Floats = npt.NDArray[np.float64]

#: Exits that concern one asset alone; any other change of the weights is a rebalance.
_LONE_EXITS = ("stop_loss", "take_profit", "trail_stop", "prices_ended", "ruin")


@dataclass(frozen=True, slots=True)
class Ledger:
    """Holdings, profits and orders, all in units of the first equity.

    Attributes
    ----------
    index : DatetimeIndex of length sessions
        The dates of the curve.
    assets : Index of length assets
        Labels of the assets that were ever held.
    equity : float64 array of shape (sessions,)
        The curve, 1.0 first.
    value : float64 array of shape (sessions, assets)
        Value of each holding at the close; negative when short.
    profit : float64 array of shape (sessions, assets)
        What each holding gained in the session, before costs.
    bought, sold : float64 arrays of shape (sessions,)
        Traded value.
    priced : bool
        False when the report's market has no prices of the assets. Then the holdings are the
        target weights and the profits are 0.
    """

    index: pd.DatetimeIndex
    assets: pd.Index
    equity: _Floats
    value: _Floats
    profit: _Floats
    bought: _Floats
    sold: _Floats
    priced: bool


def ledger_of(report: Report) -> Ledger:
    """Work out the holdings of a report (see the module's description)."""
    curve = report.creturn
    index = cast("pd.DatetimeIndex", curve.index)
    position = report.position.reindex(index)
    weights = np.nan_to_num(position.to_numpy(dtype=np.float64))
    held = np.flatnonzero((weights != 0.0).any(axis=0))
    weights, assets = np.ascontiguousarray(weights[:, held]), position.columns[held]
    values: _Floats = np.asarray(curve, dtype=np.float64)
    equity: _Floats = values / values[0] if len(values) else values
    close = _prices(market_table(report.market, "get_price", "close"), index, assets)
    priced = close is not None and bool(len(index))
    fill = _prices(market_table(report.market, "get_trading_price", report.trade_at), index, assets)
    book = _Book(weights, equity, close if priced else None, fill)
    if priced:
        exits = _lone_exits(report, index, assets)
        _set_trade_prices(book, report, index, assets)
        book.run(_rebalances(report, index, weights, exits, book.late), exits)
    else:
        book.follow_weights()
    return Ledger(index, assets, equity, book.value, book.profit, book.bought, book.sold, priced)


class _Book:
    """Walks from one day with orders to the next; the sessions between are one array operation."""

    def __init__(
        self, weights: _Floats, equity: _Floats, close: _Floats | None, fill: _Floats | None
    ) -> None:
        self.weights, self.equity = weights, equity
        self.value, self.profit = np.zeros_like(weights), np.zeros_like(weights)
        self.bought, self.sold = np.zeros(len(equity)), np.zeros(len(equity))
        if close is not None:
            # A missing price leaves a holding at its last one, and lets nothing be traded.
            self.close = pd.DataFrame(close, copy=False).ffill().to_numpy()
            self.fill = close.copy() if fill is None else fill

    def follow_weights(self) -> None:
        """Take the target weights for the holdings, as nothing tells how they drifted."""
        self.value[:] = self.weights * self.equity[:, None]
        change = np.diff(self.weights, axis=0) * self.equity[1:, None]
        self.bought[1:] = np.maximum(change, 0.0).sum(axis=1)
        self.sold[1:] = -np.minimum(change, 0.0).sum(axis=1)

    @property
    def late(self) -> npt.NDArray[np.bool_]:
        """Where, from the second row on, a price follows a gap: orders waited for it."""
        return np.isnan(self.fill[:-1]) & np.isfinite(self.fill[1:])

    def run(self, rebalances: set[int], exits: dict[int, list[int]]) -> None:
        """Fill the arrays from rebalance rows and the assets that leave alone on a row."""
        if not len(self.equity):
            return
        shares = _over(self.weights[0] * self.equity[0], self.close[0])
        self.value[0] = np.nan_to_num(shares * self.close[0])
        lone = {row: list(columns) for row, columns in exits.items()}
        for at, asset in np.argwhere((self.weights[1:] != self.weights[:-1]) & self.late).tolist():
            lone.setdefault(at + 1, []).append(asset)
        rows = sorted((rebalances | lone.keys()) - {0})
        waiting: set[int] = set()
        last = 0
        while rows:
            row = heapq.heappop(rows)
            if row <= last:
                continue
            self._hold(shares, last, row - 1)
            tradable = np.isfinite(self.fill[row])
            wanted = np.zeros(shares.size, dtype=bool)
            if row in rebalances:
                wanted[:] = True
                waiting.clear()
            else:
                wanted[lone.get(row, [])] = True
                wanted[list(waiting)] = True
            left = np.zeros(shares.size, dtype=bool)
            left[exits.get(row, [])] = True
            shares = self._trade(shares, row, wanted & tradable, left)
            waiting |= set(np.flatnonzero(wanted & ~tradable & self._differs(shares, row)).tolist())
            waiting -= set(np.flatnonzero(wanted & tradable).tolist())
            self._look_ahead(rows, waiting, row)
            last = row
        self._hold(shares, last, len(self.equity) - 1)

    def _differs(self, shares: _Floats, row: int) -> npt.NDArray[np.bool_]:
        return cast("npt.NDArray[np.bool_]", (shares != 0.0) | (self.weights[row] != 0.0))

    def _look_ahead(self, rows: list[int], waiting: set[int], row: int) -> None:
        """Add the first row on which a waiting order finds a price."""
        for asset in waiting:
            found = np.flatnonzero(np.isfinite(self.fill[row + 1 :, asset]))
            if found.size:
                heapq.heappush(rows, row + 1 + int(found[0]))

    def _hold(self, shares: _Floats, first: int, last: int) -> None:
        """Carry the same shares from the close of one row to that of another."""
        held = np.flatnonzero(shares)
        if last <= first or not held.size:
            return
        value = self.close[first : last + 1, held] * shares[held]
        self.value[first + 1 : last + 1, held] = value[1:]
        self.profit[first + 1 : last + 1, held] = np.diff(value, axis=0)

    def _trade(
        self,
        old: _Floats,
        row: int,
        traded: npt.NDArray[np.bool_],
        left: npt.NDArray[np.bool_],
    ) -> _Floats:
        """Trade the marked assets to their weights; returns the new shares.

        What is `left` by a stop is sold whole, also where the rebalance buys it back.
        """
        fill = np.where(traded, self.fill[row], np.nan)
        growth = np.nan_to_num(_over(self.close[row], fill), nan=1.0) - 1.0
        # The weights refer to the equity at the fill, of which the curve knows the close.
        moved = float(self.weights[row][traded] @ growth[traded])
        at_fill = self.equity[row] / (1.0 + moved) if moved > -1.0 else self.equity[row]
        before, close = self.close[row - 1], self.close[row]
        target = np.where(traded, self.weights[row], 0.0)
        stays = float(np.nan_to_num(old * before)[~traded].sum())
        if stays != 0.0:
            target = _within_cash(target, stays / at_fill)
        new = np.where(traded, _over(target * at_fill, fill), old)
        apart = np.nan_to_num(old * (fill - before)) + np.nan_to_num(new * (close - fill))
        self.profit[row] = np.where(traded, apart, np.nan_to_num(old * (close - before)))
        self.value[row] = np.nan_to_num(new * close)
        for order in (np.where(left, -old, new - old) * fill, np.where(left, new, 0.0) * fill):
            traded_value = np.nan_to_num(order)
            self.bought[row] += np.maximum(traded_value, 0.0).sum()
            self.sold[row] -= np.minimum(traded_value, 0.0).sum()
        return new


def _within_cash(target: _Floats, stays: float) -> _Floats:
    """Scale the long targets down to the cash that holdings without a price leave.

    Cash may fall to zero, or to what the targets leave where they sum to more than one.
    """
    longs = float(np.maximum(target, 0.0).sum())
    shorts = float(np.minimum(target, 0.0).sum())
    room = max(1.0 - min(0.0, 1.0 - longs - shorts) - stays - shorts, 0.0)
    return np.where(target > 0.0, target * (room / longs), target) if longs > room else target


def _over(values: _Floats, prices: _Floats) -> _Floats:
    """Divide by prices; 0 where there is no price and nothing to divide."""
    with np.errstate(divide="ignore", invalid="ignore"):
        quotient: _Floats = np.where(values == 0.0, 0.0, values / prices)
    return np.nan_to_num(quotient, posinf=0.0, neginf=0.0)


def _prices(table: pd.DataFrame, index: pd.DatetimeIndex, assets: pd.Index) -> _Floats | None:
    """Return the prices on the dates of the curve; None where the table knows no asset."""
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


def _known_trades(report: Report, column: str) -> pd.DataFrame:
    trades = report.trades
    wanted = {"symbol", "exit_reason", column}
    return trades[trades[column].notna()] if wanted <= set(trades.columns) else trades.iloc[:0]


def _lone_exits(report: Report, index: pd.DatetimeIndex, assets: pd.Index) -> dict[int, list[int]]:
    """Return, by row, the assets that were closed without a rebalance."""
    trades = _known_trades(report, "exit_date")
    found: dict[int, list[int]] = {}
    if trades.empty:
        return found
    trades = trades[trades["exit_reason"].isin(_LONE_EXITS)]
    rows = index.get_indexer(pd.Index(trades["exit_date"]))
    columns = assets.get_indexer(pd.Index(trades["symbol"]))
    for row, column in zip(rows.tolist(), columns.tolist(), strict=True):
        if row >= 0 and column >= 0:
            found.setdefault(row, []).append(column)
    return found


def _set_trade_prices(
    book: _Book, report: Report, index: pd.DatetimeIndex, assets: pd.Index
) -> None:
    """Use the fill prices of stops inside a session, which no price table has."""
    trades = _known_trades(report, "exit_date")
    if trades.empty or "trade_price@exit_date" not in trades.columns:
        return
    trades = trades[trades["exit_reason"].isin(_LONE_EXITS)]
    rows = index.get_indexer(pd.Index(trades["exit_date"]))
    columns = assets.get_indexer(pd.Index(trades["symbol"]))
    prices = trades["trade_price@exit_date"].to_numpy(dtype=np.float64)
    quoted = _prices(market_table(report.market, "get_price", "close", adj=False), index, assets)
    known = (rows >= 0) & (columns >= 0) & np.isfinite(prices)
    rows, columns, prices = rows[known], columns[known], prices[known]
    if quoted is not None and len(prices):
        factor = book.close[rows, columns] / quoted[rows, columns]
        prices = np.where(np.isfinite(factor), prices * factor, prices)
    book.fill[rows, columns] = prices


def _rebalances(
    report: Report,
    index: pd.DatetimeIndex,
    weights: _Floats,
    exits: dict[int, list[int]],
    late: npt.NDArray[np.bool_],
) -> set[int]:
    """Return the rows on which a rebalance was filled.

    `late` marks prices after a gap: an order that waited for one changes the weights too.
    """
    changed = (weights[1:] != weights[:-1]) & ~late
    for row, columns in exits.items():
        if row > 0:
            left = [column for column in columns if weights[row, column] == 0.0]
            changed[row - 1, left] = False
    found = set((np.flatnonzero(changed.any(axis=1)) + 1).tolist())
    return found | _rows_after(report, index)


def _rows_after(report: Report, index: pd.DatetimeIndex) -> set[int]:
    """Return the rows after the signal dates that the resample rule gives."""
    rule: Any = getattr(report, "resample", None)
    if rule is None:
        return set()
    sessions = cast("pd.DatetimeIndex", getattr(report.market, "price_index", index))
    if isinstance(rule, str):
        moved = (getattr(report, "settings", None) or {}).get("resample_offset")
        shift = pd.Timedelta(moved or 0).as_unit("ns").value
        try:
            at = _engine.period_last_sessions(local_nanos(sessions) - shift, rule)
        except ValueError:  # a frequency that is no plain period; the changed weights must do
            return set()
    else:
        at = _rows_until(sessions, pd.DatetimeIndex(rule))
    filled = at[(at >= 0) & (at + 1 < len(sessions))] + 1
    rows = index.get_indexer(sessions[filled])
    return set(rows[rows > 0].tolist())


def _rows_until(sessions: pd.DatetimeIndex, dates: pd.DatetimeIndex) -> npt.NDArray[np.int64]:
    """Return the last session at or before each date; a bare date means its whole day."""
    if sessions.tz is None:
        dates = dates.tz_localize(None)
    elif dates.tz is None:
        dates = dates.tz_localize(sessions.tz)
    if has_dates_only(dates):
        sessions = sessions.normalize()
    found: npt.NDArray[np.int64] = sessions.searchsorted(dates, side="right") - 1
    return found
