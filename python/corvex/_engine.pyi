"""Kernels of the corvex engine: arrays in, arrays out."""

from typing import Literal, TypedDict

import numpy as np
from numpy.typing import NDArray

type FloatArray = NDArray[np.float64]
type IntArray = NDArray[np.int64]

# --- calendar -----------------------------------------------------------------------------------

def period_last_sessions(sessions: IntArray, rule: str) -> IntArray:
    """Rows of the last session of each period.

    Parameters
    ----------
    sessions : int64 array of shape (sessions,)
        Nanoseconds since the epoch in the market's local time, strictly ascending.
    rule : str
        A pandas frequency alias, old or new: "D", "B", "W", "W-FRI", "ME"/"M", "QE"/"Q",
        "QE-JAN", "YE"/"Y"/"A", the begin and business forms of these ("MS", "BME", ...), "h",
        "min", "s", each with an optional multiple ("2W", "3ME"), which is counted from the
        period of the first session, as pandas does.

    Returns
    -------
    int64 array
        Ascending rows; the last one is always the last session, whether its period is over or not.

    Raises
    ------
    ValueError
        For an unknown rule, or sessions that are not strictly ascending.
    """

def period_bounds(sessions: IntArray, rule: str) -> tuple[int, int]:
    """First nanosecond of the period that holds the last session, and of the period after it."""

def rows_at_or_before(sessions: IntArray, dates: IntArray) -> IntArray:
    """For each date the last row at or before it, -1 where there is none."""

# --- portfolio ----------------------------------------------------------------------------------

def last_priced_sessions(prices: FloatArray) -> IntArray:
    """For each asset the last row with a price, -1 for an asset without any."""

def first_bad_price(prices: FloatArray) -> tuple[int, int] | None:
    """Row and column of the first price that is zero, negative or infinite (NaN is allowed)."""

class Trades(TypedDict):
    """Round trips, one entry each, sorted by `entry_rebalance`, then `asset`."""

    asset: IntArray  # column of the price table
    entry_rebalance: IntArray  # row of `target` whose signal opened it
    exit_rebalance: IntArray  # row of `target` whose signal closed it, -1: none did
    exit_signal_session: IntArray  # session of the exit's signal (stops, ends and ruin too), -1: none
    entry_session: IntArray  # -1: not filled yet
    exit_session: IntArray  # -1: not filled yet
    entry_price: FloatArray  # quoted fill price, before slippage; NaN: not filled yet
    exit_price: FloatArray  # quoted fill price, before slippage; NaN: not filled yet
    weight: FloatArray  # entry target weight
    exit_reason: IntArray  # 0 open, 1 rebalance, 2 stop loss, 3 take profit, 4 trailing stop,
    #                        5 prices ended, 6 ruin; set as soon as the exit is signalled
    # `return` and the columns below: NaN while not filled; the excursions are zeros unless recorded
    mae: FloatArray  # most adverse excursion, <= 0
    mfe: FloatArray  # most favourable excursion, >= 0
    mfe_before_mae: FloatArray  # the most favourable one up to the bar of the most adverse, >= 0
    max_drawdown: FloatArray  # largest fall from the trade's own peak, <= 0
    days_in_profit: FloatArray  # bars held above the entry fill price
    period: FloatArray  # bars held

class SimulationResult(TypedDict):
    """Everything that `simulate` hands over; `n` = sessions - first_session."""

    equity: FloatArray  # (n,) at each close, 1.0 before the first fill; 0 from the ruin on
    cash: FloatArray  # (n,)
    fees: FloatArray  # (n,) paid in each session, in units of the initial equity
    taxes: FloatArray  # (n,)
    slippage: FloatArray  # (n,)
    traded: FloatArray  # (n,) traded value, both sides, at quoted prices
    position: FloatArray | None  # (n, assets) target weights in force after each close
    trades: dict[str, NDArray[np.generic]] | None  # the keys of Trades and "return"
    ruin_session: int  # -1: none
    executed_rebalance: int  # row of `target` last filled, -1: none
    # the state after the last session, one entry per asset
    weights_in_force: FloatArray  # as the last row of `position`
    shares: FloatArray
    out_reason: IntArray  # exit_reason of an asset closed between rebalances (filled), else 0
    pending_reason: IntArray  # exit_reason of a stop that fired and waits for its fill, else 0
    pending_session: IntArray  # session on which it fired, -1: none
    waiting_rebalance: IntArray  # row of `target` of an order that waits for a price, -1: none

def simulate(
    *,
    close: FloatArray,
    target: FloatArray,
    signal_session: IntArray,
    first_session: int = 0,
    fill_at: Literal["close", "open", "other"] = "close",
    fill: FloatArray | None = None,
    open: FloatArray | None = None,
    high: FloatArray | None = None,
    low: FloatArray | None = None,
    fee_ratio: float = 0.0,
    tax_ratio: float = 0.0,
    slippage_ratio: float = 0.0,
    stop_loss: float | None = None,
    take_profit: float | None = None,
    trail_stop: float | None = None,
    touched_exit: bool = False,
    record_positions: bool = True,
    record_trades: bool = True,
    record_excursions: bool = True,
) -> SimulationResult:
    """Simulate a portfolio of target weights.

    Parameters
    ----------
    close : float64 array of shape (sessions, assets), C-contiguous
        Closing prices; NaN = missing. Never copied.
    target : float64 array of shape (rebalances, assets), C-contiguous
        Target weights of each rebalance, negative = short, no NaN.
    signal_session : int64 array of shape (rebalances,), ascending
        Session of each signal: the last one at or before the signal's date, -1 when it lies before
        the table. A rebalance fills in the session after it; the signal of the last session
        stays pending. Of several with the same session the last one counts.
    first_session : int
        Row where the results start; no rebalance with a weight may fill before it.
    fill_at : {"close", "open", "other"}
        Which price `fill` is. "close" ignores `fill`; the others need it.
    fill : float64 array of shape (sessions, assets)
        Prices at which orders fill.
    open, high, low : float64 arrays of shape (sessions, assets)
        Read with `touched_exit` only, which needs `high` and `low`.
    fee_ratio, tax_ratio, slippage_ratio : float
        Fractions in [0, 1): fee on each side, tax on sells, slippage against the trader.
    stop_loss, take_profit, trail_stop : float, optional
        Positive fractions; None, NaN or infinity = off.
    touched_exit : bool
        Fill stops inside the session instead of checking closes.
    record_positions, record_trades, record_excursions : bool
        What to record; excursions need trades.

    Raises
    ------
    ValueError
        For shapes that do not fit, ratios out of range, signal sessions out of order.
    """
