"""A function in a user's own Python file."""

from __future__ import annotations

import importlib.util
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

__all__ = ["load_function"]


def load_function(place: str) -> Callable[..., Any]:
    """Run a Python file, and return one of its functions.

    The file runs as any program does that its owner starts, with its folder first on Python's path.

    Parameters
    ----------
    place : str
        ``FILE.py:function``.

    Raises
    ------
    FileNotFoundError
        When there is no such file.
    ValueError
        When `place` names no function, or the file no such one.
    """
    path, mark, name = place.rpartition(":")
    if not mark or not path or not name.isidentifier():
        raise ValueError(f"a strategy is named FILE.py:function, got {place!r}")
    file = Path(path).absolute()
    if not file.is_file():
        raise FileNotFoundError(f"there is no file {path}")
    # A name of its own: momentum.py beside an installed package momentum hides it from nobody.
    own = f"strategy_in_{file.stem}"
    spec = importlib.util.spec_from_file_location(own, file)
    if spec is None or spec.loader is None:
        raise ValueError(f"{path} is no Python file: its name should end in .py")
    module = importlib.util.module_from_spec(spec)
    sys.modules[own] = module  # found there by what the file defines, and by other processes
    sys.path.insert(0, str(file.parent))
    spec.loader.exec_module(module)
    found = getattr(module, name, None)
    if not callable(found):
        functions = [
            key
            for key, value in vars(module).items()
            if callable(value) and getattr(value, "__module__", None) == own
        ]
        raise ValueError(
            f"{path} has no function {name!r}; it has {', '.join(functions) or 'no function'}"
        )
    function: Callable[..., Any] = found
    return function
