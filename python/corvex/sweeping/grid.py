"""The grid of a sweep: which runs there are, in which order."""

from __future__ import annotations

import difflib
import itertools
import math
from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from functools import cached_property
from typing import Any, overload

import numpy as np
import pandas as pd

from corvex.sweeping.values import DEFAULT, Named, joined_text, label, plain, text_of, texts

__all__ = ["Combination", "Grid", "Product", "RunFinder", "Space", "near", "read_space"]

#: Values of a parameter, or parameters run by run.
type Space = Mapping[str, Any] | Iterable[Mapping[str, Any]] | pd.DataFrame | None
type Combination = dict[str, Any]

_ONE_VALUE = (str, bytes, tuple)


class Product(Sequence[Combination]):
    """All combinations of the values of some parameters, made when they are asked for.

    Parameters
    ----------
    values : mapping of str to sequence
        The last name changes fastest.
    """

    def __init__(self, values: Mapping[str, Sequence[Any]]) -> None:
        self._values = {name: list(given) for name, given in values.items()}
        self._count = math.prod(map(len, self._values.values()))

    @property
    def names(self) -> list[str]:
        """The parameters."""
        return list(self._values)

    def __len__(self) -> int:
        return self._count

    def __iter__(self) -> Iterator[Combination]:
        for row in itertools.product(*self._values.values()):
            yield dict(zip(self._values, row, strict=True))

    @overload
    def __getitem__(self, place: int) -> Combination: ...
    @overload
    def __getitem__(self, place: slice) -> list[Combination]: ...
    def __getitem__(self, place: int | slice) -> Combination | list[Combination]:
        if isinstance(place, slice):
            return [self[at] for at in range(*place.indices(self._count))]
        left = range(self._count)[place]
        row = {}
        for name, values in reversed(self._values.items()):
            left, at = divmod(left, len(values))
            row[name] = values[at]
        return {name: row[name] for name in self._values}

    def texts(self, *, for_good: bool) -> ProductTexts:
        """Return the text of each combination, as `values.texts` writes it."""
        return ProductTexts(
            {
                name: [text_of(name, value, for_good=for_good) for value in values]
                for name, values in self._values.items()
            }
        )

    def column(self, name: str) -> Iterator[Any]:
        """Yield the value of a parameter in each combination."""
        lengths = {other: len(values) for other, values in self._values.items()}
        faster = math.prod(list(lengths.values())[list(lengths).index(name) + 1 :])
        each = self._values[name]
        for _ in range(self._count // max(1, faster * len(each))):
            for value in each:
                yield from itertools.repeat(value, faster)


class ProductTexts(Sequence[str]):
    """The texts of all combinations, put together from those of the values when asked for.

    Parameters
    ----------
    written : mapping of str to list of str
        The text of each value, by parameter.
    """

    def __init__(self, written: Mapping[str, list[str]]) -> None:
        self._values = Product(written)
        self._written = written
        self._order = [self._values.names.index(name) for name in sorted(written)]

    def __len__(self) -> int:
        return len(self._values)

    def __iter__(self) -> Iterator[str]:
        for row in itertools.product(*self._written.values()):
            yield joined_text([row[at] for at in self._order])

    @overload
    def __getitem__(self, place: int) -> str: ...
    @overload
    def __getitem__(self, place: slice) -> list[str]: ...
    def __getitem__(self, place: int | slice) -> str | list[str]:
        if isinstance(place, slice):
            return [self[at] for at in range(*place.indices(len(self)))]
        row = list(self._values[place].values())
        return joined_text([row[at] for at in self._order])

    def first(self) -> np.ndarray:
        """Return the number of the first combination with the text of each."""
        found = np.zeros(1, dtype=np.int64)
        for written in self._written.values():
            found = np.add.outer(found * len(written), _first(written)).ravel()
        return found


def read_space(space: Space, what: str) -> Sequence[Combination]:
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
        if not space.columns.is_unique:
            raise ValueError(f"{what} has two columns of one name: {list(space.columns)}")
        columns = {name: space[name].tolist() for name in space.columns}
        rows: Iterable[Any] = (
            {name: values[row] for name, values in columns.items()} for row in range(len(space))
        )
    elif isinstance(space, Mapping):
        values = {str(name): _values(str(name), given) for name, given in space.items()}
        return Product(values)
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
        return _names(self.signals)

    @cached_property
    def option_names(self) -> list[str]:
        return _names(self.options)

    @property
    def names(self) -> list[str]:
        """The parameters, in the order of the index."""
        return self.signal_names + self.option_names

    @cached_property
    def _parts(self) -> tuple[Sequence[str], Sequence[str]]:
        return _texts(self.signals), _texts(self.options)

    def key(self, run: int) -> str:
        """One text for a run, the same for the same parameters wherever it is made."""
        signal, options = divmod(run, len(self.options))
        return _key(self._parts[0][signal], self._parts[1][options])

    def keys(self) -> Iterator[str]:
        """Yield that of each run."""
        signals, options = self._parts
        return (_key(one, other) for one in signals for other in options)

    def first_alike(self, *, for_good: bool) -> np.ndarray:
        """Return the number of the first run with the parameters of each.

        Parameters
        ----------
        for_good : bool
            As for `texts`.

        Returns
        -------
        int64 array of shape (runs,)
        """
        parts = (
            self._parts
            if for_good
            else (_texts(self.signals, for_good=False), _texts(self.options, for_good=False))
        )
        signals, options = map(_first, parts)
        first: np.ndarray = np.add.outer(signals * len(self.options), options).ravel()
        return first

    @cached_property
    def columns(self) -> dict[str, list[Any]]:
        """The label of each parameter in each run."""
        repeat, tile = len(self.options), len(self.signals)
        found: dict[str, list[Any]] = {}
        for name in self.signal_names:
            found[name] = [one for one in _labels(self.signals, name) for _ in range(repeat)]
        for name in self.option_names:
            found[name] = _labels(self.options, name) * tile
        return found

    def index(self) -> pd.Index:
        """Return the runs as an index with a level for each parameter."""
        return index_of(self.columns, len(self))

    def parameters(self, run: int) -> tuple[Combination, Combination]:
        """Return the strategy's arguments and the options of a run."""
        signal, options = divmod(run, len(self.options))
        return self.signals[signal], self.options[options]


class RunFinder:
    """Finds runs by their texts, of which it keeps eight bytes each.

    Parameters
    ----------
    grid : Grid
        The runs.
    wanted : bool array of shape (runs,)
        Those that are looked for.
    """

    def __init__(self, grid: Grid, wanted: np.ndarray) -> None:
        self._grid = grid
        runs = np.flatnonzero(wanted)
        keys = itertools.compress(grid.keys(), wanted)
        hashes = np.fromiter(map(hash, keys), np.int64, len(runs))
        order = np.argsort(hashes)
        self._runs, self._hashes = runs[order], hashes[order]

    def find(self, keys: Sequence[str]) -> np.ndarray:
        """Return the number of the run with each text; -1 where none of the wanted has it."""
        if not len(self._runs):
            return np.full(len(keys), -1, dtype=np.int64)
        asked = np.fromiter(map(hash, keys), np.int64, len(keys))
        at = np.minimum(np.searchsorted(self._hashes, asked), len(self._hashes) - 1)
        found = np.where(self._hashes[at] == asked, self._runs[at], -1)
        for place in np.flatnonzero(found >= 0).tolist():
            if self._grid.key(int(found[place])) != keys[place]:  # two texts of one hash
                found[place] = -1
        return found


def _key(signal: str, options: str) -> str:
    return f'{{"signal":{signal},"options":{options}}}'


def _texts(rows: Sequence[Combination], *, for_good: bool = True) -> Sequence[str]:
    if isinstance(rows, Product):
        return rows.texts(for_good=for_good)
    return texts(rows, for_good=for_good)


def _first(texts: Sequence[str]) -> np.ndarray:
    if isinstance(texts, ProductTexts):
        return texts.first()
    known: dict[str, int] = {}
    return np.array([known.setdefault(text, at) for at, text in enumerate(texts)], dtype=np.int64)


def _names(rows: Sequence[Combination]) -> list[str]:
    if isinstance(rows, Product):
        return rows.names if len(rows) else []
    return list(dict.fromkeys(name for row in rows for name in row))


def _labels(rows: Sequence[Combination], name: str) -> list[Any]:
    if isinstance(rows, Product):
        return [label(value) for value in rows.column(name)]
    return [label(row.get(name, DEFAULT)) for row in rows]


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
