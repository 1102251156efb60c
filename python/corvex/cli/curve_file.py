"""Curves from a user's own files."""

from __future__ import annotations

import bz2
import csv
import gzip
import io
import lzma
import os
import re
import warnings
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import pandas as pd

from corvex.cli.dates import UnreadableDates, read_dates
from corvex.cli.numbers import NotANumberError, read_numbers

__all__ = ["CurveFile", "read_table"]

_PARQUET = {".parquet", ".pq"}
_COMPRESSED: dict[str, Callable[..., Any]] = {
    ".gz": gzip.open,
    ".bz2": bz2.open,
    ".xz": lzma.open,
}
_DATE_NAMES = ("date", "datetime", "time", "timestamp", "day", "日期", "時間", "交易日期", "年月日")
# The likeliest first: what a column of account values, prices or returns is called.
_EQUITY_NAMES = (
    "equity",
    "nav",
    "net asset value",
    "portfolio value",
    "portfolio",
    "account value",
    "balance",
    "creturn",
    "cumulative return",
    "wealth",
    "value",
    "淨值",
    "權益",
    "adj close",
    "adjusted close",
    "close",
    "price",
    "last",
    "收盤價",
)
_RETURN_NAMES = (
    "return",
    "returns",
    "daily return",
    "daily returns",
    "strategy return",
    "strategy returns",
    "ret",
    "pct change",
    "報酬率",
    "報酬",
)


@dataclass
class CurveFile:
    """A table with dates as its index, and what was decided while reading it."""

    path: Path
    table: pd.DataFrame
    notes: list[str] = field(default_factory=list)

    def column(self, name: str | None) -> str:
        """Return the column of the curve: the one asked for, or the likeliest.

        Raises
        ------
        ValueError
            When there is no such column, or none that stands out.
        """
        columns = list(self.table.columns)
        if name is not None:
            return self._named(name)
        if len(columns) == 1:
            return str(columns[0])
        # Names before contents: a column "equity" with a wrong text in it is still the one.
        for wanted in (*_EQUITY_NAMES, *_RETURN_NAMES):
            for column in columns:
                if _plain(column) == wanted:
                    self.notes.append(f"column {column!r} of {self.path.name} is used")
                    return str(column)
        numeric = [str(column) for column in columns if self._is_numeric(column)]
        if len(numeric) == 1:
            return numeric[0]
        raise ValueError(
            f"{self.path.name} has several columns; say with --column which one counts: "
            + ", ".join(columns)
        )

    def has_column(self, name: str) -> bool:
        """Tell whether a column has this name, upper and lower case alike."""
        return any(str(column).lower() == name.lower() for column in self.table.columns)

    def _named(self, name: str) -> str:
        for column in self.table.columns:
            if str(column) == name:
                return str(column)
        for column in self.table.columns:
            if str(column).lower() == name.lower():
                return str(column)
        raise ValueError(
            f"{self.path.name} has no column {name!r}; it has "
            + ", ".join(str(column) for column in self.table.columns)
        )

    def _is_numeric(self, column: str) -> bool:
        try:
            return bool(read_numbers(self.table[column]).notna().any())
        except NotANumberError:
            return False

    def values(self, column: str) -> pd.Series:
        """Return a column as numbers by date, in the order of the file.

        Raises
        ------
        ValueError
            When the column holds a text that is no number.
        """
        try:
            return read_numbers(self.table[column])
        except NotANumberError as error:
            date = self.table.index[error.position]
            raise ValueError(
                f"column {column!r} of {self.path.name} holds {error.text!r} on {date:%Y-%m-%d} "
                f"(data row {error.position + 1}), which is not a number"
            ) from None

    @staticmethod
    def looks_like_returns(column: str, values: pd.Series) -> bool:
        """Tell returns from account values or prices, by name and else by size.

        Prices are never negative, and the returns of a period rarely exceed a half.
        """
        name = _plain(column)
        if name in _RETURN_NAMES:
            return True
        if name in _EQUITY_NAMES:
            return False
        return bool((values < 0).any() and values.abs().median() < 0.5)


def read_table(path: str | os.PathLike[str]) -> CurveFile:
    """Read a CSV or Parquet file with one column of dates.

    Parameters
    ----------
    path : path
        ``.parquet`` or ``.pq``, else delimited text (``,``, ``;``, tab or ``|``; perhaps
        packed as .gz, .bz2 or .xz), with or without a header, the columns in any order.

    Returns
    -------
    CurveFile
        The other columns as they stand in the file, by date.

    Raises
    ------
    OSError
        When the file cannot be opened.
    ValueError
        When it is no table, or has no column of dates, or an unreadable date.
    """
    file = Path(path)
    if not file.exists():
        raise FileNotFoundError(f"there is no file {file}")
    if file.is_dir():
        raise IsADirectoryError(f"{file} is a folder, not a file")
    table = _read_parquet(file) if file.suffix.lower() in _PARQUET else _read_csv(file)
    table = table.dropna(how="all").reset_index(drop=True)
    if table.shape[1] < 2 or table.empty:
        raise ValueError(
            f"{file.name} needs a column of dates and a column of values, and at least one row"
        )
    result = CurveFile(file, table)
    _index_by_date(result)
    return result


def _read_parquet(file: Path) -> pd.DataFrame:
    try:
        table = pd.read_parquet(file)
    except (ValueError, OSError) as error:
        raise ValueError(f"{file.name} cannot be read as Parquet: {error}") from None
    if not isinstance(table.index, pd.RangeIndex):
        table = table.reset_index()
    return table.set_axis([str(column) for column in table.columns], axis=1)


def _read_csv(file: Path) -> pd.DataFrame:
    text = _read_text(file)
    delimiter = _delimiter(text[:65536])
    first = next(csv.reader(io.StringIO(text[:65536]), delimiter=delimiter), [])
    header = None if _is_data(first) else 0
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("error", pd.errors.ParserWarning)
            table = pd.read_csv(
                io.StringIO(text),
                sep=delimiter,
                header=header,
                index_col=False,
                dtype=str,
                skipinitialspace=True,
                keep_default_na=False,
                na_values=[""],
            )
    except pd.errors.ParserWarning:
        raise ValueError(
            f"{file.name} has rows with more cells than its header; numbers with a "
            f"{delimiter!r} in them must stand in quotes"
        ) from None
    except (ValueError, csv.Error) as error:
        raise ValueError(f"{file.name} cannot be read as a table of text: {error}") from None
    if header is None:
        return table.set_axis([f"column {i + 1}" for i in range(table.shape[1])], axis=1)
    return table.set_axis([str(column).strip() for column in table.columns], axis=1)


def _read_text(file: Path) -> str:
    """Return the text of a file; where its encoding is unclear, one that reads any bytes."""
    opener = _COMPRESSED.get(file.suffix.lower(), open)
    try:
        with opener(file, "rb") as stream:
            content: bytes = stream.read()
    except (EOFError, lzma.LZMAError, gzip.BadGzipFile) as error:
        raise ValueError(f"{file.name} cannot be unpacked: {error}") from None
    if content[:2] in (b"\xff\xfe", b"\xfe\xff"):
        return content.decode("utf-16", errors="replace")
    try:
        return content.decode("utf-8-sig")
    except UnicodeDecodeError:
        return content.decode("latin-1")


def _delimiter(head: str) -> str:
    """Return the delimiter that stands in each of the first lines; a comma where none does."""
    lines = [line for line in head.splitlines()[:20] if line.strip()]
    if not lines:
        return ","
    # A comma may be part of a number, where one of the others divides.
    for mark in (";", "\t", "|"):
        if all(mark in line for line in lines):
            return mark
    return ","


def _is_data(cells: list[str]) -> bool:
    """Tell whether a first line is data already: it holds a date and, beside it, a number."""
    dates = [i for i, cell in enumerate(cells) if cell.strip() and _are_dates(pd.Series([cell]))]
    for i in dates:
        others = [cell for j, cell in enumerate(cells) if j != i and cell.strip()]
        try:
            if read_numbers(pd.Series(others, dtype=object)).notna().any():
                return True
        except NotANumberError:
            continue
    return False


def _are_dates(texts: pd.Series) -> bool:
    # A bare number is a year or a price rather than a date, but eight digits are one: 20240131.
    if texts.astype(str).str.fullmatch(r"[+-]?\d{1,7}(\.\d*)?").any():
        return False
    try:
        dates, _ = read_dates(texts)
    except UnreadableDates:
        return False
    return bool(len(dates)) and 1900 <= dates[0].year <= 2200


def _index_by_date(result: CurveFile) -> None:
    table = result.table
    column = _date_column(table)
    if column is None:
        raise ValueError(
            f"{result.path.name} has no column of dates; its columns are "
            + ", ".join(f"{name} ({table[name].iloc[0]!r} ...)" for name in table.columns)
        )
    blank = table[column].isna()
    if blank.any():
        result.notes.append(f"{int(blank.sum())} rows without a date were left out")
        table = table[~blank]
    try:
        dates, notes = read_dates(table[column])
    except UnreadableDates as error:
        row = int(table.index[error.first])
        raise ValueError(
            f"column {column!r} of {result.path.name} holds {table[column].loc[row]!r} in "
            f"data row {row + 1}, which is not a date like the others"
        ) from None
    result.notes.extend(notes)
    result.table = table.drop(columns=column).set_axis(dates, axis=0)


def _date_column(table: pd.DataFrame) -> str | None:
    """Return the column of dates: by type, else by name and content, else by content."""
    columns = [str(column) for column in table.columns]
    for column in columns:
        if pd.api.types.is_datetime64_any_dtype(table[column].dtype):
            return column
    named = [column for column in columns if _plain(column) in _DATE_NAMES]
    sample = {column: table[column].dropna().iloc[:50] for column in columns}
    for column in [*named, *columns]:
        if len(sample[column]) and _are_dates(sample[column]):
            return column
    # A column of that name with a wrong value: the complaint should be about that value.
    return named[0] if named and _are_dates(sample[named[0]].iloc[:1]) else None


def _plain(name: object) -> str:
    return re.sub(r"[\s_.\-]+", " ", str(name)).strip().lower()
