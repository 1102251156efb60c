"""The words of a command line, read into what a command's function is called with."""

from __future__ import annotations

import argparse
import difflib
from collections.abc import Sequence
from typing import Any, NoReturn

from corvex.cli.declared import Parameter

__all__ = ["HelpWantedError", "UsageError", "read_words"]

_KINDS = {int: "a whole number", float: "a number"}


class UsageError(Exception):
    """A command line that cannot be understood."""


class HelpWantedError(Exception):
    """The command line asks for the help."""


def read_words(parameters: Sequence[Parameter], words: Sequence[str]) -> dict[str, Any]:
    """Return the arguments that the words of a command line give, without those left out.

    Raises
    ------
    UsageError
        When one is missing, not known or not what is asked for.
    HelpWantedError
        When ``--help`` is among them.
    """
    parser = _Parser(add_help=False, allow_abbrev=False, argument_default=argparse.SUPPRESS)
    parser.add_argument("--help", "-h", nargs=0, action=_Help)
    for parameter in parameters:
        _add(parser, parameter)
    _refuse_unknown(
        words, ["--help", *(n for one in parameters for n in one.names + one.off_names)]
    )
    for one in parameters:
        if one.many and not one.names:
            return _read_spread(parser, one, list(words))
    return vars(parser.parse_args(list(words)))


def _refuse_unknown(words: Sequence[str], known: Sequence[str]) -> None:
    """Name an option that there is not, before its value is taken for something else."""
    for word in words:
        name = word.partition("=")[0]
        if word == "--":
            return
        if name.startswith("--") and " " not in word and name not in known:
            near = difflib.get_close_matches(name, known, n=1)
            raise UsageError(
                f"not known here: {name}" + (f"; did you mean {near[0]}?" if near else "")
            )


def _read_spread(parser: _Parser, spread: Parameter, words: list[str]) -> dict[str, Any]:
    """Read words among which several arguments stand between options; all behind "--" are some."""
    at = words.index("--") if "--" in words else len(words)
    found = vars(parser.parse_intermixed_args(words[:at]))
    found[spread.name] = [*found.get(spread.name, ()), *map(_Reader(spread), words[at + 1 :])]
    if not found[spread.name]:
        parser.error(f"the following arguments are required: {spread.title}")
    return found


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        raise UsageError(message.replace("unrecognized arguments", "not known here"))


class _Help(argparse.Action):
    def __call__(self, *_: Any) -> NoReturn:
        raise HelpWantedError


def _add(parser: _Parser, one: Parameter) -> None:
    if one.kind is bool:
        parser.add_argument(*one.names, dest=one.name, action="store_true")
        if one.off_names:
            parser.add_argument(*one.off_names, dest=one.name, action="store_false")
    elif one.names:
        action = "append" if one.many else "store"
        parser.add_argument(
            *one.names, dest=one.name, action=action, type=_Reader(one), required=one.required
        )
    else:
        nargs = "*" if one.many else None
        parser.add_argument(one.name, metavar=one.title, nargs=nargs, type=_Reader(one))


class _Reader:
    """Reads the text of one value."""

    def __init__(self, parameter: Parameter) -> None:
        self._of = parameter

    def __call__(self, text: str) -> Any:
        one = self._of
        if one.choices is not None:
            if text not in one.choices:
                self._refuse(text, f"one of {', '.join(one.choices)}")
            return one.choices[text]
        try:
            value = one.kind(text)
        except ValueError:
            self._refuse(text, _KINDS[one.kind])
        if one.least is not None and value < one.least:
            self._refuse(text, f"at least {one.least}")
        if one.most is not None and value > one.most:
            self._refuse(text, f"at most {one.most}")
        return value

    def _refuse(self, text: str, accepted: str) -> NoReturn:
        raise argparse.ArgumentTypeError(f"must be {accepted}, got {text!r}")
