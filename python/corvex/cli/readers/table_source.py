"""Delimited text, workbooks and Parquet as tables, whatever their delimiter, encoding and header.

No more is unpacked than a limit allows, and of delimited text only the columns asked for become
objects: a file of a few megabytes can hold gigabytes.
"""

from __future__ import annotations

import bz2
import csv
import gzip
import io
import itertools
import lzma
import warnings
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import IO, Any, Protocol

import pandas as pd

from corvex.cli.readers.table_layout import (
    HEAD_ROWS,
    count_footers,
    find_table,
    in_words,
    unique_names,
)

__all__ = ["MAX_MEGABYTES", "Source", "check_size", "open_source", "read_file"]

MAX_MEGABYTES = 200  # of unpacked content: a hundred years of daily values in a hundred columns

_PARQUET = {".parquet", ".pq"}
_WORKBOOK = {".xlsx", ".xlsm"}
_COMPRESSED: dict[str, Callable[..., Any]] = {
    ".gz": gzip.open,
    ".bz2": bz2.open,
    ".xz": lzma.open,
}
_TAIL = 16_384  # bytes in which footers are looked for


class Source(Protocol):
    """A table in a file."""

    @property
    def names(self) -> list[str]:
        """The columns, each name once."""

    @property
    def head(self) -> pd.DataFrame:
        """The first rows of all columns; text where the file is text."""

    @property
    def notes(self) -> list[str]:
        """What was left out, in words for the user."""

    def read(self, columns: list[str]) -> pd.DataFrame:
        """Return some columns in full."""


@dataclass(slots=True)
class _Table:
    """A table that is in memory already."""

    table: pd.DataFrame
    notes: list[str] = field(default_factory=list)

    @property
    def names(self) -> list[str]:
        return list(self.table.columns)

    @property
    def head(self) -> pd.DataFrame:
        return self.table.iloc[:HEAD_ROWS]

    def read(self, columns: list[str]) -> pd.DataFrame:
        return self.table[columns]


@dataclass(slots=True)
class _Text:
    """A table of delimited text, of which columns are read when they are asked for."""

    file: Path
    content: bytes  # the rows of data alone
    encoding: str
    delimiter: str
    names: list[str]
    head: pd.DataFrame
    notes: list[str]

    def read(self, columns: list[str]) -> pd.DataFrame:
        places = sorted(self.names.index(name) for name in columns)
        if not self.content.strip():
            return pd.DataFrame(columns=[self.names[place] for place in places], dtype=object)
        try:
            with warnings.catch_warnings():
                warnings.simplefilter("error", pd.errors.ParserWarning)
                table = pd.read_csv(
                    io.BytesIO(self.content),
                    sep=self.delimiter,
                    encoding=self.encoding,
                    encoding_errors="replace",
                    header=None,
                    names=range(len(self.names)),
                    usecols=places,
                    index_col=False,
                    dtype=str,
                    skipinitialspace=True,
                    keep_default_na=False,
                    na_values=[""],
                )
        except (ValueError, csv.Error) as error:
            raise ValueError(
                f"{self.file.name} cannot be read as a table of text: {error}"
            ) from None
        return table.set_axis([self.names[place] for place in places], axis=1)


def open_source(file: Path, max_megabytes: int = MAX_MEGABYTES) -> Source:
    """Open a file that holds a table.

    Parameters
    ----------
    file : Path
        ``.parquet``, ``.pq``, ``.xlsx``, ``.xlsm``, or else delimited text.
    max_megabytes : int, default 200
        Most content that is unpacked.

    Raises
    ------
    OSError
        When it cannot be opened.
    ValueError
        When it is no table, or holds more.
    """
    ending = file.suffix.lower()
    if ending in _PARQUET:
        return _Table(_read_parquet(file, max_megabytes))
    if ending in _WORKBOOK:
        from corvex.cli.readers.workbook import read_workbook

        check_size(file, file.stat().st_size, max_megabytes)
        return _Table(*read_workbook(file, lambda size: check_size(file, size, max_megabytes)))
    return _open_text(file, max_megabytes)


def read_file(file: Path, max_megabytes: int = MAX_MEGABYTES) -> pd.DataFrame:
    """Read all columns of a table; see `open_source`."""
    source = open_source(file, max_megabytes)
    return source.read(source.names)


def check_size(file: Path, size: int, max_megabytes: int) -> None:
    """Refuse a file whose content is larger than allowed."""
    if size > max_megabytes << 20:
        raise ValueError(
            f"{file.name} holds more than {max_megabytes} MB of content, which is the most that is "
            "read; --max-size N allows N MB"
        )


def _read_parquet(file: Path, max_megabytes: int) -> pd.DataFrame:
    import pyarrow
    import pyarrow.parquet

    try:
        about = pyarrow.parquet.ParquetFile(file).metadata
        groups = [about.row_group(i) for i in range(about.num_row_groups)]
        # Packed by dictionary, a value takes next to nothing in the file and eight bytes here.
        cells = 8 * about.num_rows * about.num_columns
        check_size(file, max(cells, sum(g.total_byte_size for g in groups)), max_megabytes)
        table = pd.read_parquet(file)
    except pyarrow.ArrowException as error:
        raise ValueError(f"{file.name} cannot be read as Parquet: {error}") from None
    if not isinstance(table.index, pd.RangeIndex):
        table = table.reset_index()
    return table.set_axis(unique_names([str(column) for column in table.columns]), axis=1)


def _open_text(file: Path, max_megabytes: int) -> _Text:
    content, encoding = _read_text(file, max_megabytes)
    lines = _first_lines(content)
    delimiter = _delimiter([line.decode(encoding, errors="replace") for line in lines])
    rows, ends = _parsed(lines, encoding, delimiter)
    if not rows:
        raise ValueError(f"{file.name} cannot be read as a table of text: it is empty")
    layout = find_table(rows)
    start = ends[layout.first - 1] if layout.first else 0
    data = [row for row in rows[layout.first :] if any(map(str.strip, row))]
    if layout.header is None:
        names = unique_names([""] * max(map(len, data), default=0))
    else:
        names = unique_names(rows[layout.header])
    _refuse_long_rows(file, data, len(names), delimiter)
    content, footers = _without_footers(content[start:], encoding, delimiter, len(names))
    notes = in_words(rows[: layout.above], "above the table were")
    head = pd.DataFrame(
        [[cell.strip() or None for cell in row[: len(names)]] for row in data],
        columns=range(len(names)),
        dtype=object,
    ).set_axis(names, axis=1)
    return _Text(file, content, encoding, delimiter, names, head, [*notes, *footers])


def _refuse_long_rows(file: Path, data: list[list[str]], width: int, delimiter: str) -> None:
    for row in data:
        if any(cell.strip() for cell in row[width:]):
            raise ValueError(
                f"{file.name} has rows with more cells than its header; numbers with a "
                f"{delimiter!r} in them must stand in quotes"
            )


def _read_text(file: Path, max_megabytes: int) -> tuple[bytes, str]:
    """Return a file's content and encoding; where that is unclear, one that reads any bytes."""
    opener = _COMPRESSED.get(file.suffix.lower(), open)
    try:
        with opener(file, "rb") as stream:
            content = _read_at_most(stream, (max_megabytes << 20) + 1)
    except (EOFError, lzma.LZMAError, gzip.BadGzipFile) as error:
        raise ValueError(f"{file.name} cannot be unpacked: {error}") from None
    check_size(file, len(content), max_megabytes)
    if content[:2] in (b"\xff\xfe", b"\xfe\xff"):
        return content.decode("utf-16", errors="replace").encode("utf-8", "replace"), "utf-8"
    content = content.removeprefix(b"\xef\xbb\xbf")
    try:
        content.decode("utf-8")
    except UnicodeDecodeError:
        return content, "latin-1"
    return content, "utf-8"


def _read_at_most(stream: IO[bytes], size: int) -> bytes:
    parts = []
    while size > 0 and (part := stream.read(min(size, 1 << 22))):
        parts.append(part)
        size -= len(part)
    return b"".join(parts)


def _first_lines(content: bytes) -> list[bytes]:
    """Return the lines in which a table must begin, with their ends."""
    return list(itertools.islice(io.BytesIO(content[: 1 << 24]), 2 * HEAD_ROWS))


def _parsed(lines: list[bytes], encoding: str, delimiter: str) -> tuple[list[list[str]], list[int]]:
    """Return the first rows, and the byte behind each; a cell in quotes may run over lines."""
    reader = csv.reader(
        (line.decode(encoding, errors="replace") for line in lines), delimiter=delimiter,
        skipinitialspace=True,
    )  # fmt: skip
    sizes = [0]
    for line in lines:
        sizes.append(sizes[-1] + len(line))
    rows, ends = [], []
    try:
        for row in reader:
            rows.append(row)
            ends.append(sizes[reader.line_num])
            if len(rows) == HEAD_ROWS:
                break
    except csv.Error:
        pass  # what follows is too long for one cell: the table before it, if any, is told apart
    return rows, ends


def _without_footers(
    content: bytes, encoding: str, delimiter: str, width: int
) -> tuple[bytes, list[str]]:
    """Return the rows of data without what stands below them, and a note on that."""
    start = max(len(content) - _TAIL, 0)
    tail = content[start:]
    lines = tail.splitlines(keepends=True)[1 if start else 0 :]
    rows = [
        next(csv.reader([line.decode(encoding, errors="replace")], delimiter=delimiter), [])
        for line in lines
    ]
    count = count_footers(rows, width)
    if not count:
        return content, []
    size = sum(map(len, lines[-count:]))
    return content[: len(content) - size], in_words(rows[-count:], "below the table were")


def _delimiter(lines: list[str]) -> str:
    """Return the delimiter that stands in most of the first lines; a comma where none does."""
    lines = [line for line in lines[:HEAD_ROWS] if line.strip()]
    # A comma may be part of a number, where one of the others divides.
    for mark in (";", "\t", "|"):
        if 2 * sum(mark in line for line in lines) > len(lines):
            return mark
    return ","
