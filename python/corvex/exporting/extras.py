"""Packages that only some users need."""

from __future__ import annotations

import importlib
from typing import Any

__all__ = ["needed"]


def needed(module: str, what: str, extra: str) -> Any:
    """Import a package.

    Raises
    ------
    ImportError
        When it is not there, with the command that installs it.
    """
    try:
        return importlib.import_module(module)
    except ImportError as error:
        package = module.partition(".")[0]
        raise ImportError(
            f"{what} needs {package}, which is not there ({error}); pip install 'corvex[{extra}]'",
            name=package,
        ) from None
