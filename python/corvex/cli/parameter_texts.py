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
    found: dict[str, list[Any]] = {}
    for text in texts:
        name, mark, values = text.partition("=")
        if not mark or not name.strip().isidentifier():
            raise ValueError(f"a parameter is given as name=value,value, got {text!r}")
        if name.strip() in found:
            raise ValueError(f"{name.strip()!r} is given twice; put its values in one list")
        found[name.strip()] = read_values(values, name.strip())
    return found


def read_options(texts: Iterable[str]) -> tuple[dict[str, list[Any]], dict[str, Any]]:
    """Read arguments of `corvex.simulate`: those with several values, and those with one.

    Numbers are read where the argument takes numbers: elsewhere 2020 is a text, as for a date.
    """
    from corvex.simulation.options import Options

    numeric = {*Options._fields, "position_limit", "leverage"}
    read = read_signals(texts)
    for name, values in read.items():
        if name not in numeric:
            read[name] = [
                value if value is None or isinstance(value, str) else str(value) for value in values
            ]
    varying = {name: values for name, values in read.items() if len(values) > 1}
    fixed = {name: values[0] for name, values in read.items() if len(values) == 1}
    return varying, fixed


def read_values(text: str, name: str) -> list[Any]:
    """Read values: numbers, true, false, none and texts between commas.

    ``3:21`` and ``3:21:2`` are the whole numbers from 3 to below 21, as in Python. A list in
    JSON's form holds texts with commas in them.

    Raises
    ------
    ValueError
        When there is none.
    """
    if text.lstrip().startswith("["):
        try:
            return list(json.loads(text))
        except ValueError as error:
            raise ValueError(f"the values of {name!r} are no list in JSON: {error}") from None
    values: list[Any] = []
    for part in text.split(","):
        values += _one(part.strip(), name)
    if not values:
        raise ValueError(f"{name}={text} holds no value")
    return values


def _one(text: str, name: str) -> list[Any]:
    if not text:
        raise ValueError(f"a value of {name!r} is missing; 'none' stands for none")
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
