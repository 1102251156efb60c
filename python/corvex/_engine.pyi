"""Kernels of the corvex engine: arrays in, arrays out.

Times are int64 nanoseconds of the local wall clock, values float64 with NaN for missing ones.
Every function releases the GIL while it computes.
"""

from typing import Any, Literal, NotRequired, Protocol, TypedDict

import numpy as np
import numpy.typing as npt

_Floats = npt.NDArray[np.float64]
_Ints = npt.NDArray[np.int64]

# series
def first_unordered(times: _Ints) -> int: ...
def infer_convention(times: _Ints) -> tuple[str, int, bool]: ...
def usual_gap(times: _Ints) -> int: ...
def month_end_rows(times: _Ints) -> _Ints: ...
def year_end_rows(times: _Ints) -> _Ints: ...
def day_end_rows(times: _Ints) -> _Ints: ...
def rebase(values: _Floats, base: float) -> _Floats: ...

# statistics
FIGURE_NAMES: tuple[str, ...]

def performance_record(
    values: _Floats, times: _Ints, riskfree_rate: float = 0.0, periods_per_year: int = 0
) -> tuple[list[float], int, int, int, str, int, bool]: ...
def return_table(values: _Floats, times: _Ints) -> tuple[_Ints, _Floats]: ...
def period_figures(
    returns: _Floats, riskfree_rate: float, periods_per_year: float
) -> tuple[float, float, float, float, float, float, float, float]: ...

# drawdown
def drawdown_curve(values: _Floats) -> _Floats: ...
def drawdown_episodes(values: _Floats) -> tuple[_Ints, _Floats]: ...
def largest_drawdowns(values: _Floats, count: int) -> tuple[_Ints, _Floats]: ...

# metrics
def tail_risk(values: _Floats, share: float = 0.05) -> tuple[float, float, float]: ...
def benchmark_fit(
    strategy: _Floats, benchmark: _Floats, periods_per_year: float
) -> tuple[float, float]: ...
def trade_figures(
    returns: _Floats, counted: npt.NDArray[np.bool_] | None = None
) -> tuple[float, float, float]: ...
def mean_present(values: _Floats, counted: npt.NDArray[np.bool_] | None = None) -> float: ...
def holding_counts(weights: _Floats) -> tuple[float, int]: ...
def rows_of_times(dates: _Ints, times: _Ints, per_day: int) -> _Ints: ...
def table_cells(table: _Floats, rows: _Ints, columns: _Ints) -> _Floats: ...

# confidence: draws depend on (seed, draw) alone, whatever the threads; 0 threads = every core
PATH_FIGURE_NAMES: tuple[str, ...]

def normal_cdf(value: float) -> float: ...
def normal_quantile(probability: float) -> float: ...
def sharpe_sample(returns: _Floats, riskfree: float) -> tuple[float, float, float, int]: ...
def probabilistic_sharpe(
    sharpe: float, skewness: float, kurtosis: float, count: int, threshold: float
) -> float: ...
def minimum_track_record(
    sharpe: float,
    skewness: float,
    kurtosis: float,
    count: int,
    threshold: float,
    confidence: float,
) -> float: ...
def expected_largest_sharpe(spread: float, trials: float) -> float: ...
def autocorrelated_scale(returns: _Floats, periods: float, lags: int) -> float: ...
def mean_t_statistic(returns: _Floats, lags: int) -> float: ...
def usual_lags(count: int) -> int: ...
def automatic_block_length(values: _Floats) -> float: ...
def path_figures(returns: _Floats, periods: float, riskfree: float) -> _Floats: ...
def bootstrap_figures(
    returns: _Floats,
    periods: float,
    riskfree: float,
    draws: int,
    block: float,
    seed: int,
    threads: int = 0,
    moments_only: bool = False,
) -> _Floats: ...
def figures_without_each(
    returns: _Floats, periods: float, riskfree: float, threads: int = 0
) -> _Floats: ...
def bootstrap_interval(
    draws: _Floats,
    observed: float,
    level: float,
    method: Literal["percentile", "basic", "bca"],
    jackknife: _Floats,
) -> tuple[float, float]: ...
def draw_paths(
    returns: _Floats,
    points: _Ints,
    horizons: _Ints,
    draws: int,
    block: float,
    seed: int,
    threads: int = 0,
) -> tuple[_Floats, _Floats, _Floats]: ...
def superiority_test(
    advantages: _Floats, draws: int, block: float, seed: int, threads: int = 0
) -> tuple[float, float, float, float, float]: ...
def superior_models(
    advantages: _Floats, size: float, draws: int, block: float, seed: int, threads: int = 0
) -> _Ints: ...
def bootstrap_deviations(advantages: _Floats, block: float) -> _Floats: ...
def block_sums(returns: _Floats, blocks: int) -> tuple[_Floats, _Floats, _Ints]: ...
def backtest_overfitting(
    sums: _Floats, squares: _Floats, counts: _Ints
) -> tuple[float, float, float, _Floats, _Floats, _Floats]: ...
def random_targets(
    weights: _Floats, priced: npt.NDArray[np.bool_], first_draw: int, draws: int, seed: int
) -> _Floats: ...
def effective_trials(returns: _Floats, threads: int = 0) -> float: ...

# --- calendar -----------------------------------------------------------------------------------

def period_last_sessions(sessions: _Ints, rule: str) -> _Ints:
    """Rows of the last session of each period.

    Parameters
    ----------
    sessions : int64 array of shape (sessions,)
        Nanoseconds since the epoch in the market's local time, strictly ascending.
    rule : str
        A pandas frequency alias, old or new: "D", "B", "W", "W-FRI", "ME"/"M", "QE"/"Q",
        "QE-JAN", "YE"/"Y"/"A", the business forms of these ("BME", ...), "h", "min", "s", each
        with an optional multiple ("2W", "3ME"), which is counted from the period of the first
        session, as pandas does.

    Returns
    -------
    int64 array
        Ascending rows; the last one is always the last session, whether its period is over or not.

    Raises
    ------
    ValueError
        For an unknown rule, or sessions that are not strictly ascending.
    """

def period_bounds(sessions: _Ints, rule: str) -> tuple[int, int]:
    """First nanosecond of the period that holds the last session, and of the period after it."""

def rows_at_or_before(sessions: _Ints, dates: _Ints) -> _Ints:
    """For each date the last row at or before it, -1 where there is none."""

# --- portfolio ----------------------------------------------------------------------------------

def last_priced_sessions(prices: _Floats) -> _Ints:
    """For each asset the last row with a price, -1 for an asset without any."""

def first_bad_price(prices: _Floats) -> tuple[int, int] | None:
    """Row and column of the first price that is zero, negative or infinite (NaN is allowed)."""

class Trades(TypedDict):
    """Round trips, one entry each, sorted by `entry_rebalance`, then `asset`."""

    asset: _Ints  # column of the price table
    entry_rebalance: _Ints  # row of `target` whose signal opened it
    exit_rebalance: _Ints  # row of `target` whose signal closed it, -1: none did
    exit_signal_session: _Ints  # session of the exit's signal (stops, ends and ruin too), -1: none
    entry_session: _Ints  # -1: not filled yet
    exit_session: _Ints  # -1: not filled yet
    entry_price: _Floats  # quoted fill price, before slippage; NaN: not filled yet
    exit_price: _Floats  # quoted fill price, before slippage; NaN: not filled yet
    weight: _Floats  # entry target weight
    exit_reason: _Ints  # 0 open, 1 rebalance, 2 stop loss, 3 take profit, 4 trailing stop,
    #                        5 prices ended, 6 ruin; set as soon as the exit is signalled
    # `return` and the columns below: NaN while not filled; the excursions are zeros unless recorded
    mae: _Floats  # most adverse excursion, <= 0
    mfe: _Floats  # most favourable excursion, >= 0
    mfe_before_mae: _Floats  # the most favourable one up to the bar of the most adverse, >= 0
    max_drawdown: _Floats  # largest fall from the trade's own peak, <= 0
    days_in_profit: _Floats  # bars held above the entry fill price
    period: _Floats  # bars held

class Fills(TypedDict):
    """Changes of holdings, one entry each, in the order in which they happened."""

    session: npt.NDArray[np.int32]
    asset: npt.NDArray[np.int32]  # column of the price table
    shares: _Floats  # held afterwards
    price: _Floats  # quoted, before slippage
    cost: _Floats  # fees, taxes and slippage

class AccountResult(TypedDict):
    """What a run that keeps an account adds; money, by session from the first one on."""

    sessions: dict[str, _Floats]  # by column
    bookings: dict[str, npt.NDArray[Any]]  # of one asset each
    trips: dict[str, npt.NDArray[Any]]  # shares, money and cut (bits) of each round trip
    cuts: list[tuple[int, int, int]]  # for each bit: how often, and the first session and asset
    unknown_volume: tuple[int, int, int]  # the same of orders that met no volume
    unpaid: tuple[int, int, int]  # the same of rebalances that cost more than the equity
    overdrawn_session: int  # whose withdrawal left nothing, -1 = none
    length: int  # sessions; the columns end with a ruin

class SimulationResult(TypedDict):
    """Everything that `simulate` hands over; `n` = sessions - first_session."""

    equity: _Floats  # (n,) at each close, 1.0 before the first fill; 0 from the ruin on
    cash: _Floats  # (n,)
    fees: _Floats  # (n,) paid in each session, in units of the initial equity
    taxes: _Floats  # (n,)
    slippage: _Floats  # (n,)
    traded: _Floats  # (n,) traded value, both sides, at quoted prices
    position: _Floats | None  # (n, assets) target weights in force after each close
    trades: dict[str, npt.NDArray[np.generic]] | None  # the keys of Trades and "return"
    fills: Fills | None
    start_row: int  # where the strategy's curve begins: ahead of the first fill
    starts_before: bool  # it costs or earns something there: a 1.0 one bar before comes first
    ruin_session: int  # -1: none
    executed_rebalance: int  # row of `target` last filled, -1: none
    # the state after the last session, one entry per asset
    weights_in_force: _Floats  # as the last row of `position`
    shares: _Floats
    # exit_reason of an asset closed (filled) since the last rebalance, or left out of it; else 0
    out_reason: _Ints
    pending_reason: _Ints  # exit_reason of a stop that fired and waits for its fill, else 0
    pending_session: _Ints  # session on which it fired, -1: none
    waiting_rebalance: _Ints  # row of `target` of an order that waits for a price, -1: none
    cooldown: _Ints  # in how many more rebalances a stopped asset stays out
    account: NotRequired[AccountResult]  # of a run that keeps one

#: The names of the codes in `exit_reason`, "" for a trade that is open.
EXIT_REASONS: tuple[str, ...]

def order_fee(fees: object, value: float, shares: float, ratio: float) -> float:
    """The commission of an order that executes at `value`."""

#: What `simulate` reads from its options.
OPTION_NAMES: tuple[str, ...]

class Options(Protocol):
    """An object with the options of a run as attributes, under the names of `OPTION_NAMES`."""

    @property
    def fee_ratio(self) -> float: ...  # fraction in [0, 1), on each side
    @property
    def tax_ratio(self) -> float: ...  # fraction in [0, 1), on sells
    @property
    def slippage_ratio(self) -> float: ...  # fraction in [0, 1), against the trader
    @property
    def stop_loss(self) -> float: ...  # positive fraction, infinity = off
    @property
    def take_profit(self) -> float: ...
    @property
    def trail_stop(self) -> float: ...
    @property
    def touched_exit(self) -> bool: ...  # fill stops inside the session
    @property
    def stop_cooldown(self) -> int: ...  # how many rebalances a stopped asset stays out of

class PriceSet:
    """Prices that runs share, in any number of threads; the arrays are never copied.

    Parameters
    ----------
    close : float64 array of shape (sessions, assets), C-contiguous
        Closing prices; NaN = missing.
    fill_at : {"close", "open", "other"}
        Which price `fill` is. "close" ignores `fill`; the others need it.
    fill : float64 array of shape (sessions, assets)
        Prices at which orders fill.
    open, high, low : float64 arrays of shape (sessions, assets)
        Read with `touched_exit` only, which needs `high` and `low`.

    Raises
    ------
    ValueError
        For shapes that do not fit.
    """

    def __init__(
        self,
        *,
        close: _Floats,
        fill_at: Literal["close", "open", "other"] = "close",
        fill: _Floats | None = None,
        open: _Floats | None = None,
        high: _Floats | None = None,
        low: _Floats | None = None,
    ) -> None: ...
    @property
    def sessions(self) -> int: ...
    @property
    def assets(self) -> int: ...

class BatchResult(TypedDict):
    """What a batch keeps of its runs: an entry, or a row, for each of them."""

    figures: _Floats  # (runs, figures), in the order of FIGURE_NAMES
    fees: _Floats  # paid in all, in units of the first equity
    taxes: _Floats
    slippage: _Floats
    turnover: _Floats  # half of the traded value over the equity, per year
    win_rate: _Floats  # of the closed trades, NaN without any
    trades: _Ints  # closed
    ruin_session: _Ints  # -1 = none
    begins: _Ints  # session of the curve's first value, 1.0; -1 = one bar before all
    sums: _Floats | None  # (runs, blocks): of the returns, and of their squares
    squares: _Floats | None
    curves: _Floats | None  # (runs, sessions): equity, 1 before the run starts

def read_targets(
    weights: npt.NDArray[np.float64 | np.bool_],
    rows: _Ints,
    *,
    limit: float,
    leverage: bool,
    only_changes: bool,
) -> tuple[_Ints, _Floats, _Floats]:
    """Turn rows of weights into target weights.

    Missing weights are 0, a row whose absolute sum is above 1 is scaled to 1, at last each weight
    is cut to the limit.

    Parameters
    ----------
    weights : float64 or bool array of shape (n, assets)
        In any order in memory; no infinite ones. True is 1.
    rows : int64 array of shape (m,)
        Which of its rows.
    limit : float
        The largest absolute weight; infinity for none.
    leverage : bool
        Rows whose absolute sum is above 1 are left alone.
    only_changes : bool
        Rows with the targets of the row before are left out, and so are zeros at the beginning.

    Returns
    -------
    kept : int64 array of shape (k,)
        Positions in `rows`.
    targets : float64 array of shape (k, assets)
        The targets there.
    gross : float64 array of shape (m,)
        The absolute sum of each row.

    Raises
    ------
    ValueError
        For a row outside the table.
    """

def simulate_many(
    prices: PriceSet,
    plans: list[tuple[_Floats, _Ints, int]],
    options: list[Options],
    runs: _Ints,
    *,
    times: _Ints,
    closes: _Ints,
    before_first: _Ints,
    riskfree_rate: float = 0.02,
    blocks: int = 0,
    curves: bool = False,
    threads: int = 0,
) -> BatchResult:
    """Simulate many runs over shared prices; each gives the bits that it gives alone.

    Parameters
    ----------
    prices : PriceSet
        The prices.
    plans : list of (target, signal_session, first_session)
        As `simulate` takes them.
    options : list of objects
        Costs and stops, as `simulate` takes them.
    runs : int64 array of shape (runs, 2)
        The number of the plan and of the options of each run.
    times : int64 array of shape (sessions,)
        Wall time of each session; the figures read them by day.
    closes : int64 array
        The rows that end a day: those at which the figures read the curve.
    before_first : int64 array of shape (plans,)
        One bar before the first session of each plan.
    riskfree_rate : float
        Per year, a fraction.
    blocks : int
        Over how many consecutive parts of the sessions returns are summed; 0 = none.
    curves : bool
        Whether the equity of each run is kept.
    threads : int
        0 = one for each core.

    Raises
    ------
    ValueError
        For what `simulate` refuses, or a run that names what is not there.
    """

def simulate(
    prices: PriceSet,
    target: _Floats,
    signal_session: _Ints,
    *,
    first_session: int = 0,
    options: Options | None = None,
    record_positions: bool = True,
    record_trades: bool = True,
    record_excursions: bool = True,
    record_fills: bool = False,
    account: object = None,
) -> SimulationResult:
    """Simulate a portfolio of target weights.

    Parameters
    ----------
    prices : PriceSet
        The prices.
    target : float64 array of shape (rebalances, assets), C-contiguous
        Target weights of each rebalance, negative = short, no NaN.
    signal_session : int64 array of shape (rebalances,), ascending
        Session of each signal: the last one at or before the signal's date, -1 when it lies before
        the table. A rebalance fills in the session after it; the signal of the last session
        stays pending. Of several with the same session the last one counts.
    first_session : int
        Row where the results start; no rebalance with a weight may fill before it.
    options : object, optional
        Costs and stops. Default: none of them.
    record_positions, record_trades, record_excursions, record_fills : bool
        What to record; excursions need trades.
    account : object, optional
        The terms of an account (`corvex.simulation.account.account_terms.AccountTerms`).

    Raises
    ------
    ValueError
        For shapes that do not fit, options out of range, signal sessions out of order.
    """
