"""Numbers written in whatever way a file has them."""

from __future__ import annotations

import re

import numpy as np
import pandas as pd

__all__ = ["FALSE_TEXTS", "TRUE_TEXTS", "NotANumberError", "read_numbers"]

#: How files write signals, in small letters.
TRUE_TEXTS, FALSE_TEXTS = ("true", "yes"), ("false", "no")

_MISSING = frozenset({"", "-", "--", "na", "n/a", "nan", "null", "none", "#n/a"})
_CURRENCY = re.compile(r"^(?:NT\$|US\$|USD|TWD|EUR|\$|€|£|¥)\s*|\s*(?:USD|TWD|EUR|€|元)$")
_BLANKS = re.compile(r"[\s\u00a0\u202f_']")
_DECIMAL_COMMA = re.compile(r"[+-]?(?:\d{1,3}(?:\.\d{3})+|\d+),\d+(?:[eE][+-]?\d+)?%?")
_GROUPED = re.compile(r"[+-]?[1-9]\d{0,2}(?:,\d{3})+(?:\.\d+)?%?")


class NotANumberError(ValueError):
    """A text is no number; `position` and `text` say which."""

    def __init__(self, position: int, text: str) -> None:
        super().__init__(f"{text!r} is not a number")
        self.position = position
        self.text = text


def read_numbers(column: pd.Series, *, in_percent: bool = False) -> pd.Series:
    """Read a column of numbers.

    Parameters
    ----------
    column : Series of shape (rows,)
        Numbers, or text: with thousands separators, a decimal comma, a currency sign, in
        parentheses when negative, or in percent (then divided by 100).
    in_percent : bool, default False
        Numbers without the sign are percent, too.

    Returns
    -------
    Series of float
        Of the same index. Missing where the text is empty, "-", "NA" and the like.

    Raises
    ------
    NotANumberError
        For the first text that is no number.
    """
    unit = 100 if in_percent else 1
    if pd.api.types.is_numeric_dtype(column.dtype):
        return column.astype(float) / unit
    # Most files hold plain numbers, and those need no closer look.
    plain = pd.to_numeric(column, errors="coerce")
    if plain.isna().equals(column.isna()):
        return plain.astype(float) / unit
    raw = column.astype("str").str.strip()
    known = column.notna() & ~raw.str.lower().isin(_MISSING)
    plain = pd.to_numeric(raw.where(known), errors="coerce")
    unread = known & plain.isna()
    if not unread.any():
        return plain.astype(float) / unit
    texts = raw[known].map(_without_dress)
    comma = texts.str.fullmatch(_DECIMAL_COMMA)
    # "1,234" alone may be either; one that can only be a decimal comma decides for all.
    decimal_comma = bool((comma & ~texts.str.fullmatch(_GROUPED)).any())
    values = np.full(len(column), np.nan)
    for position, text in zip(np.flatnonzero(known), texts, strict=True):
        number = _number(text, decimal_comma, unit)
        if number is None:
            raise NotANumberError(int(position), str(column.iloc[position]))
        values[position] = number
    return pd.Series(values, index=column.index)


def _without_dress(text: str) -> str:
    negative = text.startswith("(") and text.endswith(")")
    if negative:
        text = text[1:-1]
    text = text.replace("\u2212", "-")
    sign = "-" if text.startswith("-") else ""
    text = _BLANKS.sub("", _CURRENCY.sub("", text[len(sign) :].strip()))
    return "-" + text.removeprefix("-") if negative else sign + text


def _number(text: str, decimal_comma: bool, unit: int) -> float | None:
    if decimal_comma and _DECIMAL_COMMA.fullmatch(text):
        text = text.replace(".", "").replace(",", ".")
    elif _GROUPED.fullmatch(text):
        text = text.replace(",", "")
    try:
        return float(text.removesuffix("%")) / (100 if text.endswith("%") else unit)
    except ValueError:
        return None
