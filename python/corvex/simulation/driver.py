"""`corvex.simulate`: from weights and prices to a report.

Four stages, each a value that can be pickled and used again: prices are read and checked once
(`read_prices`), weights become a plan on their sessions (`make_plan`), the engine runs a plan with
options (`run_plan`), and a report is made of a run when one is wanted (`report_of`).
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import pandas as pd

from corvex.market import Market
from corvex.simulation.doubts import warn_about_guessed_costs
from corvex.simulation.options import checked_limit, cost_ratios, read_options
from corvex.simulation.plan.plan import make_plan
from corvex.simulation.plan.schedule import read_offset, read_resample
from corvex.simulation.read.price_data import read_prices
from corvex.simulation.read.weights import read_weights
from corvex.simulation.report.simulated import report_of
from corvex.simulation.run import run_plan
from corvex.tables.frames import as_table, require_arrays

if TYPE_CHECKING:
    from corvex.accounts import Account
    from corvex.core.report import Report
    from corvex.simulation.plan.schedule import Resample
    from corvex.simulation.read.market_choice import Benchmark
    from corvex.simulation.read.price_tables import PriceInput
    from corvex.tables.frames import TableInput

__all__ = ["simulate"]


def simulate(
    weights: TableInput,
    prices: PriceInput = None,
    *,
    dates: Any = None,
    assets: Any = None,
    resample: Resample = None,
    resample_offset: str | pd.Timedelta | None = None,
    trade_at: str | TableInput = "close",
    fee_ratio: float | None = None,
    tax_ratio: float | None = None,
    slippage_ratio: float = 0.0,
    stop_loss: float | None = None,
    take_profit: float | None = None,
    trail_stop: float | None = None,
    touched_exit: bool = False,
    stop_cooldown: int = 0,
    position_limit: float | None = None,
    leverage: bool = False,
    start: Any = None,
    end: Any = None,
    market: str | Market | type[Market] | None = None,
    benchmark: Benchmark = None,
    live_performance_start: Any = None,
    name: str | None = None,
    upload: bool = False,
    account: Account | None = None,
) -> Report:
    """Simulate a portfolio and report on it.

    The signal of a date fills on the first session after it, so nothing is traded on knowledge of
    its own day's prices. A session is a row of the price table: a day, or a bar when it is
    intraday. ``docs/simulate.md`` shows every rule on a small example.

    ============  ================================================================================
    holdings      weights, position_limit, leverage
    prices        prices, trade_at, market; of arrays: dates, assets
    time          resample, resample_offset, start, end
    costs         fee_ratio, tax_ratio, slippage_ratio, account
    stops         stop_loss, take_profit, trail_stop, touched_exit, stop_cooldown
    the report    benchmark, live_performance_start, name, upload
    ============  ================================================================================

    Parameters
    ----------
    weights : table or array, dates x asset labels
        Target weights as fractions of the equity; negative = short, missing = 0. True and False
        share a row equally among the true. A row holds until the next; beside intraday prices a
        table of dates alone means whole days, known when they are over. A row whose absolute sum
        is above 1 is scaled to 1. A label such as "2330 some name" finds the prices of "2330".
    prices : table or array, mapping of str to these, or None
        Closes, dates x assets, or tables of "close" and any of "open", "high", "low", "volume"
        ("adj_close" beside "close" where quoted and adjusted prices differ). None: the market's
        own tables.
    dates, assets : sequences, optional
        Those of the rows and columns of arrays.
    resample : None, str, offset or dates, default None
        When to rebalance. None: whenever the targets change. A pandas frequency, old or new
        ("D", "W-FRI", "M" or "ME", "Q", "YE", "2W") or an offset object: after the last session of
        each period. Dates, or a frequency that names dates such as "MS": after each of them, with
        the last row at or before it. Between rebalances weights drift with the prices.
    resample_offset : str or Timedelta, optional
        Moves the ends of the periods, or the dates: "2D" is two calendar days later.
    trade_at : {"close", "open", "high", "low", "ohlc"} or table, default "close"
        Where orders fill; "ohlc" is the mean of the four, a table holds prices of your own.
    fee_ratio : float, optional
        Fee on each side, as a fraction of the traded value. Default: the market's.
    tax_ratio : float, optional
        Tax on sales, short entries included, as a fraction. Default: the market's.
    slippage_ratio : float, default 0.0
        Buys fill at price x (1 + slippage_ratio), sales at price x (1 - slippage_ratio).
    stop_loss, take_profit : float, optional
        Exit a position that lost or won this fraction of its first fill price. None: no such stop.
    trail_stop : float, optional
        Exit a position that fell by this fraction from its best price since entry.
    touched_exit : bool, default False
        False: stops are checked on closes and fill in the next session at `trade_at`. True: they
        fill within the session at the stop price, at the open when that is beyond it; needs high
        and low prices.
    stop_cooldown : int, default 0
        How many rebalances a stopped asset stays out of. 0: the next one may enter it anew, also
        one that fills together with the stop.
    position_limit : float, optional
        The largest absolute weight of one asset; the rest stays in cash.
    leverage : bool, default False
        Leave rows alone whose absolute weights sum to more than 1.
    start, end : date, optional
        Run on the sessions from `start` to `end`, both included. With a `start` the row in force
        there counts as the signal of the first session. With an `end` the report is marked as a
        historical backtest, which is never tradable.
    market : str, Market or None
        A market or its name. Default: "crypto" when any label holds USDT, "tw_stock" when every id
        is four to six digits, perhaps with a letter behind, else "us_stock".
    benchmark : Series, table of one column, str or None
        Prices by date, or the name of a sample or table. Default: the market's.
    live_performance_start : date, optional
        From when on the strategy has been traded live.
    name : str, optional
        Name of the strategy.
    upload : bool, default False
        Publish the report under its name when it is done; see ``docs/publishing.md``. A failure
        is a warning, and the report comes back all the same.
    account : Account, optional
        Money as a broker keeps it: interest, borrowing, dividends, whole lots, fees with a minimum
        and more; see ``docs/account.md``. The report then has `account`, money by session.

    Returns
    -------
    Report
        With `creturn` (1.0 just before the first fill), `position`, `trades`, `weights`,
        `next_weights`, `actions` and the settings. Beside them `costs` (total fees, tax and
        slippage in units of the first equity), `yearly_turnover` and `settings` (market and
        assumptions of the run).

    Raises
    ------
    ValueError
        When an argument, a weight or a price cannot be used; the message names asset and date.

    Notes
    -----
    A table is a pandas DataFrame, or anything that hands over an Arrow stream: polars, pyarrow,
    DuckDB. Its dates stand in the index or in a column. ``docs/frames.md`` has the rules.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks")
    >>> best = prices.pct_change(252, fill_method=None).rank(axis=1, ascending=False) <= 5
    >>> report = corvex.simulate(best, prices, resample="ME", fee_ratio=0.001, name="momentum")
    >>> bool(report.creturn.iloc[0] == 1.0)
    True
    """
    require_arrays(dates, assets, weights, prices, trade_at, benchmark)
    table = read_weights(
        weights, limit=checked_limit(position_limit), leverage=leverage, dates=dates, assets=assets
    )
    rule = read_resample(resample)
    offset = read_offset(rule, resample_offset)
    data = read_prices(
        prices,
        table.labels,
        market=market,
        benchmark=benchmark,
        start=start,
        end=end,
        dates=dates,
        assets=assets,
    )
    fill_at = as_table(trade_at, "trade_at", dates=dates, assets=assets)
    ratios = cost_ratios(account, fee_ratio, tax_ratio, slippage_ratio)
    options = read_options(
        data.market,
        {
            **ratios,
            "stop_loss": stop_loss,
            "take_profit": take_profit,
            "trail_stop": trail_stop,
            "touched_exit": touched_exit,
            "stop_cooldown": stop_cooldown,
        },
    )
    if market is None and prices is not None:
        warn_about_guessed_costs(data.market, account, ratios)
    live_start = None
    if live_performance_start is not None:
        live_start = data.clock.border(live_performance_start, "live_performance_start").date
    plan = make_plan(table, data, rule, offset)
    run = run_plan(data, plan, options, fill_at, account=account)
    report = report_of(run, data, name=name, live_performance_start=live_start)
    if upload:
        from corvex.publishing import publish

        publish(report, name)
    return report
