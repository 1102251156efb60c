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


def sweep(data: Path) -> list[Entry]:
    arrays = load(data)
    variant = str(arrays["variant"])
    if "x" in variant:
        return _portfolios(arrays)
    return _crossings() if variant == "crossings" else []


def _portfolios(arrays: dict[str, Any]) -> list[Entry]:
    """The variants as columns, a part of them at a time as memory would not hold all."""
    import numpy as np
    import pandas as pd
    import vectorbt as vbt

    from cases import VARIANTS, swept_weights

    prices = price_table(arrays)
    days, assets = prices.shape
    part = 2000 // assets
    targets = np.full((days, part * assets), np.nan)
    weights = np.concatenate(list(swept_weights(arrays, part)), axis=1)
    targets[arrays["signals"] + 1] = weights
    close = pd.DataFrame(np.tile(prices.to_numpy(), part), prices.index)

    def figures(count: int = part) -> object:
        width = count * assets
        portfolio = vbt.Portfolio.from_orders(
            close.iloc[:, :width],
            targets[:, :width],
            size_type="targetpercent",
            group_by=np.repeat(np.arange(count), assets),
            cash_sharing=True,
            call_seq="auto",
            fees=float(arrays["fee"]),
            freq="1D",
        )
        return portfolio.total_return(), portfolio.sharpe_ratio(), portfolio.max_drawdown()

    figures(1)
    label = f"{VARIANTS:,} variants, {part} at a time, three figures"
    entry = time_call(label, figures, warm=False, memory=True, repeats=1, cpu=True)
    parts = VARIANTS / part
    return [{**entry, "best": entry["best"] * parts, "median": entry["median"] * parts}]


def _crossings() -> list[Entry]:
    import vectorbt as vbt
    from corvex_sweeps import one_asset

    prices, pairs = one_asset()
    fast, slow = ([pair[at] for pair in pairs] for at in (0, 1))

    def figures() -> object:
        short = vbt.MA.run(prices["A"], fast, short_name="fast")
        long = vbt.MA.run(prices["A"], slow, short_name="slow")
        portfolio = vbt.Portfolio.from_signals(
            prices["A"], short.ma_crossed_above(long), short.ma_crossed_below(long),
            fees=0.001, freq="1D",
        )  # fmt: skip
        return portfolio.total_return(), portfolio.sharpe_ratio(), portfolio.max_drawdown()

    return [time_call("500 crossings, three figures", figures, repeats=5, cpu=True)]


main("vectorbt", {"simulate": simulate, "sweep": sweep, "agree": agree})
