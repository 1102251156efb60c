"""Whether any of many strategies is better than a benchmark, and which of them are."""

from __future__ import annotations

import numbers
from collections.abc import Hashable
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.significance.draw_counts import check_draws

__all__ = ["Superiority", "superior_strategies"]

_Floats = npt.NDArray[np.float64]


@dataclass(frozen=True)
class Superiority:
    """What the tests found; each p-value tells how likely the best is no better than the benchmark.

    Attributes
    ----------
    reality_check : float
        White's reality check.
    lower, consistent, upper : float
        Hansen's test: too small, consistent and too large. ``consistent`` is the one to quote.
    best : hashable
        Label of the strategy with the largest mean advantage over its deviation.
    superior : list
        Labels of the strategies that are better, found step by step, with a family-wise error of
        `size`.
    size : float
        That error.
    bars : int
        Returns that were compared.
    block : float
        Mean length of the drawn blocks, in bars.
    """

    reality_check: float
    lower: float
    consistent: float
    upper: float
    best: Hashable
    superior: list[Hashable]
    size: float
    bars: int
    block: float

    def __repr__(self) -> str:
        return (
            f"best {self.best!r}: p = {self.consistent:.3f} (reality check "
            f"{self.reality_check:.3f}); {len(self.superior)} superior at {self.size:g}"
        )


def superior_strategies(
    returns: pd.DataFrame | _Floats,
    benchmark: pd.Series | float = 0.0,
    *,
    size: float = 0.05,
    draws: int = 1000,
    seed: int = 0,
) -> Superiority:
    """Test the strategies of a search against a benchmark, all at once.

    Parameters
    ----------
    returns : DataFrame or array of shape (bars, strategies)
        Simple returns per bar, such as ``sweep.curves.pct_change()``; bars that one of them lacks
        are left out of all.
    benchmark : Series or float, default 0.0
        Returns per bar of the benchmark, by the same dates: only dates that both have count. A
        number is the return of each bar, such as the riskless one.
    size : float, default 0.05
        Family-wise error of `Superiority.superior`.
    draws, seed : int
        Of the stationary bootstrap. The same seed gives the same numbers everywhere.

    Returns
    -------
    Superiority

    Raises
    ------
    ValueError
        When the benchmark shares no two dates with the returns or is of another kind, a return is
        infinite, no strategy differs from the benchmark by more than a constant, or for no draws.

    Notes
    -----
    Reality check: H. White, Econometrica 68 (2000). Superior predictive ability: P. R. Hansen,
    JBES 23 (2005). Stepwise test: J. P. Romano and M. Wolf, Econometrica 73 (2005).

    Examples
    --------
    >>> import numpy as np, pandas as pd, corvex
    >>> noise = pd.DataFrame(np.random.default_rng(0).normal(0, 0.01, (1000, 20)))
    >>> corvex.superior_strategies(noise).superior
    []
    >>> noise[7] += 0.002
    >>> corvex.superior_strategies(noise).superior
    [7]
    """
    if not 0.0 < size < 1.0:
        raise ValueError(f"size must lie between 0 and 1, got {size}")
    check_draws(draws, seed)
    if not isinstance(benchmark, pd.Series | numbers.Real):
        raise ValueError(
            "benchmark must be a Series of returns by date, or a number, got "
            f"{type(benchmark).__name__}"
        )
    table = pd.DataFrame(returns).astype("float64")
    if isinstance(benchmark, pd.Series):
        shared = table.index.intersection(benchmark.dropna().index)
        if len(shared) < 2:
            raise ValueError(
                f"the benchmark shares {len(shared)} dates with the returns: both need the same "
                "dates, and the same time zone"
            )
        table = table.loc[shared].sub(benchmark.loc[shared].astype("float64"), axis=0)
    else:
        table = table - float(benchmark)
    table = table.dropna()
    excess = np.ascontiguousarray(table.to_numpy())
    if not np.isfinite(excess).all():
        raise ValueError("the returns must be finite")
    if len(excess) < 2 or not (excess.std(axis=0) > 0.0).any():
        raise ValueError("no strategy has two bars that differ from the benchmark's")
    block = _engine.automatic_block_length(np.ascontiguousarray(excess.mean(axis=1)))
    _, lower, consistent, upper, reality = _engine.superiority_test(excess, draws, block, seed)
    deviations = _engine.bootstrap_deviations(excess, block)
    with np.errstate(divide="ignore", invalid="ignore"):
        ratios = np.where(deviations > 0.0, excess.mean(axis=0) / deviations, -np.inf)
    columns = _engine.superior_models(excess, size, draws, block, seed)
    return Superiority(
        reality, lower, consistent, upper, table.columns[int(np.argmax(ratios))],
        [table.columns[column] for column in np.sort(columns)], size, len(excess), block,
    )  # fmt: skip
