"""The program ``corvex``: what every command knows, and the commands that are loaded on demand."""

from __future__ import annotations

import contextlib
import os
import sys
from collections.abc import Sequence

from corvex.cli.console import FAILED, run_plainly, settings
from corvex.cli.help import PROGRAM_USAGE, command_help, command_usage, first_sentence, program_help
from corvex.cli.registry import COMMANDS, load

__all__ = ["main", "run"]

WRONG = 2
INTERRUPTED = 130

_ABOUT = "Backtest portfolios and look at their reports."
_EPILOG = "Exit status: 0 done, 1 could not be done, 2 wrong command line, 130 interrupted."


def main() -> None:
    """Run the command line."""
    for name in ("stdout", "stderr"):
        if getattr(sys, name) is None:  # closed by who started the program
            setattr(sys, name, open(os.devnull, "w", encoding="utf-8"))  # noqa: SIM115
    for stream in (sys.stdout, sys.stderr):
        # A terminal that lacks a character shows a question mark rather than an error.
        with contextlib.suppress(AttributeError, ValueError):
            stream.reconfigure(errors="replace")  # type: ignore[union-attr]
    sys.exit(run(sys.argv[1:]))


def run(words: Sequence[str]) -> int:
    """Run the command line that the words make, and return the exit status."""
    try:
        status = _program(list(words))
        sys.stdout.flush()
    except KeyboardInterrupt:
        print(file=sys.stderr)
        return INTERRUPTED
    except OSError as error:
        if not isinstance(error, BrokenPipeError):  # such as a full disk
            print(f"corvex: error: the output cannot be written: {error}", file=sys.stderr)
        # Otherwise who reads has seen enough. What is left goes nowhere.
        with contextlib.suppress(OSError, ValueError):
            target = sys.stdout.fileno()
            os.dup2(os.open(os.devnull, os.O_WRONLY), target)
        return FAILED
    return status


def _program(words: list[str]) -> int:
    settings.traceback = False
    while words and words[0].startswith("-"):
        word = words.pop(0)
        if word == "--version":
            import corvex

            print(f"corvex {corvex.__version__}")
            return 0
        if word in ("--help", "-h"):
            print(_help())
            return 0
        if word != "--traceback":
            return _wrong(PROGRAM_USAGE, "corvex", f"not known here: {word}")
        settings.traceback = True
    if not words:
        print(_help(), file=sys.stderr)
        return WRONG
    name, *rest = words
    if name not in COMMANDS:
        return _wrong(PROGRAM_USAGE, "corvex", f"there is no command {name!r}{_near(name)}")
    return _command(name, rest)


def _command(name: str, words: list[str]) -> int:
    from corvex.cli.command_words import HelpWantedError, UsageError, read_words
    from corvex.cli.declared import read_parameters

    command = load(name)
    parameters = read_parameters(command)
    try:
        given = read_words(parameters, words)
    except HelpWantedError:
        print(command_help(name, command.__doc__ or "", parameters))
        return 0
    except UsageError as error:
        return _wrong(command_usage(name, parameters), f"corvex {name}", str(error))
    defaults = {one.name: one.default for one in parameters if not one.required}
    return run_plainly(command, {**defaults, **given})


def _help() -> str:
    about = [(name, first_sentence(load(name).__doc__ or "")) for name in COMMANDS]
    return program_help(_ABOUT, _EPILOG, about)


def _wrong(usage: str, program: str, message: str) -> int:
    print(
        f"Usage: {usage}\nTry '{program} --help' for help.\n\ncorvex: error: {message}",
        file=sys.stderr,
    )
    return WRONG


def _near(name: str) -> str:
    import difflib

    found = difflib.get_close_matches(name, COMMANDS, n=1)
    return f"; did you mean {found[0]!r}?" if found else ""
