"""The public quantstats package; it works on returns, which are made outside the timing."""

from __future__ import annotations

from pathlib import Path

from common import Entry, main, price_series, time_call, time_import


def statistics(data: Path) -> list[Entry]:
    import quantstats as qs

    returns = price_series(data).pct_change().dropna()
    # Its table of all metrics is the nearest thing to a full record; without a benchmark.
    return [
        time_call(
            'reports.metrics(mode="full")',
            lambda: qs.reports.metrics(returns, mode="full", display=False),
        )
    ]


def drawdowns(data: Path) -> list[Entry]:
    import quantstats as qs

    returns = price_series(data).pct_change().dropna()

    def ten_largest() -> object:
        details = qs.stats.drawdown_details(qs.stats.to_drawdown_series(returns))
        return details.sort_values("max drawdown").head(10)

    return [time_call("drawdown_details, ten largest", ten_largest)]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import quantstats", "quantstats")]


main("quantstats", {"statistics": statistics, "drawdowns": drawdowns, "import": imports})
