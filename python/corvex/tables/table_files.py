"""Files of one table each: Parquet and CSV."""

from __future__ import annotations

from pathlib import Path

import pandas as pd

from corvex.tables.date_texts import full_dates
from corvex.utils import logger

__all__ = ["ENDINGS", "read_table", "table_name"]

ENDINGS = (".parquet", ".csv.gz", ".csv")


def table_name(path: Path) -> str | None:
    """Return the name of a file's table, which has no ending; None for other files."""
    for ending in ENDINGS:
        if path.name.endswith(ending) and not path.name.startswith("."):
            return path.name.removesuffix(ending)
    return None


def read_table(path: Path) -> pd.DataFrame:
    """Read a table whose first column (or Parquet index) holds dates, or labels.

    Dates may be written as 2024-01-31, 2024/1/31 or 20240131, with or without a time and a zone
    offset (then they become UTC). Unsorted dates are sorted.

    Raises
    ------
    ValueError
        When the file is not such a table, or a date stands in it twice.
    """
    try:
        table = _read_parquet(path) if path.suffix == ".parquet" else _read_csv(path)
    except (ValueError, OSError, UnicodeDecodeError) as error:
        raise ValueError(f"{path} is not a readable table: {error}") from error
    table.columns = table.columns.map(str)
    if not isinstance(table.index, pd.DatetimeIndex):
        return table
    table = table[table.index.notna()]
    if not table.index.is_monotonic_increasing:
        logger.info("%s: dates were not sorted; they are now", path)
        table = table.sort_index(kind="stable")
    if not table.index.is_unique:
        twice = table.index[table.index.duplicated()][0]
        raise ValueError(f"{path} holds the date {twice} twice")
    return table.rename_axis(index="date")


def _read_csv(path: Path) -> pd.DataFrame:
    # The first column is read as text: asset ids such as 0050 must keep their zeros.
    table = pd.read_csv(path, index_col=0, dtype={0: str}, encoding="utf-8-sig")
    dates = full_dates(table.index)
    return table if dates is None else table.set_axis(dates, axis=0)


def _read_parquet(path: Path) -> pd.DataFrame:
    table = pd.read_parquet(path)
    if isinstance(table.index, pd.RangeIndex) and table.shape[1] > 0:
        table = table.set_index(table.columns[0])
    if isinstance(table.index, pd.DatetimeIndex):
        return table
    dates = full_dates(table.index)
    return table if dates is None else table.set_axis(dates, axis=0)
