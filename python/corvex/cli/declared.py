"""What a command takes, as the annotations of its function declare it.

``width: Annotated[int | None, Option(min=20, help="...")] = None`` is the option ``--width N``; the
type tells how a text is read, the default whether it may be left out. This module is small since
each command waits for it: packages that do the same load more than a report takes to be shown.
"""

from __future__ import annotations

import enum
import types
import typing
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

__all__ = ["Argument", "Option", "Parameter", "read_parameters"]

_WORDS = {Path: "PATH", str: "TEXT", int: "N", float: "NUMBER"}


class Argument:
    """Marks what is given by its place; a list takes one or more."""

    names: tuple[str, ...] = ()
    metavar: str | None = None
    least: int | None = None
    most: int | None = None

    def __init__(self, *, help: str) -> None:
        self.help = help


class Option(Argument):
    """Marks what is given by its name.

    Parameters
    ----------
    names : str
        Such as ``"--fee", "--fee-ratio"``, or ``"--returns/--no-returns"`` for one that can be
        turned off; the parameter's name by default.
    help : str
        What it is, for users.
    min, max : int, optional
        The least and the largest number.
    metavar : str, optional
        What the help calls a value.
    """

    def __init__(
        self,
        *names: str,
        help: str,
        min: int | None = None,
        max: int | None = None,
        metavar: str | None = None,
    ) -> None:
        super().__init__(help=help)
        self.names = names
        self.least, self.most, self.metavar = min, max, metavar


class Parameter(NamedTuple):
    """One parameter of a command.

    Attributes
    ----------
    name : str
        That of the function's parameter.
    names, off_names : tuple of str
        The names of an option, and those that turn it off; empty for an argument.
    kind : type
        What one value is: bool (a flag), int, float, str or Path.
    choices : dict of str to object, or None
        The values that there are, by the text that stands for each.
    many : bool
        It is a list.
    required : bool
    default : object
    least, most : int or None
    metavar : str
        What the help calls a value.
    help : str
    """

    name: str
    names: tuple[str, ...]
    off_names: tuple[str, ...]
    kind: type
    choices: dict[str, Any] | None
    many: bool
    required: bool
    default: Any
    least: int | None
    most: int | None
    metavar: str
    help: str

    @property
    def title(self) -> str:
        """What usage and messages call an argument: FILE, or FILES... of several."""
        name = self.name.upper()
        return f"{name.removesuffix('S')}..." if self.many else name


def read_parameters(command: Callable[..., None]) -> list[Parameter]:
    """Return what a command takes, in the order of its function."""
    hints = typing.get_type_hints(command, include_extras=True)
    code, defaults = command.__code__, command.__defaults__ or ()
    names = code.co_varnames[: code.co_argcount]
    left_out = dict(zip(names[len(names) - len(defaults) :], defaults, strict=True))
    return [_parameter(name, hints[name], left_out) for name in names]


def _parameter(name: str, hint: Any, defaults: dict[str, Any]) -> Parameter:
    kind, mark = typing.get_args(hint)[:2]
    if typing.get_origin(kind) in (types.UnionType, typing.Union):
        (kind,) = (one for one in typing.get_args(kind) if one is not types.NoneType)
    many = typing.get_origin(kind) is list
    if many:
        (kind,) = typing.get_args(kind)
    choices = _choices(kind)
    on: tuple[str, ...] = ()
    off: tuple[str, ...] = ()
    if isinstance(mark, Option):
        own = name.replace("_", "-")
        usual = f"--{own}/--no-{own}" if kind is bool else f"--{own}"
        pairs = [one.partition("/") for one in mark.names or (usual,)]
        on = tuple(pair[0] for pair in pairs)
        off = tuple(pair[2] for pair in pairs if pair[2])
    return Parameter(
        name=name,
        names=on,
        off_names=off,
        kind=str if choices else kind,
        choices=choices,
        many=many,
        required=name not in defaults,
        default=defaults.get(name),
        least=mark.least,
        most=mark.most,
        metavar=mark.metavar or ("|".join(choices) if choices else _WORDS.get(kind, "")),
        help=mark.help,
    )


def _choices(kind: Any) -> dict[str, Any] | None:
    if typing.get_origin(kind) is typing.Literal:
        return {str(value): value for value in typing.get_args(kind)}
    if isinstance(kind, enum.EnumMeta):
        return {str(one.value): one for one in kind}  # type: ignore[var-annotated]
    return None
