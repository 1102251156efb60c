"""Gives simulation, curves, metrics and kernels tables that no strategy would.

    python tests/fuzz/frames.py RUNS [SEED]

Each input must yield whole results or an error that says what was wrong. In one of eight runs a
second thread writes to the arrays meanwhile: then any result will do, but no crash.

Deterministic but for that thread. The number of a failing input is printed: FUZZ_ONLY=number runs
it alone, and FUZZ_TRACE names a file that tells the present one, should the process end.
"""

import contextlib
import os
import sys
import threading
import time
import warnings
from collections import Counter
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

sys.path.insert(0, str(Path(__file__).parent))

from hostile import Hostile

import corvex
from corvex import _engine
from corvex.core.metrics import Metrics

LONGEST = 20.0  # seconds for one input: far more is a hang
REFUSALS = (ValueError, TypeError, LookupError)
# What nobody may be left alone with: errors of the inside that mean a missing check.
INTERNAL = (
    "cannot convert float", "index out of range", "object has no attribute", "NoneType' object",
    "incompatible function arguments", "is ambiguous",
)  # fmt: skip
FIGURES = [name for name in vars(Metrics) if not name.startswith("_")]


def simulate(hostile: Hostile) -> None:
    prices: Any = hostile.frame()
    weights = hostile.weights(prices)
    if hostile.chance(0.2):
        fields = hostile.random.sample(("open", "high", "low", "volume"), 3)
        prices = {"close": prices} | {name: prices.copy() for name in fields}
    report = corvex.simulate(weights, prices, **hostile.options())
    check_report(report)
    if hostile.chance(0.1):
        report.get_metrics()
        report.position_info2()
        corvex.contributions(report)


def accounts(hostile: Hostile) -> None:
    """Runs that keep an account; what it wrote down adds up where its figures are no extremes."""
    close = hostile.quoted()
    volume = hostile.frame(close.index, list(close.columns))
    account = corvex.Account(**hostile.account(close))
    prices = {"close": close, "volume": volume} if hostile.chance(0.8) else close
    options = hostile.options() if hostile.chance(0.3) else {"market": "us_stock"}
    weights = hostile.weights(close) if hostile.chance(0.3) else 0.1 / close * close.iloc[0]
    report = corvex.simulate(weights, prices, account=account, **options)
    check_report(report)
    money = report.account
    assert money is not None
    assert len(money) <= len(report.creturn)
    kept = money["cash"] + money["long"] + money["short"]
    size = money["gross"] + money["cash"].abs()
    assert ((kept - money["equity"]).abs() <= 1e-10 * size).all()
    if hostile.chance(0.1):
        corvex.contributions(report, by_kind=True)
        report.position_info2()


def curves(hostile: Hostile) -> None:
    curve = hostile.curve()
    if hostile.chance(0.4):
        stats = curve.calc_stats()
        stats.set_riskfree_rate(hostile.random.choice((0.0, 0.02, -0.5)))
        assert len(stats.stats) > 40
        return
    make = hostile.random.choice((corvex.from_equity, corvex.from_returns))
    report = make(curve, hostile.curve() if hostile.chance(0.3) else None)
    check_report(report)


def figures(hostile: Hostile) -> None:
    dates = pd.bdate_range("2024-01-01", periods=20)
    report = corvex.from_equity(pd.Series(np.linspace(1, 2, 20), dates))
    trades = hostile.frame(labels=["return", "position", "mae", "mfe", "trade_price@entry_date"])
    trades = trades.reset_index(names="entry_date") if trades.index.nlevels == 1 else trades
    exits = hostile.dates(len(trades))
    with contextlib.suppress(NotImplementedError):  # pandas cannot store zoned years past 9999
        trades["exit_date"] = exits
    trades["symbol"] = pd.Series(
        [hostile.random.choice("ABC") for _ in range(len(trades))], dtype=object
    )
    report.trades = trades
    report.market = report.market.bound_to(
        {
            name: hostile.frame(None if hostile.chance(0.1) else dates)
            for name in ("close", "high", "low", "volume", "market_value")
        }
    )
    for name in hostile.random.sample(FIGURES, 6):
        getattr(report.metrics, name)()
    if hostile.chance(0.5):
        # A table without dates as its index fails in pandas, with whatever it says.
        with contextlib.suppress(Exception):
            report.add_trade_info("x", hostile.frame(), "entry_date")


def kernels(hostile: Hostile) -> None:
    rows = hostile.random.choice((0, 1, 2, 7, 60, 500))
    times, other = hostile.times(rows), hostile.times(hostile.random.choice((0, 1, 9)))
    values = hostile._numbers(rows, 1)[:, 0]
    hostile.written += [times, other, values]
    calls: list[Callable[[], Any]] = [
        lambda: _engine.performance_record(values, times, 0.02),
        lambda: _engine.return_table(values, times),
        lambda: _engine.infer_convention(times),
        lambda: _engine.usual_gap(times),
        lambda: _engine.month_end_rows(times),
        lambda: _engine.year_end_rows(times),
        lambda: _engine.day_end_rows(times),
        lambda: _engine.rows_of_times(times, other, hostile.random.choice((1, 86_400, 10**9))),
        lambda: _engine.rows_at_or_before(times, other),
        lambda: _engine.period_last_sessions(times, hostile.random.choice(("W", "3ME", "7s"))),
        lambda: _engine.period_bounds(times, hostile.random.choice(("W-FRI", "100000YE", "h"))),
        lambda: _engine.table_cells(values[:, None], other % (rows + 2) - 1, times[: len(other)]),
        lambda: _engine.largest_drawdowns(values, hostile.random.choice((0, 3, 10**9))),
        lambda: _engine.tail_risk(values),
        lambda: _engine.simulate(
            _engine.PriceSet(close=np.ascontiguousarray(values[:, None])),
            target=np.ones((len(other), 1)),
            signal_session=np.sort(other % (rows + 1) - 1),
        ),
    ]
    hostile.random.choice(calls)()


def check_report(report: corvex.Report) -> None:
    curve = report.creturn
    assert len(curve) > 0
    assert curve.index.is_monotonic_increasing
    assert not curve.isna().any()
    assert len(report.position) > 0
    assert len(report.get_stats()) > 40


_TARGETS = [simulate, curves, kernels, simulate, curves, figures, kernels, kernels]
TARGETS = [*_TARGETS[:7], accounts, *_TARGETS]


@contextlib.contextmanager
def disturbed(hostile: Hostile) -> Iterator[None]:
    """Write to the arrays that were handed out, from another thread."""
    done = threading.Event()

    def write() -> None:
        numbers = np.random.default_rng(0)
        while not done.is_set():
            for array in list(hostile.written):
                if array.size and array.flags.writeable:
                    at = tuple(numbers.integers(0, size) for size in array.shape)
                    array[at] = numbers.choice([0, -1, 2**62, -(2**62)])

    writer = threading.Thread(target=write)
    writer.start()
    try:
        yield
    finally:
        done.set()
        writer.join()


def run(runs: int, seed: int) -> tuple[Counter[str], float]:
    """Run so many inputs; how they ended, and the seconds of the slowest."""
    counts: Counter[str] = Counter()
    slowest = 0.0
    trace, only = os.environ.get("FUZZ_TRACE"), os.environ.get("FUZZ_ONLY")
    for number in [int(only)] if only else range(runs):
        target = TARGETS[number % len(TARGETS)]
        if trace:
            Path(trace).write_text(f"{number} of seed {seed}: {target.__name__}")
        begun = time.perf_counter()
        try:
            outcome = attempt(target, Hostile(seed * 1_000_003 + number), number % 64 < 8)
        except BaseException:
            print(f"input {number} of seed {seed}: {target.__name__}")
            raise
        counts[f"{target.__name__}: {outcome}"] += 1
        slowest = max(slowest, time.perf_counter() - begun)
        assert slowest < LONGEST, f"input {number} of seed {seed} took {slowest:.1f} s"
    return counts, slowest


def attempt(target: Callable[[Hostile], None], hostile: Hostile, concurrent: bool) -> str:
    with warnings.catch_warnings(), np.errstate(all="ignore"):
        warnings.simplefilter("ignore")
        if concurrent:
            with contextlib.suppress(Exception), disturbed(hostile):
                target(hostile)
            return "disturbed"
        try:
            target(hostile)
        except REFUSALS as refusal:
            if any(text in str(refusal) for text in INTERNAL) or not str(refusal):
                raise
            return "refused"
        return "done"


def main() -> None:
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 200_000
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    begun = time.perf_counter()
    counts, slowest = run(runs, seed)
    for outcome, count in sorted(counts.items()):
        print(f"  {outcome:<24}{count:>10,}")
    seconds = time.perf_counter() - begun
    print(f"{runs:,} inputs, seed {seed}: {seconds:.0f} s, slowest {slowest * 1e3:.0f} ms")


if __name__ == "__main__":
    main()
