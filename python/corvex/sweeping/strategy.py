"""What is swept: a function of prices, or tables of weights that are there already."""

from __future__ import annotations

import inspect
from collections.abc import Callable, Mapping, Sequence
from typing import Any

import pandas as pd

from corvex.sweeping.digest import digest
from corvex.sweeping.grid import Combination, near
from corvex.sweeping.values import Named, unwrap
from corvex.tables.frames import TableInput, is_table, reread

__all__ = ["Strategy", "StrategyInput"]

#: A function of prices and its own arguments, or tables of weights by name, or one of them.
type StrategyInput = Callable[..., TableInput] | Mapping[Any, TableInput] | TableInput

TABLES = "weights"


class Strategy:
    """Makes weights of prices and arguments.

    Parameters
    ----------
    given : callable, mapping of str to table, or table
        As `sweep` takes it.

    Raises
    ------
    ValueError
        When it is none of them.
    """

    def __init__(self, given: StrategyInput) -> None:
        self._function: Callable[..., Any] | None = None
        self._table: TableInput | pd.Series | None = None
        self.tables: dict[Any, TableInput] | None = None
        if is_table(given):
            self._table = reread(given)
        elif isinstance(given, Mapping):
            self.tables = {name: reread(table) for name, table in given.items()}
        elif callable(given):
            self._function = given
        else:
            raise ValueError(
                "strategy must be a function of prices, a table of weights or a mapping of names "
                f"to tables, got {type(given).__name__}"
            )

    @property
    def given(self) -> Any:
        """What was given: the function, the table or the tables."""
        if self._function is not None:
            return self._function
        return self._table if self.tables is None else self.tables

    def without_tables(self) -> Strategy:
        """Return the same without the tables by name, which combinations hold too."""
        return self if self.tables is None else Strategy({})

    def combinations(self, signals: Sequence[Combination], given: bool) -> list[Combination]:
        """Return the arguments of the calls, checked against what the strategy takes.

        Raises
        ------
        ValueError
            When an argument is not one of its, naming the near ones, or one is missing.
        """
        if self._function is None:
            if given:
                raise ValueError("signal varies the arguments of a strategy; weights have none")
            if self.tables is None:
                return [{}]
            return [{TABLES: Named(name, table)} for name, table in self.tables.items()]
        _check_arguments(self._function, signals)
        return list(signals)

    @property
    def is_function(self) -> bool:
        """Whether weights are made of prices, not there already."""
        return self._function is not None

    def weights(self, prices: Any, signal: Combination) -> Any:
        """Return the weights of one combination."""
        if self._function is None:
            return self._table if self.tables is None else unwrap(signal[TABLES])
        return self._function(prices, **{name: unwrap(value) for name, value in signal.items()})

    def fingerprint(self) -> str:
        """Return a text that differs where the strategy does; each table counts with its run."""
        return digest(self._table if self._function is None else self._function)

    @property
    def name(self) -> str | None:
        """What it calls itself."""
        found = getattr(self._function, "func", self._function)
        name = getattr(found, "__name__", None)
        return None if name is None or name.startswith("<") else str(name)


def _check_arguments(function: Callable[..., Any], signals: Sequence[Combination]) -> None:
    try:
        signature = inspect.signature(function)
    except (TypeError, ValueError):  # of functions in other languages
        return
    taken = signature.parameters.values()
    anything = any(one.kind is one.VAR_KEYWORD for one in taken)
    named = [one.name for one in taken if one.kind in (one.POSITIONAL_OR_KEYWORD, one.KEYWORD_ONLY)]
    positional = [
        one.name for one in taken if one.kind in (one.POSITIONAL_ONLY, one.POSITIONAL_OR_KEYWORD)
    ]
    first = positional[:1]  # receives the prices
    for names in dict.fromkeys(tuple(row) for row in signals):
        for name in names:
            if (name not in named and not anything) or name in first:
                raise ValueError(
                    f"the strategy takes no argument {name!r}; "
                    + near(name, [one for one in named if one not in first])
                )
        try:
            signature.bind(None, **dict.fromkeys(names))
        except TypeError as error:
            raise ValueError(
                f"the strategy cannot be called with the prices and {', '.join(names) or 'nothing'}"
                f": {error}; give its arguments in signal"
            ) from None
