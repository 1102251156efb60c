"""Which commands there are, in the order of the help; each is loaded when it is asked for."""

from __future__ import annotations

import importlib
from collections.abc import Callable

__all__ = ["COMMANDS", "load"]

#: Each is the function of its name in its own file of `corvex.cli.commands`, "-" being "_" there.
COMMANDS = (
    "demo",
    "show",
    "report",
    "simulate",
    "sweep",
    "walk-forward",
    "compare",
    "serve",
    "login",
    "logout",
    "upload",
    "export",
    "inspect",
    "orders",
)


def load(name: str) -> Callable[..., None]:
    """Return the function of a command, whose parameters are its options."""
    plain = name.replace("-", "_")
    command: Callable[..., None] = getattr(
        importlib.import_module(f"corvex.cli.commands.{plain}"), plain
    )
    return command
