"""What is swept: a function of prices, or tables of weights that are there already."""

from __future__ import annotations

import inspect
import itertools
import math
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import Any

import numpy as np
import pandas as pd

from corvex.simulation.read.weights import Sheet
from corvex.sweeping.digest import digest
from corvex.sweeping.grid import Combination, near
from corvex.sweeping.values import Named, unwrap
from corvex.tables.frames import TableInput, is_table, reread

__all__ = ["FormError", "Strategy", "StrategyInput"]

#: A function of prices and its own arguments, or tables of weights by name, or one of them.
type StrategyInput = Callable[..., TableInput] | Mapping[Any, TableInput] | TableInput

TABLES = "weights"

# A call of a batched strategy makes weights of so many runs or bytes at the most.
_MOST_BATCHED = 512
_MOST_BATCHED_BYTES = 1 << 26


class FormError(ValueError):
    """What a batched strategy returned is not what it was asked for, whatever its arguments."""


class Strategy:
    """Makes weights of prices and arguments.

    Parameters
    ----------
    given : callable, mapping of str to table, or table
        As `sweep` takes it.
    batched : bool
        It is a function that makes the weights of many combinations in one call.

    Raises
    ------
    ValueError
        When it is none of them.
    """

    def __init__(self, given: StrategyInput, *, batched: bool = False) -> None:
        self.batched = batched
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
        if batched and self._function is None:
            raise ValueError("batched=True is for a strategy that is a function; weights are none")

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
        """Return the weights of one combination, as `simulate` takes them."""
        (found,) = self.called(prices, [signal])
        return found.table() if isinstance(found, Sheet) else found

    def calls_of(self, prices: Any) -> int:
        """Return of how many combinations one call makes the weights."""
        if not self.batched:
            return 1
        size = math.prod(getattr(_first_table(prices), "shape", ()))
        return max(1, min(_MOST_BATCHED, _MOST_BATCHED_BYTES // (8 * max(1, size))))

    def called(self, prices: Any, signals: Sequence[Combination]) -> list[Any]:
        """Return the weights of some combinations, in one call where that is how it is made.

        Raises
        ------
        FormError
            When a batched strategy returns something else than weights for each.
        Exception
            Whatever the strategy raises.
        """
        if self._function is None:
            return [
                self._table if self.tables is None else unwrap(signal[TABLES]) for signal in signals
            ]
        if not self.batched:
            return [
                self._function(prices, **{name: unwrap(one) for name, one in signal.items()})
                for signal in signals
            ]
        found: list[Any] = []
        for _, alike in itertools.groupby(signals, key=lambda signal: signal.keys()):
            some = list(alike)
            arrays = {name: _as_array([unwrap(one[name]) for one in some]) for name in some[0]}
            found += _each(self._function(prices, **arrays), len(some), prices)
        return found

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


def _as_array(values: list[Any]) -> np.ndarray:
    """Values of one parameter: numbers as numbers, all else as they are."""
    kinds = {type(value) for value in values}
    if kinds == {bool} or (kinds <= {int, float} and kinds):
        found = np.array(values)
        if found.dtype.kind in "bif":
            return found
    cells = np.empty(len(values), dtype=object)
    for place, value in enumerate(values):
        cells[place] = value
    return cells


def _first_table(prices: Any) -> Any:
    """The table whose dates and assets the strategy's arrays have."""
    if not isinstance(prices, Mapping):
        return prices
    return prices["close"] if "close" in prices else next(iter(prices.values()), None)


def _each(found: Any, count: int, prices: Any) -> list[Any]:
    """The weights of each of the combinations that a batched strategy was called with."""
    if isinstance(found, np.ndarray):
        return _sheets(found, count, _first_table(prices))
    if isinstance(found, Mapping):
        found = found.values()
    if is_table(found) or isinstance(found, str) or not isinstance(found, Iterable):
        raise FormError(
            "a batched strategy returns an array of shape (combinations, dates, assets) or a table "
            f"for each of its {count} combinations, got {type(found).__name__}"
        )
    tables = list(itertools.islice(found, count + 1))
    if len(tables) != count:
        more = "more" if len(tables) > count else str(len(tables))
        raise FormError(
            f"a batched strategy was given {count} combinations, the first, second and so on of "
            f"each of its arguments, and returned {more} tables"
        )
    return tables


def _sheets(block: np.ndarray, count: int, table: Any) -> list[Any]:
    shape = getattr(table, "shape", None)
    if shape is not None and len(shape) == 1:
        shape = (*shape, 1)
    if block.ndim != 3 or len(block) != count or (shape is not None and block.shape[1:] != shape):
        wanted = "dates, assets" if shape is None else ", ".join(map(str, shape))
        raise FormError(
            f"the array of a batched strategy must have the shape ({count}, {wanted}), of its "
            f"combinations and the prices, got {block.shape}"
        )
    if block.dtype != np.bool_ or isinstance(block, np.ma.MaskedArray):
        try:
            if block.dtype.kind not in "biufO":  # a text or a date is no weight
                raise TypeError
            block = np.ma.filled(block.astype(np.float64, copy=False), np.nan)
        except (TypeError, ValueError):
            raise FormError(
                "the array of a batched strategy must hold numbers, or True and False"
            ) from None
    if isinstance(table, pd.DataFrame) and isinstance(table.index, pd.DatetimeIndex):
        return [Sheet(one, table.index, table.columns) for one in block]
    if isinstance(table, np.ndarray):
        return list(block)
    raise FormError(
        "the array of a batched strategy has the dates and assets of the prices, which must be a "
        "table of pandas with dates as its index, or an array; return a list of tables"
    )
