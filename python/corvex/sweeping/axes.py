"""The values of a parameter in the order in which a picture shows them."""

from __future__ import annotations

import contextlib
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import pandas as pd

from corvex.simulation.notices import date_text

__all__ = ["Axis", "axis_of"]

_LONGEST = 80
_NUMBERS = (int, float)


@dataclass(frozen=True)
class Axis:
    """The distinct values of a parameter.

    Attributes
    ----------
    values : list
        In rising order where they have one, those that have none behind them.
    texts : list of str
        How each is written.
    places : list of int
        The place of each run's value.
    ranks : list of (int or None)
        Each value's rank among numbers, dates or lengths of time. None for values between which
        no step leads, such as names, flags and None.
    """

    values: list[Any]
    texts: list[str]
    places: list[int]
    ranks: list[int | None]


def axis_of(labels: Sequence[Any]) -> Axis:
    """Return the values of a parameter, given its label in each run."""
    distinct = list({_key(one): one for one in labels}.values())
    ordered = [one for one in distinct if _has_order(one)]
    kinds = {_kind(one) for one in ordered}
    if len(kinds) == 1 and len({one.tzinfo is None for one in ordered if _is_time(one)}) < 2:
        ordered.sort()
        rest = [one for one in distinct if not _has_order(one)]
    else:
        ordered, rest = [], distinct
        with contextlib.suppress(TypeError):  # values of several kinds: as the grid has them
            rest = sorted(rest)
    values = ordered + rest
    place = {_key(one): at for at, one in enumerate(values)}
    texts = [_text(one, exact=False) for one in values]
    if len(set(texts)) < len(texts):
        texts = [_text(one, exact=True) for one in values]
    if len(set(texts)) < len(texts):  # such as 1 and "1", or long ones that begin alike
        texts = [f"{text} ({at + 1})" for at, text in enumerate(texts)]
    return Axis(
        values=values,
        texts=texts,
        places=[place[_key(one)] for one in labels],
        ranks=[*range(len(ordered)), *(None for _ in rest)],
    )


def _key(value: Any) -> tuple[str, str]:
    return type(value).__name__, str(value)


def _is_time(value: Any) -> bool:
    return isinstance(value, pd.Timestamp)


def _has_order(value: Any) -> bool:
    numeric = isinstance(value, _NUMBERS) and not isinstance(value, bool)
    return (numeric or isinstance(value, pd.Timestamp | pd.Timedelta)) and not pd.isna(value)


def _kind(value: Any) -> type:
    return float if isinstance(value, _NUMBERS) else type(value)


def _text(value: Any, *, exact: bool) -> str:
    """Write a value; long ones are cut."""
    if isinstance(value, float):
        text = repr(value) if exact else f"{value:g}"
    elif _is_time(value) and not pd.isna(value):
        text = date_text(value)
    elif isinstance(value, pd.offsets.BaseOffset):
        text = value.freqstr
    else:
        text = str(value)
    return text if len(text) <= _LONGEST else f"{text[: _LONGEST - 1]}…"
