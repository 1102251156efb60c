"""The data context: which tables were read, and settings that a block of code may change."""

from __future__ import annotations

import contextlib
import datetime
import os
from collections.abc import Iterator
from contextvars import ContextVar
from pathlib import Path
from typing import Any
from weakref import WeakValueDictionary

import pandas as pd

__all__ = ["DataContext", "in_utc", "now"]

_SETTINGS = ("_loaded_datasets", "_own_markets", "data_dir", "now")


class DataContext:
    """Settings of the data layer, with changes that hold for one block.

    Attributes
    ----------
    _loaded_datasets : set of str
        Names of the tables read so far. Reading a table adds its name to the set in force.
    _own_markets : mapping of int to object
        The markets in use whose prices have no name: those bound to a user's own tables, and those
        with a `get_price` of their own that was asked for. Held weakly.
    data_dir : Path or None
        The folder of named tables; the environment variable ``CORVEX_DATA_DIR`` by default.
    now : datetime or None
        A fixed present, aware, for tests and replays; None for the clock.

    Notes
    -----
    The set of the process is shared by all threads. What `override` changes is seen by the code
    of its own block only: not by other threads, nor by other asynchronous tasks.
    """

    def __init__(self) -> None:
        self._base: dict[str, Any] = {
            "_loaded_datasets": set(),
            "_own_markets": WeakValueDictionary(),
            "data_dir": None,
            "now": None,
        }
        self._changes: ContextVar[dict[str, Any] | None] = ContextVar("corvex_data", default=None)

    def _layer(self, name: str) -> dict[str, Any]:
        """Return the innermost block that sets `name`, else the process's own settings."""
        changes = self._changes.get()
        return changes if changes is not None and name in changes else self._base

    @property
    def _loaded_datasets(self) -> set[str]:
        loaded: set[str] = self._layer("_loaded_datasets")["_loaded_datasets"]
        return loaded

    @_loaded_datasets.setter
    def _loaded_datasets(self, names: set[str]) -> None:
        self._layer("_loaded_datasets")["_loaded_datasets"] = names

    @property
    def own_markets(self) -> list[Any]:
        """The markets in use whose prices have no name."""
        return list(self._layer("_own_markets")["_own_markets"].values())

    def note_market(self, market: object) -> None:
        """Count the prices of a market among the data at hand while it is in use."""
        self._layer("_own_markets")["_own_markets"][id(market)] = market

    @property
    def data_dir(self) -> Path | None:
        """The folder of named tables, or None."""
        folder = (
            self._layer("data_dir")["data_dir"] or os.environ.get("CORVEX_DATA_DIR", "").strip()
        )
        return Path(folder).expanduser() if folder else None

    @property
    def now(self) -> datetime.datetime | None:
        """A fixed present, or None."""
        fixed: datetime.datetime | None = self._layer("now")["now"]
        return fixed

    @contextlib.contextmanager
    def override(self, **changes: Any) -> Iterator[DataContext]:
        """Change settings for one ``with`` block; they are restored however it ends.

        Parameters
        ----------
        **changes
            Any of `_loaded_datasets`, `_own_markets`, `data_dir`, `now`.

        Raises
        ------
        TypeError
            When a name is none of these.
        """
        unknown = [name for name in changes if name not in _SETTINGS]
        if unknown:
            raise TypeError(
                f"the data context has no setting {unknown[0]!r}; it has: {', '.join(_SETTINGS)}"
            )
        token = self._changes.set({**(self._changes.get() or {}), **changes})
        try:
            yield self
        finally:
            self._changes.reset(token)


_default_context = DataContext()


def now() -> datetime.datetime:
    """Return the present in UTC, or the one that the context fixes."""
    return in_utc(_default_context.now or datetime.datetime.now(datetime.UTC))


def in_utc(moment: datetime.datetime) -> datetime.datetime:
    """Return a moment in UTC; one without a zone is this machine's local time."""
    # A Timestamp without a zone refuses to be brought to one.
    plain = moment.to_pydatetime(warn=False) if isinstance(moment, pd.Timestamp) else moment
    return plain.astimezone(datetime.UTC)
