"""The help of the commands: plain text that wraps at words, in words of users."""

from __future__ import annotations

import re
from collections.abc import Callable
from typing import Any

import typer
from typer.core import TyperCommand, TyperGroup

__all__ = ["App", "Group"]

# How typer calls the kinds of values -> how a user does.
_KINDS = {"path": "PATH", "str": "TEXT", "int": "N", "int range": "N", "float": "NUMBER"}
_GLUE = "\u2011"  # stands for a hyphen at which no line may end: that of a file or an option
_WIDEST = 100  # columns, also in a wider terminal: longer lines are hard to read


class App(typer.Typer):
    """A command line whose help loads nothing for its looks and shows no names of types."""

    def __init__(self, **options: Any) -> None:
        super().__init__(
            rich_markup_mode=None,
            add_completion=False,
            pretty_exceptions_enable=False,
            context_settings={"max_content_width": _WIDEST},
            **options,
        )

    def command[F: Callable[..., Any]](
        self, name: str | None = None, **options: Any
    ) -> Callable[[F], F]:
        """Register a command, as in typer."""
        register: Callable[[F], F] = super().command(name, **{"cls": _Command, **options})
        return register


class _Command(TyperCommand):
    def __init__(self, *args: Any, **options: Any) -> None:
        super().__init__(*args, **options)
        self.help = _glued(self.help or "")

    def get_help(self, ctx: Any) -> str:
        """Return the help, with the hyphens that wrapping has left whole."""
        return super().get_help(ctx).replace(_GLUE, "-")

    def format_options(self, ctx: Any, formatter: Any) -> None:
        """Write what the command takes."""
        _write_parameters(self, ctx, formatter)

    def collect_usage_pieces(self, ctx: Any) -> list[str]:
        """Return what follows the command's name in its line of usage."""
        arguments = [p for p in self.get_params(ctx) if p.param_type_name == "argument"]
        return ["[OPTIONS]", *(_placeholder(argument) for argument in arguments)]


class Group(TyperGroup):
    """Commands under one name, as the program shows them."""

    def get_help(self, ctx: Any) -> str:
        """Return the help, with the hyphens that wrapping has left whole."""
        return super().get_help(ctx).replace(_GLUE, "-")

    def format_options(self, ctx: Any, formatter: Any) -> None:
        """Write the options that every command knows, and the commands with their whole line."""
        _write_parameters(self, ctx, formatter)
        commands = [(name, self.get_command(ctx, name)) for name in self.list_commands(ctx)]
        with formatter.section("Commands"):
            formatter.write_dl(
                [(name, command.get_short_help_str(1000)) for name, command in commands if command]
            )


def _write_parameters(command: Any, ctx: Any, formatter: Any) -> None:
    sections: dict[str, list[tuple[str, str]]] = {"Arguments": [], "Options": []}
    for param in command.get_params(ctx):
        record = param.get_help_record(ctx)
        if record is None:
            continue
        text = re.sub(r"(\d+)<=x<=(\d+)", r"\1 to \2", record[1])
        text = _glued(re.sub(r"x>=(\d+)", r"at least \1", text))
        if param.param_type_name == "argument":
            sections["Arguments"].append((_placeholder(param), text))
        else:
            sections["Options"].append((re.sub("<([^>]*)>", _in_words, record[0]), text))
    for title, rows in sections.items():
        if rows:
            with formatter.section(title):
                formatter.write_dl(rows)


def _placeholder(argument: Any) -> str:
    name = str(argument.name).upper()
    if argument.nargs != 1:
        name = f"{name.removesuffix('S')}..."
    return name if argument.required else f"[{name}]"


def _in_words(kind: re.Match[str]) -> str:
    return _KINDS.get(kind[1], kind[1])


def _glued(text: str) -> str:
    return re.sub(r"-(?=\w)", _GLUE, text)
