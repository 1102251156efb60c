"""Delimited text and Parquet as tables, whatever their delimiter, encoding and header."""

from __future__ import annotations

import bz2
import csv
import gzip
import io
import lzma
import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pandas as pd

from corvex.cli.dates import UnreadableDates, read_dates
from corvex.cli.numbers import NotANumberError, read_numbers

__all__ = ["are_dates", "read_file"]

_PARQUET = {".parquet", ".pq"}
_COMPRESSED: dict[str, Callable[..., Any]] = {
    ".gz": gzip.open,
    ".bz2": bz2.open,
    ".xz": lzma.open,
}


def read_file(file: Path) -> pd.DataFrame:
    """Read a file as a table; the cells of a text file stay text.

    Raises
    ------
    ValueError
        When it is no table.
    """
    return _read_parquet(file) if file.suffix.lower() in _PARQUET else _read_csv(file)


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
    dates = [i for i, cell in enumerate(cells) if cell.strip() and are_dates(pd.Series([cell]))]
    for i in dates:
        others = [cell for j, cell in enumerate(cells) if j != i and cell.strip()]
        try:
            if read_numbers(pd.Series(others, dtype=object)).notna().any():
                return True
        except NotANumberError:
            continue
    return False


def are_dates(texts: pd.Series) -> bool:
    """Tell whether some texts are all dates."""
    # A bare number is a year or a price rather than a date, but eight digits are one: 20240131.
    if texts.astype(str).str.fullmatch(r"[+-]?\d{1,7}(\.\d*)?").any():
        return False
    try:
        dates, _ = read_dates(texts)
    except UnreadableDates:
        return False
    return bool(len(dates)) and 1900 <= dates[0].year <= 2200
