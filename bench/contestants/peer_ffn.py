"""The public ffn package."""

from __future__ import annotations

from pathlib import Path

from common import Entry, load, main, price_series, time_call, time_import


def statistics(data: Path) -> list[Entry]:
    import ffn  # noqa: F401 - adds its methods to pandas

    prices = price_series(data)

    def record() -> object:
        return prices.calc_stats().stats.to_dict()

    return [time_call("to_dict()", record)]


def drawdowns(data: Path) -> list[Entry]:
    import ffn

    prices = price_series(data)

    def ten_largest() -> object:
        details = ffn.drawdown_details(ffn.to_drawdown_series(prices))
        return details.sort_values("drawdown").head(10)

    return [time_call("drawdown_details, ten largest", ten_largest)]


def confidence(data: Path) -> list[Entry]:
    import ffn
    import pandas as pd

    trials = load(data)["trials"][:, :100]
    dates = pd.bdate_range("2015-01-01", periods=len(trials))
    table = pd.DataFrame(trials, index=dates)

    def overfitting() -> object:
        return ffn.core.calc_prob_backtest_overfitting(table)

    return [time_call("ffn: PBO, 100 trials", overfitting, repeats=1, warm=False)]


def imports(_data: Path) -> list[Entry]:
    return [time_import("import ffn", "ffn")]


main(
    "ffn",
    {"statistics": statistics, "drawdowns": drawdowns, "confidence": confidence, "import": imports},
)
