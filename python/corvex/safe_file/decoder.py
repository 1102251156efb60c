"""The JSON of a saved report as values; whatever is wrong with it raises."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
import pandas as pd

from corvex.safe_file.arrays import ArrayReader, DamagedFileError, Numbers
from corvex.safe_file.encoder import DTYPES, TAG
from corvex.safe_file.moments import READERS, pandas_zone

__all__ = ["Decoder"]


class Decoder:
    """Turns the JSON of an `Encoder` back.

    Parameters
    ----------
    arrays : ArrayReader
        Has the arrays.
    special : callable
        Asked about tags that are not known here: the value.
    """

    def __init__(self, arrays: ArrayReader, special: Callable[[str, Any], Any]) -> None:
        self._arrays = arrays
        self._special = special
        self._tags: dict[str, Callable[[Any], Any]] = {
            "float": lambda r: float(r["v"]),
            "nat": lambda _: pd.NaT,
            "na": lambda _: pd.NA,
            "dict": lambda r: {self.decode(k): self.decode(v) for k, v in r["v"]},
            "tuple": lambda r: tuple(self.decode(r["v"])),
            "set": lambda r: set(self.decode(r["v"])),
            "frozenset": lambda r: frozenset(self.decode(r["v"])),
            "numpy": lambda r: _plain_dtype(r["type"]).type(self.decode(r["v"])),
            "array": self._array,
            "series": self._series,
            "table": self._table,
            "index": self._index,
        } | READERS

    def decode(self, node: Any) -> Any:
        """Return the value of a JSON node."""
        if isinstance(node, list):
            return [self.decode(item) for item in node]
        if not isinstance(node, dict):
            return node
        tag = node.get(TAG)
        if tag is None:
            return {key: self.decode(item) for key, item in node.items()}
        return self._tags[tag](node) if tag in self._tags else self._special(tag, node)

    def _array(self, record: Any) -> Numbers:
        return np.asarray(self._column(record["v"])).reshape([int(n) for n in record["shape"]])

    def _series(self, record: Any) -> pd.Series:
        values = self._column(record["v"])
        name = self.decode(record["name"])
        return _as_series(values, self._index(record["index"]), name)

    def _table(self, record: Any) -> pd.DataFrame:
        index, labels = self._index(record["index"]), self._index(record["columns"])
        columns = [self._column(column) for column in record["v"]]
        if any(len(column) != len(index) for column in columns) or len(columns) != len(labels):
            raise DamagedFileError("a table has columns of different lengths")
        if columns and all(type(c) is np.ndarray and c.dtype == np.float64 for c in columns):
            self._arrays.spend(8 * len(index) * len(columns))
            # One block, whose columns lie together as they are read.
            table = pd.DataFrame(np.array(columns).T, index=index, copy=False)
        else:
            series = {i: _as_series(column, index) for i, column in enumerate(columns)}
            table = pd.DataFrame(series, index=index, copy=False)
        table.columns = labels
        table.attrs.update(self.decode(record["attrs"]))
        return table

    def _index(self, record: Any) -> pd.Index:
        name = self.decode(record["name"])
        if "range" in record:
            start, stop, step = record["range"]
            numbered = pd.RangeIndex(int(start), int(stop), int(step), name=name)
            self._arrays.spend(8 * len(numbered))  # it takes room as soon as it is used
            return numbered
        values = self._column(record["v"])
        if "freq" in record:
            return pd.DatetimeIndex(values, freq=str(record["freq"])[:64], name=name)
        index: pd.Index = pd.Index(values, name=name, dtype=_told_dtype(values))
        return index

    def _column(self, record: Any) -> Any:
        if "numbers" in record:
            numbers = self._arrays.get(record["numbers"])
            return numbers.astype(_plain_dtype(record["as"])) if "as" in record else numbers
        if "times" in record:
            return self._times(record)
        codes, name = self._arrays.get(record["codes"]), record["dtype"]
        if name not in DTYPES:
            raise DamagedFileError(f"there is no dtype {name!r}")
        if name == "category":
            labels = self._index(record["labels"])
            return pd.Categorical.from_codes(codes, labels, ordered=bool(record["ordered"]))
        objects = np.empty(len(record["labels"]), dtype=object)
        objects[:] = self.decode(record["labels"])
        if len(codes) and not 0 <= codes.min() <= codes.max() < len(objects):
            raise DamagedFileError("a column refers to a label that is not there")
        taken = objects[codes]
        if name == "object":
            return taken
        return pd.array(taken, dtype=_present_dtype(name))

    def _times(self, record: Any) -> Any:
        kind, unit = record["kind"], record["unit"]
        if kind not in "mM" or unit not in ("s", "ms", "us", "ns"):
            raise DamagedFileError("a column of dates is of no known kind")
        values = self._arrays.get(record["times"]).astype(f"{kind}8[{unit}]")
        if kind == "m":
            return pd.array(values)
        index = pd.DatetimeIndex(values)
        zone = pandas_zone(record["zone"])
        return (index if zone is None else index.tz_localize("UTC").tz_convert(zone)).array


def _told_dtype(values: Any) -> Any:
    """What has to be said, lest pandas take objects that are all text for text."""
    return object if isinstance(values, np.ndarray) and values.dtype.kind == "O" else None


def _as_series(values: Any, index: pd.Index, name: Any = None) -> pd.Series:
    if len(values) != len(index):
        raise DamagedFileError("a series has not as many values as labels")
    series: pd.Series = pd.Series(
        values, index=index, name=name, dtype=_told_dtype(values), copy=False
    )
    return series


def _plain_dtype(name: Any) -> np.dtype[Any]:
    dtype = np.dtype(str(name)) if len(str(name)) < 8 else np.dtype(object)
    if dtype.kind not in "biuf":
        raise DamagedFileError(f"there is no dtype {name!r}")
    return dtype


def _present_dtype(name: str) -> Any:
    """The dtype of a name, where this pandas has one of its own for text."""
    if name == "str" and int(pd.__version__.split(".")[0]) < 3:
        return np.dtype(object)
    return name
