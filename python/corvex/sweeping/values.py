"""The values of parameters: which can stand in an index, how they are written, when two are one."""

from __future__ import annotations

import datetime
import enum
import json
import math
from collections.abc import Callable, Iterable, Mapping
from dataclasses import dataclass
from typing import Any

import numpy as np
import pandas as pd

from corvex.sweeping.digest import digest

__all__ = [
    "DEFAULT", "Named", "joined_text", "label", "loads", "plain", "text_of", "texts", "unwrap",
]  # fmt: skip

#: The label of a parameter that a run leaves at its default, where others set it.
DEFAULT = "default"
_ENCODE = json.JSONEncoder(separators=(",", ":")).encode


@dataclass(frozen=True, slots=True, eq=False)
class Named:
    """A value that no index can hold, under a name that it can."""

    name: str | float | int
    value: Any

    def written(self) -> dict[str, Any]:
        """Return it as `texts` writes it, with what tells it from another of the same name."""
        return {"name": _written(self.name), "digest": digest(self.value)}


def unwrap(value: Any) -> Any:
    """Return what a function is called with."""
    return value.value if isinstance(value, Named) else value


def label(value: Any) -> Any:
    """Return what stands for a value in an index."""
    return value.name if isinstance(value, Named) else value


def plain(name: str, value: Any) -> Any:
    """Return a value as Python's own, so that equal ones are alike.

    Raises
    ------
    ValueError
        When it cannot stand in an index.
    """
    if isinstance(value, np.generic) and not isinstance(value, np.datetime64 | np.timedelta64):
        value = value.item()
    if isinstance(value, np.datetime64):
        value = pd.Timestamp(value)
    if isinstance(value, np.timedelta64):
        value = pd.Timedelta(value)
    try:
        _written(value)
    except TypeError:
        raise ValueError(
            f"parameter {name!r} has a value of type {type(value).__name__}, which cannot stand in "
            f"an index; give such values names: {{{name!r}: {{'some name': value}}}}"
        ) from None
    return value


def text_of(name: str, value: Any, *, for_good: bool = True) -> str:
    """Write a parameter and its value as a text: equal ones give the same.

    Parameters
    ----------
    name : str
        The parameter.
    value : object
        As `plain` returns it.
    for_good : bool, default True
        Named values count by what they hold; else by identity, which costs nothing but is true of
        this process alone.
    """
    if isinstance(value, Named) and not for_good:
        return f"{_ENCODE(name)}:{id(value.value)}"
    return f"{_ENCODE(name)}:{_ENCODE(_written(value))}"


def texts(rows: Iterable[Mapping[str, Any]], *, for_good: bool = True) -> list[str]:
    """Write each combination of parameters as a text; see `text_of`."""
    # Most values occur in many rows; the rows may go, so what is known by its id is kept.
    known: dict[tuple[str, int], tuple[str, Any]] = {}

    def written(name: str, value: Any) -> str:
        place = name, id(value)
        if place not in known:
            known[place] = text_of(name, value, for_good=for_good), value
        return known[place][0]

    return [joined_text(written(name, row[name]) for name in sorted(row)) for row in rows]


def joined_text(parts: Iterable[str]) -> str:
    """Join the texts of a combination's parameters, which are in the order of their names."""
    return "{" + ",".join(parts) + "}"


def loads(written: Mapping[str, Any]) -> dict[str, Any]:
    """Read the labels of parameters back from what `texts` wrote."""
    return {name: _read(value) for name, value in written.items()}


def _written(value: Any) -> Any:
    if value is None or (isinstance(value, bool | str | int) and not isinstance(value, enum.Enum)):
        return value
    if isinstance(value, float) and math.isfinite(value):
        return value
    for kinds, name, write in _WRITERS:
        if isinstance(value, kinds):
            return {name: write(value)}
    if isinstance(value, Named):
        return value.written()
    raise TypeError(type(value).__name__)


# The first that fits counts: a missing date is a time, a Timestamp a date too.
_WRITERS: tuple[tuple[tuple[type, ...], str, Callable[[Any], Any]], ...] = (
    ((enum.Enum,), "enum", str),
    ((float,), "float", repr),
    ((type(pd.NaT), datetime.datetime), "time", lambda value: pd.Timestamp(value).isoformat()),
    ((datetime.date,), "date", lambda value: value.isoformat()),
    ((datetime.timedelta,), "length", lambda value: pd.Timedelta(value).isoformat()),
    ((pd.offsets.BaseOffset,), "offset", lambda value: _offset_text(value)),  # noqa: PLW0108
    ((tuple,), "tuple", lambda value: [_written(part) for part in value]),
)
_READERS: dict[str, Callable[[Any], Any]] = {
    "time": pd.Timestamp,
    "date": datetime.date.fromisoformat,
    "length": pd.Timedelta,
    "offset": lambda text: _offset(text) or text,
    "float": float,
    "enum": str,
    "tuple": lambda parts: tuple(_read(part) for part in parts),
    "name": lambda name: _read(name),  # noqa: PLW0108  (defined below)
}


def _offset(text: str) -> pd.offsets.BaseOffset | None:
    try:
        return pd.tseries.frequencies.to_offset(text)
    except ValueError:
        return None


def _offset_text(value: pd.offsets.BaseOffset) -> str:
    text: str = value.freqstr
    if type(value) is not pd.DateOffset and _offset(text) != value:
        raise TypeError(text)  # such as one with holidays, which its text does not tell
    return text


def _read(written: Any) -> Any:
    if not isinstance(written, dict):
        return written
    kind, text = next(iter(written.items()))
    return _READERS[kind](text)
