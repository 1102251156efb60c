"""Curves from a user's own files."""

from __future__ import annotations

import os
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
import pandas as pd

from corvex.cli.readers.number_texts import NotANumberError, read_numbers
from corvex.cli.readers.table_layout import are_dates, is_date_name, plain_name
from corvex.cli.readers.table_source import MAX_MEGABYTES, Source, open_source
from corvex.markets.number_dates import are_serial_days, dates_of_numbers
from corvex.tables.date_texts import UnreadableDates, read_dates

__all__ = ["CurveFile", "read_table"]

_MOST_LOOKED_AT = 60  # columns whose content is looked at where no name tells what they are
_MOST_NAMED = 20  # columns that a message lists
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
    """A table with a column of dates, and what was decided while reading it.

    Attributes
    ----------
    path : Path
        The file.
    dates : DatetimeIndex
        Of the rows that have one, in the order of the file.
    names : list of str
        The other columns.
    notes : list of str
        What was decided, in words for the user.
    """

    path: Path
    dates: pd.DatetimeIndex
    names: list[str]
    source: Source
    rows: np.ndarray
    notes: list[str] = field(default_factory=list)

    def column(self, name: str | None) -> str:
        """Return the column of the curve: the one asked for, or the likeliest.

        Raises
        ------
        ValueError
            When there is no such column, or none that stands out.
        """
        if name is not None:
            return self._named(name)
        if len(self.names) == 1:
            return self.names[0]
        # Names before contents: a column "equity" with a wrong text in it is still the one.
        plain = [plain_name(column) for column in self.names]
        for wanted in (*_EQUITY_NAMES, *_RETURN_NAMES):
            if wanted in plain:
                column = self.names[plain.index(wanted)]
                self.notes.append(f"column {column!r} of {self.path.name} is used")
                return column
        few = self.names[:_MOST_LOOKED_AT]
        numeric = [column for column in few if self._is_numeric(column)]
        if len(numeric) == 1 and few == self.names:
            return numeric[0]
        raise ValueError(
            f"{self.path.name} has several columns; say with --column which one counts: "
            + _listed(self.names)
        )

    def has_column(self, name: str) -> bool:
        """Tell whether a column has this name, upper and lower case alike."""
        return any(column.lower() == name.lower() for column in self.names)

    def _named(self, name: str) -> str:
        if name in self.names:
            return name
        for column in self.names:
            if column.lower() == name.lower():
                return column
        raise ValueError(f"{self.path.name} has no column {name!r}; it has {_listed(self.names)}")

    def _is_numeric(self, column: str) -> bool:
        try:
            return bool(read_numbers(self.source.head[column]).notna().any())
        except NotANumberError:
            return False

    def values(self, column: str) -> pd.Series:
        """Return a column as numbers by date, in the order of the file.

        In a column whose name has a "%" the numbers are percent, with the sign or without.

        Raises
        ------
        ValueError
            When the column holds a text that is no number.
        """
        cells = self.source.read([column])[column].iloc[self.rows]
        in_percent = "%" in column or "percent" in column.lower()
        if in_percent:
            note = f"column {column!r} is read as percent"
            self.notes += [note] if note not in self.notes else []
        try:
            numbers = read_numbers(cells, in_percent=in_percent)
        except NotANumberError as error:
            raise ValueError(
                f"column {column!r} of {self.path.name} holds {error.text!r} on "
                f"{self.dates[error.position]:%Y-%m-%d} (data row "
                f"{self.rows[error.position] + 1}), which is not a number"
            ) from None
        return numbers.set_axis(self.dates, axis=0)

    @staticmethod
    def looks_like_returns(column: str, values: pd.Series) -> bool:
        """Tell returns from account values or prices, by name and else by size.

        Prices are never negative, and the returns of a period rarely exceed a half.
        """
        name = plain_name(column)
        if name in _RETURN_NAMES:
            return True
        if name in _EQUITY_NAMES:
            return False
        return bool((values < 0).any() and values.abs().median() < 0.5)


def read_table(path: str | os.PathLike[str], max_megabytes: int = MAX_MEGABYTES) -> CurveFile:
    """Read a file with one column of dates.

    Parameters
    ----------
    path : path
        ``.parquet`` or ``.pq``, ``.xlsx``, else delimited text (``,``, ``;``, tab or ``|``;
        perhaps packed as .gz, .bz2 or .xz), with or without a header, the columns in any order,
        perhaps with lines above and below the table.
    max_megabytes : int, default 200
        Most content that is unpacked.

    Returns
    -------
    CurveFile
        Its dates; the other columns are read when they are asked for.

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
    source = open_source(file, max_megabytes)
    if len(source.names) < 2 or source.head.dropna(how="all").empty:
        raise ValueError(
            f"{file.name} needs a column of dates and a column of values, and at least one row"
        )
    column = _date_column(source)
    if column is None:
        raise ValueError(
            f"{file.name} has no column of dates; its columns are "
            + _listed([f"{name} ({source.head[name].iloc[0]!r} ...)" for name in source.names])
        )
    dates, rows, notes = _read_dates(file, source.read([column])[column], column)
    names = [name for name in source.names if name != column]
    return CurveFile(file, dates, names, source, rows, [*source.notes, *notes])


def _read_dates(
    file: Path, cells: pd.Series, column: str
) -> tuple[pd.DatetimeIndex, np.ndarray, list[str]]:
    """Return the dates, the rows that have one, and what had to be decided."""
    rows = np.flatnonzero(cells.notna())
    notes = []
    if len(rows) < len(cells):
        notes.append(f"{len(cells) - len(rows)} rows without a date were left out")
    given = cells.iloc[rows]
    numbers = _numbers(given)
    dates = None if numbers is None or not is_date_name(column) else dates_of_numbers(numbers)
    if dates is not None:
        if are_serial_days(numbers):
            notes.append(f"column {column!r} is read as a spreadsheet's serial days")
        return dates, rows, notes
    try:
        dates, decided = read_dates(given)
    except UnreadableDates as error:
        raise ValueError(
            f"column {column!r} of {file.name} holds {given.iloc[error.first]!r} in "
            f"data row {rows[error.first] + 1}, which is not a date like the others"
        ) from None
    return dates, rows, notes + decided


def _numbers(cells: pd.Series) -> np.ndarray | None:
    if pd.api.types.is_datetime64_any_dtype(cells.dtype):
        return None
    numbers = pd.to_numeric(cells, errors="coerce")
    return None if numbers.isna().any() else numbers.to_numpy(dtype=np.float64)


def _date_column(source: Source) -> str | None:
    """Return the column of dates: by type, else by name and content, else by content."""
    head = source.head
    for column in source.names:
        if pd.api.types.is_datetime64_any_dtype(head[column].dtype):
            return column
    named = [column for column in source.names if is_date_name(column)]
    for column in [*named, *source.names[:_MOST_LOOKED_AT]]:
        sample = head[column].dropna()
        if len(sample) and are_dates(sample):
            return column
    for column in named:
        numbers = _numbers(head[column].dropna())
        if numbers is not None and dates_of_numbers(numbers) is not None:
            return column
    # A column of that name with a wrong value: the complaint should be about that value.
    return next((column for column in named if are_dates(head[column].dropna().iloc[:1])), None)


def _listed(names: list[str]) -> str:
    more = f" and {len(names) - _MOST_NAMED:,} more" if len(names) > _MOST_NAMED else ""
    return ", ".join(names[:_MOST_NAMED]) + more
