"""corvex: sweeps, the engine's batches beneath them, and what both are measured against."""

from __future__ import annotations

import multiprocessing
import tempfile
import time
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

from cases import (
    BATCH,
    CROSSED_TABLES,
    CROSSINGS,
    MANY,
    MOMENTUM,
    ONE_PROCESS,
    ONE_THREAD,
    RESUMED,
    SIGNALS,
    SWEEP,
    TWO_PROCESSES,
    TWO_THREADS,
    VARIANTS,
    swept_weights,
)
from common import Entry, load, price_table, summary, time_call

LOOP = "  a loop of simulate and get_stats"
PRODUCT = "  numpy: weights x returns, no drift"


def sweeps(data: Path) -> list[Entry]:
    arrays = load(data)
    variant = str(arrays["variant"])
    if "x" in variant:
        return _portfolios(arrays)
    return {"momentum": _momentum, "crossings": _crossings, "many": _many}[variant]()


def _portfolios(arrays: dict[str, Any]) -> list[Entry]:
    import corvex

    prices = price_table(arrays)
    dates = prices.index[arrays["signals"]]
    fixed = {"fee_ratio": float(arrays["fee"]), "tax_ratio": 0.0, "market": "us_stock"}
    tables = {
        seed: pd.DataFrame(weights, dates, prices.columns)
        for seed, weights in enumerate(swept_weights(arrays, VARIANTS))
    }
    some = [tables[seed] for seed in range(20)]
    batch = _batch(prices, tables, fixed)
    entries = [
        time_call(
            SWEEP,
            lambda: corvex.sweep(tables, prices, threads=1, **fixed).figures,
            repeats=9,
            memory=True,
            cpu=True,
        ),
        time_call(BATCH, lambda: batch(1), repeats=9, cpu=True),
        time_call(ONE_THREAD, lambda: batch(1), repeats=9),
        time_call(TWO_THREADS, lambda: batch(2), repeats=9),
        _scaled(
            time_call(
                LOOP,
                lambda: [corvex.simulate(one, prices, **fixed).get_stats() for one in some],
                repeats=3,
                cpu=True,
            ),
            VARIANTS / len(some),
        ),
    ]
    change = prices.pct_change(fill_method=None).fillna(0.0).to_numpy()
    rows = np.repeat(np.arange(len(dates)), np.diff(np.append(arrays["signals"], len(prices) - 1)))
    held = [table.to_numpy()[rows] for table in some]
    later = change[arrays["signals"][0] + 1 :]
    product = time_call(
        PRODUCT,
        lambda: [np.cumprod(1.0 + np.einsum("ij,ij->i", one, later)) for one in held],
        repeats=3,
        cpu=True,
    )
    return [*entries, _scaled(product, VARIANTS / len(some))]


def _batch(prices: pd.DataFrame, tables: dict[int, pd.DataFrame], fixed: dict[str, Any]) -> Any:
    """The engine's call for all tables, with what it takes made ready."""
    from corvex import _engine
    from corvex.simulation.options import read_options
    from corvex.simulation.plan.plan import make_plan
    from corvex.simulation.read.price_data import read_prices
    from corvex.simulation.read.weights import read_weights

    market = fixed["market"]
    data = read_prices(prices, prices.columns, market=market)
    plans = [
        make_plan(read_weights(table, limit=np.inf, leverage=False), data)
        for table in tables.values()
    ]
    given = [
        (plan.schedule.targets, plan.schedule.sessions.astype(np.int64), plan.first_session)
        for plan in plans
    ]
    times = np.ascontiguousarray(prices.index.as_unit("ns").asi8)
    arguments = {
        "times": times,
        "closes": _engine.day_end_rows(times),
        "before_first": np.zeros(len(plans), np.int64),
    }
    options = [read_options(data.market, fixed)]
    runs = np.column_stack([np.arange(len(plans)), np.zeros(len(plans), np.int64)])
    shared = data.of_assets(prices.columns).shared
    return lambda threads: _engine.simulate_many(
        shared, given, options, runs, threads=threads, **arguments
    )


def _scaled(entry: Entry, factor: float) -> Entry:
    return {**entry, "best": entry["best"] * factor, "median": entry["median"] * factor}


def momentum(prices: pd.DataFrame, lookback: int, top: int) -> pd.DataFrame:
    change = prices.pct_change(lookback, fill_method=None)
    return change.rank(axis=1, ascending=False) <= top


def _momentum() -> list[Entry]:
    import corvex

    prices = corvex.data.sample("us_stocks")
    grid = {"lookback": range(21, 21 + 24 * 10, 10), "top": range(3, 21)}
    fixed = {"resample": "ME", "fee_ratio": 0.001, "market": "us_stock", "signal": grid}

    def signals() -> None:
        for lookback in grid["lookback"]:
            for top in grid["top"]:
                momentum(prices, lookback, top)

    def swept() -> object:
        return corvex.sweep(momentum, prices, threads=1, **fixed)

    entries = [
        time_call(MOMENTUM, swept, repeats=3, cpu=True),
        time_call(SIGNALS, signals, repeats=3, cpu=True),
        time_call(ONE_PROCESS, swept, repeats=3),
    ]  # fmt: skip
    context = multiprocessing.get_context("fork")
    with ProcessPoolExecutor(2, mp_context=context) as pool:
        spread = lambda: corvex.sweep(momentum, prices, executor=pool, **fixed)  # noqa: E731
        return [*entries, time_call(TWO_PROCESSES, spread, repeats=3)]


def _crossings() -> list[Entry]:
    import corvex

    prices, pairs = one_asset()
    fixed = {"fee_ratio": 0.001, "tax_ratio": 0.0, "market": "us_stock", "threads": 1}
    grid = [{"fast": fast, "slow": slow} for fast, slow in pairs]

    def crossings() -> object:
        return corvex.sweep(crossing, prices, signal=grid, batched=True, **fixed).figures

    def from_tables() -> object:
        windows = sorted({window for pair in pairs for window in pair})
        means = {window: prices.rolling(window).mean() for window in windows}
        tables = {f"{fast}/{slow}": means[fast] > means[slow] for fast, slow in pairs}
        return corvex.sweep(tables, prices, **fixed).figures

    return [
        time_call(CROSSINGS, crossings, repeats=9, cpu=True),
        time_call(CROSSED_TABLES, from_tables, repeats=5, cpu=True),
    ]


def crossing(prices: pd.DataFrame, fast: np.ndarray, slow: np.ndarray) -> np.ndarray:
    """Each average once, as the other side does too; then all pairs of them."""
    windows = np.unique([fast, slow])
    means = np.array([prices.rolling(int(window)).mean().to_numpy() for window in windows])
    above: np.ndarray = (
        means[np.searchsorted(windows, fast)] > means[np.searchsorted(windows, slow)]
    )
    return above


def one_asset() -> tuple[pd.DataFrame, list[tuple[int, int]]]:
    steps = np.random.default_rng(7).normal(0.0003, 0.015, (2520, 1))
    dates = pd.bdate_range("2005-01-03", periods=2520)
    prices = pd.DataFrame(100.0 * np.exp(np.cumsum(steps, axis=0)), dates, ["A"])
    windows = range(5, 5 * 33, 5)
    pairs = [(fast, slow) for fast in windows for slow in windows if fast < slow]
    return prices, [pair for pair in pairs if pair[1] <= 160][:500]


def _many() -> list[Entry]:
    import corvex

    prices = one_asset()[0].iloc[:300]
    weights = prices.notna().iloc[:1]
    options = {
        "fee_ratio": np.linspace(0.0, 0.01, 1000).tolist(),
        "trail_stop": [None, *np.linspace(0.05, 0.5, 99)],
    }

    def many(store: str | None = None) -> object:
        return corvex.sweep(weights, prices, options=options, market="us_stock", store=store)

    with tempfile.TemporaryDirectory() as folder:
        corvex.sweep(weights, prices, options={"fee_ratio": [0.0, 0.1]}, market="us_stock")
        entry = time_call(MANY, lambda: many().figures, repeats=1, warm=False, memory=True)
        many(f"{folder}/store")
        start = time.process_time()
        many(f"{folder}/store")
        return [entry, summary(RESUMED, [time.process_time() - start])]
