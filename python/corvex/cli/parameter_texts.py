"""Values of parameters, as the command line has them: ``lookback=63,126``, ``top=3:21``."""

from __future__ import annotations

import json
import re
from collections.abc import Iterable
from typing import Any

__all__ = ["read_options", "read_signals", "read_values"]

_WORDS = {"none": None, "true": True, "false": False}
_RANGE = re.compile(r"(-?\d+):(-?\d+)(?::(-?\d+))?")
_WHOLE = re.compile(r"[+-]?\d+")
_NUMBER = re.compile(r"[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?")


def read_signals(texts: Iterable[str]) -> dict[str, list[Any]]:
    """Read the arguments of a strategy, each ``name=values``.

    Raises
    ------
    ValueError
        When one is not of this form, or comes twice.
    """
    return {name: read_values(values, name) for name, values in _named(texts).items()}


def _named(texts: Iterable[str]) -> dict[str, str]:
    found: dict[str, str] = {}
    for text in texts:
        given, mark, values = text.partition("=")
        name = given.strip()
        if not mark or not name.isidentifier():
            raise ValueError(f"a parameter is given as name=value,value, got {text!r}")
        if name in found:
            raise ValueError(f"{name!r} is given twice; put its values in one list")
        found[name] = values
    return found


def read_options(texts: Iterable[str]) -> tuple[dict[str, list[Any]], dict[str, Any]]:
    """Read arguments of `corvex.simulate`: those with several values, and those with one.

    Numbers are read where the argument takes numbers: elsewhere 2020 is a text, as for a date, and
    0050 the name of a file.

    Raises
    ------
    ValueError
        As `read_signals`, and for what `corvex.simulate` does not take.
    """
    from corvex.simulation.options import Options
    from corvex.sweeping.settings import check_names

    numeric = {*Options._fields, "position_limit", "leverage"}
    given = _named(texts)
    check_names(given, varies=True)
    read = {name: read_values(text, name, name in numeric) for name, text in given.items()}
    varying = {name: values for name, values in read.items() if len(values) > 1}
    fixed = {name: values[0] for name, values in read.items() if len(values) == 1}
    return varying, fixed


def read_values(text: str, name: str, numeric: bool = True) -> list[Any]:
    """Read values: numbers, true, false, none and texts between commas.

    ``3:21`` and ``3:21:2`` are the whole numbers from 3 to below 21, as in Python. A list in
    JSON's form holds texts with commas in them. Where `numeric` is False, all but none are texts.

    Raises
    ------
    ValueError
        When there is none.
    """
    if text.lstrip().startswith("["):
        try:
            values = list(json.loads(text))
        except ValueError as error:
            raise ValueError(f"the values of {name!r} are no list in JSON: {error}") from None
        if not numeric:
            values = [one if one is None else str(one) for one in values]
    else:
        values = [one for part in text.split(",") for one in _one(part.strip(), name, numeric)]
    if not values:
        raise ValueError(f"{name}={text} holds no value")
    return values


def _one(text: str, name: str, numeric: bool) -> list[Any]:
    if not text:
        raise ValueError(f"a value of {name!r} is missing; 'none' stands for none")
    if not numeric:
        return [None if text.lower() == "none" else text]
    span = _RANGE.fullmatch(text)
    if span is not None:
        step = int(span[3] or 1)
        if step == 0:
            raise ValueError(f"{name}={text} has a step of 0")
        return list(range(int(span[1]), int(span[2]), step))
    if text.lower() in _WORDS:
        return [_WORDS[text.lower()]]
    if _WHOLE.fullmatch(text):
        return [int(text)]
    return [float(text)] if _NUMBER.fullmatch(text) else [text]
