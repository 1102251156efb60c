"""The trade table as it travels: the names of its columns, packed text, and the way back.

In memory the trade table uses snake case (``entry_date``); records that leave the process use
lower camel case (``entryDate``). The known columns, their meaning and unit stand in
`WIRE_COLUMNS`; a column that is not listed, such as one that a user attached, follows the same
rule.
"""

from __future__ import annotations

import base64
import binascii
import json
import re
import zlib
from collections.abc import Callable, Iterable
from typing import Any, NamedTuple

import numpy as np
import pandas as pd

__all__ = [
    "WIRE_COLUMNS",
    "WireColumn",
    "decode_trades",
    "from_wire_trades",
    "to_wire_trades",
    "wire_name",
]


class WireColumn(NamedTuple):
    """How a trade column travels.

    `unit` is "date" (milliseconds since 1970-01-01 UTC on the wire), "text", "price" (in the
    market's currency), "currency", "fraction" (0.01 for one percent) or "bars".
    """

    wire: str
    meaning: str
    unit: str


#: Column of the trade table -> how it travels.
WIRE_COLUMNS: dict[str, WireColumn] = {
    column: WireColumn(*entry)
    for column, entry in {
        "symbol": ("symbol", "asset label: the id, then perhaps a blank and a name", "text"),
        "stock_id": ("stockId", "asset label, in reports of older versions", "text"),
        "entry_date": ("entryDate", "session on which the entry was filled", "date"),
        "exit_date": ("exitDate", "session on which the exit was filled", "date"),
        "entry_sig_date": ("entrySigDate", "date of the signal that opened the trade", "date"),
        "exit_sig_date": ("exitSigDate", "date of the signal that closed it", "date"),
        "position": ("position", "target weight at the entry, of the equity", "fraction"),
        "period": ("period", "how long it was held", "bars"),
        "return": ("return", "exit over entry price after costs, minus 1", "fraction"),
        "trade_price@entry_date": ("tradePrice@entryDate", "quoted price of the entry", "price"),
        "trade_price@exit_date": ("tradePrice@exitDate", "quoted price of the exit", "price"),
        "market_value@entry_date": (
            "marketValue@entryDate",
            "market value of the asset at the entry",
            "currency",
        ),
        "mae": ("mae", "maximum adverse excursion, 0 or negative", "fraction"),
        "mfe": ("mfe", "maximum favourable excursion, 0 or positive", "fraction"),
        "mfe_before_mae": (
            "mfeBeforeMae",
            "maximum favourable excursion before the adverse one",
            "fraction",
        ),
        "max_drawdown": ("maxDrawdown", "largest drawdown while it was open", "fraction"),
        "days_in_profit": ("daysInProfit", "how long it stood above its entry", "bars"),
        "exit_reason": ("exitReason", "why it was closed", "text"),
    }.items()
}

_COLUMNS = {entry.wire: column for column, entry in WIRE_COLUMNS.items()}
# What every trade table has, so that one without rows has it as well.
_ALWAYS = [
    column for column in WIRE_COLUMNS if column not in ("stock_id", "market_value@entry_date")
]

# Only what can be turned back without loss is renamed, so every piece starts with a letter.
_SNAKE_CASE = re.compile(r"[a-z][a-z0-9]*(_[a-z][a-z0-9]*)*")
_CAMEL_CASE = re.compile(r"[a-z][a-z0-9]*([A-Z][a-z0-9]*)*")

_MAX_BYTES = 64 * 2**20
_NANOS_PER_MILLISECOND = 1_000_000
_MAX_NANOS = np.iinfo(np.int64).max


# ---------------------------------------------------------------------- names


def _camel(piece: str) -> str:
    if not _SNAKE_CASE.fullmatch(piece):
        return piece
    head, *rest = piece.split("_")
    return head + "".join(word.capitalize() for word in rest)


def _snake(piece: str) -> str:
    if not _CAMEL_CASE.fullmatch(piece):
        return piece
    return re.sub("[A-Z]", lambda capital: "_" + capital[0].lower(), piece)


def wire_name(column: str) -> str:
    """Return the wire name of one trade column.

    Parameters
    ----------
    column : str
        A column of the trade table. The parts around ``@`` are renamed on their own.

    Returns
    -------
    str
        The listed name, else the snake-case parts in lower camel case. A part that is not plain
        snake case (a capital, a leading underscore, another script) stays as it is.

    Examples
    --------
    >>> wire_name("entry_date"), wire_name("pe_ratio@entry_sig_date"), wire_name("RSI")
    ('entryDate', 'peRatio@entrySigDate', 'RSI')
    """
    if column in WIRE_COLUMNS:
        return WIRE_COLUMNS[column].wire
    return "@".join(_camel(piece) for piece in column.split("@"))


def _column_name(name: str) -> str:
    if name in _COLUMNS:
        return _COLUMNS[name]
    return "@".join(_snake(piece) for piece in name.split("@"))


def _renamed(columns: Iterable[object], rename: Callable[[str], str]) -> list[str]:
    """Rename columns; of two that would get one name, the later keeps its own, or is numbered."""
    names: dict[str, None] = {}
    for column in columns:
        label = str(column)
        name, number = rename(label), 1
        if name in names:
            name = label
        while name in names:
            number += 1
            name = f"{label}_{number}"
        names[name] = None
    return list(names)


# ---------------------------------------------------------------------- tables


def to_wire_trades(trades: pd.DataFrame) -> pd.DataFrame:
    """Rename the columns of a trade table to their wire names.

    Parameters
    ----------
    trades : DataFrame
        One row per trade. Any columns in any order; it is not changed.

    Returns
    -------
    DataFrame
        The same rows and columns in the same order under their wire names. Dates become whole
        milliseconds since 1970-01-01 UTC (``Int64``, missing where the date is missing; a date
        without time zone counts as UTC), the form in which JSON carries them whatever the
        resolution of the column. When two columns would get one name, the later keeps its own,
        numbered if need be: no column is lost.
    """
    columns = [_dates_as_milliseconds(trades.iloc[:, i]) for i in range(trades.shape[1])]
    wire = pd.concat(columns, axis=1) if columns else pd.DataFrame(index=trades.index)
    wire.columns = pd.Index(_renamed(trades.columns, wire_name))
    return wire


def _dates_as_milliseconds(column: pd.Series) -> pd.Series:
    if not pd.api.types.is_datetime64_any_dtype(column.dtype):
        return column
    stamps = pd.DatetimeIndex(column).as_unit("ms")
    milliseconds = pd.Series(stamps.asi8, index=column.index, name=column.name, dtype="Int64")
    return milliseconds.mask(column.isna())


def from_wire_trades(
    wire: pd.DataFrame, *, tz: str | None = None, dates: Iterable[str] = ()
) -> pd.DataFrame:
    """Turn a table under wire names back into a trade table.

    Parameters
    ----------
    wire : DataFrame
        As `to_wire_trades` gives it, or as JSON brings it back. It is not changed.
    tz : str, optional
        Time zone of the dates in the result. None: naive dates in UTC, which are the dates that
        were written when those had no zone.
    dates : iterable of str
        Further columns, by their names in the result, that hold dates in milliseconds.

    Returns
    -------
    DataFrame
        The same rows and columns in the same order: dates as datetime64[ns], the listed numbers as
        float64 (missing: NaN), everything else as it is. Names come back as they were; one that
        was in camel case already before it was sent comes back in snake case.

    Raises
    ------
    ValueError
        When a column of dates holds anything but milliseconds between the years 1677 and 2262, a
        column of numbers anything but numbers, or the zone is not known.
    """
    names = _renamed(wire.columns, _column_name)
    extra = {str(name) for name in dates}
    columns = []
    for at, name in enumerate(names):
        column = wire.iloc[:, at]
        unit = WIRE_COLUMNS[name].unit if name in WIRE_COLUMNS else ""
        if unit == "date" or name in extra:
            column = _milliseconds_as_dates(column, name, tz)
        elif unit not in ("", "text"):
            column = _as_numbers(column, name)
        columns.append(column)
    trades = pd.concat(columns, axis=1) if columns else pd.DataFrame(index=wire.index)
    trades.columns = pd.Index(names)
    return trades


def _as_numbers(column: pd.Series, name: str) -> pd.Series:
    """Return a column as float64; texts and truth values are faults of the writer."""
    if column.isna().all():
        return pd.Series(np.nan, index=column.index, dtype="float64")
    if pd.api.types.is_bool_dtype(column.dtype) or not pd.api.types.is_numeric_dtype(column.dtype):
        raise ValueError(f"trade column {name!r} should hold numbers, got {_kinds(column)}")
    return column.astype("float64")


def _milliseconds_as_dates(column: pd.Series, name: str, tz: str | None) -> pd.Series:
    values = _as_numbers(column, name).to_numpy()
    missing = np.isnan(values)
    if (np.abs(values[~missing]) * _NANOS_PER_MILLISECOND >= float(_MAX_NANOS)).any():
        raise ValueError(
            f"trade column {name!r} should hold milliseconds between the years 1677 and 2262"
        )
    milliseconds = np.where(missing, 0.0, values).round().astype("int64")
    stamps = (milliseconds * _NANOS_PER_MILLISECOND).view("M8[ns]")
    stamps[missing] = np.datetime64("NaT", "ns")
    index = pd.DatetimeIndex(stamps)
    if tz is not None:
        try:
            index = index.tz_localize("UTC").tz_convert(tz)
        except (KeyError, TypeError, OSError) as error:
            raise ValueError(f"{tz!r} is not a time zone") from error
    return pd.Series(index, index=column.index)


def _kinds(column: pd.Series) -> str:
    kinds = {type(value).__name__ for value in column if value is not None}
    return ", ".join(sorted(kinds)[:5])


# ---------------------------------------------------------------------- packed text


def decode_trades(
    text: str, *, tz: str | None = None, dates: Iterable[str] = (), max_bytes: int = _MAX_BYTES
) -> pd.DataFrame:
    """Read the compressed trades of a report's dictionary back into a table.

    Parameters
    ----------
    text : str
        The value of the key ``trades``: base64 of a gzip stream of a JSON array of objects.
    tz, dates
        As for `from_wire_trades`.
    max_bytes : int, default 64 MiB
        The most that the text may unpack to. A trade takes some 350 bytes.

    Returns
    -------
    DataFrame
        One row per trade, oldest first, columns as in `Report.trades` (see `WIRE_COLUMNS`).
        Without trades: no rows under the usual columns.

    Raises
    ------
    ValueError
        For everything that is not such a text; the message says at which layer it fails.

    Examples
    --------
    >>> len(decode_trades("H4sIAAAAAAAC/4uOBQApu0wNAgAAAA=="))
    0
    """
    rows = _rows(_unpacked(text, max_bytes))
    if not rows:
        wire = pd.DataFrame({WIRE_COLUMNS[column].wire: [] for column in _ALWAYS}, dtype=object)
        return from_wire_trades(wire, tz=tz, dates=dates)
    columns = list(dict.fromkeys(key for row in rows for key in row))
    # A table that was written has every column in every row. Without this, a small text with a
    # new key in each row would ask for more memory than there is.
    if len(rows) * len(columns) > 4 * max(1000, sum(len(row) for row in rows)):
        raise ValueError("the rows of the compressed trades have hardly a column in common")
    cells = {at: [row.get(column) for row in rows] for at, column in enumerate(columns)}
    try:
        wire = pd.DataFrame(cells, index=range(len(rows)))
    except OverflowError:  # of an integer of hundreds of digits beside a float
        raise ValueError("the compressed trades hold a number that no float can hold") from None
    wire.columns = pd.Index(columns)
    return from_wire_trades(wire, tz=tz, dates=dates)


def _unpacked(text: str, max_bytes: int) -> bytes:
    if not isinstance(text, str):
        raise ValueError(f"compressed trades should be a text, got {type(text)}")
    try:
        packed = base64.b64decode(text, validate=True)
    except (binascii.Error, ValueError) as error:
        raise ValueError(f"the compressed trades are not base64: {error}") from None
    stream = zlib.decompressobj(wbits=16 + zlib.MAX_WBITS)  # gzip's header and checksum
    try:
        content = stream.decompress(packed, max_bytes + 1)
    except zlib.error as error:
        raise ValueError(f"the compressed trades are not a gzip stream: {error}") from None
    if len(content) > max_bytes:
        raise ValueError(f"the compressed trades unpack to more than {max_bytes} bytes")
    if not stream.eof or stream.unused_data:
        raise ValueError("the compressed trades are cut off, or something follows them")
    return content


def _rows(content: bytes) -> list[dict[str, Any]]:
    try:
        rows = json.loads(content.decode("utf-8"))
    except RecursionError:
        raise ValueError("the compressed trades are nested too deeply") from None
    except ValueError as error:  # of the encoding as well
        raise ValueError(f"the compressed trades are not JSON: {error}") from None
    if not isinstance(rows, list) or not all(isinstance(row, dict) for row in rows):
        raise ValueError("the compressed trades should be an array of objects")
    return rows
