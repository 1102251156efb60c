"""Columns of numbers in Parquet: equal ones once, each in the form that takes least room."""

from __future__ import annotations

import hashlib
import io
from typing import Any, cast

import numpy as np
import numpy.typing as npt

__all__ = ["ArrayReader", "ArrayWriter", "DamagedFileError"]

type Numbers = npt.NDArray[Any]

_KINDS = {"float64", "float32", "int64", "int32", "int16", "int8", "bool"}
_ARROW_KINDS = {"double": 8, "float": 4, "int64": 8, "int32": 4, "int16": 2, "int8": 1, "bool": 1}
_FOOTER = 8 << 20  # bytes that describe the columns: some 50,000 of them
_DECIMALS = range(7)
_EXACT = float(2**53)


class DamagedFileError(ValueError):
    """A file is not what it says it is."""


class ArrayWriter:
    """Gathers one-dimensional arrays, and gives them as Parquet tables, one for each length."""

    def __init__(self) -> None:
        self._known: dict[bytes, dict[str, Any]] = {}
        self._tables: dict[int, dict[str, tuple[Numbers, str]]] = {}

    def add(self, values: Numbers, name: str) -> dict[str, Any]:
        """Take an array; return the JSON that says where it is.

        Parameters
        ----------
        values : array of shape (n,)
            Floats, signed integers or booleans.
        name : str
            What the column should be called, for people who open the table.
        """
        kind = values.dtype.name
        if kind not in _KINDS:
            raise TypeError(f"an array of {kind} cannot be stored")
        values = np.ascontiguousarray(values)
        key = hashlib.sha256(f"{kind} {len(values)} ".encode() + values.tobytes()).digest()
        if key not in self._known:
            self._known[key] = self._placed(values, kind, name)
        return self._known[key]

    def _placed(self, values: Numbers, kind: str, name: str) -> dict[str, Any]:
        place = {"type": kind, "rows": len(values)}
        raw = values.view(f"i{values.itemsize}")
        if len(values) and (raw == raw[0]).all() and values[0] == values[0]:
            return place | {"all": values[0].item() if np.isfinite(values[0]) else str(values[0])}
        columns = self._tables.setdefault(len(values), {})
        unique = name if name not in columns else f"{name} {len(columns)}"
        stored, scale, encoding = _compact(values)
        columns[unique] = stored, encoding
        place["column"] = unique
        return place if scale is None else place | {"decimals": scale}

    def tables(self) -> dict[str, bytes]:
        """Return the Parquet files by name."""
        return {f"rows-{rows}.parquet": _parquet(c) for rows, c in self._tables.items() if c}


def _compact(values: Numbers) -> tuple[Numbers, int | None, str]:
    """Return what is stored, how many decimals it was scaled by, and the encoding."""
    raw = values.view(f"i{values.itemsize}")
    changes = int(np.count_nonzero(raw[1:] != raw[:-1]))
    if changes < len(values) / 4:
        return values, None, "dictionary"
    if values.dtype.kind == "f":
        for decimals in _DECIMALS if values.dtype == np.float64 else ():
            scaled = _scaled(values, decimals)
            if scaled is not None:
                return scaled, decimals, "DELTA_BINARY_PACKED"
        return values, None, "BYTE_STREAM_SPLIT"
    return values, None, "PLAIN" if values.dtype == bool else "DELTA_BINARY_PACKED"


def _scaled(values: Numbers, decimals: int) -> Numbers | None:
    """Return prices such as 12.34 as whole numbers, where that loses nothing."""
    with np.errstate(over="ignore", invalid="ignore"):
        whole = np.round(values * 10.0**decimals)
        back = whole / 10.0**decimals
    missing = np.isnan(values)
    same = (back == values) & (np.abs(whole) < _EXACT) & ~((values == 0) & np.signbit(values))
    if not (same | missing).all():
        return None
    return np.ma.masked_array(np.where(missing, 0, whole).astype(np.int64), missing)


def _parquet(columns: dict[str, tuple[Numbers, str]]) -> bytes:
    import pyarrow as pa
    import pyarrow.parquet as pq

    arrays = []
    for values, _ in columns.values():
        mask = np.ma.getmaskarray(values) if isinstance(values, np.ma.MaskedArray) else None
        arrays.append(pa.array(np.asarray(values), mask=mask, from_pandas=False))
    dictionary = [name for name, (_, encoding) in columns.items() if encoding == "dictionary"]
    sink = io.BytesIO()
    pq.write_table(
        pa.Table.from_arrays(arrays, names=list(columns)),
        sink,
        compression="zstd",
        compression_level=9,
        use_dictionary=dictionary,
        column_encoding={n: e for n, (_, e) in columns.items() if e != "dictionary"},
        write_statistics=False,
        store_schema=False,
        row_group_size=1 << 24,
    )
    return sink.getvalue()


class ArrayReader:
    """Gives the arrays of Parquet tables back.

    Parameters
    ----------
    tables : dict of str to bytes
        The Parquet files by name.
    budget : int
        Most bytes that the arrays may take in memory.
    """

    def __init__(self, tables: dict[str, bytes], budget: int) -> None:
        self._columns: dict[str, dict[str, Any]] = {}
        self.budget = budget
        for name, content in tables.items():
            self._columns[name] = self._read(name, content)

    def spend(self, size: int) -> None:
        """Count what is about to be made.

        Raises
        ------
        DamagedFileError
            When it is too much.
        """
        self.budget -= size
        if size < 0 or self.budget < 0:
            raise DamagedFileError("it holds more than may be read; see max_size")

    def _read(self, name: str, content: bytes) -> dict[str, Any]:
        import pyarrow as pa
        import pyarrow.parquet as pq

        if int.from_bytes(content[-8:-4], "little") > _FOOTER:
            raise DamagedFileError(f"{name} describes more columns than any report has")
        try:
            file = pq.ParquetFile(
                io.BytesIO(content),
                thrift_string_size_limit=1 << 20,
                thrift_container_size_limit=1 << 20,
            )
            schema = file.schema_arrow
            sizes = [_ARROW_KINDS.get(str(kind)) for kind in schema.types]
            if None in sizes or len(set(schema.names)) != len(sizes):
                raise DamagedFileError(f"{name} holds something else than columns of numbers")
            self.spend(file.metadata.num_rows * sum(cast("list[int]", sizes)))
            table = file.read(use_threads=False)
        except (pa.ArrowException, OSError) as error:
            raise DamagedFileError(f"{name} cannot be read: {error}") from None
        return dict(zip(table.column_names, table.columns, strict=True))

    def get(self, place: Any) -> Numbers:
        """Return the array of a place that `ArrayWriter.add` has given."""
        kind, rows = _fields(place)
        if "all" in place:
            self.spend(rows * 8)
            same: Numbers = np.full(rows, place["all"], dtype=kind)
            return same
        column = self._columns.get(f"rows-{rows}.parquet", {}).get(place.get("column"))
        if column is None or len(column) != rows:
            if rows == 0:
                return np.empty(0, dtype=kind)
            raise DamagedFileError(f"the column {place.get('column')!r} is missing")
        decimals = place.get("decimals")
        self.spend(rows * 8)
        if decimals is None:
            values = column.to_numpy()
            if column.null_count or values.dtype != kind:
                raise DamagedFileError(f"the column {place['column']!r} is of another type")
            return np.array(values)
        if decimals not in _DECIMALS or kind != "float64":
            raise DamagedFileError(f"the column {place['column']!r} has impossible decimals")
        values = column.to_numpy()  # floats with NaN where something is missing
        scaled: Numbers = np.asarray(values, dtype=np.float64) / 10.0**decimals
        return scaled


def _fields(place: Any) -> tuple[str, int]:
    if not isinstance(place, dict):
        raise DamagedFileError("a column is not described")
    kind, rows = place.get("type"), place.get("rows")
    if kind not in _KINDS or type(rows) is not int or rows < 0:
        raise DamagedFileError("a column is not described")
    return kind, rows
