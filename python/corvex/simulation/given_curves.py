"""Reports on a curve that was not simulated here: a fund's, a broker's, another program's."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, cast

import numpy as np
import pandas as pd

from corvex.market import Market
from corvex.markets import get_market_by_name
from corvex.markets.bars import has_weekends, period_before
from corvex.simulation.notices import date_text, warn
from corvex.simulation.read.clock import Clock, as_dates
from corvex.simulation.read.market_choice import bind_market, choose_market
from corvex.simulation.report.assembly import Outcome, build_report
from corvex.simulation.report.next_holdings import nothing_held
from corvex.simulation.report.trades_table import empty_trades
from corvex.tables.frames import ArrowTable, as_table, require_arrays

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.simulation.read.market_choice import Benchmark

__all__ = ["from_equity", "from_returns"]

type CurveInput = pd.Series | pd.DataFrame | ArrowTable | np.ndarray | Mapping[Any, float]

# The one asset of such a report.
_LABEL = "portfolio"


def from_equity(
    equity: CurveInput,
    benchmark: Benchmark = None,
    *,
    dates: Any = None,
    market: str | Market | type[Market] | None = None,
    name: str | None = None,
    live_performance_start: Any = None,
) -> Report:
    """Report on an equity curve.

    Parameters
    ----------
    equity : Series, table of one column, array, or mapping of date to value
        Account values or a price by date, in any unit; above zero, or zero once all is lost.
    benchmark : Series, table of one column, array, str or None
        Prices by date, or the name of a sample or table. None: the market's, where it has one.
    dates : sequence, optional
        Those of arrays.
    market : str, Market or None
        Default: "crypto" when the curve has as many values at weekends as in the week, else
        "us_stock".
    name : str, optional
        Name of the strategy.
    live_performance_start : date, optional
        From when on the strategy has been traded live.

    Returns
    -------
    Report
        With `creturn` starting at 1.0, one asset held throughout, and no trades.

    Raises
    ------
    ValueError
        When a value is no number, infinite or negative, or an index is not dates.

    Examples
    --------
    >>> import corvex
    >>> report = corvex.from_equity(corvex.data.sample("sp500"))
    >>> round(float(report.creturn.iloc[-1]), 2)
    10.52
    """
    require_arrays(dates, None, equity, benchmark)
    values = _clean(equity, "equity", dates)
    if values.isna().any():
        warn(f"{int(values.isna().sum())} missing values of equity were left out")
        values = values.dropna()
    if len(values) == 0:
        raise ValueError("equity is empty")
    if values.iloc[0] == 0.0 or (values < 0.0).any():
        date = values.index[int(np.argmax(values.to_numpy() <= 0.0))]
        raise ValueError(
            f"equity is {values[date]} on {date_text(date)}; it must start above zero and not "
            "become negative (from_returns takes returns)"
        )
    benchmark = as_table(benchmark, "benchmark", dates=dates)
    with np.errstate(over="ignore"):
        curve = _finite(values / values.iloc[0], "equity")
    return _report(curve, benchmark, market, name, live_performance_start)


def from_returns(
    returns: CurveInput,
    benchmark: Benchmark = None,
    *,
    dates: Any = None,
    market: str | Market | type[Market] | None = None,
    name: str | None = None,
    live_performance_start: Any = None,
) -> Report:
    """Report on the returns of a strategy.

    Parameters
    ----------
    returns : Series, table of one column, array, or mapping of date to value
        Simple returns per period as fractions (0.01 is 1 %), each on the date on which it was
        made. The first one counts: the curve starts one period before it, or on the date of a
        missing first return, as `Series.pct_change` leaves it.
    benchmark : Series, str or None
        Returns likewise, or the name of a sample or table of prices.
    dates, market, name, live_performance_start
        As for `from_equity`.

    Returns
    -------
    Report
        As from `from_equity`.

    Raises
    ------
    ValueError
        When a value is no number or below -1, or when the values look like prices.

    Examples
    --------
    >>> import corvex
    >>> returns = corvex.data.sample("sp500").pct_change()
    >>> round(float(corvex.from_returns(returns).creturn.iloc[-1]), 2)
    10.52
    """
    require_arrays(dates, None, returns, benchmark)
    if benchmark is not None and not isinstance(benchmark, str):
        benchmark = _curve(benchmark, "benchmark", dates)
    curve = _curve(returns, "returns", dates)
    return _report(curve, benchmark, market, name, live_performance_start)


def _report(
    creturn: pd.Series,
    benchmark: Benchmark,
    market: str | Market | type[Market] | None,
    name: str | None,
    live_performance_start: Any,
) -> Report:
    index = cast("pd.DatetimeIndex", creturn.index)
    if market is None:
        chosen = get_market_by_name("crypto" if has_weekends(index) else "us_stock")
    else:
        chosen = choose_market(market, pd.Index([_LABEL]))
    bound = bind_market(chosen, {"close": creturn.to_frame(_LABEL)}, benchmark)
    clock = Clock(index, bound)
    live_start = None
    if live_performance_start is not None:
        live_start = clock.border(live_performance_start, "live_performance_start").date
    return build_report(
        Outcome(
            creturn=creturn.rename("creturn"),
            position=pd.DataFrame({_LABEL: 1.0}, index=index),
            trades=lambda: empty_trades(index),
            hand_over=nothing_held(),
            next_trading_date=clock.future.next_bar,
            market=bound,
            kept=(),
            attributes={
                "name": name,
                "live_performance_start": live_start,
                "settings": {
                    "market": bound.get_name(),
                    "market_chosen": "by the dates" if market is None else "by the user",
                    "source": "a curve, not simulated",
                },
            },
        )
    )


def _curve(returns: Any, what: str, dates: Any) -> pd.Series:
    """Compound returns to a curve that starts at 1, one period before the first of them."""
    values = _clean(returns, what, dates)
    present = values.notna().to_numpy()
    if not present.any():
        raise ValueError(f"{what} are empty")
    if len(values) > 2 and values.min() > 0.0 and values.median() > 0.5:
        raise ValueError(
            f"{what} look like prices (the median is {values.median():g}); from_equity takes these"
        )
    if (values < -1.0).any():
        date = values.index[int(np.argmax(values.to_numpy() < -1.0))]
        raise ValueError(
            f"{what} hold {values[date]} on {date_text(date)}; a return is a fraction of at least "
            "-1 (-0.5 is a loss of 50 %)"
        )
    first = int(np.argmax(present))
    if not present[first:].all():
        gap = values.index[first + int(np.argmin(present[first:]))]
        warn(f"missing {what}, the first on {date_text(gap)}, were taken for zero")
    with np.errstate(over="ignore", invalid="ignore"):
        grown = (1.0 + values.iloc[first:].fillna(0.0)).cumprod()
    index = cast("pd.DatetimeIndex", values.index)
    base = index[first - 1 : first] if first else pd.DatetimeIndex([period_before(index)])
    return _finite(pd.concat([pd.Series([1.0], index=base), grown]), what)


def _finite(curve: pd.Series, what: str) -> pd.Series:
    known = np.isfinite(curve.to_numpy())
    if not known.all():
        date = curve.index[int(np.argmin(known))]
        raise ValueError(
            f"{what} makes a curve that no number holds from {date_text(date)} on; a return is a "
            "fraction (0.01 is 1 %)"
        )
    return curve


def _clean(values: Any, what: str, dates: Any) -> pd.Series:
    """Return float values on rising, unique dates; what had to be done is said in a warning."""
    values = as_table(values, what, dates=dates)
    if isinstance(values, pd.DataFrame):
        if values.shape[1] != 1:
            raise ValueError(f"{what} must be one series, got {values.shape[1]} columns")
        values = values.iloc[:, 0]
    series = values if isinstance(values, pd.Series) else pd.Series(values)
    if len(series) == 0:
        raise ValueError(f"{what} is empty")
    series = series.set_axis(as_dates(series.index, f"the index of {what}"))
    numbers = pd.to_numeric(series, errors="coerce").astype("float64")
    bad = (numbers.abs().eq(np.inf) | (numbers.isna() & series.notna())).to_numpy()
    if bad.any():
        at = int(np.argmax(bad))
        value = series.iloc[at]
        text = repr(value) if isinstance(value, str) else str(value)
        raise ValueError(f"{what} on {date_text(series.index[at])} is {text}, not a finite number")
    if not numbers.index.is_monotonic_increasing:
        warn(f"{what} was not in order of date; it was sorted")
        numbers = numbers.sort_index(kind="stable")
    if not numbers.index.is_unique:
        twice = numbers.index[numbers.index.duplicated()][0]
        warn(f"{what} has dates more than once (as {date_text(twice)}); the last value was kept")
        numbers = numbers[~numbers.index.duplicated(keep="last")]
    return numbers
