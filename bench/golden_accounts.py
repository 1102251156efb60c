"""Tells whether runs with an account still give what they gave.

    python bench/golden_accounts.py [make | COUNT]

300 seeded runs, each with about half of all that an account can be told, over the options, prices
and weights of golden.py. Figures are compared with those of golden_accounts.npz to 1e-12, texts,
dates and kinds by checksums. Beside that it tells how many runs have every bit as it was: a change
that is meant to take nothing but time should leave all of them, on the machine that wrote the file
(elsewhere the inputs' own exponentials may round otherwise). `make` writes the file anew.
"""

from __future__ import annotations

import sys
import warnings
import zlib
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd

import corvex
from golden import FIGURES as PLAIN_FIGURES
from golden import (
    KINDS,
    Draw,
    agree,
    checksum,
    chosen,
    dates_of,
    kinds_of,
    numbers_of,
    options_of,
    stamps,
    tables_of,
    total,
    weights_of,
)

FILE = Path(__file__).parent / "golden_accounts.npz"
RUNS = 300
ACCOUNT_FIGURES = ("sessions", "bookings", "trip money", "money fills", "kinds of cost")
FIGURES = (*PLAIN_FIGURES, *ACCOUNT_FIGURES)
PLACES = (*KINDS, "account")


def some(draw: Draw, value: Any, otherwise: Any = None) -> Any:
    return value if draw.random() < 0.4 else otherwise


def sided(draw: Draw, weights: pd.DataFrame) -> pd.DataFrame:
    """Weights of half of the runs with some assets sold short, and more than there is lent for."""
    if draw.random() < 0.5:
        return weights
    signs = np.where(draw.random(weights.shape) < draw.choice([0.0, 0.4]), -1.0, 1.0)
    return weights.astype(float) * signs * draw.uniform(0.8, 2.5)


def volumes_of(draw: Draw, tables: dict[str, pd.DataFrame], capital: float) -> pd.DataFrame:
    """A few times what the account would trade, with sessions of nothing and unknown ones."""
    close = tables["close"]
    shares = capital / close.abs().to_numpy() * np.exp(draw.normal(1.0, 1.5, close.shape))
    shares[draw.random(close.shape) < 0.05] = 0.0
    shares[draw.random(close.shape) < 0.05] = np.nan
    return pd.DataFrame(shares, close.index, close.columns)


def splits_of(draw: Draw, tables: dict[str, pd.DataFrame]) -> pd.DataFrame:
    """Splits of odd sizes; the prices are brought to what they then quote."""
    close = tables["close"]
    ratios = np.ones(close.shape)
    there = draw.random(close.shape) < 0.01
    there[0] = False
    ratios[there] = draw.choice([2.0, 1.5, 0.1, 1.0 / 3.0, 7.0], int(there.sum()))
    grown = np.cumprod(ratios, axis=0)
    tables.update({name: table / grown for name, table in tables.items()})
    return pd.DataFrame(ratios, close.index, close.columns)


def rates_of(draw: Draw, dates: pd.DatetimeIndex) -> Any:
    by_date = pd.Series(draw.uniform(-0.01, 0.08, len(dates)), dates)
    return chosen(draw, 0.04, 0.0, by_date, by_date.iloc[:: max(1, len(dates) // 9)])


def by_label(draw: Draw, labels: list[str], high: float) -> Any:
    values = pd.Series(draw.uniform(0.0, high, len(labels)), labels)
    return some(draw, chosen(draw, float(high), values))


def income_of(draw: Draw, dates: pd.DatetimeIndex, labels: list[str]) -> dict[str, Any]:
    shape = len(dates), len(labels)
    borrow = pd.DataFrame(draw.uniform(0.0, 0.3, shape), dates, labels)
    borrow = borrow.mask(draw.random(shape) < 0.1)
    paid = np.where(draw.random(shape) < 0.01, draw.uniform(0.01, 3.0, shape), np.nan)
    return {
        "cash_rate": rates_of(draw, dates),
        "cash_spread": some(draw, 0.005, 0.0),
        "short_rebate": rates_of(draw, dates),
        "financing_rate": rates_of(draw, dates),
        "borrow_rate": chosen(draw, 0.0, 0.05, borrow, borrow.iloc[0].fillna(0.1), borrow),
        "day_count": chosen(draw, "act/365", "act/360", "act/365.25"),
        "dividends": some(draw, pd.DataFrame(paid, dates, labels)),
        "withholding_tax": some(draw, 0.3, 0.0),
    }


def trading_of(draw: Draw, dates: pd.DatetimeIndex, labels: list[str]) -> dict[str, Any]:
    shape = len(dates), len(labels)
    lots = pd.Series(draw.choice([1.0, 10.0], len(labels)), labels)
    bands = pd.DataFrame(draw.uniform(0.0, 0.1, shape), dates, labels)
    return {
        "lot_size": some(draw, chosen(draw, 1.0, 0.001, lots)),
        "rounding": chosen(draw, "down", "nearest"),
        "fee_ratio": by_label(draw, labels, 0.002),
        "tax_ratio": by_label(draw, labels, 0.003),
        "slippage_ratio": by_label(draw, labels, 0.002),
        "min_fee": some(draw, 1.0, 0.0),
        "fee_per_share": some(draw, 0.005, 0.0),
        "max_fee_ratio": some(draw, 0.02),
        "fee_table": some(draw, {0: 0.002, 1_000: 0.001, 50_000: 0.0002}),
        "band": some(draw, chosen(draw, 0.02, bands, bands.iloc[0])),
        "band_kind": chosen(draw, "absolute", "relative"),
        "band_to": chosen(draw, "target", "edge"),
        "volume_share": some(draw, float(draw.uniform(0.01, 0.5))),
        "unfilled": chosen(draw, "wait", "wait", "lapse"),
        "impact": some(draw, float(draw.uniform(0.1, 1.0)), 0.0),
        "impact_window": int(chosen(draw, 2, 5, 20)),
        "price_limit": some(draw, chosen(draw, 0.02, 0.1)),
        "price_ticks": chosen(draw, False, {0: 0.01, 10: 0.05, 50: 0.1}),
        "maintenance_margin": some(draw, float(draw.uniform(0.2, 0.9))),
    }


def money_of(
    draw: Draw, dates: pd.DatetimeIndex, labels: list[str], capital: float
) -> dict[str, Any]:
    rows = np.sort(draw.choice(len(dates), 3, replace=False))
    flows = pd.Series(draw.uniform(-0.4, 0.6, 3) * capital, dates[rows])
    steps = draw.normal(0.0, 0.006, (len(dates), 2))
    rates = np.exp(np.cumsum(steps, axis=0)) * [32.0, 150.0]
    fx = pd.DataFrame(rates, dates, ["USD/TWD", "USDJPY"])
    several = {"currency": {at: str(draw.choice(["TWD", "USD", "JPY"])) for at in labels}}
    return {"flows": some(draw, flows)} | some(draw, several | {"fx": fx, "base": "TWD"}, {})


def run(seed: int) -> tuple[list[str], Any]:
    """Simulate with an account; the warnings, and the report or the error."""
    draw = np.random.default_rng([2027, seed])
    dates = dates_of(draw, int(draw.integers(40, 300)))
    labels = [f"A{at + 10}" for at in range(int(chosen(draw, 1, 3, 6, 12, 40)))]
    tables = tables_of(draw, dates, labels)
    weights = sided(draw, weights_of(draw, dates, labels))
    capital = float(chosen(draw, *(10_000.0,) * 6, 1_000_000.0, 1.0))
    tables["volume"] = volumes_of(draw, tables, capital)
    terms = income_of(draw, dates, labels) | trading_of(draw, dates, labels)
    terms |= money_of(draw, dates, labels, capital)
    terms["splits"] = splits_of(draw, tables) if draw.random() < 0.4 else None
    options = options_of(draw, dates, tables) | {"leverage": draw.random() < 0.8}
    for name in ("fee_ratio", "tax_ratio", "slippage_ratio"):
        if terms[name] is not None:
            del options[name]
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        try:
            account = corvex.Account(capital=capital, **terms)
            report: Any = corvex.simulate(weights, tables, account=account, **options)
        except ValueError as error:
            report = error
    return [str(one.message) for one in told], report


def tables_to_compare(report: Any) -> list[Any]:
    """What an account adds to a report, as numbers."""
    bookings = report.bookings.select_dtypes("number")
    fills = report.fills.select_dtypes("number")
    shares = corvex.contributions(report, by_kind=True)
    return [report.account, bookings, report.trades[["shares", "money"]], fills, shares]


def places_of(report: Any) -> int:
    bookings, trades = report.bookings, report.trades
    texts = bookings.select_dtypes(exclude=["number", "datetime", "datetimetz"])
    settings = report.settings["account"]
    return checksum([
        *(stamps(bookings["date"].array), texts.to_numpy().tolist(), trades["cut"].tolist()),
        *(list(report.account.columns), sorted(report.account.attrs), sorted(settings)),
    ])  # fmt: skip


def bits_of(report: Any) -> int:
    tables = [report.creturn, report.position, report.trades["return"], report.mae_mfe]
    arrays = [table.to_numpy(dtype=float) for table in (*tables, *tables_to_compare(report)[:4])]
    return zlib.crc32(b"".join(np.ascontiguousarray(array).tobytes() for array in arrays))


def measured(count: int) -> tuple[np.ndarray, np.ndarray, np.ndarray, np.ndarray]:
    """Figures, their sizes, checksums of kinds, and of all bits of a run."""
    figures, sizes = np.zeros((count, len(FIGURES))), np.ones((count, len(FIGURES)))
    kinds, bits = np.zeros((count, len(PLACES)), np.uint32), np.zeros(count, np.uint32)
    for seed in range(count):
        notices, report = run(seed)
        if isinstance(report, ValueError):
            kinds[seed, 0] = checksum([*notices, repr(report)])
            continue
        numbers = numbers_of(report) + [total(table) for table in tables_to_compare(report)]
        figures[seed], sizes[seed] = zip(*numbers, strict=True)
        kinds[seed] = [*kinds_of(report, notices), places_of(report)]
        bits[seed] = bits_of(report)
    return figures, sizes, kinds, bits


def main() -> None:
    count = int(sys.argv[1]) if sys.argv[1:] and sys.argv[1].isdigit() else RUNS
    figures, sizes, kinds, bits = measured(count)
    ran = int((figures[:, 0] != 0.0).sum())
    if sys.argv[1:] == ["make"]:
        np.savez_compressed(FILE, figures=figures, kinds=kinds, bits=bits)
        print(f"written: {ran} reports and {count - ran} refusals")
        return
    same = agree(FILE, (FIGURES, PLACES), (figures, sizes, kinds), ran)
    with np.load(FILE) as golden:
        other = np.flatnonzero(bits != golden["bits"][:count])
    print("every bit as it was" if not len(other) else f"other bits in runs {other.tolist()}")
    sys.exit(not same)


if __name__ == "__main__":
    main()
