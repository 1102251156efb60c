"""The grid of a sweep: which runs there are, in which order."""

from __future__ import annotations

import difflib
import itertools
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import dataclass
from functools import cached_property
from typing import Any

import numpy as np
import pandas as pd

from corvex.sweeping.values import DEFAULT, Named, dumps, label, plain

__all__ = ["Combination", "Grid", "Space", "near", "read_space"]

#: Values of a parameter, or parameters run by run.
type Space = Mapping[str, Any] | Iterable[Mapping[str, Any]] | pd.DataFrame | None
type Combination = dict[str, Any]

_ONE_VALUE = (str, bytes, tuple)


def read_space(space: Space, what: str) -> list[Combination]:
    """Read the combinations of parameters that a user asks for.

    Parameters
    ----------
    space : mapping, iterable of mappings, DataFrame or None
        A mapping of names to values gives their product, the last name changing fastest; the
        values are a collection, one value, or a mapping of labels to values that no index can
        hold. Mappings or rows of a table are combinations as they are.
    what : str
        Its name in messages.

    Raises
    ------
    ValueError
        When it is none of these, or a value needs a name.
    """
    if space is None:
        return [{}]
    if isinstance(space, pd.DataFrame):
        columns = {name: space[name].tolist() for name in space.columns}
        rows: Iterable[Any] = (
            {name: values[row] for name, values in columns.items()} for row in range(len(space))
        )
    elif isinstance(space, Mapping):
        values = {str(name): _values(str(name), given) for name, given in space.items()}
        return [dict(zip(values, row, strict=True)) for row in itertools.product(*values.values())]
    elif isinstance(space, Iterable) and not isinstance(space, str):
        rows = space
    else:
        raise _no_space(what, space)
    combinations = []
    for row in rows:
        if not isinstance(row, Mapping):
            raise _no_space(what, row)
        combinations.append({str(name): _one(str(name), value) for name, value in row.items()})
    return combinations


def _no_space(what: str, got: object) -> ValueError:
    return ValueError(
        f"{what} must be a mapping of names to values, a list of dictionaries or a DataFrame, "
        f"got {type(got).__name__}"
    )


def _values(name: str, given: Any) -> list[Any]:
    if isinstance(given, Mapping):
        return [Named(plain(name, key), value) for key, value in given.items()]
    if isinstance(given, pd.DataFrame):
        raise ValueError(
            f"parameter {name!r} is a table; give it a name: {{{name!r}: {{'some name': table}}}}"
        )
    if isinstance(given, _ONE_VALUE) or not isinstance(given, Iterable):
        return [plain(name, given)]
    return [_one(name, value) for value in given]


def _one(name: str, value: Any) -> Any:
    if isinstance(value, Mapping) and len(value) == 1:
        ((key, held),) = value.items()
        return Named(plain(name, key), held)
    return value if isinstance(value, Named) else plain(name, value)


def near(name: str, known: Iterable[str]) -> str:
    """Return a hint at the names near a wrong one, or at all of them."""
    known = list(known)
    found = difflib.get_close_matches(name, known, n=3, cutoff=0.6)
    if found:
        return f"did you mean {' or '.join(map(repr, found))}?"
    return f"there are {', '.join(map(repr, known))}" if known else "there are none"


@dataclass(frozen=True)
class Grid:
    """Each combination of the strategy's own arguments with each of the options.

    Attributes
    ----------
    signals, options : sequence of dict
        Run number r has signal r // len(options) and options r % len(options).
    """

    signals: Sequence[Combination]
    options: Sequence[Combination]

    def __len__(self) -> int:
        return len(self.signals) * len(self.options)

    @cached_property
    def signal_names(self) -> list[str]:
        return list(dict.fromkeys(name for row in self.signals for name in row))

    @cached_property
    def option_names(self) -> list[str]:
        return list(dict.fromkeys(name for row in self.options for name in row))

    @property
    def names(self) -> list[str]:
        """The parameters, in the order of the index."""
        return self.signal_names + self.option_names

    @cached_property
    def keys(self) -> list[str]:
        """One text for each run, the same for the same parameters wherever it is made."""
        return self._texts(for_good=True)

    @cached_property
    def passing_keys(self) -> list[str]:
        """The same, but of this process alone: tables need not be read through."""
        return self._texts(for_good=False)

    def _texts(self, *, for_good: bool) -> list[str]:
        signals = [dumps(row, for_good=for_good) for row in self.signals]
        options = [dumps(row, for_good=for_good) for row in self.options]
        return [f'{{"signal":{one},"options":{other}}}' for one in signals for other in options]

    @cached_property
    def columns(self) -> dict[str, list[Any]]:
        """The label of each parameter in each run."""
        repeat, tile = len(self.options), len(self.signals)
        found: dict[str, list[Any]] = {}
        for name in self.signal_names:
            values = [label(row.get(name, DEFAULT)) for row in self.signals]
            found[name] = [value for value in values for _ in range(repeat)]
        for name in self.option_names:
            found[name] = [label(row.get(name, DEFAULT)) for row in self.options] * tile
        return found

    def index(self) -> pd.Index:
        """Return the runs as an index with a level for each parameter."""
        return index_of(self.columns, len(self))

    def parameters(self, run: int) -> tuple[Combination, Combination]:
        """Return the strategy's arguments and the options of a run."""
        signal, options = divmod(run, len(self.options))
        return self.signals[signal], self.options[options]


def index_of(columns: Mapping[str, list[Any]], count: int) -> pd.Index:
    """Return an index with a level for each parameter; plain numbers where there is none."""
    if not columns:
        return pd.RangeIndex(count, name="run")
    levels = [_level(values) for values in columns.values()]
    return pd.MultiIndex.from_arrays(levels, names=list(columns))


def _level(values: list[Any]) -> pd.Index:
    """Values as they are; among numbers None is a missing one."""
    kinds = {type(value) for value in values}
    level: pd.Index
    if kinds <= {int, float, type(None)} and kinds - {type(None)}:
        level = pd.Index(values, dtype="float64" if type(None) in kinds else None)
    elif len(kinds) == 1 and kinds <= {str, bool, pd.Timestamp, pd.Timedelta}:
        level = pd.Index(values)
    else:
        cells = np.empty(len(values), dtype=object)
        for place, value in enumerate(values):  # a tuple is one value
            cells[place] = value
        level = pd.Index(cells, dtype=object)
    return level
