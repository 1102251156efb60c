"""The cases: which contestants run, on which input, and what is to be reached."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping
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
    variant: str = ""  # the start of the variants that it is meant for


@dataclass(frozen=True)
class Case:
    """One comparison. The entries of corvex that head a ratio column are named in `columns`."""

    name: str
    title: str
    contestants: tuple[str, ...]
    prepare: Callable[[Path, str], None]
    columns: tuple[str, ...] = ()
    goals: tuple[Goal, ...] = ()
    variants: tuple[str, ...] = ("",)
    limits: Mapping[str, float] = field(default_factory=dict)  # seconds by label
    # The same for one variant.
    limits_of: Mapping[str, Mapping[str, float]] = field(default_factory=dict)
    room: Mapping[str, float] = field(default_factory=dict)  # mebibytes by label
    lean: tuple[Goal, ...] = ()  # in peak memory rather than time


def business_days(count: int) -> np.ndarray:
    days = np.arange(np.datetime64("2005-01-03"), np.datetime64("2005-01-03") + 2 * count)
    return days[np.is_busday(days)][:count].astype("M8[ns]").astype(np.int64)


def daily_series(data: Path, _variant: str) -> None:
    """Ten years of daily prices: a random walk of 16 % yearly volatility."""
    steps = np.random.default_rng(7).normal(0.0004, 0.01, 2520)
    np.savez(data, dates=business_days(2520), values=100.0 * np.exp(np.cumsum(steps)))


def traded_curve(data: Path, _variant: str) -> None:
    """Ten years: a curve, its benchmark, weights of 100 assets and 10,000 closed trades."""
    draw = np.random.default_rng(7)
    market = draw.normal(0.0003, 0.01, 2520)
    own = 0.8 * market + draw.normal(0.0002, 0.006, 2520)
    entry = np.sort(draw.integers(0, 2400, 10_000))
    returns = draw.normal(0.01, 0.08, 10_000)
    np.savez(
        data,
        dates=business_days(2520),
        values=np.exp(np.cumsum(own)),
        benchmark=np.exp(np.cumsum(market)),
        weights=draw.dirichlet(np.ones(100), 2520) * (draw.random((2520, 100)) < 0.3),
        asset=draw.integers(0, 100, 10_000),
        entry=entry,
        exit=entry + draw.integers(1, 100, 10_000),
        returns=returns,
        mae=np.minimum(returns, 0.0) - 0.02,
        mfe=np.maximum(returns, 0.0) + 0.02,
    )


def lookup_table(data: Path, variant: str) -> None:
    """A table of ten years by 500 assets, of the variant's type, and 100,000 cells to read."""
    draw = np.random.default_rng(7)
    values = draw.normal(size=(2520, 500))
    tables = {"float64": values, "int64": (1000 * values).astype(np.int64), "bool": values > 0}
    np.savez(
        data,
        dates=business_days(2520),
        table=tables[variant],
        rows=draw.integers(0, 2520, 100_000),
        columns=draw.integers(0, 500, 100_000),
    )


def traded_table(data: Path, _variant: str) -> None:
    """A table of 5,000 dates by 2,000 assets (76 MiB), and 100,000 trades on its dates."""
    draw = np.random.default_rng(7)
    entry = np.sort(draw.integers(0, 4900, 100_000))
    np.savez(
        data,
        dates=business_days(5000),
        table=draw.normal(size=(5000, 2000)),
        asset=draw.integers(0, 2000, 100_000),
        entry=entry,
        exit=entry + draw.integers(1, 100, 100_000),
    )


def nothing(data: Path, _variant: str) -> None:
    np.savez(data)


def portfolio(data: Path, variant: str) -> None:
    """Prices of the variant's size, and target weights at each month's last session.

    "all" holds every asset at weights that change each month, "best" the fifth with the highest
    return over the last 126 sessions, in equal parts.
    """
    size, choice = variant.split()
    assets, days = (int(part) for part in size.split("x"))
    draw = np.random.default_rng(7)
    steps = draw.normal(0.0003, 0.015, (days, assets))
    prices = 100.0 * np.exp(np.cumsum(steps, axis=0))
    dates = business_days(days)
    months = dates.view("M8[ns]").astype("M8[M]")
    # The last row is no signal: its fill would lie beyond the table.
    signals = np.flatnonzero(months[1:] != months[:-1])
    signals = signals[signals < days - 1]
    if choice == "all":
        weights = draw.uniform(0.5, 1.5, (len(signals), assets))
    else:
        signals = signals[signals >= 126]
        momentum = prices[signals] / prices[signals - 126]
        weights = (momentum >= np.quantile(momentum, 0.8, axis=1, keepdims=True)).astype(float)
    weights /= weights.sum(axis=1, keepdims=True)
    np.savez(data, dates=dates, prices=prices, signals=signals, weights=weights, fee=0.001)


VARIANTS = 1000  # of a sweep


def sweeps(data: Path, variant: str) -> None:
    """Prices of the variant's size, if it has one; see `swept_weights`."""
    if "x" not in variant:
        np.savez(data, variant=variant)
        return
    assets, days = (int(part) for part in variant.split("x"))
    steps = np.random.default_rng(7).normal(0.0003, 0.015, (days, assets))
    prices = 100.0 * np.exp(np.cumsum(steps, axis=0))
    dates = business_days(days)
    months = dates.view("M8[ns]").astype("M8[M]")
    signals = np.flatnonzero(months[1:] != months[:-1])
    signals = signals[signals < days - 1]
    np.savez(data, variant=variant, dates=dates, prices=prices, signals=signals, fee=0.001)


def swept_weights(arrays: Mapping[str, np.ndarray], count: int) -> Iterator[np.ndarray]:
    """The weights of the first variants, months x assets, the same wherever they are made."""
    shape = len(arrays["signals"]), arrays["prices"].shape[1]
    for seed in range(count):
        weights = np.random.default_rng(seed).uniform(0.5, 1.5, shape)
        yield weights / weights.sum(axis=1, keepdims=True)


def trials(data: Path, _variant: str) -> None:
    """Ten years of a strategy and of 1,000 models, and 1,000 trials of 2,000 days."""
    draw = np.random.default_rng(7)
    np.savez(
        data,
        returns=draw.normal(0.0004, 0.01, 2520),
        models=draw.normal(0.0, 0.01, (2520, 1000)),
        trials=draw.normal(0.0, 0.01, (2000, 1000)),
        block=10.0,
    )


def daily_weights(data: Path, _variant: str) -> None:
    """Weights of 500 assets for each of 2,520 days, and a single asset's 5,000 prices."""
    draw = np.random.default_rng(7)
    steps = draw.normal(0.0003, 0.015, (2520, 500))
    weights = draw.uniform(0.5, 1.5, (2519, 500))
    np.savez(
        data,
        prices=100.0 * np.exp(np.cumsum(steps, axis=0)),
        weights=weights / weights.sum(axis=1, keepdims=True),
        single=100.0 * np.exp(np.cumsum(draw.normal(0.0003, 0.015, (5000, 1)), axis=0)),
    )


CALL = "to_dict()"
DAILY, ONE_ASSET = "daily, 500 assets", "one asset held"
ENGINE = "engine"
KERNEL = "query_data_int64"
IMPORT = "import corvex.core.report"
HELP, SHOW = "corvex --help, over python", "corvex show, over import pandas"
FIRST, SECOND = "corvex.simulate, first of a process", "corvex.simulate, second"
BARE = "engine, bare"
FULL = "engine, all on"
FIGURES = "the figures of both"
METRICS = "get_metrics(), all 44"
SIMULATE = "corvex.simulate"
ACCOUNT = "  with an account: interest, lots, fees"
WHOLE_ACCOUNT = "  with an account, all on"
FIRST_STATS = "first get_stats() of its report"
TRADE_INFO = "add_trade_info"
PAYLOAD = "payload, last 500 trades"
PACKED = "  10,000 trades packed"
PAGE = "to_html, second call"
FIRST_CHART, ALL_TABLES = "ten years: first chart", "ten years: all tables"
SWEEP, BATCH = "corvex.sweep, 1,000 tables, one thread", "1,000 runs in the engine, one thread"
ONE_THREAD, TWO_THREADS = "  the same, by the clock", "  on two threads, by the clock"
ONE_PROCESS, TWO_PROCESSES = "  one process, by the clock", "  two processes, by the clock"
MOMENTUM, SIGNALS = "432 momentum variants", "their signals alone, in pandas"
CROSSINGS = "500 crossings of averages, one asset"
CROSSED_TABLES = "  the same, a table for each"
MANY, RESUMED = "100,000 runs", "  resumed, all done"
SMALL, MIDDLE, LARGE = "50x2520", "500x2520", "2000x5000"

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
        "metrics",
        "the metrics of a ten-year report with 10,000 trades",
        ("corvex", "empyrical"),
        traded_curve,
        (FIGURES, METRICS),
        (Goal(FIGURES, "empyrical", 20),),
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
        (Goal(KERNEL, "DataFrame.at in a loop", 150),),
        ("float64", "int64", "bool"),
    ),
    Case(
        "trade_info",
        "two dates of 100,000 trades looked up in 5,000 dates by 2,000 assets",
        ("corvex",),
        traded_table,
        (TRADE_INFO,),
        (Goal(TRADE_INFO, "the same with pandas", 8),),
        room={TRADE_INFO: 38.0},  # half of a copy of the table
    ),
    Case(
        "payload",
        "to_payload_dict of a ten-year report with 10,000 trades",
        ("corvex",),
        nothing,
        (PAYLOAD,),
        limits={PAYLOAD: 0.150, PACKED: 0.040},
    ),
    Case(
        "import",
        "import, after pandas and requests are there (new processes)",
        ("corvex", "ffn", "quantstats", "empyrical"),
        nothing,
        (IMPORT,),
        limits={IMPORT: 0.030},
    ),
    Case(
        "start",
        "what a new process waits for (a backtest of 50 assets x 2,520 sessions)",
        ("corvex",),
        nothing,
        (SECOND,),
        (Goal(FIRST, SECOND, 1 / 5),),
        limits={HELP: 0.150, SHOW: 0.200},
    ),
    Case(
        "simulate",
        "monthly rebalance with fees, assets x dates",
        ("corvex", "vectorbt", "bt"),
        portfolio,
        (BARE, FULL, SIMULATE),
        (
            Goal(BARE, "vectorbt", 200, LARGE),
            Goal(BARE, "vectorbt", 20, SMALL),
            Goal(SIMULATE, "vectorbt", 15, SMALL),
            Goal(SIMULATE, "vectorbt", 100, MIDDLE),
            Goal(SIMULATE, "vectorbt", 250, LARGE),
            Goal(FIRST_STATS, SIMULATE, 10, SMALL),
            Goal(ACCOUNT, SIMULATE, 1 / 2),
            Goal(WHOLE_ACCOUNT, SIMULATE, 1 / 2),
            Goal(BARE, "numpy.sum", 1 / 4, LARGE),
            Goal(FULL, "numpy.sum", 1 / 10, f"{LARGE} all"),  # where many stops fire
            Goal(FULL, "numpy.sum", 1 / 6, f"{LARGE} best"),
        ),
        tuple(f"{size} {choice}" for size in (SMALL, MIDDLE, LARGE) for choice in ("all", "best")),
    ),
    Case(
        "sweep",
        "many runs: figures of 1,000 monthly portfolios, and what sweeps cost beside them",
        ("corvex", "vectorbt"),
        sweeps,
        (SWEEP, CROSSINGS, CROSSED_TABLES),
        (
            Goal(SWEEP, "vectorbt", 200),
            Goal(TWO_THREADS, ONE_THREAD, 1.8),
            Goal(TWO_PROCESSES, ONE_PROCESS, 1.7),
            Goal(MOMENTUM, SIGNALS, 1 / 1.3),
            Goal(CROSSINGS, "vectorbt", 20, "crossings"),
        ),
        (SMALL, MIDDLE, "momentum", "crossings", "many"),
        limits={RESUMED: 2.0},
        limits_of={SMALL: {SWEEP: 1000 / 6000, BATCH: 1000 / 20_000}},
        room={MANY: 1e5 * 1000 / 2**20},
        lean=(Goal(SWEEP, "vectorbt", 10),),
    ),
    Case(
        "daily",
        "the engine's own pace: daily rebalances of 500 assets, and one asset over 5,000 sessions",
        ("corvex",),
        daily_weights,
        limits={DAILY: 500 * 2520 / 600e6, ONE_ASSET: 5000 * 6e-9},
    ),
    Case(
        "page",
        "the page of ten years daily with a benchmark (new processes)",
        ("corvex", "quantstats"),
        traded_curve,
        (PAGE,),
        (Goal(PAGE, "quantstats", 20),),
    ),
    Case(
        "interactive",
        "the page in Chromium, from the click to the screen (new browsers)",
        ("corvex",),
        traded_curve,
        limits={FIRST_CHART: 1.0, ALL_TABLES: 1.0},
    ),
    Case(
        "confidence",
        "ten daily years: bootstrap, superior ability, overfitting (one thread)",
        ("corvex", "arch", "ffn"),
        trials,
        goals=(
            Goal("Sharpe ratio, 1,000 draws", "arch: Sharpe ratio", 40),
            Goal("all six figures, 1,000 draws", "arch: max drawdown", 15),
            Goal("SPA, 100 models", "arch: SPA, 100 models", 100),
            Goal("SPA, 1,000 models", "arch: SPA, 1,000 models", 100),
            Goal("PBO, 100 trials", "ffn: PBO, 100 trials", 300),
        ),
        limits={"PBO, 1,000 trials": 0.025},
    ),
    Case(
        "agree",
        "the same portfolio without costs: the equity curves side by side",
        ("corvex", "vectorbt", "bt"),
        portfolio,
        variants=("20x756 all", "20x756 best"),
    ),
]
