"""The single figures of a report, each a method."""

from __future__ import annotations

import datetime
import math
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex.core.curve_figures import beta, changes, days_per_year, paired, present
from corvex.core.trade_lookup import (
    asset_ids,
    capital_per_share,
    closed_trades,
    entered_trades,
    excursions,
    market_table,
    values_at,
)

if TYPE_CHECKING:
    from collections.abc import Callable

    from corvex.core.report import Report

__all__ = ["Metrics"]

_Floats = npt.NDArray[np.float64]

_TAIL = 5.0  # percent of the days in the tail of value at risk and tail ratio
_CAPACITY_SHARE = 0.05  # of the value traded that day
_CAPACITY_QUANTILE = 0.10  # of all fills may exceed that share
_LONGEST_BREAK = datetime.timedelta(days=20)  # no market closes for longer


class Metrics:
    """The figures of one report.

    Every figure is computed when it is asked for. Rates and returns are fractions, not percent.
    A figure that the report gives no ground for (no trades, no benchmark, no volume) is NaN, a
    missing date is None and a count is 0; none of that is an error.

    Parameters
    ----------
    report : Report
        The report to describe. It is kept, not copied: a later change of it shows.

    Notes
    -----
    Dates are whole seconds since 1970-01-01 UTC; a date without time zone counts as UTC.

    A pickle holds the report and none of the intermediate results.
    """

    def __init__(self, report: Report) -> None:
        self._report = report
        self._cache: dict[str, tuple[tuple[Any, ...], Any]] = {}

    def __getstate__(self) -> dict[str, Any]:
        return {"_report": self._report}

    def __setstate__(self, state: dict[str, Any]) -> None:
        self._report = state["_report"]
        self._cache = {}

    def __repr__(self) -> str:
        return f"<Metrics of {object.__repr__(self._report)}>"

    # ------------------------------------------------------------------ backtest

    def start_date(self) -> int | None:
        """Return the first date of the daily curve, in epoch seconds."""
        index = self._report.daily_creturn.index
        return _epoch_seconds(index[0]) if len(index) else None

    def end_date(self) -> int | None:
        """Return the last date of the daily curve, in epoch seconds."""
        index = self._report.daily_creturn.index
        return _epoch_seconds(index[-1]) if len(index) else None

    def version(self) -> str:
        """Return the version of the package."""
        import corvex

        return corvex.__version__

    def fee_ratio(self) -> float:
        """Return the commission on each side, as a fraction of the traded value."""
        return _number(self._report.fee_ratio)

    def tax_ratio(self) -> float:
        """Return the tax on sales, as a fraction of the traded value."""
        return _number(self._report.tax_ratio)

    def trade_at(self) -> str | None:
        """Return at which price orders fill; "custom" for a price table of the user's own."""
        trade_at = self._report.trade_at
        return trade_at if trade_at is None or isinstance(trade_at, str) else "custom"

    def market(self) -> str:
        """Return the name of the market."""
        return str(self._report.market.get_name())

    def freq(self) -> str:
        """Return the bar length of the market's prices as a pandas frequency ("D": daily)."""
        return str(self._report.market.get_freq())

    def expired(self) -> bool:
        """Tell whether prices newer than the report's should exist by now.

        True from the close of `next_trading_date` on, the first session that the report does not
        know. False where that date is missing.
        """
        following = _timestamp(self._report.next_trading_date)
        if following is None:
            return False
        now = pd.Timestamp.now("UTC")
        date = following.tz_localize("UTC") if following.tz is None else following
        if abs(now - date) > _LONGEST_BREAK:  # spares the opening of the trading calendar
            return bool(now > date)
        try:
            close = self._report.market.market_close_at_timestamp(following)
        except (AttributeError, ValueError, NotImplementedError):
            close = date.normalize() + pd.Timedelta(days=1)
        return bool(now >= close)

    def update_date(self) -> int | None:
        """Return the last date of the position table, in epoch seconds."""
        return self._date("update_date")

    def next_trading_date(self) -> int | None:
        """Return the first trading date after the data, in epoch seconds."""
        return self._date("next_trading_date")

    def current_rebalance_date(self) -> int | None:
        """Return the signal date of the weights in force, in epoch seconds."""
        return self._date("current_rebalance_date")

    def next_rebalance_date(self) -> int | None:
        """Return the signal date of the next weights, in epoch seconds."""
        return self._date("next_rebalance_date")

    def live_performance_start(self) -> int | None:
        """Return from which date the performance counts as live, in epoch seconds."""
        return self._date("live_performance_start")

    def stop_loss(self) -> float | None:
        """Return the loss at which a position is closed, as a fraction; None without one."""
        return _optional_number(getattr(self._report, "stop_loss", None))

    def take_profit(self) -> float | None:
        """Return the profit at which a position is closed, as a fraction; None without one."""
        return _optional_number(getattr(self._report, "take_profit", None))

    def trail_stop(self) -> float | None:
        """Return the fall from its best price that closes a position; None without one."""
        return _optional_number(getattr(self._report, "trail_stop", None))

    # ------------------------------------------------------------------ profitability

    def annual_return(self, riskfree_rate: float = 0.02) -> float:
        """Return the compound annual growth rate (``cagr`` of the statistics)."""
        return self._figure("cagr", riskfree_rate)

    def alpha(self) -> float:
        r"""Return Jensen's alpha against the benchmark, per year.

        :math:`(1 + \bar{r} - \beta \bar{b})^{n} - 1` over paired daily returns r and b, with n
        trading days per year and a risk-free rate of 0. NaN without a benchmark that moves.
        """
        strategy, benchmark = self._paired_returns()
        slope = beta(strategy, benchmark)
        if math.isnan(slope):
            return math.nan
        return float((1 + np.mean(strategy - slope * benchmark)) ** self._days_per_year() - 1)

    def beta(self) -> float:
        """Return the covariance of paired daily returns over the benchmark's variance.

        NaN without a benchmark that moves.
        """
        return beta(*self._paired_returns())

    def avg_n_stock(self) -> float:
        """Return the mean number of assets held, over the rows of the position table; 0 if none."""
        counts = self._holdings()
        return float(counts.mean()) if counts.size else 0.0

    def max_n_stock(self) -> int:
        """Return the largest number of assets held at once; 0 if none."""
        counts = self._holdings()
        return int(counts.max()) if counts.size else 0

    # ------------------------------------------------------------------ risk

    def max_drawdown(self, riskfree_rate: float = 0.02) -> float:
        """Return the largest fall from a peak, as a negative fraction (``max_drawdown``)."""
        return self._figure("max_drawdown", riskfree_rate)

    def avg_drawdown(self, riskfree_rate: float = 0.02) -> float:
        """Return the mean depth of all drawdowns, as a negative fraction (``avg_drawdown``)."""
        return self._figure("avg_drawdown", riskfree_rate)

    def avg_drawdown_days(self, riskfree_rate: float = 0.02) -> float:
        """Return the mean length of all drawdowns in calendar days (``avg_drawdown_days``)."""
        return self._figure("avg_drawdown_days", riskfree_rate)

    def value_at_risk(self) -> float:
        """Return the 5 % quantile of the daily returns: negative where a bad day is a loss.

        Historical value at risk, interpolated linearly. NaN without returns.
        """
        returns = self._returns()
        return float(np.percentile(returns, _TAIL)) if returns.size else math.nan

    def cvalue_at_risk(self) -> float:
        """Return the mean of the worst 5 % of the daily returns (expected shortfall).

        Of N returns the lowest ``floor(0.05 (N - 1)) + 1`` count. NaN without returns.
        """
        returns = self._returns()
        if not returns.size:
            return math.nan
        last = int((returns.size - 1) * _TAIL / 100)
        return float(np.mean(np.partition(returns, last)[: last + 1]))

    # ------------------------------------------------------------------ ratio

    def sharpe_ratio(self, riskfree_rate: float = 0.02) -> float:
        """Return the annual Sharpe ratio of the daily returns (``daily_sharpe``)."""
        return self._figure("daily_sharpe", riskfree_rate)

    def sortino_ratio(self, riskfree_rate: float = 0.02) -> float:
        """Return the annual Sortino ratio of the daily returns (``daily_sortino``)."""
        return self._figure("daily_sortino", riskfree_rate)

    def calmar_ratio(self, riskfree_rate: float = 0.02) -> float:
        """Return the annual growth over the largest drawdown's size (``calmar``)."""
        return self._figure("calmar", riskfree_rate)

    def volatility(self, riskfree_rate: float = 0.02) -> float:
        """Return the annual standard deviation of the daily returns (``daily_vol``)."""
        return self._figure("daily_vol", riskfree_rate)

    def profit_factor(self) -> float:
        """Return the sum of winning over the sum of losing trade returns, both positive.

        Closed trades count, each alike. NaN when no trade lost.
        """
        returns = self._trade_returns()
        losses = -float(returns[returns < 0].sum())
        return float(returns[returns > 0].sum()) / losses if losses > 0 else math.nan

    def tail_ratio(self) -> float:
        """Return the 95 % over the 5 % quantile of the daily returns, both without sign.

        Above 1, good days are larger than bad ones. NaN without returns or with a 5 % quantile
        of zero.
        """
        returns = self._returns()
        if not returns.size:
            return math.nan
        low, high = np.abs(np.percentile(returns, [_TAIL, 100 - _TAIL]))
        return float(high / low) if low > 0 else math.nan

    # ------------------------------------------------------------------ winrate

    def win_rate(self) -> float:
        """Return the share of closed trades with a positive return; 0 without closed trades."""
        returns = self._trade_returns()
        return float(np.mean(returns > 0)) if returns.size else 0.0

    def m12_win_rate(self, riskfree_rate: float = 0.02) -> float:
        """Return the share of 12-month spans that gained (``twelve_month_win_perc``)."""
        return self._figure("twelve_month_win_perc", riskfree_rate)

    def expectancy(self) -> float:
        """Return the mean return of the closed trades; NaN without any.

        This equals win rate x mean win - (1 - win rate) x mean loss.
        """
        returns = self._trade_returns()
        return float(np.mean(returns)) if returns.size else math.nan

    def mae(self) -> float:
        """Return the mean maximum adverse excursion of the closed trades, as a fraction.

        NaN where the trades carry no excursions.
        """
        return self._mean_excursion("mae")

    def mfe(self) -> float:
        """Return the mean maximum favourable excursion of the closed trades, as a fraction.

        NaN where the trades carry no excursions.
        """
        return self._mean_excursion("mfe")

    # ------------------------------------------------------------------ liquidity

    def capacity(self) -> float:
        """Return the capital that the traded volume can carry, in the market's currency.

        For each fill, the capital at which its entry weight is 5 % of the value traded in that
        asset on that day (close x volume as quoted); of these the 10 % quantile, so that nine
        fills in ten stay below that share. NaN where the market has no volume.
        """
        limits = _CAPACITY_SHARE * capital_per_share(self._report)
        return float(np.quantile(limits, _CAPACITY_QUANTILE)) if limits.size else math.nan

    def disposal_stock_ratio(self) -> float:
        """Return the share of entries into assets under disposal measures that day.

        NaN where the market has no such table.
        """
        return self._status_ratio("disposal")

    def warning_stock_ratio(self) -> float:
        """Return the share of entries into assets under a warning that day.

        NaN where the market has no such table.
        """
        return self._status_ratio("warning")

    def full_delivery_stock_ratio(self) -> float:
        """Return the share of entries into full-delivery assets that day.

        NaN where the market has no such table.
        """
        return self._status_ratio("full_delivery")

    def buy_high(self) -> float:
        """Return the share of entries filled at the session's high, or above it.

        Such a fill is doubtful: the price may have been out of reach. NaN where the market has
        no high prices.
        """
        return self._extreme_fill_ratio("entry_date", "high", 1.0)

    def sell_low(self) -> float:
        """Return the share of exits filled at the session's low, or below it.

        NaN where the market has no low prices.
        """
        return self._extreme_fill_ratio("exit_date", "low", -1.0)

    # ------------------------------------------------------------------ how

    def _figure(self, name: str, riskfree_rate: float) -> float:
        record = self._report.get_stats(riskfree_rate=riskfree_rate)
        value: float = record.get(name, math.nan)
        return value

    def _date(self, attribute: str) -> int | None:
        return _epoch_seconds(getattr(self._report, attribute, None))

    def _remembered(self, name: str, compute: Callable[..., Any], *sources: Any) -> Any:
        """Keep one result for as long as the report holds the very same sources."""
        kept = self._cache.get(name)
        if kept is None or any(a is not b for a, b in zip(kept[0], sources, strict=True)):
            kept = (sources, compute(*sources))
            self._cache[name] = kept
        return kept[1]

    def _returns(self) -> _Floats:
        result: _Floats = self._remembered(
            "returns", lambda curve: present(changes(curve)), self._report.daily_creturn
        )
        return result

    def _paired_returns(self) -> tuple[_Floats, _Floats]:
        result: tuple[_Floats, _Floats] = self._remembered(
            "paired", paired, self._report.daily_creturn, self._report.daily_benchmark
        )
        return result

    def _days_per_year(self) -> int:
        result: int = self._remembered(
            "year", lambda curve: days_per_year(curve.index), self._report.daily_creturn
        )
        return result

    def _holdings(self) -> npt.NDArray[np.intp]:
        values = self._report.position.to_numpy(dtype=np.float64)
        held: npt.NDArray[np.intp] = np.count_nonzero(np.nan_to_num(values), axis=1)
        return held

    def _trade_returns(self) -> _Floats:
        trades = closed_trades(self._report)
        if "return" not in trades.columns:
            return np.empty(0)
        return trades["return"].to_numpy(dtype=np.float64)

    def _mean_excursion(self, name: str) -> float:
        known = excursions(self._report)
        return float(known[name].mean()) if name in known.columns else math.nan

    def _status_ratio(self, kind: str) -> float:
        table = market_table(self._report.market, "get_status", kind)
        trades = entered_trades(self._report)
        if table.empty or trades.empty:
            return math.nan
        # No entry in the table means no restriction, so a missing value counts as none.
        status = np.nan_to_num(values_at(table, trades["entry_date"], asset_ids(trades)))
        return float(np.mean(status != 0))

    def _extreme_fill_ratio(self, date_column: str, field: str, sign: float) -> float:
        trades = entered_trades(self._report)
        price_column = f"trade_price@{date_column}"
        if date_column not in trades.columns or price_column not in trades.columns:
            return math.nan
        table = market_table(self._report.market, "get_price", field, adj=False)
        extreme = values_at(table, trades[date_column], asset_ids(trades))
        price = trades[price_column].to_numpy(dtype=np.float64)
        known = np.isfinite(extreme) & np.isfinite(price)
        if not known.any():
            return math.nan
        return float(np.mean(sign * price[known] >= sign * extreme[known]))


def _number(value: Any) -> float:
    return math.nan if value is None else float(value)


def _optional_number(value: Any) -> float | None:
    """Return a setting as a float; None, NaN and infinity all mean that it is off."""
    if value is None:
        return None
    number = float(value)
    return number if math.isfinite(number) else None


def _timestamp(value: Any) -> pd.Timestamp | None:
    if value is None or isinstance(value, bool | int | float):
        return None
    try:
        stamp = pd.Timestamp(value)
    except (TypeError, ValueError):
        return None
    return stamp if isinstance(stamp, pd.Timestamp) else None


def _epoch_seconds(value: Any) -> int | None:
    stamp = _timestamp(value)
    return None if stamp is None else math.floor(stamp.timestamp())
