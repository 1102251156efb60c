"""Dates written as text, in whatever way a file has them.

Two readers, since two kinds of files mean different things. A user's file is read in any usual form
(`read_dates`). A table of the data folder may as well have labels where the dates stand, such as
asset ids, so only whole dates, year first, count there (`full_dates`), and moments become UTC, as
what a market keeps. Dates in memory are no texts of a file: `corvex.simulation.read.clock.as_dates`
leaves them to pandas, which their owner knows.
"""

from __future__ import annotations

import re
from collections.abc import Iterator
from typing import Literal

import numpy as np
import pandas as pd

__all__ = ["UnreadableDates", "dates_if_all", "full_dates", "read_dates"]

_DAYS = (
    "%Y/%m/%d",
    "%Y.%m.%d",
    "%Y年%m月%d日",
    "%m/%d/%Y",
    "%d/%m/%Y",
    "%d.%m.%Y",
    "%m-%d-%Y",
    "%d-%m-%Y",
    "%m/%d/%y",
    "%d/%m/%y",
    "%d-%b-%Y",
    "%d-%b-%y",
    "%d %b %Y",
    "%d %B %Y",
    "%b %d, %Y",
    "%B %d, %Y",
    "%b %Y",
    "%Y/%m",
)
_TIMES = ("", " %H:%M", " %H:%M:%S", " %I:%M %p")
_LIKE_A_DATE = r"\d\D+\d|\d{4}"  # spares trying every form on the names of columns
# Digits of a time stamp -> unit since 1970.
_EPOCH: dict[int, Literal["s", "ms", "us", "ns"]] = {10: "s", 13: "ms", 16: "us", 19: "ns"}
_OFFSET = re.compile(r"\s*(Z|UTC|[+-]\d{2}:?\d{2})$")
_FULL_DATE = r"\d{4}[-/]\d{1,2}[-/]\d{1,2}.*|\d{8}"
# Years since 1911, as Taiwan writes them: 112/01/31.
_MINGUO = re.compile(r"(1\d{2})([/.-])(\d{1,2})\2(\d{1,2})")


class UnreadableDates(ValueError):
    """Some texts are no dates; `first` is the position of the first one that is none."""

    def __init__(self, first: int) -> None:
        super().__init__(f"no date at position {first}")
        self.first = first


def read_dates(texts: pd.Series) -> tuple[pd.DatetimeIndex, list[str]]:
    """Read a column of dates.

    Parameters
    ----------
    texts : Series of shape (rows,)
        Text (or dates already), none missing: ISO 8601, year/month/day, day and month in either
        order with "/", "." or "-", month names, Chinese dates, Taiwan's years, and seconds,
        milli-, micro- or nanoseconds since 1970; with or without a time of day.

    Returns
    -------
    dates : DatetimeIndex
        In the order of the file. Zoned when every date has the same offset from UTC.
    notes : list of str
        What had to be decided, in words for the user.

    Raises
    ------
    UnreadableDates
        When some text is no date, or no single way of reading fits all.
    """
    found = dates_if_all(texts)
    if found is None:
        raise UnreadableDates(_first_unreadable(texts.astype(str).str.strip()))
    return found


def dates_if_all(texts: pd.Series) -> tuple[pd.DatetimeIndex, list[str]] | None:
    """Return what `read_dates` does, or None where it would raise."""
    if pd.api.types.is_datetime64_any_dtype(texts.dtype):
        return pd.DatetimeIndex(texts), []
    texts = texts.astype(str).str.strip()
    if not texts.str.contains(_LIKE_A_DATE).all():
        return None
    stamps = _epoch(texts)
    if stamps is not None:
        return stamps, []
    notes: list[str] = []
    offsets = {match[1] for text in texts if ":" in text and (match := _OFFSET.search(text))}
    if len(offsets) > 1:  # the clock went forward or back: the local time is what counts
        texts = texts.str.replace(_OFFSET, "", regex=True)
        notes.append("the dates have different offsets from UTC; their local times are used")
    readings = list(_readings(texts))
    if not readings:
        return None
    if len(readings) > 1 and not readings[0][1].equals(readings[1][1]):
        ordered = [reading for reading in readings if _is_ordered(reading[1])]
        form, dates = (ordered or readings)[0]
        if len(ordered) != 1:
            notes.append(f"day and month cannot be told apart; {form} is assumed")
        return dates, notes
    return readings[0][1], notes


def full_dates(texts: pd.Index) -> pd.DatetimeIndex | None:
    """Read the labels of a table that are dates, or else none at all.

    Parameters
    ----------
    texts : Index of shape (rows,)
        2024-01-31, 2024/1/31 or 20240131, with or without a time and an offset from UTC; some may
        be missing.

    Returns
    -------
    DatetimeIndex or None
        In UTC when there are offsets. None where some label is no such date.

    Raises
    ------
    ValueError
        When all look like dates, but one is not: 2024-02-30.
    """
    stripped = pd.Series(texts).astype("string").str.strip()
    given = stripped.dropna()
    if len(given) == 0 or not given.str.fullmatch(_FULL_DATE).all():
        return None
    zoned = any(":" in text and _OFFSET.search(text) for text in given)
    stripped = stripped.str.replace("/", "-", regex=False)
    try:
        return pd.DatetimeIndex(pd.to_datetime(stripped, format="ISO8601", utc=zoned))
    except ValueError:  # months and days of one digit are not ISO
        return pd.DatetimeIndex(pd.to_datetime(stripped, format="mixed", utc=zoned))


def _epoch(texts: pd.Series) -> pd.DatetimeIndex | None:
    if not texts.str.fullmatch(r"\d+(\.0)?").all() or texts.empty:
        return None
    digits = texts.str.removesuffix(".0")
    lengths = digits.str.len().unique()
    unit = _EPOCH.get(int(lengths[0])) if len(lengths) == 1 else None
    return (
        None
        if unit is None
        else pd.DatetimeIndex(pd.to_datetime(digits.astype("int64"), unit=unit))
    )


def _readings(texts: pd.Series) -> Iterator[tuple[str, pd.DatetimeIndex]]:
    """Yield every way of reading that fits all texts, the likeliest first."""
    for name, converted in (("ISO 8601", texts), ("ISO 8601", _from_minguo(texts))):
        dates = _parsed(converted, "ISO8601")
        if dates is not None:
            yield name, dates
            return
    # A first look at few texts spares trying every form on all.
    probe = texts.iloc[:: max(len(texts) // 20, 1)]
    for day in _DAYS:
        for time in _TIMES:
            form = day + time
            if _parsed(probe, form) is None:
                continue
            dates = _parsed(texts, form)
            if dates is not None:
                yield _in_words(form), dates


def _parsed(texts: pd.Series, form: str) -> pd.DatetimeIndex | None:
    try:
        return pd.DatetimeIndex(pd.to_datetime(texts, format=form))
    except (ValueError, OverflowError):
        return None


def _from_minguo(texts: pd.Series) -> pd.Series:
    def convert(text: str) -> str:
        match = _MINGUO.fullmatch(text)
        if match is None:
            return text
        return f"{int(match[1]) + 1911}-{int(match[3]):02d}-{int(match[4]):02d}"

    return texts.map(convert)


def _is_ordered(dates: pd.DatetimeIndex) -> bool:
    return bool(dates.is_monotonic_increasing or dates.is_monotonic_decreasing)


def _in_words(form: str) -> str:
    words = {"%Y": "year", "%y": "year", "%m": "month", "%d": "day", "%b": "month", "%B": "month"}
    return re.sub(
        "%[YymdbB]", lambda match: words[match[0]], form.partition(" %H")[0].partition(" %I")[0]
    )


def _first_unreadable(texts: pd.Series) -> int:
    """Return the first position that the reading which fits most texts cannot read."""
    best = np.zeros(len(texts), dtype=bool)
    for form in ("ISO8601", *(day + time for day in _DAYS for time in _TIMES)):
        fits = pd.to_datetime(texts, format=form, errors="coerce").notna().to_numpy()
        if fits.sum() > best.sum():
            best = fits
    return int(np.argmin(best))
