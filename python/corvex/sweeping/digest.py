"""Fingerprints of what a sweep rests on: tables, strategies and what they carry with them."""

from __future__ import annotations

import dataclasses
import datetime
import functools
import hashlib
import inspect
import pickle
import types
from collections.abc import Callable, Iterable, Mapping
from typing import Any

import numpy as np
import pandas as pd

__all__ = ["digest"]

_SIMPLE = (
    type(None), bool, int, float, complex, str, bytes, datetime.date, datetime.time,
    datetime.timedelta, np.generic, pd.offsets.BaseOffset,
)  # fmt: skip
_TABLES = (pd.DataFrame, pd.Series, pd.Index)

#: What has been counted already, by its id: its number, and itself.
type _Seen = dict[int, tuple[int, Any]]


def digest(value: Any) -> str:
    """Return a short text that differs where two values differ.

    Tables count with their values, labels and dates; functions with their source, their defaults,
    the values that they close over, and the functions, classes, numbers and texts of their own
    module that they name; other objects with their class and what they hold.
    """
    state = hashlib.blake2b(digest_size=8)
    _add(state, value, {})
    return state.hexdigest()


def _add(state: Any, value: Any, seen: _Seen) -> None:
    state.update(f"<{type(value).__name__}>".encode())
    if isinstance(value, _SIMPLE):
        state.update(repr(value).encode())
    elif isinstance(value, _TABLES):  # equal ones are alike, whether or not they are one object
        _add_table(state, value, seen)
    elif isinstance(value, np.ndarray):
        _add_array(state, value, seen)
    elif id(value) in seen:
        state.update(f"{seen[id(value)][0]}".encode())
    else:
        seen[id(value)] = len(seen), value  # kept alive: an id is given anew when its object goes
        for kinds, add in _BY_KIND:
            if isinstance(value, kinds):
                add(state, value, seen)
                return
        _add_object(state, value, seen)


def _add_array(state: Any, values: np.ndarray, seen: _Seen) -> None:
    state.update(f"{values.dtype}{values.shape}".encode())
    if values.dtype == object:
        _add(state, values.tolist(), seen)
    elif values.size:
        state.update(np.ascontiguousarray(values).view(np.uint8).data)


def _add_items(state: Any, items: Iterable[Any], seen: _Seen) -> None:
    if isinstance(items, Mapping):
        items = [(key, items[key]) for key in sorted(items, key=repr)]
    elif isinstance(items, set | frozenset):
        items = sorted(items, key=repr)
    items = list(items)
    state.update(f"{len(items)}:".encode())
    for item in items:
        _add(state, item, seen)


def _add_partial(state: Any, value: functools.partial[Any], seen: _Seen) -> None:
    _add_items(state, (value.func, value.args, value.keywords), seen)


def _add_method(state: Any, value: types.MethodType, seen: _Seen) -> None:
    _add_items(state, (value.__func__, value.__self__), seen)


def _add_table(state: Any, table: Any, seen: _Seen) -> None:
    if isinstance(table, pd.Index):
        if isinstance(table, pd.DatetimeIndex):
            state.update(str(table.tz).encode())
            _add(state, table.as_unit("ns").asi8, seen)
        else:
            _add(state, table.to_numpy(), seen)
        return
    _add(state, table.index, seen)
    if isinstance(table, pd.Series):
        _add(state, (str(table.name), table.to_numpy()), seen)
        return
    _add(state, table.columns, seen)
    # Not column by column where all are of one type: a wide table has thousands.
    kinds = set(table.dtypes)
    if len(kinds) == 1 and isinstance(next(iter(kinds)), np.dtype):
        _add(state, table.to_numpy(), seen)
    else:
        for place in range(table.shape[1]):
            _add(state, table.iloc[:, place].to_numpy(), seen)


def _add_function(state: Any, function: types.FunctionType, seen: _Seen) -> None:
    _add_source(state, function)
    _add(state, (function.__defaults__, function.__kwdefaults__), seen)
    for cell in function.__closure__ or ():
        try:
            _add(state, cell.cell_contents, seen)
        except ValueError:  # not filled yet
            continue
    for name in _names(function.__code__):
        other = function.__globals__.get(name)
        if isinstance(other, _SIMPLE) or (
            isinstance(other, types.FunctionType | type) and other.__module__ == function.__module__
        ):
            _add(state, other, seen)


def _names(code: types.CodeType) -> list[str]:
    """What a function and the functions in it take from their module, or might."""
    inner = (one for one in code.co_consts if isinstance(one, types.CodeType))
    return [*code.co_names, *(name for one in inner for name in _names(one))]


def _add_source(state: Any, value: Any) -> None:
    try:
        state.update(inspect.getsource(value).encode())
    except (OSError, TypeError):  # typed into a prompt, or made by a program
        code = getattr(value, "__code__", None)
        if code is not None:
            _add_code(state, code)


def _add_code(state: Any, code: types.CodeType) -> None:
    state.update(code.co_code)
    state.update(repr(code.co_names).encode())
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            _add_code(state, constant)
        else:
            state.update(repr(constant).encode())


def _add_object(state: Any, value: Any, seen: _Seen) -> None:
    if hasattr(value, "__arrow_c_stream__"):
        import pyarrow as pa

        try:
            _add_table(state, pa.table(value).to_pandas(), seen)
        except ValueError:  # one column
            _add_table(state, pa.chunked_array(value).to_pandas(), seen)
        return
    kind = value if isinstance(value, type) else type(value)
    state.update(f"{kind.__module__}.{kind.__qualname__}".encode())
    _add_source(state, kind)
    if isinstance(value, type):
        return
    held = getattr(value, "__dict__", None)
    if held is None and dataclasses.is_dataclass(value):  # one with slots
        held = {one.name: getattr(value, one.name) for one in dataclasses.fields(value)}
    if held:
        _add(state, held, seen)
        return
    try:
        state.update(pickle.dumps(value))
    except Exception:  # what cannot be carried counts by its class alone
        return


_BY_KIND: tuple[tuple[Any, Callable[[Any, Any, _Seen], None]], ...] = (
    ((Mapping, list, tuple, set, frozenset), _add_items),
    (range, lambda state, value, _: state.update(repr(value).encode())),
    (functools.partial, _add_partial),
    (types.MethodType, _add_method),
    (types.FunctionType, _add_function),
)
