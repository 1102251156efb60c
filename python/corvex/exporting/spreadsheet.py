"""Reports as workbooks for spreadsheets."""

from __future__ import annotations

import datetime
import math
import os
import re
from collections.abc import Sequence
from pathlib import PurePath
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.exporting.extras import needed
from corvex.exporting.headings import LANGUAGES, Language
from corvex.exporting.sheets import Cell, Form, Sheet, sheets_of
from corvex.files import atomic_open
from corvex.plaintext import display_width

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["save_workbook"]

_FORMATS: dict[Form, str] = {
    "text": "General", "percent": "0.00%", "ratio": "0.00", "count": "#,##0", "price": "0.0000",
    "money": "#,##0.00",
    "date": "yyyy-mm-dd",
}  # fmt: skip
_TIMED = "yyyy-mm-dd hh:mm:ss"
_MOST_ROWS = 1_048_576
_MOST_COLUMNS = 16_384
_LONGEST = 32_767  # letters in a cell
_EXACT = 2**53  # from here on a spreadsheet's numbers skip whole ones
_FIRST_YEAR = 1901  # a spreadsheet counts days from 1900, which it takes for a leap year
# What begins a formula once somebody edits the cell, and what XML cannot hold.
_FORMULA = ("=", "+", "-", "@", "\t", "\r")
_FORBIDDEN = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\ud800-\udfff\ufffe\uffff]")


def save_workbook(
    report: Report, path: str | os.PathLike[str], *, language: Language = "en"
) -> None:
    """Write a report as a workbook for spreadsheets.

    Its sheets are the figures beside the benchmark's, the returns by month and year, the holdings
    now and after the next rebalance, every trade, and the daily equity with its drawdowns.

    Parameters
    ----------
    report : Report
        The report.
    path : path
        The file, which ends in .xlsx; it is written whole or not at all.
    language : {"en", "zh-Hant"}
        Of the sheets' names, headings and words. In English, the default, the trades have the
        columns, and actions and exit reasons the words, that they have in the report.

    Raises
    ------
    ImportError
        Without openpyxl: ``pip install 'corvex[excel]'``.
    ValueError
        For another ending or language, and for more trades than a sheet has rows.

    Notes
    -----
    Fractions are numbers shown in percent. Cells know no time zones: they show the clock of the
    zone that the head of the column names. Texts stay texts, whatever they begin with. A figure
    that does not exist is an empty cell.

    Examples
    --------
    ::

        corvex.save_workbook(report, "momentum.xlsx")
    """
    if PurePath(os.fsdecode(path)).suffix.lower() != ".xlsx":
        raise ValueError(f"a workbook's name must end in .xlsx, got {os.fsdecode(path)!r}")
    if language not in LANGUAGES:
        raise ValueError(f"language must be one of {', '.join(LANGUAGES)}, got {language!r}")
    openpyxl = needed("openpyxl", "a workbook", "excel")
    book = openpyxl.Workbook(write_only=True)
    book.properties.creator = "corvex"
    book.properties.title = _text(getattr(report, "name", None) or "")
    sheets = sheets_of(report, language)
    for sheet in sheets:
        if sheet.length >= _MOST_ROWS or len(sheet.header) > _MOST_COLUMNS:
            raise ValueError(
                f"{sheet.title}: {sheet.length:,} rows of {len(sheet.header)} columns are more "
                f"than a sheet holds ({_MOST_ROWS - 1:,} x {_MOST_COLUMNS:,}); write a Parquet "
                "file instead"
            )
    with atomic_open(path) as file:  # sheets that are made and not saved leave files behind
        for sheet in sheets:
            _write(book.create_sheet(sheet.title), sheet)
        book.save(file)


def _write(target: Any, sheet: Sheet) -> None:
    from openpyxl.cell import WriteOnlyCell
    from openpyxl.formatting.rule import ColorScaleRule
    from openpyxl.styles import Font
    from openpyxl.utils import get_column_letter

    rows = list(sheet.rows)
    target.freeze_panes = "B2"
    for at, name in enumerate(sheet.header):
        letter = get_column_letter(at + 1)
        target.column_dimensions[letter].width = _width(name, [row[at] for row in rows[:200]])
    if sheet.shaded and rows:
        first, last = map(get_column_letter, sheet.shaded)
        target.conditional_formatting.add(
            f"{first}2:{last}{len(rows) + 1}",
            ColorScaleRule(
                start_type="percentile", start_value=5, start_color="E58A54",
                mid_type="num", mid_value=0, mid_color="FFFFFF",
                end_type="percentile", end_value=95, end_color="5D9BE8",
            ),
        )  # fmt: skip

    def cell(value: Any, form: str) -> Any:
        made = WriteOnlyCell(target, value=value)
        if isinstance(value, str):
            made.data_type = "s"  # and no formula, nor an error that it looks like
            made.quotePrefix = value.startswith(_FORMULA)
        elif form != "General":
            made.number_format = form
        return made

    bold = Font(bold=True)
    head = [cell(_text(name), "General") for name in sheet.header]
    for made in head:
        made.font = bold
    target.append(head)
    for row in rows:
        target.append([cell(*_plain(one)) for one in row])


def _width(name: str, cells: Sequence[Cell]) -> float:
    shown = (one.value for one in cells if one.form in ("text", "date"))
    longest = max((display_width(str(value)) for value in shown), default=8)
    return min(max(display_width(name), min(longest, 20), 9) + 2, 40)


def _plain(cell: Cell) -> tuple[Any, str]:
    """Return what a cell of a spreadsheet can hold, and its number format."""
    value, form = cell.value, _FORMATS[cell.form]
    if cell.form == "date" and isinstance(value, str):
        value = pd.Timestamp(value)
    if value is None or value is pd.NaT or value is pd.NA:
        return None, form
    if isinstance(value, np.generic):
        value = value.item()
    if isinstance(value, datetime.date):
        return _date(value)
    if isinstance(value, bool | int | float):
        return _number(value, form)
    return _text(value), "General"


def _number(value: float, form: str) -> tuple[Any, str]:
    """Return a number as it is where a spreadsheet has it, else as text; an empty cell for NaN."""
    if isinstance(value, float) and math.isnan(value):
        return None, form
    plain = math.isfinite(value) and (isinstance(value, float) or abs(value) <= _EXACT)
    return (value, form) if plain else (str(value), "General")


def _date(value: datetime.date) -> tuple[Any, str]:
    if value.year < _FIRST_YEAR:
        return value.isoformat(), "General"
    if not isinstance(value, datetime.datetime):
        return value, _FORMATS["date"]
    plain = value.to_pydatetime(warn=False) if isinstance(value, pd.Timestamp) else value
    wall = plain.replace(tzinfo=None)
    return wall, _FORMATS["date"] if wall.time() == datetime.time() else _TIMED


def _text(value: object) -> str:
    return _FORBIDDEN.sub("\ufffd", str(value))[:_LONGEST]
