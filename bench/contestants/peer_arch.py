"""The public arch package: the stationary bootstrap, and tests of many models."""

from __future__ import annotations

from pathlib import Path

from common import Entry, load, main, time_call


def confidence(data: Path) -> list[Entry]:
    import numpy as np
    from arch.bootstrap import SPA, StationaryBootstrap

    arrays = load(data)
    returns, models = arrays["returns"], arrays["models"]
    block = float(arrays["block"])

    def sharpe(values: np.ndarray) -> float:
        return values.mean() / values.std(ddof=1) * 252**0.5

    def drawdown(values: np.ndarray) -> float:
        wealth = np.cumprod(1 + values)
        return (wealth / np.maximum.accumulate(wealth)).min() - 1

    def drawn(figure: object) -> object:
        return StationaryBootstrap(block, returns, seed=1).apply(figure, 1000)

    def superiority(count: int) -> object:
        test = SPA(np.zeros(len(models)), -models[:, :count], block, 1000, seed=1)
        test.compute()
        return test.pvalues

    return [
        time_call("arch: Sharpe ratio", lambda: drawn(sharpe), repeats=5),
        time_call("arch: max drawdown", lambda: drawn(drawdown), repeats=5),
        time_call("arch: SPA, 100 models", lambda: superiority(100), repeats=3, warm=False),
        time_call("arch: SPA, 1,000 models", lambda: superiority(1000), repeats=1, warm=False),
    ]


main("arch", {"confidence": confidence})
