"""The methods of pandas objects come with the package, without pandas being loaded for them.

Importing pandas takes most of the time of a command that only prints its help, and of a program
that imports this package and uses it later.
"""

from __future__ import annotations

import importlib
import sys
from importlib.machinery import ModuleSpec, PathFinder
from types import ModuleType
from typing import Any

__all__ = ["add_when_imported"]


def add_when_imported() -> None:
    """Add the methods now where pandas is there already, else right after its import."""
    if "pandas" in sys.modules:
        _add()
    elif not any(isinstance(finder, _AfterPandas) for finder in sys.meta_path):
        sys.meta_path.insert(0, _AfterPandas())


def _add() -> None:
    importlib.import_module("corvex.ffn_core")


class _AfterPandas:
    """Finds pandas as Python does, and adds the methods once its import is done."""

    def find_spec(self, name: str, path: Any = None, target: Any = None) -> ModuleSpec | None:
        del target
        if name != "pandas":
            return None
        sys.meta_path.remove(self)
        spec = PathFinder.find_spec(name, path)
        loader: Any = None if spec is None else spec.loader
        if loader is None:
            return None  # some other finder knows it, or nobody does
        execute = loader.exec_module

        def execute_and_add(module: ModuleType) -> None:
            execute(module)
            _add()

        loader.exec_module = execute_and_add
        return spec
