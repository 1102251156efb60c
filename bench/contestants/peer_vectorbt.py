"""The free vectorbt package: orders to target percentages, one portfolio with shared cash."""

from __future__ import annotations

from pathlib import Path
from typing import Any

from common import Entry, load, main, price_table, target_rows, time_call


def simulate(data: Path) -> list[Entry]:
    import vectorbt as vbt

    arrays = load(data)
    prices, targets = price_table(arrays), target_rows(arrays)

    def orders(close: Any = prices, size: Any = targets) -> Any:
        return vbt.Portfolio.from_orders(
            close,
            size,
            size_type="targetpercent",
            group_by=True,
            cash_sharing=True,
            call_seq="auto",
            fees=float(arrays["fee"]),
            freq="1D",
        )

    # Compiles for these argument types; the large table is not needed for that.
    orders(prices.iloc[:60, :5], targets.iloc[:60, :5]).value()
    return [
        time_call("from_orders", orders, warm=False, memory=True, repeats=5),
        time_call("from_orders().value()", lambda: orders().value(), warm=False, repeats=3),
    ]


def agree(data: Path) -> list[Entry]:
    import vectorbt as vbt

    arrays = load(data)
    prices, targets = price_table(arrays), target_rows(arrays)
    portfolio = vbt.Portfolio.from_orders(
        prices,
        targets,
        size_type="targetpercent",
        group_by=True,
        cash_sharing=True,
        call_seq="auto",
        freq="1D",
    )
    equity = portfolio.value() / portfolio.init_cash
    return [{"label": "equity without costs", "equity": equity.tolist()}]


main("vectorbt", {"simulate": simulate, "agree": agree})
