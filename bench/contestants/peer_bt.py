"""The public bt package: target weights on given dates, fractional positions."""

from __future__ import annotations

from pathlib import Path
from typing import Any

from common import Entry, load, main, price_table, target_rows, time_call


def backtest(arrays: dict[str, Any], fee: float) -> Any:
    import bt

    prices, targets = price_table(arrays), target_rows(arrays).dropna(how="all")
    strategy = bt.Strategy(
        "targets",
        [
            bt.algos.RunOnDate(*targets.index),
            bt.algos.WeighTarget(targets),
            bt.algos.Rebalance(),
        ],
    )
    return bt.Backtest(
        strategy,
        prices,
        commissions=lambda quantity, price: abs(quantity) * price * fee,
        integer_positions=False,
        progress_bar=False,
    )


def simulate(data: Path) -> list[Entry]:
    import bt  # noqa: F401 - not to be counted in the first call

    arrays = load(data)
    fee = float(arrays["fee"])
    # A backtest runs once only, so making it is part of the call.
    return [
        time_call(
            "Backtest().run()",
            lambda: backtest(arrays, fee).run(),
            warm=False,
            memory=True,
            repeats=3,
        )
    ]


def agree(data: Path) -> list[Entry]:
    test = backtest(load(data), 0.0)
    test.run()
    # Its curve starts at 100 on a row of its own, a day before the first price.
    equity = test.strategy.prices.iloc[1:] / 100.0
    return [{"label": "equity without costs", "equity": equity.tolist()}]


main("bt", {"simulate": simulate, "agree": agree})
