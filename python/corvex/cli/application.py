"""The program ``corvex``: what every command knows, and the commands that are loaded on demand."""

from __future__ import annotations

import contextlib
import sys
from collections.abc import Iterator, MutableMapping
from typing import Annotated, Any

import typer

from corvex.cli.console import plain_errors, settings
from corvex.cli.help import App, Group
from corvex.cli.registry import COMMANDS, load

__all__ = ["app", "main"]


class _Commands(MutableMapping[str, Any]):
    """The commands by name, each made when it is first looked at."""

    def __init__(self) -> None:
        self._made: dict[str, Any] = {}

    def __getitem__(self, name: str) -> Any:
        if name not in self._made and name in COMMANDS:
            alone = App()
            alone.command(name)(plain_errors(load(name)))
            self._made[name] = typer.main.get_command(alone)
        return self._made[name]

    def __contains__(self, name: object) -> bool:
        return name in COMMANDS

    def __iter__(self) -> Iterator[str]:
        return iter(COMMANDS)

    def __len__(self) -> int:
        return len(COMMANDS)

    def __setitem__(self, name: str, command: Any) -> None:
        raise TypeError("the commands are those of the registry")

    def __delitem__(self, name: str) -> None:
        raise TypeError("the commands are those of the registry")


class _Program(Group):
    def __init__(self, *args: Any, **options: Any) -> None:
        super().__init__(*args, **{**options, "commands": _Commands()})


app = App(
    cls=_Program,
    name="corvex",
    help="Backtest portfolios and look at their reports.",
    epilog="Exit status: 0 done, 1 could not be done, 2 wrong command line, 130 interrupted.",
    no_args_is_help=True,
)


def main() -> None:
    """Run the command line."""
    for stream in (sys.stdout, sys.stderr):
        # A terminal that lacks a character shows a question mark rather than an error.
        with contextlib.suppress(AttributeError, ValueError):
            stream.reconfigure(errors="replace")  # type: ignore[union-attr]
    app()


def _print_version(wanted: bool) -> None:
    if wanted:
        import corvex

        print(f"corvex {corvex.__version__}")
        raise typer.Exit


@app.callback()
def _all_commands(
    version: Annotated[
        bool,
        typer.Option(
            "--version", callback=_print_version, is_eager=True, help="Print the version."
        ),
    ] = False,
    traceback: Annotated[
        bool, typer.Option("--traceback", help="Show where in the program an error arose.")
    ] = False,
) -> None:
    del version
    settings.traceback = traceback
