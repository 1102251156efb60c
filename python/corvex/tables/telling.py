"""Warnings that point at the user's line, and dates in messages."""

from __future__ import annotations

import warnings
from pathlib import Path

import pandas as pd

__all__ = ["date_text", "warn"]

_PACKAGE = str(Path(__file__).parents[1])  # unresolved, as frames name their files


def warn(message: str) -> None:
    """Warn at the line outside this package that led here."""
    warnings.warn(message, UserWarning, stacklevel=2, skip_file_prefixes=(_PACKAGE,))


def date_text(when: pd.Timestamp) -> str:
    """The date of a stamp, with the time of day where there is one."""
    return when.strftime("%Y-%m-%d" if when == when.normalize() else "%Y-%m-%d %H:%M:%S%z")
