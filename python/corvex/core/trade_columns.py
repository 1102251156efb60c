"""The names of trade columns in transport records.

In memory the trade table uses snake case (``entry_date``); records that leave the process use
lower camel case (``entryDate``). The known columns and their meaning stand in `WIRE_COLUMNS`;
a column that is not listed, such as one that a user attached, follows the same rule.
"""

from __future__ import annotations

import re

import pandas as pd

__all__ = ["WIRE_COLUMNS", "to_wire_trades", "wire_name"]

#: Column of the trade table -> (wire name, meaning).
WIRE_COLUMNS: dict[str, tuple[str, str]] = {
    "symbol": ("symbol", "asset label: the id, then perhaps a blank and a name"),
    "stock_id": ("stockId", "asset label, in reports of older versions"),
    "entry_sig_date": ("entrySigDate", "date of the signal that opened the trade"),
    "exit_sig_date": ("exitSigDate", "date of the signal that closed it"),
    "entry_date": ("entryDate", "session on which the entry was filled"),
    "exit_date": ("exitDate", "session on which the exit was filled"),
    "return": ("return", "exit over entry price after costs, minus 1, as a fraction"),
    "position": ("position", "target weight at the entry, as a fraction of the equity"),
    "period": ("period", "bars held"),
    "trade_price@entry_date": ("tradePrice@entryDate", "quoted price of the entry"),
    "trade_price@exit_date": ("tradePrice@exitDate", "quoted price of the exit"),
    "market_value@entry_date": ("marketValue@entryDate", "market value of the asset at the entry"),
    "mae": ("mae", "maximum adverse excursion, as a fraction (0 or negative)"),
    "mfe": ("mfe", "maximum favourable excursion, as a fraction (0 or positive)"),
    "mfe_before_mae": ("mfeBeforeMae", "maximum favourable excursion before the adverse one"),
    "max_drawdown": ("maxDrawdown", "largest drawdown while the trade was open, as a fraction"),
    "days_in_profit": ("daysInProfit", "bars on which the trade stood above its entry"),
    "exit_reason": ("exitReason", "why the trade was closed, as text"),
}

# Only what can be turned back without loss is renamed, so every piece starts with a letter.
_SNAKE_CASE = re.compile(r"[a-z][a-z0-9]*(_[a-z][a-z0-9]*)*")


def _camel(piece: str) -> str:
    if not _SNAKE_CASE.fullmatch(piece):
        return piece
    head, *rest = piece.split("_")
    return head + "".join(word.capitalize() for word in rest)


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
        return WIRE_COLUMNS[column][0]
    return "@".join(_camel(piece) for piece in column.split("@"))


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
    names: list[str] = []
    taken: set[str] = set()
    for column in trades.columns:
        label = str(column)
        candidates = [wire_name(label), label]
        candidates += [f"{label}_{n}" for n in range(2, len(trades.columns) + 2)]
        name = next(c for c in candidates if c not in taken)
        taken.add(name)
        names.append(name)
    columns = [_dates_as_milliseconds(trades.iloc[:, i]) for i in range(len(names))]
    wire = pd.concat(columns, axis=1) if columns else pd.DataFrame(index=trades.index)
    wire.columns = pd.Index(names)
    return wire


def _dates_as_milliseconds(column: pd.Series) -> pd.Series:
    if not pd.api.types.is_datetime64_any_dtype(column.dtype):
        return column
    stamps = pd.DatetimeIndex(column).as_unit("ms")
    milliseconds = pd.Series(stamps.asi8, index=column.index, name=column.name, dtype="Int64")
    return milliseconds.mask(column.isna())
