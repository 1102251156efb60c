"""The cases: which contestants run, on which input, and what is to be reached."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np

DAY_NS = 86_400_000_000_000


@dataclass(frozen=True)
class Goal:
    """`ours` (a label) is to be at least `factor` times faster than `peer`.

    `peer` is a contestant, or a label of corvex's own entries where the two run in one process.
    """

    ours: str
    peer: str
    factor: float


@dataclass(frozen=True)
class Case:
    """One comparison. The entries of corvex that head a ratio column are named in `columns`."""

    name: str
    title: str
    contestants: tuple[str, ...]
    prepare: Callable[[Path], None]
    columns: tuple[str, ...] = ()
    goals: tuple[Goal, ...] = ()
    variants: tuple[str, ...] = field(default=("",))
    # Slow contestants that sit out some variants: (contestant, variant).
    absent: frozenset[tuple[str, str]] = frozenset()


def business_days(count: int) -> np.ndarray:
    days = np.arange(np.datetime64("2005-01-03"), np.datetime64("2005-01-03") + 2 * count)
    return days[np.is_busday(days)][:count].astype("M8[ns]").astype(np.int64)


def daily_series(data: Path) -> None:
    """Ten years of daily prices: a random walk of 16 % yearly volatility."""
    steps = np.random.default_rng(7).normal(0.0004, 0.01, 2520)
    np.savez(data, dates=business_days(2520), values=100.0 * np.exp(np.cumsum(steps)))


def lookup_table(data: Path) -> None:
    """A table of ten years by 500 assets and 100,000 cells to read from it."""
    draw = np.random.default_rng(7)
    np.savez(
        data,
        dates=business_days(2520),
        table=draw.normal(size=(2520, 500)),
        rows=draw.integers(0, 2520, 100_000),
        columns=draw.integers(0, 500, 100_000),
    )


def nothing(data: Path) -> None:
    np.savez(data)


CALL = "calc_stats().stats.to_dict()"
ENGINE = "the engine's call"
KERNEL = "query_data_int64"
IMPORT = "import corvex.core.report"

CASES = [
    Case(
        "statistics",
        "all statistics of a ten-year daily series",
        ("corvex", "ffn", "quantstats", "empyrical"),
        daily_series,
        (CALL, ENGINE),
        (Goal(CALL, "ffn", 30), Goal(ENGINE, "ffn", 300)),
    ),
    Case(
        "drawdowns",
        "the ten largest drawdowns of a ten-year daily series",
        ("corvex", "ffn", "quantstats"),
        daily_series,
        (ENGINE,),
        (Goal(ENGINE, "ffn", 50), Goal(ENGINE, "quantstats", 50)),
    ),
    Case(
        "lookup",
        "100,000 cells of a table of 2,520 dates by 500 assets",
        ("corvex",),
        lookup_table,
        (KERNEL,),
        (Goal(KERNEL, "DataFrame.at in a loop", 40),),
    ),
    Case(
        "import",
        "import, after pandas and requests are there (new processes)",
        ("corvex", "ffn", "quantstats", "empyrical"),
        nothing,
        (IMPORT,),
    ),
]
