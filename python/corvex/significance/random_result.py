"""Where a result stands among random ones; apart from how these are made, for readers of files."""

from __future__ import annotations

import math
from dataclasses import dataclass

import pandas as pd

from corvex.tables.frames import arrow_stream

__all__ = ["RandomDraws"]


@dataclass(frozen=True, repr=False)
class RandomDraws:
    """Where a result stands among random ones.

    Attributes
    ----------
    test : str
        What was drawn: "portfolios" or "entries".
    figure : str
        The figure that they are compared by.
    own : float
        That of the strategy.
    draws : DataFrame, draws x figures
        Those of the random ones.
    rank : float
        Share of the random ones that are below the strategy.
    p_value : float
        (1 + how many are at least as good) / (1 + draws): how likely chance alone does as well.
    """

    test: str
    figure: str
    own: float
    draws: pd.DataFrame

    def __arrow_c_stream__(self, requested_schema: object | None = None) -> object:
        """Hand `draws` to other libraries."""
        return arrow_stream(self.draws, requested_schema)

    @property
    def rank(self) -> float:
        known = self.draws[self.figure].dropna()
        return float((known < self.own).mean()) if len(known) else float("nan")

    @property
    def p_value(self) -> float:
        known = self.draws[self.figure].dropna()
        if math.isnan(self.own) or not len(known):
            return float("nan")
        return float((1 + (known >= self.own).sum()) / (1 + len(known)))

    def __repr__(self) -> str:
        what = {"portfolios": "random portfolios", "entries": "sets of random entries"}[self.test]
        return (
            f"{self.figure} {self.own:.4g}, above {self.rank:.1%} of {len(self.draws)} {what} "
            f"(p = {self.p_value:.3f})"
        )
