"""The public empyrical-reloaded package: single figures on returns."""

from __future__ import annotations

from pathlib import Path

from common import Entry, main, price_series, time_call, time_import


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


def imports(_data: Path) -> list[Entry]:
    return [time_import("import empyrical", "empyrical")]


main("empyrical-reloaded", {"statistics": statistics, "import": imports})
