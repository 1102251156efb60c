"""Curves from a user's own files."""

from __future__ import annotations

import os
import re
from dataclasses import dataclass, field
from pathlib import Path

import pandas as pd

from corvex.cli.dates import UnreadableDates, read_dates
from corvex.cli.files import are_dates, read_file
from corvex.cli.numbers import NotANumberError, read_numbers

__all__ = ["CurveFile", "read_table"]

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
    table = read_file(file)
    table = table.dropna(how="all").reset_index(drop=True)
    if table.shape[1] < 2 or table.empty:
        raise ValueError(
            f"{file.name} needs a column of dates and a column of values, and at least one row"
        )
    result = CurveFile(file, table)
    _index_by_date(result)
    return result


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
        if len(sample[column]) and are_dates(sample[column]):
            return column
    # A column of that name with a wrong value: the complaint should be about that value.
    return named[0] if named and are_dates(sample[named[0]].iloc[:1]) else None


def _plain(name: object) -> str:
    return re.sub(r"[\s_.\-]+", " ", str(name)).strip().lower()
