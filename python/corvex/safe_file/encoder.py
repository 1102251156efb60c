"""The values of a report as JSON: plain ones as they are, the others tagged with their kind."""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import Any

import numpy as np
import pandas as pd

from corvex.safe_file.arrays import ArrayWriter, Numbers
from corvex.safe_file.moments import moment_record, zone_name

__all__ = ["DTYPES", "TAG", "Encoder"]

#: The key that tells the kind of a value that JSON does not have.
TAG = "~"
#: The dtypes of columns that are stored as labels, and where each of them stands.
_SIZES = (8, 16, 32, 64)
DTYPES = frozenset(
    ["boolean", "category", "object", "str", "string", "Float32", "Float64"]
    + [f"{kind}{size}" for kind in ("Int", "UInt") for size in _SIZES]
)


class Encoder:
    """Turns values into JSON, and their numbers into arrays of an `ArrayWriter`.

    Parameters
    ----------
    arrays : ArrayWriter
        Takes the arrays.
    special : callable
        Asked last about a value that is no plain one: its JSON, or None.
    """

    def __init__(
        self, arrays: ArrayWriter, special: Callable[[Any, str], dict[str, Any] | None]
    ) -> None:
        self._arrays = arrays
        self._special = special
        self._kinds: tuple[tuple[Any, str, Callable[[Any, str], dict[str, Any]]], ...] = (
            (pd.DataFrame, "table", self._table),
            (pd.Series, "series", self._series),
            (pd.Index, "index", self._index),
            (np.ndarray, "array", self._array),
            (tuple, "tuple", lambda v, p: {"v": self.encode(list(v), p)}),
            ((frozenset, set), "", self._set),
            (np.generic, "numpy", self._scalar),
        )

    def encode(self, value: Any, path: str) -> Any:
        """Return the JSON of a value.

        Raises
        ------
        TypeError
            When it is, or holds, an object that is no data; `path` tells where.
        """
        if value is None or type(value) in (bool, int, str):
            return value
        if type(value) is float:
            return value if math.isfinite(value) else {TAG: "float", "v": str(value)}
        if type(value) is list:
            return [self.encode(item, f"{path}[{i}]") for i, item in enumerate(value)]
        if type(value) is dict:
            return self._dict(value, path)
        found = self._tagged(value, path) or self._special(value, path)
        if found is None:
            raise TypeError(
                f"{path} is a {type(value).__module__}.{type(value).__qualname__}, which a .corvex "
                "file, that holds data alone, cannot keep"
            )
        return found

    def _dict(self, value: dict[Any, Any], path: str) -> Any:
        if TAG not in value and all(type(key) is str for key in value):
            return {key: self.encode(item, f"{path}.{key}") for key, item in value.items()}
        pairs = [
            [self.encode(key, path), self.encode(item, f"{path}[{key!r}]")]
            for key, item in value.items()
        ]
        return {TAG: "dict", "v": pairs}

    def _tagged(self, value: Any, path: str) -> dict[str, Any] | None:
        if value is pd.NaT or value is pd.NA:
            return {TAG: "nat" if value is pd.NaT else "na"}
        for kind, tag, write in self._kinds:
            if isinstance(value, kind):
                return {TAG: tag or type(value).__name__, **write(value, path)}
        return moment_record(value, path)

    def _set(self, value: frozenset[Any], path: str) -> dict[str, Any]:
        return {"v": self.encode(sorted(value, key=repr), path)}

    def _scalar(self, value: np.generic, path: str) -> dict[str, Any]:
        if value.dtype.kind not in "biuf":
            raise TypeError(f"{path} is a numpy.{value.dtype}, which a .corvex file cannot keep")
        return {"type": value.dtype.name, "v": self.encode(value.item(), path)}

    def _array(self, value: Numbers, path: str) -> dict[str, Any]:
        column = self._column(pd.Index(value.reshape(-1)), path)
        return {"v": column, "shape": list(value.shape)}

    def _series(self, value: pd.Series, path: str) -> dict[str, Any]:
        return {
            "v": self._column(value, path),
            "index": self._index(value.index, f"{path} index"),
            "name": self.encode(value.name, path),
        }

    def _table(self, value: pd.DataFrame, path: str) -> dict[str, Any]:
        columns = [
            self._column(value.iloc[:, i], f"{path} {name}") for i, name in enumerate(value.columns)
        ]
        return {
            "v": columns,
            "index": self._index(value.index, f"{path} index"),
            "columns": self._index(value.columns, f"{path} columns"),
            "attrs": self.encode(value.attrs, f"{path}.attrs"),
        }

    def _index(self, value: pd.Index, path: str) -> dict[str, Any]:
        name = self.encode(value.name, path)
        if isinstance(value, pd.RangeIndex):
            return {"range": [value.start, value.stop, value.step], "name": name}
        record = {"v": self._column(value, path), "name": name}
        freq = getattr(value, "freqstr", None) if isinstance(value, pd.DatetimeIndex) else None
        return record if freq is None else record | {"freq": freq}

    def _column(self, values: pd.Series | pd.Index, path: str) -> dict[str, Any]:
        dtype = values.dtype
        if isinstance(dtype, np.dtype) and dtype.kind in "bif" and dtype.itemsize <= 8:
            return {"numbers": self._arrays.add(np.asarray(values), path)}
        if isinstance(dtype, np.dtype) and dtype.kind == "u" and dtype.itemsize < 8:
            wide = np.asarray(values, dtype=np.int64)
            return {"numbers": self._arrays.add(wide, path), "as": dtype.name}
        if isinstance(dtype, pd.DatetimeTZDtype) or dtype.kind in "mM":
            zone = zone_name(getattr(dtype, "tz", None), path)
            kind, unit = (
                dtype.kind,
                pd.DatetimeIndex(values).unit
                if dtype.kind == "M"
                else pd.TimedeltaIndex(values).unit,
            )
            whole = values.to_numpy(dtype=f"{kind}8[{unit}]").astype(np.int64)
            return {
                "times": self._arrays.add(whole, path),
                "unit": unit,
                "zone": zone,
                "kind": kind,
            }
        return self._labels(values, path)

    def _labels(self, values: pd.Series | pd.Index, path: str) -> dict[str, Any]:
        """Texts and mixed values: each different one once, and where it stands."""
        name = str(values.dtype)
        if name not in DTYPES:
            raise TypeError(f"{path} is of dtype {name}, which a .corvex file cannot keep")
        record: dict[str, Any] = {"dtype": name}
        if isinstance(values.dtype, pd.CategoricalDtype):
            codes = pd.Series(values).cat.codes.to_numpy(dtype=np.int32)
            record["ordered"] = bool(values.dtype.ordered)
            categories = values.dtype.categories
            record["labels"] = self._index(categories, f"{path} categories")
        else:
            codes, labels = _factorized(values.tolist())
            record["labels"] = self.encode(labels, path)
        return record | {"codes": self._arrays.add(codes, path)}


def _factorized(values: list[Any]) -> tuple[Numbers, list[Any]]:
    """Number the different values in their order; 1, 1.0 and True are different here."""
    known: dict[Any, int] = {}
    labels: list[Any] = []
    codes = np.empty(len(values), dtype=np.int32)
    for i, value in enumerate(values):
        by_name = value is pd.NA or value is pd.NaT or isinstance(value, float)  # NaN, -0.0
        key: Any = (type(value), repr(value) if by_name else value)
        try:
            code = known.setdefault(key, len(labels))
        except TypeError:  # a list, a dictionary
            code = len(labels)
        if code == len(labels):
            labels.append(value)
        codes[i] = code
    return codes, labels
