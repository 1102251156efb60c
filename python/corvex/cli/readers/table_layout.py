"""Where the table stands among the lines of a file: below a title, above a footer."""

from __future__ import annotations

import re
from collections import Counter
from dataclasses import dataclass

import pandas as pd

from corvex.cli.readers.number_texts import FALSE_TEXTS, TRUE_TEXTS, NotANumberError, read_numbers
from corvex.tables.column_names import DATE_NAMES
from corvex.tables.date_texts import dates_if_all

__all__ = [
    "HEAD_ROWS",
    "Layout",
    "are_dates",
    "count_footers",
    "find_table",
    "in_words",
    "is_date_name",
    "plain_name",
    "unique_names",
]

HEAD_ROWS = 60  # rows in which a table must begin
_FOOTER = re.compile(
    r"(?:grand )?total|sum|average|mean|source|notes?|disclaimer|copyright|generated|[*#©]"
    r"|合計|總計|小計|平均|資料來源|備?註|說明",
    re.IGNORECASE,
)

type Rows = list[list[str]]


@dataclass(frozen=True, slots=True)
class Layout:
    """The rows of a file that head a table.

    Attributes
    ----------
    header : int or None
        Row of the column names; None where the table has none.
    first : int
        Row of the first data.
    """

    header: int | None
    first: int

    @property
    def above(self) -> int:
        """Rows before the table."""
        return self.first if self.header is None else self.header


def find_table(rows: Rows) -> Layout:
    """Find the header: the row above the first that holds a date and, beside it, a number.

    Where no row does, the first one counts as the header, and what reads the table will say what
    is missing.
    """
    for i, row in enumerate(rows):
        column = _date_beside_number(row)
        if column is None:
            continue
        first = i
        while first > 0 and _is_blank(rows[first - 1], column):
            first -= 1  # rows that have a date and no numbers yet
        return Layout(_header(rows, first, column), first)
    named = [i for i, row in enumerate(rows) if len(row) > 1 and any(map(is_date_name, row))]
    filled = [i for i, row in enumerate(rows) if any(map(str.strip, row))]
    header = next(iter(named or filled), 0)
    return Layout(header, header + 1)


def _is_blank(row: list[str], column: int) -> bool:
    cell = row[column].strip() if column < len(row) else ""
    return bool(cell) and are_dates(pd.Series([cell]))


def _header(rows: Rows, first: int, column: int) -> int | None:
    """Return the row of names: the last one above the data that names two columns."""
    for i in range(first - 1, -1, -1):
        if sum(bool(cell.strip()) for cell in rows[i]) >= 2 and column < len(rows[i]):
            return i
    return None


def _date_beside_number(row: list[str]) -> int | None:
    filled = [i for i, cell in enumerate(row) if cell.strip()][:HEAD_ROWS]
    for i in filled:
        if not any(map(str.isdigit, row[i])) or not are_dates(pd.Series([row[i]])):
            continue
        others = [row[j] for j in filled if j != i]
        if any(other.strip().lower() in (*TRUE_TEXTS, *FALSE_TEXTS) for other in others):
            return i
        for other in others:
            try:
                if read_numbers(pd.Series([other], dtype=object)).notna().any():
                    return i
            except NotANumberError:
                continue
    return None


def count_footers(rows: Rows, width: int) -> int:
    """Return how many of the last rows stand under a table of `width` columns.

    A row with a single cell, or one that begins with a word such as "Total". A row with a wrong
    date in it is none: it may be a lost day.
    """
    count = 0
    for row in reversed(rows):
        cells = [cell.strip() for cell in row if cell.strip()]
        alone = len(cells) == 1 and width >= 2
        is_footer = not cells or ((alone or _FOOTER.match(cells[0])) and not _starts_dated(cells))
        if not is_footer:
            break
        count += 1
    return count


def _starts_dated(cells: list[str]) -> bool:
    return are_dates(pd.Series(cells[:1])) or (len(cells) == 1 and _is_number(cells[0]))


def _is_number(text: str) -> bool:
    try:
        return bool(read_numbers(pd.Series([text], dtype=object)).notna().any())
    except NotANumberError:
        return False


def in_words(rows: Rows, where: str) -> list[str]:
    """Return a note on the rows that are left out, none where they are all blank."""
    texts = [", ".join(cell.strip() for cell in row if cell.strip()) for row in rows]
    texts = [text for text in texts if text]
    if not texts:
        return []
    lines = "1 line" if len(texts) == 1 else f"{len(texts)} lines"
    first = texts[0] if len(texts[0]) <= 60 else f"{texts[0][:57]}..."
    return [f"{lines} {where} left out: {first!r}" + (" ..." if len(texts) > 1 else "")]


def are_dates(texts: pd.Series) -> bool:
    """Tell whether some texts are all dates."""
    # A bare number is a year or a price rather than a date, but eight digits are one: 20240131.
    if texts.astype(str).str.fullmatch(r"[+-]?\d{1,7}(\.\d*)?").any():
        return False
    found = dates_if_all(texts)
    return found is not None and bool(len(found[0])) and 1900 <= found[0][0].year <= 2200


def is_date_name(name: str) -> bool:
    """Tell whether a column of this name holds dates."""
    return plain_name(name) in DATE_NAMES


def plain_name(name: object) -> str:
    """Return a column's name as it is compared: small letters, single blanks, no unit."""
    bare = re.sub(r"[(\[]?\s*(?:in\s+)?(?:%|\bpercent\b)\s*[)\]]?", " ", str(name), flags=re.I)
    return re.sub(r"[\s_.\-]+", " ", bare).strip().lower()


def unique_names(names: list[str]) -> list[str]:
    """Return names of columns, told apart where one occurs twice; nameless ones by their place."""
    seen: Counter[str] = Counter()
    result = []
    for i, name in enumerate(names, start=1):
        plain = name.strip() or f"column {i}"
        seen[plain] += 1
        result.append(plain if seen[plain] == 1 else f"{plain}.{seen[plain] - 1}")
    return result
