"""Sheets of workbooks as tables of text."""

from __future__ import annotations

import datetime
import zipfile
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pandas as pd

from corvex.cli.readers.table_layout import (
    HEAD_ROWS,
    count_footers,
    find_table,
    in_words,
    unique_names,
)

__all__ = ["read_workbook"]


def read_workbook(file: Path, check_size: Callable[[int], None]) -> tuple[pd.DataFrame, list[str]]:
    """Read the first sheet of a workbook that has two columns or more.

    Parameters
    ----------
    file : Path
        The workbook.
    check_size : callable
        Given the bytes of its unpacked content; raises ValueError where they are too many.

    Returns
    -------
    table : DataFrame
        Text: dates as ISO texts, numbers in full, those shown in percent with the sign.
    notes : list of str
        What was left out.

    Raises
    ------
    ValueError
        When it is no workbook, or has no such sheet, or openpyxl is not installed.
    """
    try:
        import openpyxl
    except ImportError:
        raise ValueError(
            f"{file.name} is a workbook, which the openpyxl package reads: pip install "
            "'corvex[excel]', or save the sheet as CSV"
        ) from None
    try:
        with zipfile.ZipFile(file) as archive:
            check_size(sum(part.file_size for part in archive.infolist()))
        book = openpyxl.load_workbook(file, read_only=True, data_only=True)
    except (zipfile.BadZipFile, KeyError, openpyxl.utils.exceptions.InvalidFileException) as error:
        raise ValueError(f"{file.name} is no workbook that can be read: {error}") from None
    for sheet in book.worksheets:
        rows = list(_rows(sheet))
        if max(map(len, rows), default=0) >= 2:
            table, notes = _table(rows)
            if len(book.worksheets) > 1:
                notes.insert(0, f"of {file.name} the sheet {sheet.title!r} is read")
            return table, notes
    raise ValueError(f"{file.name} has no sheet with two columns or more")


def _rows(sheet: Any) -> Iterator[list[str]]:
    for row in sheet.iter_rows():
        cells = [_text(cell) for cell in row]
        while cells and not cells[-1]:
            cells.pop()
        yield cells


def _text(cell: Any) -> str:
    value = cell.value
    if value is None:
        return ""
    if isinstance(value, datetime.datetime):
        return value.isoformat(sep=" ") if value.time() else f"{value:%Y-%m-%d}"
    if isinstance(value, float | int) and not isinstance(value, bool):
        # Shown in percent, a cell holds the fraction.
        return f"{value * 100!r}%" if "%" in (cell.number_format or "") else repr(value)
    return str(value)


def _table(rows: list[list[str]]) -> tuple[pd.DataFrame, list[str]]:
    layout = find_table(rows[:HEAD_ROWS])
    width = max(len(row) for row in rows[layout.above :])
    below = count_footers(rows[layout.first :], width)
    data = rows[layout.first : len(rows) - below]
    header = [""] * width if layout.header is None else rows[layout.header]
    names = unique_names([*header, *[""] * (width - len(header))])
    cells = [[*row, *[""] * (width - len(row))] for row in data if row]
    table = pd.DataFrame([[cell.strip() or None for cell in row] for row in cells], columns=names)
    notes = in_words(rows[: layout.above], "above the table were")
    notes += in_words(rows[len(rows) - below :] if below else [], "below the table were")
    return table, notes
