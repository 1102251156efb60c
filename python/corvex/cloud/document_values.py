"""Python values as the typed values of the document store's REST interface, and back."""

from __future__ import annotations

import base64
import contextlib
import datetime as dt
import math
import re
from collections.abc import Callable, Mapping
from typing import Any

import numpy as np
import pandas as pd

__all__ = ["decode_fields", "encode_fields", "size_of_value"]

MAX_DEPTH = 20
MAX_KEY_BYTES = 1500
_RESERVED = re.compile(r"__.*__", re.DOTALL)
_INT64 = range(-(2**63), 2**63)

type Wire = dict[str, Any]


def encode_fields(document: Mapping[Any, Any]) -> dict[str, Wire]:
    """Write a document's fields as typed values.

    Parameters
    ----------
    document : mapping
        Keys are text (whole numbers become text). Values are None, bool, int, float, str, bytes,
        dates with a time (without a zone they count as UTC; the store keeps microseconds), lists,
        tuples, mappings, or numpy's counterparts of these. NaT and NA count as None.

    Returns
    -------
    dict
        The content of ``fields`` in the store's JSON form.

    Raises
    ------
    TypeError
        When a value or key is of another type.
    ValueError
        When the store cannot hold a value: a whole number above 64 bits, a list directly within a
        list, a key that is empty, too long or reserved (``__...__``), text with half a surrogate
        pair, or more than 20 levels. The message names the place.
    """
    return _encode_map(document, "", 1)


def _encode_map(record: Mapping[Any, Any], where: str, depth: int) -> dict[str, Wire]:
    fields: dict[str, Wire] = {}
    for key, value in record.items():
        name = _key(key, where)
        if name in fields:
            raise ValueError(f"{where or 'the document'} holds the key {name!r} twice")
        fields[name] = _encode(value, f"{where}.{name}" if where else name, depth)
    return fields


def _key(key: object, where: str) -> str:
    place = f"a key in {where}" if where else "a key of the document"
    if isinstance(key, int | np.integer) and not isinstance(key, bool):
        key = str(int(key))
    if not isinstance(key, str):
        raise TypeError(f"{place} must be text, got {key!r} ({type(key).__name__})")
    if not key or _RESERVED.fullmatch(key) or len(_utf8(key, place)) > MAX_KEY_BYTES:
        raise ValueError(
            f"{place} must have 1 to {MAX_KEY_BYTES} bytes and not look like __this__, "
            f"got {key[:50]!r}"
        )
    return key


def _encode(value: Any, where: str, depth: int) -> Wire:
    if depth > MAX_DEPTH:
        raise ValueError(f"{where[:200]}: more than {MAX_DEPTH} levels of lists and records")
    if isinstance(value, np.generic | np.ndarray) and not isinstance(value, np.datetime64):
        value = value.tolist()
    if value is None or value is pd.NaT or value is pd.NA:
        return {"nullValue": None}
    if isinstance(value, Mapping):
        return {"mapValue": {"fields": _encode_map(value, where, depth + 1)}}
    if isinstance(value, list | tuple):
        return {"arrayValue": {"values": _elements(value, where, depth + 1)}}
    for kinds, name, write in _SCALARS:
        if isinstance(value, kinds):
            return {name: write(value, where)}
    raise TypeError(f"{where}: the store has no type for a {type(value).__name__}")


def _elements(values: list[Any] | tuple[Any, ...], where: str, depth: int) -> list[Wire]:
    elements = []
    for i, value in enumerate(values):
        if isinstance(value, list | tuple | np.ndarray):
            raise ValueError(
                f"{where}[{i}]: the store takes no list directly within a list; put the inner one "
                "into a record"
            )
        elements.append(_encode(value, f"{where}[{i}]", depth))
    return elements


def _utf8(text: str, where: str) -> bytes:
    with contextlib.suppress(UnicodeEncodeError):
        return text.encode()
    raise ValueError(f"{where}: text with half a surrogate pair cannot be stored")


def _text(value: str, where: str) -> str:
    _utf8(value, where)
    return value


def _integer(value: int, where: str) -> str:
    if value not in _INT64:
        raise ValueError(f"{where}: the number does not fit into 64 bits")
    return str(value)


def _double(value: float, _: str) -> float | str:
    if math.isfinite(value):
        return value
    return "NaN" if math.isnan(value) else ("Infinity" if value > 0 else "-Infinity")


def _timestamp(value: dt.datetime | np.datetime64, _: str) -> str:
    stamp = pd.Timestamp(value)
    stamp = stamp.tz_localize("UTC") if stamp.tzinfo is None else stamp.tz_convert("UTC")
    return stamp.strftime("%Y-%m-%dT%H:%M:%S.%fZ")


# In this order: True is an int too.
_SCALARS: tuple[tuple[Any, str, Callable[[Any, str], Any]], ...] = (
    (bool, "booleanValue", lambda value, _: value),
    (int, "integerValue", _integer),
    (float, "doubleValue", _double),
    (str, "stringValue", _text),
    ((dt.datetime, np.datetime64), "timestampValue", _timestamp),
    ((bytes, bytearray), "bytesValue", lambda value, _: base64.b64encode(value).decode("ascii")),
)


def decode_fields(fields: object) -> dict[str, Any]:
    """Read a document's fields back from typed values.

    Parameters
    ----------
    fields : dict
        The content of ``fields``.

    Returns
    -------
    dict
        Timestamps become `datetime` in UTC, references text, points a record of ``latitude`` and
        ``longitude``.

    Raises
    ------
    ValueError
        When this is not the store's JSON form.
    """
    if not isinstance(fields, dict):
        raise ValueError("the fields of a document are no record")
    return {key: _decode(value) for key, value in fields.items()}


def _decode(wire: object) -> Any:
    if not isinstance(wire, dict) or len(wire) != 1:
        raise ValueError("a value of a document has no single type")
    ((kind, value),) = wire.items()
    if kind not in _DECODERS:
        raise ValueError(f"a value of a document is of the unknown type {str(kind)[:50]!r}")
    try:
        return _DECODERS[kind](value)
    except (TypeError, AttributeError, ValueError, OverflowError):
        pass
    raise ValueError(f"a value of a document is no {kind}")


def _decode_time(text: str) -> dt.datetime:
    # The store may write up to nine digits of a second; datetime reads six.
    return dt.datetime.fromisoformat(re.sub(r"(\.\d{6})\d+", r"\1", text)).astimezone(dt.UTC)


def _plain(kind: type) -> Callable[[Any], Any]:
    def read(value: object) -> object:
        if not isinstance(value, kind):
            raise TypeError
        return value

    return read


_DECODERS: dict[str, Callable[[Any], Any]] = {
    "nullValue": lambda _: None,
    "booleanValue": _plain(bool),
    "integerValue": int,
    "doubleValue": float,
    "timestampValue": _decode_time,
    "stringValue": _plain(str),
    "bytesValue": base64.b64decode,
    "referenceValue": _plain(str),
    "geoPointValue": _plain(dict),
    # An empty list or record comes without its inner part.
    "arrayValue": lambda value: [_decode(element) for element in value.get("values", [])],
    "mapValue": lambda value: decode_fields(value.get("fields", {})),
}

_SIZES: dict[str, Callable[[Any], int]] = {
    "nullValue": lambda _: 1,
    "booleanValue": lambda _: 1,
    "integerValue": lambda _: 8,
    "doubleValue": lambda _: 8,
    "timestampValue": lambda _: 8,
    "stringValue": lambda text: len(text.encode()) + 1,
    "bytesValue": lambda text: len(text) * 3 // 4 - text[-2:].count("="),
    "arrayValue": lambda array: sum(map(size_of_value, array.get("values", []))),
    "mapValue": lambda record: sum(
        len(key.encode()) + 1 + size_of_value(value)
        for key, value in record.get("fields", {}).items()
    ),
}


def size_of_value(wire: Wire) -> int:
    """Return the bytes that the store counts for a typed value (not those of its JSON form)."""
    ((kind, value),) = wire.items()
    return _SIZES[kind](value)
