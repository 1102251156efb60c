"""The built-in real prices; their sources and oddities stand in `corvex/sample/README.md`."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pandas as pd

from corvex.tables.long_form import usual_unit

__all__ = ["full_name", "market_of", "names", "read", "short_names"]

_FOLDER = Path(__file__).resolve().parent.parent / "sample"
_STOCKS = "us_stocks_adjusted_close_daily_1990_2022"
_INDEX = "sp500_index_close_daily_1990_2022"
_OHLCV = "us_stocks_ohlcv_daily_2000_2013"
_SHORT = {"us_stocks": _STOCKS, "sp500": _INDEX, "us_stocks_ohlcv": _OHLCV}


def names() -> list[str]:
    """Return the full names of the samples."""
    return list(_SHORT.values())


def short_names() -> list[str]:
    """Return the short names that the samples answer to as well."""
    return list(_SHORT)


def full_name(name: str) -> str | None:
    """Return the full name of a sample given by any of its names; None when there is none."""
    return name if name in _SHORT.values() else _SHORT.get(name)


def market_of(name: str) -> str | None:
    """Return the name of the market whose prices a sample holds; None for the index."""
    return None if name == _INDEX else "us_stock"


def read(name: str, adj: bool) -> pd.DataFrame | pd.Series | dict[str, pd.DataFrame]:
    """Read a sample by its full name, in the form that `corvex.data.sample` describes."""
    if name == _INDEX:
        return _index_series(_FOLDER / f"{name}.npy")
    path = _FOLDER / f"{name}.csv.gz"
    table = pd.read_csv(path, index_col=0, parse_dates=True).rename_axis(index="date")
    if name == _OHLCV:
        return _wide_fields(table, adj)
    return table


def _index_series(path: Path) -> pd.Series:
    """Read the index, whose days and closes lie as they are: most first backtests wait for it."""
    rows = np.load(path)
    dates = usual_unit(pd.DatetimeIndex(rows["Date"], name="date"))
    return pd.Series(rows["SP500"].astype(float), dates, name="SP500")


def _wide_fields(long: pd.DataFrame, adj: bool) -> dict[str, pd.DataFrame]:
    """One wide table per field, from rows of (date, symbol)."""
    wide = {
        field: long.pivot(columns="symbol", values=field).astype("float64")
        for field in ("open", "high", "low", "close", "volume", "adj_close")
    }
    adjusted = wide.pop("adj_close")
    if not adj:
        return wide
    factor = adjusted / wide["close"]
    scaled = {field: wide[field] * factor for field in ("open", "high", "low")}
    # The volume goes the other way, so that price times volume stays the traded value.
    return {**scaled, "close": adjusted, "volume": wide["volume"] / factor}
