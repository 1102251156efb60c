"""The help of the program and of its commands: plain text that wraps at words."""

from __future__ import annotations

import shutil
import textwrap
from collections.abc import Iterable, Sequence

from corvex.cli.declared import Parameter

__all__ = ["command_help", "command_usage", "first_sentence", "program_help"]

#: The options that every command knows: name, words.
EVERYWHERE = (
    ("--version", "Print the version."),
    ("--traceback", "Show where in the program an error arose."),
)
PROGRAM_USAGE = "corvex [OPTIONS] COMMAND [ARGS]..."
_HELP = ("--help", "Show this message and exit.")
_WIDEST = 100  # columns, also in a wider terminal: longer lines are hard to read
_NAMES = 30  # columns of the names; the text of a longer one begins on the next line


def program_help(about: str, epilog: str, commands: Iterable[tuple[str, str]]) -> str:
    """Return the help of the program, with the first sentence of each command's."""
    parts = [
        f"Usage: {PROGRAM_USAGE}",
        _filled(about, "  "),
        f"Options:\n{_table([*EVERYWHERE, _HELP])}",
        f"Commands:\n{_table(commands)}",
        _filled(epilog, "  "),
    ]
    return "\n\n".join(parts)


def command_usage(name: str, parameters: Sequence[Parameter]) -> str:
    """Return how a command is called."""
    return " ".join(["corvex", name, "[OPTIONS]", *(x.title for x in parameters if not x.names)])


def command_help(name: str, about: str, parameters: Sequence[Parameter]) -> str:
    """Return the help of a command: its usage, its docstring, and what it takes."""
    parts = [f"Usage: {command_usage(name, parameters)}"]
    parts += [_filled(paragraph, "  ") for paragraph in about.split("\n\n")]
    arguments = [(one.title, _explained(one)) for one in parameters if not one.names]
    options = [(_option(one), _explained(one)) for one in parameters if one.names]
    if arguments:
        parts.append(f"Arguments:\n{_table(arguments)}")
    return "\n\n".join([*parts, f"Options:\n{_table([*options, _HELP])}"])


def first_sentence(about: str) -> str:
    """Return the first sentence of a docstring."""
    words = about.partition("\n\n")[0].split()
    ends = [at for at, word in enumerate(words, 1) if word.endswith(".")]
    return " ".join(words[: ends[0]] if ends else words)


def _option(one: Parameter) -> str:
    names = ", ".join(one.names)
    if one.off_names:
        return f"{names} / {', '.join(one.off_names)}"
    return f"{names} {one.metavar}".rstrip()


def _explained(one: Parameter) -> str:
    """The help of a parameter, with what it is by default and which numbers it takes."""
    more = []
    if one.default is not None and (one.default is not False or one.off_names):
        default = one.default
        if isinstance(default, bool):
            default = (one.names if default else one.off_names)[0].lstrip("-")
        more.append(f"default: {default}")
    if one.least is not None:
        most = "" if one.most is None else f"{one.least} to {one.most}"
        more.append(most or f"at least {one.least}")
    if one.required:
        more.append("required")
    return f"{one.help}  [{'; '.join(more)}]" if more else one.help


def _columns() -> int:
    return max(min(shutil.get_terminal_size().columns, _WIDEST) - 2, 20)


def _filled(text: str, indent: str) -> str:
    return _wrapped(" ".join(text.split()), _columns(), indent)


def _wrapped(text: str, width: int, indent: str = "") -> str:
    # No line ends at a hyphen: that of a file or an option would not be seen as part of it.
    return textwrap.fill(
        text,
        width,
        initial_indent=indent,
        subsequent_indent=indent,
        break_on_hyphens=False,
        break_long_words=False,
    )


def _table(rows: Iterable[tuple[str, str]]) -> str:
    known = list(rows)
    most = min(_NAMES, max(_columns() // 2 - 4, 6))  # the text has half of a narrow terminal
    wide = min(max(len(name) for name, _ in known), most) + 2
    lines = []
    for name, text in known:
        told = textwrap.indent(_wrapped(text, max(_columns() - wide - 2, 10)), " " * (wide + 2))
        fits = len(name) <= wide - 2
        lines.append(f"  {name:<{wide}}{told.lstrip()}" if fits else f"  {name}\n{told}")
    return "\n".join(lines)
