"""Tells whether `corvex.simulate` still gives what it gave: python bench/golden.py [make | COUNT].

2,000 seeded runs over all options, with holes, zones, bars within the day, listed dates and
settings that are refused. Their figures are compared with those of golden.npz to 1e-12, and what
is no number (dates, labels, reasons, warnings, errors, the names and types of the report's
attributes) by a checksum of each kind. `make` writes golden.npz anew: for a change of results
that is meant, and told in the changelog. A count compares the first of them only.
golden_accounts.py does the same for runs that keep an account.
"""

from __future__ import annotations

import sys
import warnings
import zlib
from collections.abc import Iterable
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

import corvex

FILE = Path(__file__).parent / "golden.npz"
RUNS = 2000
TOLERANCE = 1e-12
FIGURES = (
    *("creturn", "position", "trades", "returns", "excursions", "weights", "fills", "costs"),
    *("turnover", "benchmark", "statistics"),
)
KINDS = ("notices", "attributes", "dates", "labels", "sizes", "types")

Draw = np.random.Generator


def chosen(draw: Draw, *options: Any) -> Any:
    return options[draw.integers(len(options))]


def dates_of(draw: Draw, count: int) -> pd.DatetimeIndex:
    """Sessions: daily with or without a zone, at midnight or at the close, or bars of the day."""
    kind = chosen(draw, "plain", "plain", "plain", "utc", "local", "close", "bars", "all days")
    if kind == "all days":
        return pd.date_range("2014-11-03", periods=count, freq="D")
    zone = chosen(draw, "Asia/Taipei", "America/New_York", "UTC")
    if kind == "bars":
        days = pd.bdate_range("2014-11-03", periods=-(-count // 5))
        hours = pd.to_timedelta(np.tile(np.arange(10, 15), len(days)), unit="h")
        bars = pd.DatetimeIndex(days.repeat(5) + hours)[:count]
        return chosen(draw, bars, bars.tz_localize(zone))
    days = pd.bdate_range("2014-11-03", periods=count)
    days = days[draw.random(count) > 0.03]
    if kind == "utc":
        return days.tz_localize("UTC")
    if kind == "local":
        return days.tz_localize(zone)
    return days + pd.Timedelta("13:30:00") if kind == "close" else days


def tables_of(draw: Draw, dates: pd.DatetimeIndex, labels: list[str]) -> dict[str, pd.DataFrame]:
    """Bars with holes, late starts and early ends."""
    shape = len(dates), len(labels)
    close = 50.0 * np.exp(np.cumsum(draw.normal(0.0, 0.02, shape), axis=0))
    spread = np.abs(draw.normal(0.0, 0.01, (2, *shape)))
    first = close * np.exp(draw.normal(0.0, 0.005, shape))
    high = np.maximum(close, first) * (1.0 + spread[0])
    low = np.minimum(close, first) / (1.0 + spread[1])
    missing = draw.random(shape) < chosen(draw, 0.0, 0.0, 0.02)
    for asset in np.flatnonzero(draw.random(shape[1]) < 0.15):
        rows = int(draw.integers(shape[0] // 2))
        missing[: rows if draw.random() < 0.5 else 0, asset] = True
        missing[shape[0] - rows if draw.random() < 0.5 else shape[0] :, asset] = True
    if draw.random() < 0.05:
        close[shape[0] // 2, 0] = -1.0
    matrices = {"close": close, "open": first, "high": high, "low": low, "volume": close * 1e4}
    return {
        field: pd.DataFrame(np.where(missing, np.nan, values), dates, labels)
        for field, values in matrices.items()
    }


def weights_of(draw: Draw, dates: pd.DatetimeIndex, labels: list[str]) -> pd.DataFrame:
    """Fractions, signals, shorts or sums above 1, on all dates, some of them, or others."""
    step = int(chosen(draw, 1, 5, 21))
    rows = dates[int(draw.integers(5)) :: step]
    if draw.random() < 0.15:
        rows = pd.date_range(dates[0].normalize(), dates[-1].normalize(), freq="W-SAT")
    values = draw.dirichlet(np.ones(len(labels)), len(rows))
    values[draw.random(values.shape) < 0.4] = 0.0
    kind = chosen(draw, "plain", "plain", "signals", "shorts", "large", "holes", "steady")
    if kind == "signals":
        return pd.DataFrame(values > 0.1, rows, labels)
    if kind == "shorts":
        values *= np.sign(draw.normal(0.5, 1.0, values.shape))
    elif kind == "large":
        values *= 3.0
    elif kind == "holes":
        values[draw.random(values.shape) < 0.3] = np.nan
    elif kind == "steady":
        values[:] = values[0]
    return pd.DataFrame(values, rows, labels)


def options_of(draw: Draw, dates: pd.DatetimeIndex, tables: dict[str, Any]) -> dict[str, Any]:
    def day(share: float) -> pd.Timestamp:
        return dates[int(share * (len(dates) - 1))]

    def seldom(value: Any, otherwise: Any = None) -> Any:
        return value if draw.random() < 0.2 else otherwise

    other = tables["close"] * 1.001
    late = tables["close"].iloc[len(dates) // 3 :, 0].rename("late").dropna()
    options = {
        "resample": chosen(
            draw, *(None,) * 4, "ME", "W-FRI", "D", "MS", "2W", "QE", dates[::7], [dates[-1]]
        ),
        "trade_at": chosen(draw, *("close",) * 4, "open", "high", "low", "ohlc", other),
        "fee_ratio": chosen(draw, None, 0.0, 0.001425),
        "tax_ratio": chosen(draw, None, 0.0, 0.003),
        "slippage_ratio": chosen(draw, 0.0, 0.0, 0.001),
        "stop_loss": seldom(float(draw.uniform(0.02, 0.2))),
        "take_profit": seldom(float(draw.uniform(0.02, 0.3))),
        "trail_stop": seldom(float(draw.uniform(0.02, 0.2))),
        "touched_exit": draw.random() < 0.25,
        "stop_cooldown": chosen(draw, 0, 0, 1, 3),
        "position_limit": seldom(0.2),
        "leverage": draw.random() < 0.2,
        "start": seldom(day(0.3)),
        "end": seldom(day(0.8)),
        "market": chosen(draw, "us_stock", "us_stock", "tw_stock", "crypto", None),
        "benchmark": seldom(late),
        "live_performance_start": seldom(day(0.6)),
        "name": seldom("a strategy"),
    }
    if options["resample"] is not None:
        options["resample_offset"] = seldom("2D")
    return options


def run(seed: int) -> tuple[list[str], Any]:
    """Simulate; the warnings, and the report or the error."""
    draw = np.random.default_rng([2026, seed])
    dates = dates_of(draw, int(draw.integers(40, 400)))
    assets = int(draw.integers(1, 13))
    names = chosen(draw, "A{}", "{}10", "{}10 Company {}")
    labels = [names.format(at + 10, at) for at in range(assets)]
    tables = tables_of(draw, dates, labels)
    weights = weights_of(draw, dates, labels)
    options = options_of(draw, dates, tables)
    prices: Any = tables
    if not options["touched_exit"] and str(options["trade_at"]) == "close":
        prices = tables["close"]
    if draw.random() < 0.1:
        weights.columns = [label.split(" ")[0] for label in labels]
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        try:
            report: Any = corvex.simulate(weights, prices, **options)
        except ValueError as error:
            report = error
    return [str(one.message) for one in told], report


def total(values: Any) -> tuple[float, float]:
    """A sum in which every place counts differently, and the size of what was added up."""
    plain = np.nan_to_num(np.asarray(values, dtype=float).ravel(), nan=0.1, posinf=9.0, neginf=8.0)
    places = 1.0 + np.modf(np.arange(len(plain)) * 0.6180339887)[0]
    return float(plain @ places), float(np.abs(plain) @ places) + 1.0


def checksum(parts: Iterable[object]) -> int:
    return zlib.crc32("\n".join(map(str, parts)).encode())


def stamps(dates: Any) -> list[object]:
    return [str(dates.dtype), *pd.Index(dates).as_unit("ns").asi8.tolist()]


def numbers_of(report: Any) -> list[tuple[float, float]]:
    trades, fills, costs = report.trades, report.fills, report.costs
    excursions = report.mae_mfe.to_numpy(dtype=float)
    holdings = [*report.weights, 7.0, *report.next_weights, 7.0, *report.current_trades["return"]]
    prices = [trades[f"trade_price@{name}_date"] for name in ("entry", "exit")]
    numbers = fills.select_dtypes("number")
    return [
        total(report.creturn),
        total(report.position),
        total(np.concatenate([trades["position"], trades["period"], *prices])),
        total(trades["return"]),
        total(excursions),
        total(holdings),
        total(numbers),
        total(list(costs.values())),
        total(report.yearly_turnover),
        total(np.concatenate([report.benchmark, report.daily_benchmark, report.daily_creturn])),
        total([v for v in report.get_stats().values() if isinstance(v, float)]),
    ]


def kinds_of(report: Any, notices: list[str]) -> list[int]:
    trades, held = report.trades, report.current_trades
    names = ("entry_date", "exit_date", "entry_sig_date", "exit_sig_date")
    columns = [stamps(trades[name].array) for name in names]
    indexes = [stamps(report.creturn.index), stamps(report.daily_creturn.index)]
    moments = [
        *(report.next_trading_date, report.update_date, report.last_trading_date),
        *(report.current_rebalance_date, report.next_rebalance_date),
        *(report.planned_rebalance_date, report.live_performance_start),
        *(report.weights.name, report.next_weights.name),
    ]
    tables = (trades, held, report.mae_mfe, report.position, report.fills)
    settings = sorted((name, str(value)) for name, value in report.settings.items())
    return [
        checksum(notices),
        checksum((name, type(value).__name__) for name, value in vars(report).items()),
        checksum([*columns, *indexes, *moments]),
        checksum(
            [
                *(trades["symbol"].tolist(), trades["exit_reason"].tolist(), held.index.tolist()),
                *(report.weights.index.tolist(), report.next_weights.index.tolist()),
                *(report.actions.to_dict(), report.position.columns.tolist(), settings),
                *(report.asset_type, report.fills.iloc[:, :2].to_numpy().tolist()),
                *(value for key, value in report.data_readiness.items() if key != "checked_at"),
            ]
        ),
        checksum(table.shape for table in tables),
        checksum(
            (table.dtypes.astype(str).to_dict(), table.index.dtype, type(table.index).__name__)
            for table in tables
        ),
    ]


def measured(count: int) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
    """Figures and their sizes (runs x figures) and checksums (runs x kinds)."""
    figures, sizes = np.zeros((count, len(FIGURES))), np.ones((count, len(FIGURES)))
    kinds = np.zeros((count, len(KINDS)), np.uint32)
    for seed in range(count):
        notices, report = run(seed)
        if isinstance(report, ValueError):
            kinds[seed, 0] = checksum([*notices, repr(report)])
        else:
            figures[seed], sizes[seed] = zip(*numbers_of(report), strict=True)
            kinds[seed] = kinds_of(report, notices)
    return figures, sizes, kinds


def agree(file: Path, names: tuple[tuple[str, ...], tuple[str, ...]], found: Any, ran: int) -> bool:
    """Compare figures, their sizes and checksums with those of a file; tell what is apart."""
    figures, sizes, kinds = found
    with np.load(file) as golden:
        apart = np.abs(figures - golden["figures"][: len(figures)]) / sizes
        other = kinds != golden["kinds"][: len(kinds)]
    for name, column in zip(names[0], apart.T, strict=True):
        print(f"{name:>12}: off by {column.max():.1e}, worst in run {column.argmax()}")
    for name, column in zip(names[1], other.T, strict=True):
        where = f", the first run {column.argmax()}" if column.any() else ""
        print(f"{name:>12}: {column.sum()} runs differ{where}")
    same = bool(apart.max() <= TOLERANCE and not other.any())
    refused = len(figures) - ran
    print(f"{ran} reports and {refused} refusals:", "the same" if same else "NOT the same")
    return same


def main() -> None:
    count = int(sys.argv[1]) if sys.argv[1:] and sys.argv[1].isdigit() else RUNS
    found = measured(count)
    ran = int((found[0][:, 0] != 0.0).sum())
    if sys.argv[1:] == ["make"]:
        np.savez_compressed(FILE, figures=found[0], kinds=found[2])
        print(f"written: {ran} reports and {count - ran} refusals")
        return
    sys.exit(not agree(FILE, (FIGURES, KINDS), found, ran))


if __name__ == "__main__":
    main()
