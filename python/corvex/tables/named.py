"""Reading named tables from the user's folder or the built-in samples."""

from __future__ import annotations

import datetime
from dataclasses import dataclass
from functools import cached_property
from pathlib import Path

import pandas as pd

from corvex.tables import samples
from corvex.tables.context import _default_context
from corvex.tables.table_files import ENDINGS, read_table, table_name

__all__ = [
    "LoadedTable",
    "Table",
    "UnknownTableError",
    "available",
    "exists",
    "facts",
    "get",
    "get_column",
    "get_frame",
    "require",
    "sample",
]

type Table = pd.DataFrame | pd.Series | dict[str, pd.DataFrame]

# Before pandas 3 a shallow copy shares its values with the original, both ways.
_DEEP = int(pd.__version__.split(".", 1)[0]) < 3


class UnknownTableError(ValueError):
    """There is no table of this name."""

    __module__ = "corvex.data.tables"  # the name under which users know it


@dataclass(frozen=True)
class LoadedTable:
    """A table in memory, and what its freshness is judged by.

    Attributes
    ----------
    market : str or None
        Name of the market whose prices these are, of a sample; None: the table's name may tell.
    as_of : datetime
        When the values were written, UTC.
    """

    value: Table
    market: str | None
    as_of: datetime.datetime

    @property
    def index(self) -> pd.Index:
        """The dates (or labels) of the table, or of the first one of several."""
        first = next(iter(self.value.values())) if isinstance(self.value, dict) else self.value
        return first.index

    @cached_property
    def first_column(self) -> pd.Series | None:
        """The first column (of several tables: of the closes); None where there is none."""
        table = self.value["close"] if isinstance(self.value, dict) else self.value
        if isinstance(table, pd.Series):
            return table
        return table.iloc[:, 0] if table.shape[1] else None

    @property
    def labels(self) -> list[object]:
        """The asset labels of the table, or of the first one of several."""
        first = next(iter(self.value.values())) if isinstance(self.value, dict) else self.value
        return [] if isinstance(first, pd.Series) else list(first.columns)


_from_files: dict[Path, tuple[tuple[int, int], LoadedTable]] = {}
_from_samples: dict[str, LoadedTable] = {}


def get(name: str) -> Table:
    """Return a named table and note it in the data context.

    Parameters
    ----------
    name : str
        Name of a file in the data folder, without its ending, or of a built-in sample.

    Returns
    -------
    DataFrame, Series or dict of str to DataFrame
        A table of the data folder as a DataFrame; a sample as `sample` gives it. A copy: changing
        it changes nothing for the next caller.

    Raises
    ------
    UnknownTableError
        (a ValueError) when there is no such table; the message has the near names.
    ValueError
        When the file cannot be read as a table, or has a date twice.
    """
    return _copy(_load(name).value)


def get_frame(name: str) -> pd.DataFrame:
    """Return a named table as one DataFrame (of a sample with several fields: the closes)."""
    table = get(name)
    if isinstance(table, dict):
        return table["close"]
    return table.to_frame() if isinstance(table, pd.Series) else table


def get_column(name: str) -> pd.Series | None:
    """Return the first column of `get_frame`; None where the table has none."""
    column = _load(name).first_column
    return None if column is None else column.copy(deep=_DEEP)


def sample(name: str, adj: bool = True) -> Table:
    """Return built-in real prices, for examples and tests, not for investment.

    Parameters
    ----------
    name : str
        ``"us_stocks_adjusted_close_daily_1990_2022"`` (short: ``"us_stocks"``): adjusted closes of
        20 US stocks; ``"sp500_index_close_daily_1990_2022"`` (``"sp500"``): closes of the S&P 500
        index; ``"us_stocks_ohlcv_daily_2000_2013"`` (``"us_stocks_ohlcv"``): five US stocks with
        open, high, low, close and volume.
    adj : bool, default True
        Of the last one: open, high, low and close scaled for splits and dividends (by adjusted
        close / close), volume the other way; False: as quoted. The others are adjusted, or an
        index: `adj` makes no difference.

    Returns
    -------
    DataFrame, Series or dict of str to DataFrame
        In this order: dates x symbols; a Series named "SP500"; a mapping of "open", "high",
        "low", "close", "volume" to dates x symbols. Dates are naive, missing values NaN.

    Raises
    ------
    UnknownTableError
        (a ValueError) when there is no such sample.
    """
    full = samples.full_name(name)
    if full is None:
        raise UnknownTableError(_unknown(name, samples.names(), "sample"))
    return _copy(_load_sample(full, adj).value)


def available() -> list[str]:
    """Return the names that `get` accepts: the data folder's, then the samples'."""
    folder = _folder()
    files = [] if folder is None else folder.iterdir()
    own = sorted({name for path in files if (name := table_name(path)) is not None})
    return own + [name for name in samples.names() if name not in own]


def exists(name: str) -> bool:
    """Whether `get` knows the name."""
    return _own_file(name) is not None or samples.full_name(name) is not None


def require(name: str) -> None:
    """Raise `UnknownTableError` when `get` does not know the name."""
    if not exists(name):
        raise UnknownTableError(_unknown(name, available(), "table"))


def facts(name: str) -> LoadedTable | None:
    """Return a table as it was read last, without noting it again; None when it is gone.

    A file that was written anew since then is not read: what was computed stands on the old one.
    """
    path = _own_file(name)
    if path in _from_files:
        return _from_files[path][1]
    return _read(name) if exists(name) else None


def _load(name: str) -> LoadedTable:
    require(name)
    table = _read(name)
    _default_context._loaded_datasets.add(name)
    return table


def _read(name: str) -> LoadedTable:
    path = _own_file(name)
    if path is None:
        return _load_sample(samples.full_name(name) or name, adj=True)
    status = path.stat()
    stamp = (status.st_mtime_ns, status.st_size)
    known = _from_files.get(path)
    if known is None or known[0] != stamp:
        written = datetime.datetime.fromtimestamp(status.st_mtime, datetime.UTC)
        known = (stamp, LoadedTable(read_table(path), None, written))
        _from_files[path] = known
    return known[1]


def _load_sample(name: str, adj: bool) -> LoadedTable:
    key = name if adj else f"{name} as quoted"
    if key not in _from_samples:
        made = datetime.datetime(2023, 1, 1, tzinfo=datetime.UTC)
        _from_samples[key] = LoadedTable(samples.read(name, adj), samples.market_of(name), made)
    return _from_samples[key]


def _folder() -> Path | None:
    folder = _default_context.data_dir
    if folder is not None and not folder.is_dir():
        raise ValueError(f"the data folder does not exist: {folder} (from CORVEX_DATA_DIR)")
    return folder


def _own_file(name: str) -> Path | None:
    """Return the file of a table in the data folder; of two kinds the Parquet file counts."""
    folder = _folder()
    if folder is None or not name or Path(name).name != name:
        return None
    paths = (folder / f"{name}{ending}" for ending in ENDINGS)
    return next((path for path in paths if path.is_file()), None)


def _copy(table: Table) -> Table:
    if isinstance(table, dict):
        return {field: part.copy(deep=_DEEP) for field, part in table.items()}
    return table.copy(deep=_DEEP)


def _unknown(name: object, known: list[str], kind: str) -> str:
    import difflib

    near = difflib.get_close_matches(str(name), {*known, *samples.short_names()}, n=3, cutoff=0.5)
    hint = f"; near: {', '.join(near)}" if near else ""
    folder = "" if _default_context.data_dir else " (CORVEX_DATA_DIR is not set)"
    listed = ", ".join(known[:20]) + (", ..." if len(known) > 20 else "")
    return f"no {kind} named {name!r}{hint}; there are: {listed}{folder if kind == 'table' else ''}"
