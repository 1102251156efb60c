"""JSON Schemas (draft 2020-12) of the dictionaries that leave the process.

`load` gives a schema that refers to nothing outside itself: any validator can use it as it is.
Keys that a schema does not name are allowed; readers take no notice of them.
"""

from __future__ import annotations

import difflib
import json
import re
from functools import cache
from importlib import resources
from typing import Any

__all__ = ["load", "names", "problems"]


def __dir__() -> list[str]:
    return sorted(__all__)


_NAMES = ("report.v1", "report.payload.v1", "report.execution.v1", "report.holdings.v1")
_REFERENCE = re.compile(r'"\$ref": "urn:corvex:([a-z0-9.]+)')


def names() -> list[str]:
    """Return the names that `load` accepts: the ``schema`` values of the dictionaries."""
    return list(_NAMES)


def load(name: str) -> dict[str, Any]:
    """Return a schema.

    Parameters
    ----------
    name : {"report.v1", "report.payload.v1", "report.execution.v1", "report.holdings.v1"}
        The value of the dictionary's ``schema`` key.

    Returns
    -------
    dict
        A new dictionary, yours to change. Schemas that it refers to stand whole in its ``$defs``,
        under their name and with their own ``$id``.

    Raises
    ------
    ValueError
        When there is no schema of that name.

    Examples
    --------
    >>> load("report.payload.v1")["required"]
    ['schema', 'report', 'execution', 'holdings']
    """
    if not isinstance(name, str) or name not in _NAMES:
        near = difflib.get_close_matches(str(name), _NAMES, n=1)
        hint = f" (did you mean {near[0]!r}?)" if near else ""
        raise ValueError(f"no schema named {name!r}{hint}; there are: {', '.join(_NAMES)}")
    schema: dict[str, Any] = json.loads(_text(name))
    for other in _referred(name):
        schema.setdefault("$defs", {})[other] = json.loads(_text(other))
    return schema


def problems(value: object, name: str) -> list[str]:
    """Tell what is wrong with a dictionary by its schema.

    Parameters
    ----------
    value : JSON value
        As `json.loads` gives it, or as a report writes it.
    name : str
        As for `load`.

    Returns
    -------
    list of str
        One line per fault, led by the place; empty when there is none.

    Raises
    ------
    ValueError
        When there is no schema of that name.
    """
    import jsonschema

    errors = jsonschema.Draft202012Validator(load(name)).iter_errors(value)
    return [f"{error.json_path}: {error.message[:200]}" for error in errors]


@cache
def _text(name: str) -> str:
    return resources.files(__name__).joinpath(f"{name}.json").read_text(encoding="utf-8")


@cache
def _referred(name: str) -> tuple[str, ...]:
    """Return the other schemas that one needs, with those that they need."""
    found: list[str] = [name]
    for current in found:  # grows while it is walked
        found += sorted(set(_REFERENCE.findall(_text(current))) - set(found))
    return tuple(found[1:])
