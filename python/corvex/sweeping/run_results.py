"""What is kept of runs."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field, fields
from typing import Any

import numpy as np
import pandas as pd

from corvex import _engine

__all__ = [
    "BLOCKS",
    "EXTRAS",
    "FIGURES",
    "INTERRUPTED",
    "LESS_IS_BETTER",
    "UNKNOWN_BEGIN",
    "Calendars",
    "Results",
    "joined",
]

#: Columns of the statistics record.
FIGURES: tuple[str, ...] = _engine.FIGURE_NAMES
#: Columns behind them.
EXTRAS = ("fees", "tax", "slippage", "costs", "turnover", "win_ratio", "trades")
#: Figures of which less is better, among those that have a better end.
LESS_IS_BETTER = {
    "fees", "tax", "slippage", "costs", "turnover", "seconds",
    "daily_vol", "monthly_vol", "yearly_vol", "avg_drawdown_days",
}  # fmt: skip
#: Parts of the sessions over which returns are summed for the probability of overfitting.
BLOCKS = 16
UNKNOWN_BEGIN = -2
INTERRUPTED = "interrupted before it was run"

#: The sessions of runs, by the nanoseconds of the first and their number.
type Calendars = dict[tuple[int, int], pd.DatetimeIndex]


@dataclass(eq=False)
class Results:
    """Figures of some runs.

    Attributes
    ----------
    runs : int64 array of shape (n,)
        Their numbers in the grid.
    figures : float64 array of shape (n, figures)
        In the order of `FIGURES`, then `EXTRAS`.
    seconds : float64 array of shape (n,)
        The share of each in the time of its strategy's call and of the engine's.
    errors : object array of shape (n,)
        What went wrong, or None.
    sums, squares : float64 arrays of shape (n, BLOCKS)
        Of the returns from session to session, block by block; NaN where there are too few.
    calendar : int64 array of shape (n, 2)
        The run's key in `calendars`.
    begins : int64 array of shape (n,)
        The session of the first value of the run's curve, 1.0: the one ahead of its first fill; -1
        is one bar before all sessions, `UNKNOWN_BEGIN` that of a file that does not tell.
    curves : object array of shape (n,)
        The equity at each session, or None.
    calendars : dict
        The sessions of the runs.
    """

    runs: np.ndarray
    figures: np.ndarray
    seconds: np.ndarray
    errors: np.ndarray
    sums: np.ndarray
    squares: np.ndarray
    calendar: np.ndarray
    begins: np.ndarray
    curves: np.ndarray
    calendars: Calendars = field(default_factory=dict)

    @classmethod
    def empty(cls, runs: Sequence[int] | np.ndarray, error: str | None = None) -> Results:
        """Return runs without figures."""
        count = len(runs)
        errors = np.full(count, error, dtype=object)
        return cls(
            runs=np.asarray(runs, dtype=np.int64),
            figures=np.full((count, len(FIGURES) + len(EXTRAS)), np.nan),
            seconds=np.zeros(count),
            errors=errors,
            sums=np.full((count, BLOCKS), np.nan),
            squares=np.full((count, BLOCKS), np.nan),
            calendar=np.zeros((count, 2), dtype=np.int64),
            begins=np.full(count, UNKNOWN_BEGIN, dtype=np.int64),
            curves=np.full(count, None, dtype=object),
        )

    def __setstate__(self, state: dict[str, Any]) -> None:
        """Read what an older version has pickled, too."""
        self.__dict__.update(state)
        self.__dict__.setdefault("begins", np.full(len(self), UNKNOWN_BEGIN, dtype=np.int64))

    def __len__(self) -> int:
        return len(self.runs)

    def take(self, places: np.ndarray) -> Results:
        """Return some of the runs."""
        arrays = {name: getattr(self, name)[places] for name in _ARRAYS}
        return Results(**arrays, calendars=self.calendars)

    def put(self, other: Results, places: np.ndarray | None = None) -> None:
        """Write the results of other runs over those of the same numbers, or at `places`."""
        at = other.runs if places is None else places
        for name in _ARRAYS:
            if name != "runs":
                getattr(self, name)[at] = getattr(other, name)
        self.calendars.update(other.calendars)


_ARRAYS = tuple(one.name for one in fields(Results) if one.name != "calendars")


def joined(parts: Iterable[Results]) -> Results:
    """Return the runs of several results as one."""
    parts = list(parts)
    if len(parts) == 1:
        return parts[0]
    if not parts:
        return Results.empty([])
    arrays = {name: np.concatenate([getattr(part, name) for part in parts]) for name in _ARRAYS}
    calendars = {key: dates for part in parts for key, dates in part.calendars.items()}
    return Results(**arrays, calendars=calendars)
