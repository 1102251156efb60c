"""A look at a dictionary by its schema without a validator: keys, types, constants, choices."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

__all__ = ["plain_problems"]

type Schema = dict[str, Any]

_TYPES: dict[str, Callable[[object], bool]] = {
    "object": lambda value: isinstance(value, dict),
    "array": lambda value: isinstance(value, list),
    "string": lambda value: isinstance(value, str),
    "boolean": lambda value: isinstance(value, bool),
    "null": lambda value: value is None,
    "number": lambda value: isinstance(value, int | float) and not isinstance(value, bool),
}


def plain_problems(value: object, schema: Schema) -> list[str]:
    """Return what is wrong with a value, a line for each fault.

    Parameters
    ----------
    value : JSON value
        What is looked at.
    schema : dict
        As `corvex.schemas.load` gives it. Patterns and alternatives are not looked at.
    """
    return list(_faults(value, schema, schema, schema, "$"))


def _faults(
    value: object, schema: Schema, document: Schema, bundle: Schema, place: str
) -> Iterator[str]:
    """Walk a value along its schema; `document` is what a reference within the schema means."""
    if "$ref" in schema:
        target, document = _resolve(schema["$ref"], document, bundle)
        yield from _faults(value, target, document, bundle, place)
    kinds = schema.get("type", [])
    kinds = [kinds] if isinstance(kinds, str) else kinds
    if kinds and not any(_TYPES[kind](value) for kind in kinds):
        yield f"{place}: {_shown(value)} is not of type {' or '.join(kinds)}"
    if "const" in schema and value != schema["const"]:
        yield f"{place}: {schema['const']!r} was expected"
    if "enum" in schema and value not in schema["enum"]:
        yield f"{place}: {_shown(value)} is not one of {schema['enum']}"
    if "if" in schema:
        met = not any(_faults(value, schema["if"], document, bundle, place))
        branch = schema.get("then" if met else "else", {})
        yield from _faults(value, branch, document, bundle, place)
    if isinstance(value, dict):
        yield from _member_faults(value, schema, document, bundle, place)
    if isinstance(value, list) and "items" in schema:
        for at, item in enumerate(value):
            yield from _faults(item, schema["items"], document, bundle, f"{place}[{at}]")


def _member_faults(
    value: dict[Any, Any], schema: Schema, document: Schema, bundle: Schema, place: str
) -> Iterator[str]:
    for key in schema.get("required", []):
        if key not in value:
            yield f"{place}: {key!r} is a required property"
    listed = schema.get("properties", {})
    for key, member in value.items():
        part = listed.get(key, schema.get("additionalProperties"))
        if part is not None:
            yield from _faults(member, part, document, bundle, f"{place}.{key}")


def _resolve(reference: str, document: Schema, bundle: Schema) -> tuple[Schema, Schema]:
    name, _, path = reference.partition("#")
    if name:
        document = bundle["$defs"][name.removeprefix("urn:corvex:")]
    target = document
    for step in path.split("/")[1:]:
        target = target[step]
    return target, document


def _shown(value: object) -> str:
    return repr(value)[:80]
