"""What is known of the trials from which a strategy was chosen."""

from __future__ import annotations

import math
from collections.abc import Iterable
from dataclasses import dataclass, field
from typing import TypeAlias

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine

__all__ = ["TrialStatistics", "Trials", "read_trials", "superiority", "trial_statistics"]

_Floats = npt.NDArray[np.float64]
#: How many trials there were; the yearly Sharpe ratio of each; or the returns of each.
Trials: TypeAlias = "int | Iterable[float] | pd.DataFrame | TrialStatistics | None"

#: Blocks of the cross-validation: 12,870 halvings.
BLOCKS = 16
_DRAWS = 1000


@dataclass(frozen=True)
class TrialStatistics:
    """What the number and the likeness of trials say about the best of them.

    Attributes
    ----------
    trials : float
        How many were made; NaN when nobody said so.
    spread : float
        Standard deviation of their Sharpe ratios per bar; NaN where only their number is known.
    effective_trials : float
        How many independent ones they amount to: the participation ratio of their correlation
        matrix. NaN without their returns.
    overfitting : float
        Probability of backtest overfitting (PBO); NaN without their returns.
    loss : float
        Probability that the one chosen inside loses outside.
    slope : float
        Of the chosen one's Sharpe ratio outside on the one inside.
    logits, inside, outside : arrays of shape (halvings,)
        For each way to take half of the blocks: the logit of the chosen trial's rank outside, its
        Sharpe ratio per bar inside and outside.
    superiority : float
        p-value of Hansen's test of superior predictive ability: how likely the best trial is no
        better than the riskless return. NaN without their returns.
    """

    trials: float = math.nan
    spread: float = math.nan
    effective_trials: float = math.nan
    overfitting: float = math.nan
    loss: float = math.nan
    slope: float = math.nan
    logits: _Floats = field(default_factory=lambda: np.empty(0))
    inside: _Floats = field(default_factory=lambda: np.empty(0))
    outside: _Floats = field(default_factory=lambda: np.empty(0))
    superiority: float = math.nan

    def threshold(self, trials: float, sampling_error: float) -> float:
        """Largest Sharpe ratio per bar to expect of that many trials without skill.

        Where the spread of their ratios is not known it is that of estimates of zero:
        `sampling_error`.
        """
        spread = sampling_error if math.isnan(self.spread) else self.spread
        return _engine.expected_largest_sharpe(spread, trials)


def trial_statistics(
    returns: pd.DataFrame | _Floats, *, riskfree: float = 0.0, blocks: int = BLOCKS
) -> TrialStatistics:
    """Describe the trials of a search from the returns of each.

    Parameters
    ----------
    returns : DataFrame or array of shape (bars, trials)
        Simple returns per bar; bars that one of the trials lacks are left out of all.
    riskfree : float, default 0.0
        Riskless return per bar.
    blocks : int, default 16
        Even, 2 to 20: consecutive blocks of the bars, of which all halves are taken.

    Returns
    -------
    TrialStatistics
        NaN for what a single trial, or fewer bars than blocks, leave undefined.

    Raises
    ------
    ValueError
        When the number of blocks is odd or out of range, or a return is infinite.

    Notes
    -----
    Probability of overfitting: D. H. Bailey, J. Borwein, M. Lopez de Prado and Q. J. Zhu, "The
    probability of backtest overfitting", Journal of Computational Finance 20 (2016).

    Examples
    --------
    >>> import numpy as np, corvex
    >>> noise = np.random.default_rng(0).normal(0, 0.01, (1000, 20))
    >>> 0.2 < corvex.trial_statistics(noise).overfitting < 0.8
    True
    """
    if blocks % 2 or not 2 <= blocks <= 20:
        raise ValueError(f"blocks must be an even number from 2 to 20, not {blocks}")
    table = np.asarray(returns, dtype=np.float64)
    if table.ndim != 2:
        raise ValueError("the returns must be a table of bars x trials")
    table = np.ascontiguousarray(table[~np.isnan(table).any(axis=1)] - riskfree)
    if np.isinf(table).any():
        raise ValueError("the returns of the trials must be finite")
    bars, count = table.shape
    if count == 0 or bars < 2:
        return TrialStatistics(trials=float(count))
    deviations = table.std(axis=0, ddof=1)
    with np.errstate(divide="ignore", invalid="ignore"):
        ratios = np.where(deviations > 0, table.mean(axis=0) / deviations, np.nan)
    found = TrialStatistics(
        trials=float(count),
        spread=_spread(ratios),
        effective_trials=_engine.effective_trials(table),
        superiority=superiority(table),
    )
    if count < 2 or bars < 2 * blocks:
        return found
    judged = _engine.backtest_overfitting(*_engine.block_sums(table, blocks))
    return TrialStatistics(
        found.trials, found.spread, found.effective_trials, *judged, superiority=found.superiority
    )


def superiority(excess: _Floats) -> float:
    """Test whether the best of some trials is better than the riskless return.

    Parameters
    ----------
    excess : array of shape (bars, trials)
        Returns per bar less the riskless one.

    Returns
    -------
    float
        p-value of Hansen's test with his consistent recentring, from 1,000 draws with seed 0; NaN
        for fewer than two bars, or where no trial has dispersion.

    Notes
    -----
    P. R. Hansen, "A test for superior predictive ability", JBES 23 (2005).
    """
    if len(excess) < 2 or excess.shape[1] == 0:
        return math.nan
    block = _engine.automatic_block_length(np.ascontiguousarray(excess.mean(axis=1)))
    return _engine.superiority_test(np.ascontiguousarray(excess), _DRAWS, block, 0)[2]


def read_trials(trials: Trials, periods_per_year: int, riskfree: float) -> TrialStatistics:
    """Take what a user says of the trials.

    Raises
    ------
    ValueError
        When it is a number below 1, no ratio, or a ratio that is not finite.
    """
    if isinstance(trials, TrialStatistics):
        return trials
    if trials is None:
        return TrialStatistics()
    if isinstance(trials, pd.DataFrame):
        return trial_statistics(trials, riskfree=riskfree)
    if isinstance(trials, (int, np.integer)) and not isinstance(trials, bool):
        if trials < 1:
            raise ValueError(f"trials must be at least 1, not {trials}")
        return TrialStatistics(trials=float(trials))
    if isinstance(trials, str) or not isinstance(trials, Iterable):
        raise TypeError(
            "trials must be their number, the yearly Sharpe ratio of each, or a DataFrame with "
            f"the returns of each as a column, not {type(trials).__name__}"
        )
    ratios = np.asarray(list(trials), dtype=np.float64)
    if ratios.size == 0 or not np.isfinite(ratios).all():
        raise ValueError("the Sharpe ratios of the trials must be finite numbers, at least one")
    return TrialStatistics(
        trials=float(ratios.size), spread=_spread(ratios / math.sqrt(periods_per_year))
    )


def _spread(ratios: _Floats) -> float:
    known = ratios[np.isfinite(ratios)]
    return float(known.std(ddof=1)) if known.size > 1 else math.nan
