"""JSON forms of the values that a report holds."""

from __future__ import annotations

import datetime
import math
from collections.abc import Hashable
from typing import Any

import numpy as np
import pandas as pd

__all__ = ["default_serialize", "plain_values"]


def default_serialize(obj: Any) -> Any:
    """Convert a value that `json` does not know: the ``default`` of ``json.dumps``.

    Parameters
    ----------
    obj : object
        Any of the kinds below.

    Returns
    -------
    object
        Plain JSON values, nested ones converted too. By kind:

        - numpy integers, floats and booleans: ``int``, ``float``, ``bool``; NaN and infinities
          become None, since JSON has neither;
        - ``NaT``, ``pandas.NA``: None;
        - timestamps, dates, times, ``datetime64``: ISO 8601 text, with the offset when they have
          one; durations: ISO 8601 durations such as "P1DT0H0M0S"; periods: their text;
        - arrays, indexes and other one-dimensional pandas data: lists (arrays of more dimensions:
          nested lists);
        - a Series: an object of its labels (as text, dates as ISO 8601) and values; a
          DataFrame: a list with one object per row, the index first under its name or "index"
          unless it only numbers the rows;
        - sets: lists, sorted where the elements can be compared, else by their text;
        - an object with a ``to_dict()`` method: what that returns.

    Raises
    ------
    TypeError
        For every other kind of object.
    ValueError
        For a Series or DataFrame whose labels are not unique as text, which an object cannot hold.

    Notes
    -----
    ``json.dumps`` asks only for values that it cannot write itself. A NaN in a plain ``float``
    (or in ``numpy.float64``, which is one) is written by `json` as the word NaN and never comes
    here, unless it stands inside one of the containers above.

    Examples
    --------
    >>> import json
    >>> json.dumps({"n": np.int64(3), "v": np.array([1.0, np.nan])}, default=default_serialize)
    '{"n": 3, "v": [1.0, null]}'
    """
    for convert in (_scalar, _container):
        plain = convert(obj)
        if plain is not _UNKNOWN:
            return plain
    to_dict = getattr(obj, "to_dict", None)
    if callable(to_dict) and not isinstance(obj, type):
        return plain_values(to_dict())
    raise TypeError(f"cannot write {type(obj).__name__} as JSON")


_UNKNOWN = object()


def _scalar(obj: Any) -> Any:
    if obj is pd.NaT or obj is pd.NA:
        plain: Any = None
    elif isinstance(obj, float | np.floating):
        plain = float(obj) if math.isfinite(obj) else None
    elif isinstance(obj, np.bool_):
        plain = bool(obj)
    elif isinstance(obj, np.datetime64 | np.timedelta64):
        plain = _numpy_time(obj)
    elif isinstance(obj, np.integer):  # after durations, which numpy counts as integers
        plain = int(obj)
    elif isinstance(obj, datetime.date | datetime.time):
        plain = obj.isoformat()
    elif isinstance(obj, datetime.timedelta):
        plain = pd.Timedelta(obj).isoformat()
    elif isinstance(obj, pd.Period):
        plain = str(obj)
    else:
        plain = _UNKNOWN
    return plain


def _container(obj: Any) -> Any:
    if isinstance(obj, pd.Series):
        plain: Any = dict(zip(_keys(obj.index), _items(obj), strict=True))
    elif isinstance(obj, pd.DataFrame):
        plain = _records(obj)
    elif isinstance(obj, np.ndarray):
        plain = _array(obj)
    elif isinstance(obj, pd.Index | pd.api.extensions.ExtensionArray):
        plain = _items(obj)
    elif isinstance(obj, set | frozenset):
        plain = [plain_values(item) for item in _sorted(obj)]
    else:
        plain = _UNKNOWN
    return plain


def _numpy_time(obj: np.datetime64 | np.timedelta64) -> str | None:
    if np.isnat(obj):
        return None
    if isinstance(obj, np.datetime64):
        return pd.Timestamp(obj).isoformat()
    return pd.Timedelta(obj).isoformat()


def plain_values(value: Any) -> Any:
    """Return a value, and all that it holds, as plain JSON: None for a number that JSON lacks.

    `json` itself never asks for a float.
    """
    if value is None or isinstance(value, str | bool | int):
        return value
    if isinstance(value, dict):
        return dict(zip(_keys(value), map(plain_values, value.values()), strict=True))
    if isinstance(value, list | tuple):
        return [plain_values(item) for item in value]
    return default_serialize(value)


def _items(data: pd.Series | pd.Index | pd.api.extensions.ExtensionArray) -> list[Any]:
    return [plain_values(item) for item in data]


def _array(array: np.ndarray[Any, Any]) -> Any:
    if array.ndim == 0:
        return plain_values(array[()])
    if array.dtype.kind in "biu":
        return array.tolist()
    if array.dtype.kind == "f" and np.isfinite(array).all():
        return array.tolist()
    return [_array(row) if isinstance(row, np.ndarray) else plain_values(row) for row in array]


def _key(label: Hashable) -> str:
    plain = plain_values(list(label)) if isinstance(label, tuple) else plain_values(label)
    return plain if isinstance(plain, str) else str(plain)


def _keys(labels: Any) -> list[str]:
    keys = [_key(label) for label in labels]
    if len(set(keys)) != len(keys):
        twice = next(key for key in keys if keys.count(key) > 1)
        raise ValueError(f"cannot write a JSON object: the label {twice!r} occurs more than once")
    return keys


def _records(table: pd.DataFrame) -> list[dict[str, Any]]:
    if not isinstance(table.index, pd.RangeIndex):
        names = [name if name is not None else "index" for name in table.index.names]
        table = table.reset_index(names=names if len(names) > 1 else names[0])
    keys = _keys(table.columns)
    columns = [_items(table.iloc[:, i]) for i in range(len(keys))]
    if not columns:
        return [{} for _ in range(len(table))]
    return [dict(zip(keys, row, strict=True)) for row in zip(*columns, strict=True)]


def _sorted(items: set[Any] | frozenset[Any]) -> list[Any]:
    try:
        return sorted(items)
    except TypeError:
        return sorted(items, key=str)
