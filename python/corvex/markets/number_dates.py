"""Dates written as numbers: 20180102, and the serial days of spreadsheets."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd

__all__ = ["are_serial_days", "dates_of_numbers"]

_FIRST_DAY, _LAST_DAY = 19_000_101, 22_001_231
# 1940 to 2100: what lies outside is rather a count of rows, or a price.
_FIRST_SERIAL, _LAST_SERIAL = 14_611, 73_415
# Day 1 is 1900-01-01 there, and 1900 counts as a leap year: this origin is right from March 1900.
_ORIGIN = pd.Timestamp("1899-12-30")


def are_serial_days(values: Any) -> bool:
    """Tell whether numbers can be days since 1899-12-30, their fractions the time of day."""
    numbers = np.asarray(values, dtype=np.float64)
    return bool(numbers.size and ((numbers >= _FIRST_SERIAL) & (numbers <= _LAST_SERIAL)).all())


def dates_of_numbers(values: Any) -> pd.DatetimeIndex | None:
    """Read numbers that stand where dates must be.

    Parameters
    ----------
    values : array of numbers
        Year, month and day in eight digits, or serial days of a spreadsheet.

    Returns
    -------
    DatetimeIndex or None
        To the second. None where some number is neither, or missing.
    """
    numbers = np.asarray(values, dtype=np.float64)
    if are_serial_days(numbers):
        seconds = np.rint((numbers - np.floor(numbers)) * 86_400)
        days = pd.to_timedelta(np.floor(numbers), unit="D")
        return pd.DatetimeIndex(_ORIGIN + days + pd.to_timedelta(seconds, unit="s")).as_unit("s")
    whole = bool(numbers.size and (numbers == np.floor(numbers)).all())
    if not whole or numbers.min() < _FIRST_DAY or numbers.max() > _LAST_DAY:
        return None
    try:
        return pd.DatetimeIndex(
            pd.to_datetime(numbers.astype(np.int64).astype(str), format="%Y%m%d")
        )
    except ValueError:
        return None
