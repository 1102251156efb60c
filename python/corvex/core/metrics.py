"""The single figures of a report, each a method."""

from __future__ import annotations

import datetime
import math
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core._curve import Curve, read_curve
from corvex.ffn_core.benchmarks import known_benchmark
from corvex.ffn_core.curve_figures import fit
from corvex.tables.context import in_utc
from corvex.tables.context import now as present
from corvex.trades.trade_lookup import TradeLookup, capital_per_share, known_table, listed_facts
from corvex.trades.trade_rows import closed_returns, excursion

if TYPE_CHECKING:
    from collections.abc import Callable

    from corvex.core.report import Report

__all__ = ["Metrics"]

_PLACE_OF = {name: place for place, name in enumerate(_engine.FIGURE_NAMES)}
_UNITS_PER_SECOND = {"s": 1, "ms": 1_000, "us": 1_000_000, "ns": 1_000_000_000}

_TAIL = 0.05  # of the days are in the tail of value at risk and tail ratio
_CAPACITY_SHARE = 0.05  # of the value traded that day
_CAPACITY_QUANTILE = 0.10  # of all fills may exceed that share
_PLACED_BY = ("symbol", "stock_id", "entry_date", "exit_date")  # what a TradeLookup places
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
    Figures of the curve and the position table are kept as long as the report holds the same
    objects: assign a changed copy rather than change values in place. The trades are read each
    time.

    Dates are whole seconds since 1970-01-01 UTC; a date without time zone counts as UTC.

    A pickle holds the report and none of the intermediate results.
    """

    def __init__(self, report: Report) -> None:
        self._report = report
        self._cache: dict[str, tuple[tuple[Any, ...], Any]] = {}
        self._placed: tuple[pd.DataFrame, TradeLookup] | None = None

    def __getstate__(self) -> dict[str, Any]:
        return {"_report": self._report}

    def __setstate__(self, state: dict[str, Any]) -> None:
        self.__init__(state["_report"])  # type: ignore[misc]

    def __repr__(self) -> str:
        return f"<Metrics of {self._report!r}>"

    # ------------------------------------------------------------------ backtest

    def start_date(self) -> int | None:
        """Return the first date of the daily curve.

        Whole seconds since 1970-01-01 UTC; None without a curve.
        """
        return self._curve_date(0)

    def end_date(self) -> int | None:
        """Return the last date of the daily curve.

        Whole seconds since 1970-01-01 UTC; None without a curve.
        """
        return self._curve_date(-1)

    def version(self) -> str:
        """Return the version of the package that computes the figures, such as "0.1.0"."""
        import corvex

        return corvex.__version__

    def fee_ratio(self) -> float:
        """Return the commission on each side, as a fraction of the traded value; NaN if unset."""
        return _number(self._report.fee_ratio)

    def tax_ratio(self) -> float:
        """Return the tax on sales, as a fraction of the traded value; NaN if unset."""
        return _number(self._report.tax_ratio)

    def trade_at(self) -> str | None:
        """Return at which price orders fill.

        "open", "close", "high", "low" or "ohlc", and "custom" for a price table of the user's
        own; None where the report does not say.
        """
        trade_at = self._report.trade_at
        return trade_at if trade_at is None or isinstance(trade_at, str) else "custom"

    def market(self) -> str:
        """Return the name of the market, such as "us_stock"."""
        return str(self._report.market.get_name())

    def freq(self) -> str:
        """Return the bar length of the market's prices as a pandas frequency ("D": daily)."""
        return str(self._report.market.get_freq())

    def expired(self) -> bool:
        """Tell whether prices newer than the report's should exist by now.

        True from the close of `next_trading_date` on, the first session that the report does not
        know. False where that date is missing. Where the market has no calendar, the session
        closes at the end of the date in UTC.
        """
        following = _timestamp(self._report.next_trading_date)
        if following is None:
            return False
        now = pd.Timestamp(present())
        date = following.tz_localize("UTC") if following.tz is None else following
        if abs(now - date) > _LONGEST_BREAK:  # spares the opening of the trading calendar
            return bool(now > date)
        try:
            close = self._report.market.market_close_at_timestamp(following)
        except (AttributeError, ValueError, NotImplementedError):
            close = date.normalize() + pd.Timedelta(days=1)
        return bool(now >= in_utc(close))

    def update_date(self) -> int | None:
        """Return the last date of the position table.

        Whole seconds since 1970-01-01 UTC; None without a position.
        """
        return self._date("update_date")

    def next_trading_date(self) -> int | None:
        """Return the first trading date after the data.

        Whole seconds since 1970-01-01 UTC; None where it is unknown.
        """
        return self._date("next_trading_date")

    def current_rebalance_date(self) -> int | None:
        """Return the signal date of the weights in force.

        Whole seconds since 1970-01-01 UTC; None before the first rebalance.
        """
        return self._date("current_rebalance_date")

    def next_rebalance_date(self) -> int | None:
        """Return the signal date of the next weights.

        Whole seconds since 1970-01-01 UTC; None where it is unknown. Where no rebalance is
        pending, this is the current one.
        """
        return self._date("next_rebalance_date")

    def live_performance_start(self) -> int | None:
        """Return from which date on the performance counts as live.

        Whole seconds since 1970-01-01 UTC; None for a backtest alone.
        """
        return self._date("live_performance_start")

    def stop_loss(self) -> float | None:
        """Return the loss at which a position is closed, a fraction of its entry price.

        None without one; NaN and infinity count as none.
        """
        return _optional_number(getattr(self._report, "stop_loss", None))

    def take_profit(self) -> float | None:
        """Return the profit at which a position is closed, a fraction of its entry price.

        None without one; NaN and infinity count as none.
        """
        return _optional_number(getattr(self._report, "take_profit", None))

    def trail_stop(self) -> float | None:
        """Return the fall that closes a position, a fraction of its best price since entry.

        None without one; NaN and infinity count as none.
        """
        return _optional_number(getattr(self._report, "trail_stop", None))

    # ------------------------------------------------------------------ profitability

    def annual_return(self, riskfree_rate: float = 0.02) -> float:
        r"""Return the compound annual growth rate of the daily curve, a fraction.

        :math:`(v_{last} / v_{first})^{1 / years} - 1` with years of 365.25 days: ``cagr`` of the
        statistics. The rate plays no part in it. NaN for fewer than two values.
        """
        return self._figure("cagr", riskfree_rate)

    def alpha(self) -> float:
        r"""Return Jensen's alpha against the benchmark, a fraction per year.

        :math:`(1 + \bar{r} - \beta \bar{b})^{n} - 1` over the returns r and b from one date to the
        next, of the dates on which both have a value of their own, with n of these a year as the
        dates tell (252 days, or 365 for a market open at weekends) and a risk-free rate of 0. NaN
        for fewer than two pairs and for a benchmark that does not move.

        Source: M. C. Jensen, "The performance of mutual funds in the period 1945-1964", Journal
        of Finance 23 (1968).
        """
        return self._fit()[0]

    def beta(self) -> float:
        r"""Return the sensitivity to the benchmark, a plain number.

        :math:`cov(r, b) / var(b)` over the same returns as `alpha`. NaN for fewer than two pairs
        and for a benchmark that does not move.
        """
        return self._fit()[1]

    def avg_n_stock(self) -> float:
        """Return the mean number of assets held, over the rows of the position table.

        Long and short positions count alike, rows without any count too. 0 without a position.
        """
        return self._holdings()[0]

    def max_n_stock(self) -> int:
        """Return the largest number of assets held in one row of the position table; 0 if none."""
        return self._holdings()[1]

    # ------------------------------------------------------------------ risk

    def max_drawdown(self, riskfree_rate: float = 0.02) -> float:
        """Return the largest fall from a peak of the curve, as a negative fraction.

        The least of value / highest value so far - 1: ``max_drawdown`` of the statistics. 0 for
        a curve that never falls, NaN for fewer than two values.
        """
        return self._figure("max_drawdown", riskfree_rate)

    def avg_drawdown(self, riskfree_rate: float = 0.02) -> float:
        """Return the mean depth of all drawdowns, as a negative fraction.

        A drawdown lasts from the first value below a peak until that peak is reached again, and
        is as deep as its lowest value; an unfinished one counts. ``avg_drawdown`` of the
        statistics; NaN without a drawdown.
        """
        return self._figure("avg_drawdown", riskfree_rate)

    def avg_drawdown_days(self, riskfree_rate: float = 0.02) -> float:
        """Return the mean length of all drawdowns, in calendar days.

        From the first value below the peak to the one that reaches it again, or to the last.
        ``avg_drawdown_days`` of the statistics; NaN without a drawdown.
        """
        return self._figure("avg_drawdown_days", riskfree_rate)

    def value_at_risk(self) -> float:
        """Return the 5 % quantile of the daily returns: negative where a bad day is a loss.

        Historical value at risk, a fraction, interpolated linearly between the two returns beside
        it (Hyndman and Fan's definition 7). NaN without returns.
        """
        return self._tails()[0]

    def cvalue_at_risk(self) -> float:
        """Return the mean of the worst 5 % of the daily returns (expected shortfall), a fraction.

        Of N returns the lowest ``floor(0.05 (N - 1)) + 1`` count. NaN without returns.

        Source: C. Acerbi and D. Tasche, "On the coherence of expected shortfall", Journal of
        Banking and Finance 26 (2002).
        """
        return self._tails()[1]

    # ------------------------------------------------------------------ ratio

    def sharpe_ratio(self, riskfree_rate: float = 0.02) -> float:
        r"""Return the annual Sharpe ratio of the daily returns, a plain number.

        :math:`mean(r - f) / std(r - f) \sqrt{n}`, where f is the risk-free rate of a day
        :math:`(1 + rate)^{1/n} - 1`, std the sample's and n the days a year: ``daily_sharpe`` of
        the statistics. NaN for returns that do not vary.

        Source: W. F. Sharpe, "The Sharpe ratio", Journal of Portfolio Management 21 (1994).
        """
        return self._figure("daily_sharpe", riskfree_rate)

    def sortino_ratio(self, riskfree_rate: float = 0.02) -> float:
        r"""Return the annual Sortino ratio of the daily returns, a plain number.

        :math:`mean(r - f) / \sqrt{mean(min(r - f, 0)^2)} \sqrt{n}`, with f and n as in
        `sharpe_ratio`: ``daily_sortino`` of the statistics. Infinite where no return falls short
        of f and the mean is above 0, NaN where the mean is 0 too.

        Source: F. A. Sortino and R. van der Meer, "Downside risk", Journal of Portfolio
        Management 17 (1991).
        """
        return self._figure("daily_sortino", riskfree_rate)

    def calmar_ratio(self, riskfree_rate: float = 0.02) -> float:
        """Return the annual return over the size of the largest drawdown, a plain number.

        ``calmar`` of the statistics; infinite where the curve grows and never falls, NaN where it
        does neither.

        Source: T. W. Young, "Calmar ratio: a smoother tool", Futures 20 (1991).
        """
        return self._figure("calmar", riskfree_rate)

    def volatility(self, riskfree_rate: float = 0.02) -> float:
        r"""Return the annual standard deviation of the daily returns, a fraction.

        The sample's (n - 1) times :math:`\sqrt{n}` with n days a year: ``daily_vol`` of the
        statistics. NaN for fewer than two returns.
        """
        return self._figure("daily_vol", riskfree_rate)

    def profit_factor(self) -> float:
        """Return the sum of winning over the sum of losing trade returns, both positive.

        Closed trades count, each alike whatever its weight. Above 1, gains outweigh losses. NaN
        when no trade lost.
        """
        return self._trade_figures()[2]

    def tail_ratio(self) -> float:
        """Return the 95 % over the 5 % quantile of the daily returns, both without sign.

        Above 1, good days are larger than bad ones. The quantiles are interpolated linearly.
        NaN without returns or with a 5 % quantile of zero.
        """
        return self._tails()[2]

    # ------------------------------------------------------------------ winrate

    def win_rate(self) -> float:
        """Return the share of the closed trades with a return above 0; 0 without closed trades."""
        return self._trade_figures()[0]

    def m12_win_rate(self, riskfree_rate: float = 0.02) -> float:
        """Return the share of 12-month spans that gained, of all that end with a month.

        ``twelve_month_win_perc`` of the statistics, a fraction. NaN for a curve of less than a
        year.
        """
        return self._figure("twelve_month_win_perc", riskfree_rate)

    def expectancy(self) -> float:
        """Return the mean return of the closed trades, a fraction; NaN without any.

        Each trade counts alike. Where no trade ends at 0 this equals win rate x mean gain -
        (1 - win rate) x mean loss.
        """
        return self._trade_figures()[1]

    def mae(self) -> float:
        """Return the mean maximum adverse excursion of the closed trades.

        Per trade the worst return on its way, a fraction of the entry price, 0 or below. NaN
        where the trades carry no excursions.

        Source: J. Sweeney, "Maximum Adverse Excursion", Wiley (1997).
        """
        return self._mean_excursion("mae")

    def mfe(self) -> float:
        """Return the mean maximum favourable excursion of the closed trades.

        Per trade the best return on its way, a fraction of the entry price, 0 or above. NaN
        where the trades carry no excursions.

        Source: J. Sweeney, "Maximum Adverse Excursion", Wiley (1997).
        """
        return self._mean_excursion("mfe")

    # ------------------------------------------------------------------ liquidity

    def capacity(self) -> float:
        """Return the capital that the traded volume can carry, in the market's currency.

        Of an account with several currencies it is in the base.

        For each fill, the capital at which its entry weight is 5 % of the value traded in that
        asset on that day (close x volume as quoted); of these the 10 % quantile, so that nine
        fills in ten stay below that share. Entries and exits count. NaN where the market has no
        volume, or the trades no weights. The analysis "Liquidity" gives other shares and
        quantiles.
        """
        limits = _CAPACITY_SHARE * capital_per_share(self._report, self._lookup())
        return float(np.quantile(limits, _CAPACITY_QUANTILE)) if limits.size else math.nan

    def disposal_stock_ratio(self) -> float:
        """Return the share of the entries into assets under disposal measures on that day.

        A fraction of the filled entries on dates that the market's table of the restriction
        lists; an asset that it does not list is not under it. NaN where the market has no such
        table, or none of these dates.
        """
        return self._status_ratio("disposal")

    def warning_stock_ratio(self) -> float:
        """Return the share of the entries into assets under a warning on that day.

        A fraction of the filled entries on dates that the market's table of the restriction
        lists; an asset that it does not list is not under it. NaN where the market has no such
        table, or none of these dates.
        """
        return self._status_ratio("warning")

    def full_delivery_stock_ratio(self) -> float:
        """Return the share of the entries into assets that had to be paid and delivered in full.

        A fraction of the filled entries on dates that the market's table of the restriction
        lists; an asset that it does not list is not under it. NaN where the market has no such
        table, or none of these dates.
        """
        return self._status_ratio("full_delivery")

    def buy_high(self) -> float:
        """Return the share of the entries filled at the session's high, or above it.

        Such a fill is doubtful: the price may have been out of reach. A fraction of the entries
        whose fill and whose quoted high are known. NaN where the market has no high prices.
        """
        return self._extreme_fill_ratio("entry_date", "high", 1.0)

    def sell_low(self) -> float:
        """Return the share of the exits filled at the session's low, or below it.

        A fraction of the exits whose fill and whose quoted low are known. NaN where the market
        has no low prices.
        """
        return self._extreme_fill_ratio("exit_date", "low", -1.0)

    # ------------------------------------------------------------------ how

    def _figure(self, name: str, riskfree_rate: float) -> float:
        # The same engine call as the statistics make of this curve, without their tables.
        def record(_: pd.Series, rate: float) -> list[float]:
            curve = self._curve()
            return _engine.performance_record(curve.values, curve.times, float(rate))[0]

        figures: list[float] = self._remembered(
            "record", record, self._report.daily_creturn, riskfree_rate
        )
        return figures[_PLACE_OF[name]]

    def _curve(self) -> Curve:
        result: Curve = self._remembered("curve", read_curve, self._report.daily_creturn)
        return result

    def _curve_date(self, row: int) -> int | None:
        index = self._report.daily_creturn.index
        if len(index) == 0:
            return None
        if isinstance(index, pd.DatetimeIndex):  # spares the making of a Timestamp
            return int(index.asi8[row]) // _UNITS_PER_SECOND[index.unit]
        return _epoch_seconds(index[row])

    def _date(self, attribute: str) -> int | None:
        return _epoch_seconds(getattr(self._report, attribute, None))

    def _remembered(self, name: str, compute: Callable[..., Any], *sources: Any) -> Any:
        """Keep one result for as long as the report holds the very same sources, one or two."""
        kept = self._cache.get(name)
        if kept is None or kept[0][0] is not sources[0] or kept[0][-1] is not sources[-1]:
            kept = (sources, compute(*sources))
            self._cache[name] = kept
        return kept[1]

    def _tails(self) -> tuple[float, float, float]:
        result: tuple[float, float, float] = self._remembered(
            "tails",
            lambda _: _engine.tail_risk(self._curve().values, _TAIL),
            self._report.daily_creturn,
        )
        return result

    def _fit(self) -> tuple[float, float]:
        result: tuple[float, float] = self._remembered(
            "fit",
            lambda curve, _: fit(curve, known_benchmark(self._report)),
            self._report.daily_creturn,
            self._report.daily_benchmark,
        )
        return result

    def _holdings(self) -> tuple[float, int]:
        result: tuple[float, int] = self._remembered(
            "holdings",
            lambda position: _engine.holding_counts(position.to_numpy(dtype=np.float64)),
            self._report.position,
        )
        return result

    def _trade_figures(self) -> tuple[float, float, float]:
        return _engine.trade_figures(*closed_returns(self._report.trades))

    def _mean_excursion(self, name: str) -> float:
        column = excursion(self._report, name)
        if column is None:
            return math.nan
        _, closed = closed_returns(self._report.trades)
        return _engine.mean_present(column.to_numpy(dtype=np.float64), closed)

    def _lookup(self) -> TradeLookup:
        """Return the trades' places in market tables, worked out anew once the trades changed."""
        trades: pd.DataFrame = self._report.trades
        read = trades[[name for name in _PLACED_BY if name in trades.columns]]
        if self._placed is None or not self._placed[0].equals(read):
            self._placed = (read.copy(), TradeLookup(trades))
        lookup = self._placed[1]
        lookup.trades = trades  # its other columns may have changed
        return lookup

    def _status_ratio(self, kind: str) -> float:
        table = known_table(self._report.market, "get_status", kind)
        if table is None:
            return math.nan
        status = listed_facts(self._lookup(), table)
        known = np.isfinite(status)
        return float(np.mean(status[known] != 0)) if known.any() else math.nan

    def _extreme_fill_ratio(self, date_column: str, field: str, sign: float) -> float:
        table = known_table(self._report.market, "get_price", field, adj=False)
        if table is None:
            return math.nan
        lookup = self._lookup()
        price_column = f"trade_price@{date_column}"
        if not {date_column, price_column} <= set(lookup.trades.columns):
            return math.nan
        extreme = lookup.values(table, date_column)
        price = lookup.trades[price_column].to_numpy(dtype=np.float64)
        known = np.isfinite(extreme) & np.isfinite(price) & lookup.entered
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
    if type(value) is pd.Timestamp:
        return value
    try:
        stamp = pd.Timestamp(value)
    except (TypeError, ValueError):
        return None
    return stamp if isinstance(stamp, pd.Timestamp) else None


def _epoch_seconds(value: Any) -> int | None:
    stamp = _timestamp(value)
    return None if stamp is None else math.floor(stamp.timestamp())
