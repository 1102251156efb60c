"""Random tables and curves of every form that pandas can hold, few of them sensible."""

import random
from collections.abc import Callable
from decimal import Decimal
from typing import Any

import numpy as np
import pandas as pd

_LABELS = (
    "A", "B", "C", "2330", "2330 Chips", "2330 Other", "Gold", "Gold Miners", "BTCUSDT", "", " ",
    "A b", "\u53f0\u7a4d\u96fb", "x" * 300, 2330, 0, None, 1.5, ("A", 1), "\ud800", "<b>",
)  # fmt: skip
_ODD_VALUES = (
    0.0, -0.0, -1.0, 1e-320, 1e-300, 1e300, -1e300, np.inf, -np.inf, np.nan, 1.0, 2.0**53, 5e-324,
)  # fmt: skip
_ODD_CELLS = ("x", "1.5", None, Decimal("1.5"), pd.NA, pd.NaT, True, 10**30, [1], 1 + 2j, b"1")
_DTYPES = (
    "float32", "float16", "int8", "uint64", "bool", "object", "Float64", "Int64", "boolean",
    "category", "str", ">f8", "complex128", "M8[ns]", "m8[s]",
)  # fmt: skip
_ZONES = ("UTC", "America/New_York", "Asia/Taipei", "Australia/Lord_Howe")
_ERAS = (
    "1677-09-22", "1680-02-28", "1900-01-01", "1969-12-30", "2024-02-27", "2262-03-01",
    "2262-04-05",
)  # fmt: skip


class Hostile:
    """Deterministic by its seed. `written` holds the arrays that another thread may write to."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        self.numbers = np.random.default_rng(seed)
        self.written: list[np.ndarray] = []

    def chance(self, share: float) -> bool:
        return self.random.random() < share

    def _rows(self, most: int) -> int:
        return self.random.choices((0, 1, 2, 5, most), (1, 2, 3, 6, 18))[0]

    # ------------------------------------------------------------------ dates

    def dates(self, rows: int) -> pd.Index:
        if self.chance(0.5):
            return pd.bdate_range("2024-01-02", periods=rows)
        start = np.datetime64(self.random.choice(_ERAS) if self.chance(0.3) else "2024-01-02", "s")
        day = np.timedelta64(86_400, "s")
        step = self.random.choice((1, 1, 1, 7, 30, 400)) if self.chance(0.5) else 1
        stamps = start + np.arange(rows) * step * day
        if self.chance(0.15):
            stamps = start + np.arange(rows) * np.timedelta64(self.random.choice((60, 1800, 3600)))
        if self.chance(0.1):  # centuries apart, and beyond what can be told
            years = self.random.choices((-500, -300, 0, 100, 238, 500, 300_000), k=rows)
            stamps = np.sort(stamps + np.array(years) * 365 * day)
        index: pd.Index = pd.DatetimeIndex(stamps)
        try:
            index = index.as_unit(self.random.choice(("s", "ms", "us", "ns")))
            if self.chance(0.25):
                index = index.tz_localize("UTC").tz_convert(self.random.choice(_ZONES))
            return self._odd_index(index) if self.chance(0.2) else index
        except (ValueError, OverflowError, NotImplementedError):  # of dates beyond Python's own
            return index

    def _odd_index(self, index: pd.DatetimeIndex) -> pd.Index:
        rows = len(index)
        odd: list[Callable[[], pd.Index]] = [
            lambda: index[self.numbers.permutation(rows)],
            lambda: index[np.arange(rows) // 2],
            lambda: index.where(self.numbers.random(rows) < 0.7),
            lambda: pd.Index(list(index), dtype=object),
            lambda: pd.Index([str(date) for date in index]),
            lambda: pd.RangeIndex(rows),
            lambda: pd.Index(np.arange(rows) * 1.5),
            lambda: pd.MultiIndex.from_arrays([index, range(rows)]),
            lambda: index.tz_localize(None).to_period("D"),
            lambda: index[::-1],
        ]
        return self.random.choice(odd)()

    # ------------------------------------------------------------------ values

    def _numbers(self, rows: int, columns: int) -> np.ndarray:
        steps = self.numbers.normal(0, 0.05, (rows, columns)).cumsum(axis=0)
        values = np.exp(steps) * 10.0
        if self.chance(0.4):
            odd = self.numbers.random(values.shape) < self.random.choice((0.02, 0.3, 1.0))
            values[odd] = self.numbers.choice(_ODD_VALUES, int(odd.sum()))
        if self.chance(0.2):
            values[:, : columns // 2 + 1] = np.nan
        return self._laid_out(values)

    def _laid_out(self, values: np.ndarray) -> np.ndarray:
        """The same values in another place of memory: strided, backwards, shared, read-only."""
        layout = self.random.randrange(12)
        if layout == 0:
            return np.asfortranarray(values)
        if layout == 1:
            return np.repeat(values, 2, axis=0)[::2]
        if layout == 2:
            return values[::-1, ::-1].copy()[::-1, ::-1]
        if layout == 3 and values.size:
            return np.broadcast_to(values[:1], values.shape)
        if layout == 4:
            values.flags.writeable = False
        return values

    def frame(self, index: pd.Index | None = None, labels: list[Any] | None = None) -> pd.DataFrame:
        index = self.dates(self._rows(30)) if index is None else index
        if labels is None:
            labels = self.labels()
        values = self._numbers(len(index), len(labels))
        table = pd.DataFrame(values, index=index, columns=pd.Index(labels, dtype=object))
        self.written.append(values)
        if self.chance(0.12):
            try:
                table = table.astype(self.random.choice(_DTYPES))
            except (ValueError, TypeError, ArithmeticError, NotImplementedError):
                pass
        if self.chance(0.06) and table.size:
            table = table.astype(object)
            table.iat[-1, 0] = self.random.choice(_ODD_CELLS)
        return table

    def labels(self) -> list[Any]:
        plain = self.chance(0.8)
        count = self.random.choice((0, 1, 3, 5)) if self.chance(0.1) else 2
        choice = _LABELS[:4] if plain else _LABELS
        return self.random.sample(choice, min(count, len(choice)))

    def weights(self, prices: pd.DataFrame) -> Any:
        if self.chance(0.1):
            return self.frame()
        rows = self.random.choice((1, 3, 10))
        table = self.frame(prices.index[::rows], list(prices.columns) if self.chance(0.9) else None)
        form = self.random.random()
        if form < 0.5:
            return (table * 0.02).clip(-1, 1) if self._numeric(table) else table
        if form < 0.8 and self._numeric(table):
            return table > 10.0
        return table

    @staticmethod
    def _numeric(table: pd.DataFrame) -> bool:
        return all(dtype == np.float64 for dtype in table.dtypes)

    def curve(self) -> pd.Series:
        index = self.dates(self._rows(400))
        values = self._numbers(len(index), 1)[:, 0]
        self.written.append(values)
        series = pd.Series(values, index=index, name=self.random.choice((None, "c", 3, ("a", "b"))))
        if self.chance(0.1):
            try:
                return series.astype(self.random.choice(_DTYPES))
            except (ValueError, TypeError, ArithmeticError, NotImplementedError):
                pass
        return series

    def times(self, rows: int) -> np.ndarray:
        """Nanoseconds for a kernel: rising dates or anything at all."""
        if self.chance(0.5):
            times = self.numbers.integers(-(2**63), 2**63 - 1, rows)
            return np.sort(times) if self.chance(0.5) else times
        start = int(self.numbers.integers(-(2**63), 2**63 - 1))
        step = self.random.choice((1, 3_600, 86_400, 2_592_000)) * 1_000_000_000
        with np.errstate(over="ignore"):
            return np.int64(start) + np.arange(rows, dtype=np.int64) * np.int64(step)

    # ------------------------------------------------------------------ settings

    def options(self) -> dict[str, Any]:
        odd = (None, 0, -1, 0.1, 5, 1e-300, 1e300, np.nan, np.inf, "x", True, np.float32(0.05))
        dates = ("2024-01-05", "1500-01-01", "9999-12-31", pd.NaT, "x", 5, pd.Timestamp.max)
        rules = (
            None, "W", "ME", "QE", "2W", "D", "h", "-1D", "0D", "99999999W", "100000ME", "SME",
            "W-XXX", "", "\u0661W", "WOM-3FRI", ["2024-01-03"], ["9999-01-01"], [], 5, "BME", "MS",
        )  # fmt: skip
        ranges: dict[str, tuple[Any, ...]] = {
            "resample": rules, "resample_offset": (None, "1D", "-400D", "x", 3, "100000D"),
            "trade_at": ("close", "open", "ohlc", "noon", None), "market": ("us_stock", "crypto"),
            "fee_ratio": (0.0, 0.001, 0.99, 1.0, *odd), "tax_ratio": (0.0, *odd),
            "slippage_ratio": (0.0, *odd), "stop_loss": (0.05, *odd), "take_profit": (0.05, *odd),
            "trail_stop": (0.05, *odd), "touched_exit": (True, False),
            "position_limit": (1.0, 0.5, *odd), "leverage": (True, False), "end": dates,
            "live_performance_start": dates,
        }  # fmt: skip
        chosen = self.random.sample(sorted(ranges), self.random.choice((0, 0, 1, 2, 3)))
        return {"market": "us_stock"} | {name: self.random.choice(ranges[name]) for name in chosen}

    def quoted(self) -> pd.DataFrame:
        """Prices that an account can mostly be kept on, some of them missing or odd."""
        index = pd.bdate_range("2024-01-02", periods=self.random.choice((2, 8, 30)))
        shape = len(index), self.random.choice((1, 2, 5))
        values = 10.0 * np.exp(self.numbers.normal(0, 0.05, shape).cumsum(axis=0))
        if self.chance(0.3):
            odd = self.numbers.random(shape) < 0.1
            values[odd] = (
                np.nan if self.chance(0.7) else self.numbers.choice(_ODD_VALUES, odd.sum())
            )
        self.written.append(values)
        return pd.DataFrame(values, index, list("ABCDE")[: shape[1]])

    def account(self, prices: pd.DataFrame) -> dict[str, Any]:
        """Some of what an account can be told: mostly what it takes, at times anything."""
        odd = (0, -1, 5, 1e-300, 1e300, np.nan, np.inf, "x", None, pd.Series(dtype=float))
        column = prices.iloc[:, 0]
        values: tuple[Any, ...] = (
            0.0, 0.02, 0.5, column * 0.001, prices * 0.001, {"A": 0.1}, {"2024-01-03": 0.05},
        )  # fmt: skip
        money = (0.0, 1.0, 0.005, 1e6)
        flows = pd.Series([5.0, -2.0, -1e4][: len(prices)], prices.index[:3])
        splits = prices * 0.0 + 1.5
        ranges: dict[str, tuple[Any, ...]] = {
            "capital": (1.0, 1e4, 1e12), "cash_rate": values, "cash_spread": (0.0, 0.01),
            "short_rebate": values, "financing_rate": values, "borrow_rate": values,
            "day_count": ("act/365", "act/360"), "withholding_tax": (0.0, 0.3, 1.0),
            "dividends": (prices * 0.01, prices * 0.1), "splits": (splits, splits.iloc[::7]),
            "lot_size": (1, 0.1, 1000), "rounding": ("down", "nearest"), "fee_ratio": values,
            "tax_ratio": values, "slippage_ratio": values, "min_fee": money, "impact": (0.0, 0.5),
            "fee_per_share": money, "max_fee_ratio": (0.01, 1.0),
            "fee_table": ({0: 0.1}, {0: 0.1, 10: 0.0}, {0: 1, 1e-300: 0}), "band": values,
            "band_kind": ("absolute", "relative"), "band_to": ("target", "edge"),
            "volume_share": (0.1, 1.0), "unfilled": ("wait", "lapse"), "impact_window": (2, 20),
            "price_limit": values, "price_ticks": (True, {0: 0.01}, {0: 1e-300}),
            "maintenance_margin": (0.3, 0.9, 1e9), "flows": (flows, flows * 1e3, self.curve()),
        }  # fmt: skip
        if self.chance(0.2):
            rates = (column.rename("USDTWD"), {"USDTWD": 30}, {"TWD/USD": column}, prices)
            return {"currency": "USD", "base": "TWD", "fx": self.random.choice(rates)}
        chosen = self.random.sample(sorted(ranges), self.random.choice((1, 3, 6, 12)))
        return {
            name: self.random.choice(odd if self.chance(0.03) else ranges[name]) for name in chosen
        }
