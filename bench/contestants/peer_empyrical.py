"""The public empyrical-reloaded package: single figures on returns."""

from __future__ import annotations

from pathlib import Path

from common import Entry, load, main, price_series, time_call, time_import


def statistics(data: Path) -> list[Entry]:
    import empyrical

    returns = price_series(data).pct_change().dropna()
    figures = [
        empyrical.cum_returns_final,
        empyrical.annual_return,
        empyrical.annual_volatility,
        empyrical.sharpe_ratio,
        empyrical.sortino_ratio,
        empyrical.calmar_ratio,
        empyrical.max_drawdown,
        empyrical.stability_of_timeseries,
        empyrical.tail_ratio,
    ]
    # It has no record of all figures: these nine are far fewer than the others compute.
    return [time_call("nine figures", lambda: [figure(returns) for figure in figures])]


def metrics(data: Path) -> list[Entry]:
    import empyrical
    import numpy as np
    import pandas as pd

    arrays = load(data)
    dates = pd.DatetimeIndex(arrays["dates"].view("M8[ns]"))
    curve, benchmark = pd.Series(arrays["values"], dates), pd.Series(arrays["benchmark"], dates)
    position = pd.DataFrame(arrays["weights"], dates)
    trades = pd.DataFrame({name: arrays[name] for name in ("returns", "mae", "mfe")})
    day_rate = 1.02 ** (1 / 252) - 1
    of_returns = (
        empyrical.annual_return,
        empyrical.annual_volatility,
        empyrical.calmar_ratio,
        empyrical.max_drawdown,
        empyrical.tail_ratio,
        empyrical.value_at_risk,
        empyrical.conditional_value_at_risk,
    )

    def drawdowns() -> list[float]:
        fall = curve / curve.cummax() - 1
        under = fall < 0
        episode = (under & ~under.shift(fill_value=False)).cumsum()
        groups = fall[under].groupby(episode[under])
        starts = pd.Series(fall.index[under]).groupby(episode[under].to_numpy())
        return [groups.min().mean(), (starts.max() - starts.min()).dt.days.mean()]

    def of_trades() -> list[float]:
        returns, won = trades["returns"], trades["returns"] > 0
        gains, losses = returns[won].sum(), -returns[~won].sum()
        means = [won.mean(), returns.mean(), gains / losses]
        return [*means, trades["mae"].mean(), trades["mfe"].mean()]

    def same_figures() -> list[float]:
        returns, market = curve.pct_change().dropna(), benchmark.pct_change().dropna()
        held = (position != 0).sum(axis=1)
        year = curve.resample("ME").last().pct_change(12).dropna()
        return [
            *(figure(returns) for figure in of_returns),
            empyrical.sharpe_ratio(returns, risk_free=day_rate),
            empyrical.sortino_ratio(returns, required_return=day_rate),
            *empyrical.alpha_beta(returns, market),
            *drawdowns(),
            float(np.mean(year > 0)),
            held.mean(),
            held.max(),
            *of_trades(),
        ]

    return [time_call("the same with pandas", same_figures, repeats=40)]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import empyrical", "empyrical")]


main("empyrical-reloaded", {"statistics": statistics, "metrics": metrics, "import": imports})
