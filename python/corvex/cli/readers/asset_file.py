"""One number for each asset, from a user's own file."""

from __future__ import annotations

from pathlib import Path

import pandas as pd

from corvex.cli.readers.number_texts import NotANumberError, read_numbers
from corvex.cli.readers.table_layout import are_dates
from corvex.cli.readers.table_source import MAX_MEGABYTES, read_file
from corvex.tables.date_texts import read_dates

__all__ = ["read_assets"]


def read_assets(file: Path, max_megabytes: int = MAX_MEGABYTES) -> dict[str, float]:
    """Read prices or quantities by asset.

    Parameters
    ----------
    file : Path
        CSV, workbook or Parquet. Either two columns, assets and numbers, with or without a header;
        or dates in the first column and an asset in each other one, of which the last date counts.
    max_megabytes : int, default 200
        Most content that is unpacked.

    Returns
    -------
    dict
        Number of each asset; those without one are left out.

    Raises
    ------
    OSError, ValueError
        When the file cannot be read, or holds no such table.
    """
    if not file.exists():
        raise FileNotFoundError(f"there is no file {file}")
    table = read_file(file, max_megabytes)
    if len(table) and table.shape[1] >= 2 and are_dates(table.iloc[:, 0].dropna().astype(str)):
        dates, _ = read_dates(table.iloc[:, 0].astype(str))
        row = table.iloc[int(dates.argmax()), 1:]
        return _numbers(row.index.to_series(), row, file)
    if table.shape[1] != 2:
        raise ValueError(
            f"{file.name} should have two columns, assets and numbers, or dates and then an asset "
            f"in each column; it has {table.shape[1]}"
        )
    if not str(table.columns[0]).startswith("column ") and _is_number(str(table.columns[1])):
        first = pd.DataFrame([list(table.columns)], columns=table.columns)  # there is no header
        table = pd.concat([first, table], ignore_index=True)
    return _numbers(table.iloc[:, 0], table.iloc[:, 1], file)


def _is_number(text: str) -> bool:
    try:
        return bool(read_numbers(pd.Series([text], dtype=object)).notna().all())
    except NotANumberError:
        return False


def _numbers(assets: pd.Series, cells: pd.Series, file: Path) -> dict[str, float]:
    try:
        numbers = read_numbers(cells.reset_index(drop=True))
    except NotANumberError as error:
        raise ValueError(f"{file.name}: {error}") from None
    found: dict[str, float] = {}
    for asset, number in zip(assets, numbers, strict=True):
        name = str(asset).strip()
        if name in found:
            raise ValueError(f"{file.name} names {name!r} more than once")
        if pd.notna(number):
            found[name] = float(number)
    return found
