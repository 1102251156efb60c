"""A folder of Parquet files that keeps the runs of a sweep."""

from __future__ import annotations

import contextlib
import datetime
import json
import os
import uuid
from collections.abc import Iterator, Mapping, Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex.files import atomic_open, write_text
from corvex.sweeping.run_results import BLOCKS, EXTRAS, FIGURES, Calendars, Results

if TYPE_CHECKING:
    import pyarrow as pa

__all__ = ["Fingerprint", "Store"]

#: What a sweep rests on, as texts by name.
type Fingerprint = dict[str, str]

_FORMAT = 1
_MANIFEST = "manifest.json"
_RUNS = "runs"
_CALENDARS = "sessions"
_ENDING = ".parquet"
_OWN = (
    "run", "seconds", "error", "first_session", "sessions", "sums", "squares",
    "curve_begins", "curve",
)  # fmt: skip
_RESERVED = {*FIGURES, *EXTRAS, *_OWN}
# Numbers are all of one type, so that every file can be read beside every other.
_TYPES: dict[str, tuple[type, ...]] = {
    "bool": (bool,),
    "double": (int, float),
    "timestamp[ns]": (pd.Timestamp,),
}


class Store:
    """The folder of one sweep.

    ``runs`` holds the runs, a row each, ``sessions`` the dates of their curves, the manifest what
    the sweep rests on. Files appear whole; what a process that was killed leaves behind carries
    another ending, and is never read.

    Parameters
    ----------
    folder : str or path
        It is made when the first run is written.
    """

    def __init__(self, folder: str | os.PathLike[str]) -> None:
        self.folder = Path(folder)
        self._calendars: set[tuple[int, int]] = set()
        self._types: dict[str, str] = {}

    @property
    def manifest(self) -> dict[str, Any] | None:
        """What is written of the sweep; None where there is none yet.

        Raises
        ------
        ValueError
            When the file is no manifest that this version reads.
        """
        path = self.folder / _MANIFEST
        try:
            text = path.read_text(encoding="utf-8")
        except FileNotFoundError:
            return None
        try:
            found = json.loads(text)
        except ValueError as error:
            raise ValueError(f"{path} is no manifest of a sweep: {error}") from None
        if not isinstance(found, dict) or found.get("format") != _FORMAT:
            raise ValueError(f"{path} is no manifest of a sweep that this version reads")
        return found

    def open(
        self,
        fingerprint: Fingerprint,
        columns: Mapping[str, Sequence[Any]],
        names: Mapping[str, str],
    ) -> None:
        """Make the folder, or see that it belongs to the same sweep.

        Parameters
        ----------
        fingerprint : dict of str to str
            What has to be the same.
        columns : mapping of str to sequence
            The labels of all runs, by parameter.
        names : mapping of str to str
            What is shown to readers, such as the strategy's name.

        Raises
        ------
        ValueError
            When it belongs to another sweep; the message says what differs.
        """
        self._types = {name: _type_of(values) for name, values in columns.items()}
        found = self.manifest
        if found is not None:
            self._refuse_other(found, fingerprint, list(columns))
            self._widen(found)
            return
        if self.folder.exists() and any(self.folder.iterdir()):
            raise ValueError(
                f"{self.folder} is no empty folder and holds no sweep; name another one as store"
            )
        (self.folder / _RUNS).mkdir(parents=True, exist_ok=True)
        (self.folder / _CALENDARS).mkdir(exist_ok=True)
        content = {
            "format": _FORMAT,
            **names,
            "created": datetime.datetime.now(datetime.UTC).isoformat(timespec="seconds"),
            "parameters": self._types,
            "fingerprint": fingerprint,
        }
        self._write_manifest(content)

    def _write_manifest(self, content: Mapping[str, Any]) -> None:
        write_text(self.folder / _MANIFEST, json.dumps(content, indent=2) + "\n")

    def _widen(self, found: dict[str, Any]) -> None:
        """Bring older files to types that hold the labels of all runs."""
        older: dict[str, str] = found["parameters"]
        wider = {
            name: kind
            if older[name] in (kind, "null")
            else older[name]
            if kind == "null"
            else "string"
            for name, kind in self._types.items()
        }
        self._types = wider
        if wider == older:
            return
        import pyarrow as pa
        import pyarrow.parquet as pq

        for path in self._parts():
            table = pq.read_table(path, partitioning=None)
            for name, kind in wider.items():
                place = table.schema.get_field_index(name)
                if kind != older[name] and place >= 0 and name not in _RESERVED:
                    values = table.column(place).cast(pa.type_for_alias(kind))
                    table = table.set_column(place, name, values)
            with atomic_open(path) as file:
                pq.write_table(table, file)
        self._write_manifest({**found, "parameters": wider})

    def _parts(self) -> list[Path]:
        return sorted((self.folder / _RUNS).glob(f"part-*{_ENDING}"), key=_written_at)

    def _refuse_other(
        self, found: dict[str, Any], fingerprint: Fingerprint, parameters: Sequence[str]
    ) -> None:
        kept: Fingerprint = found.get("fingerprint", {})
        differing = [
            f"{name} ({kept[name]} there, {value} now)" if name in kept and _told(name) else name
            for name, value in fingerprint.items()
            if kept.get(name) != value
        ]
        differing += [name for name in kept if name not in fingerprint]
        if sorted(found["parameters"]) != sorted(parameters):
            differing.append(
                f"the parameters ({', '.join(found['parameters']) or 'none'} there, "
                f"{', '.join(parameters) or 'none'} now)"
            )
        if differing:
            raise ValueError(
                f"{self.folder} holds another sweep: {', '.join(differing)} "
                f"{'differs' if len(differing) == 1 else 'differ'}; name another folder, or delete "
                "this one to run all anew"
            )

    # -- writing -----------------------------------------------------------------------------

    def write(
        self, results: Results, keys: Sequence[str], columns: Mapping[str, Sequence[Any]]
    ) -> None:
        """Add runs.

        Parameters
        ----------
        results : Results
            The runs.
        keys : sequence of str
            The text of each one's parameters.
        columns : mapping of str to sequence
            Their labels, by parameter.
        """
        import pyarrow as pa
        import pyarrow.parquet as pq

        for key, dates in results.calendars.items():
            self._write_calendar(key, dates)
        labels = {name: _column(values, self._types[name]) for name, values in columns.items()}
        table = pa.table({**labels, **_own_columns(results, keys)})
        name = f"part-{uuid.uuid4().hex}{_ENDING}"
        with atomic_open(self.folder / _RUNS / name) as file:
            pq.write_table(table, file)
        del labels, table
        pa.default_memory_pool().release_unused()  # which keeps a multiple of a file otherwise

    def _write_calendar(self, key: tuple[int, int], dates: pd.DatetimeIndex) -> None:
        if key in self._calendars:
            return
        with atomic_open(self.folder / _CALENDARS / f"{key[0]}-{key[1]}{_ENDING}") as file:
            pd.DataFrame({"session": dates}).to_parquet(file)
        self._calendars.add(key)

    # -- reading -----------------------------------------------------------------------------

    def rows(self) -> Iterator[tuple[Results, list[str]]]:
        """Yield the runs of each file and the text of each, those of older files first.

        Files that cannot be read are left out, and so are runs without the dates of their curves.
        A run may come again; the later counts.
        """
        calendars = self._read_calendars()
        self._calendars = set(calendars)
        for path in self._parts():
            found = _read_part(path)
            if found is not None:
                results, keys = found
                yield _chosen(results, keys, _dated(results, calendars), calendars)

    def latest(self) -> tuple[int, Iterator[tuple[Results, list[str]]]]:
        """Return how many runs there are, and what yields them as `rows` does, each once."""
        calendars = self._read_calendars()
        paths: list[Path] = []
        hashes: list[np.ndarray] = []
        dated: list[np.ndarray] = []
        for path in self._parts():
            found = _read_part(path)
            if found is not None:
                results, keys = found
                paths.append(path)
                hashes.append(np.fromiter(map(hash, keys), np.int64, len(keys)))
                dated.append(_dated(results, calendars))
        kept = _latest_rows(paths, hashes, dated)
        return sum(int(rows.sum()) for rows in kept), _kept_rows(paths, kept, calendars)

    def _read_calendars(self) -> dict[tuple[int, int], pd.DatetimeIndex]:
        import pyarrow as pa

        found = {}
        for path in (self.folder / _CALENDARS).glob(f"*{_ENDING}"):
            with contextlib.suppress(pa.ArrowException, OSError, KeyError, ValueError):
                first, _, count = path.stem.rpartition("-")
                dates = pd.DatetimeIndex(pd.read_parquet(path)["session"])
                found[int(first), int(count)] = dates.rename(None)
        return found


def _told(name: str) -> bool:
    return name not in ("prices", "strategy")


def _written_at(path: Path) -> tuple[int, str]:
    return path.stat().st_mtime_ns, path.name


def _type_of(values: Sequence[Any]) -> str:
    """The plainest type that holds all labels of a parameter; texts where they are of several."""
    kinds = {type(value) for value in values if value is not None}
    if not kinds:
        return "null"
    for name, accepted in _TYPES.items():
        if kinds <= set(accepted):
            zoned = name == "timestamp[ns]" and any(one is not None and one.tz for one in values)
            return "string" if zoned else name
    return "string"


def _column(values: Sequence[Any], kind: str) -> pa.Array:
    import pyarrow as pa

    if kind == "string":
        values = [None if value is None else str(value) for value in values]
    return pa.array(values, type=pa.type_for_alias(kind), from_pandas=False)


def _own_columns(results: Results, keys: Sequence[str]) -> dict[str, pa.Array]:
    import pyarrow as pa

    lists = pa.list_(pa.float64())
    found = {
        name: pa.array(results.figures[:, place]) for place, name in enumerate((*FIGURES, *EXTRAS))
    }
    found["seconds"] = pa.array(results.seconds)
    found["error"] = pa.array(results.errors, pa.string())
    found["run"] = pa.array(list(keys), pa.string())
    found["first_session"] = pa.array(results.calendar[:, 0])
    found["sessions"] = pa.array(results.calendar[:, 1])
    found["curve_begins"] = pa.array(results.begins)
    for name in ("sums", "squares"):
        values = getattr(results, name)
        offsets = np.arange(len(values) + 1, dtype=np.int32) * BLOCKS
        found[name] = pa.ListArray.from_arrays(offsets, values.ravel())
    if any(curve is not None for curve in results.curves):
        found["curve"] = pa.array(list(results.curves), lists)
    return found


def _dated(results: Results, calendars: Calendars) -> np.ndarray:
    """Which runs can be used: those with dates for their curves, and those that failed."""
    rows = zip(results.calendar.tolist(), results.errors, strict=True)
    return np.array([error is not None or tuple(key) in calendars for key, error in rows], bool)


def _chosen(
    results: Results, keys: Sequence[str], rows: np.ndarray, calendars: Calendars
) -> tuple[Results, list[str]]:
    results.calendars.update(calendars)
    if rows.all():
        return results, list(keys)
    places = np.flatnonzero(rows)
    return results.take(places), [keys[place] for place in places.tolist()]


def _kept_rows(
    paths: Sequence[Path], kept: Sequence[np.ndarray], calendars: Calendars
) -> Iterator[tuple[Results, list[str]]]:
    for path, rows in zip(paths, kept, strict=True):
        found = _read_part(path)
        if found is None or len(found[1]) != len(rows):
            raise ValueError(f"{path} has changed while it was read; try again")
        yield _chosen(*found, rows, calendars)


def _latest_rows(
    paths: Sequence[Path], hashes: Sequence[np.ndarray], usable: Sequence[np.ndarray]
) -> list[np.ndarray]:
    """Which rows of each file count: those that can be used and whose run is in no later one."""
    if not paths:
        return []
    wanted = np.concatenate(usable)
    texts = np.concatenate(hashes)
    _, inverse, counts = np.unique(texts[wanted], return_inverse=True, return_counts=True)
    kept = wanted.copy()
    kept[wanted] = counts[inverse] == 1
    ends = np.cumsum([len(one) for one in hashes])
    again = wanted & ~kept
    if again.any():  # few are there twice, so their texts can be compared
        latest: dict[str, int] = {}
        for path, end, count in zip(paths, ends.tolist(), map(len, hashes), strict=True):
            places = np.flatnonzero(again[end - count : end]).tolist()
            found = _read_part(path) if places else None
            if found is not None:
                latest.update({found[1][place]: end - count + place for place in places})
        kept[list(latest.values())] = True
    return np.split(kept, ends[:-1])


def _read_part(path: Path) -> tuple[Results, list[str]] | None:
    import pyarrow as pa
    import pyarrow.parquet as pq

    wanted = [*FIGURES, *EXTRAS, *_OWN]
    try:
        with pq.ParquetFile(path) as file:
            there = set(file.schema_arrow.names)
            table = file.read([name for name in wanted if name in there], use_threads=False)
        results = Results.empty(np.arange(table.num_rows))
        for place, name in enumerate((*FIGURES, *EXTRAS)):
            results.figures[:, place] = table[name].to_numpy()
        results.seconds[:] = table["seconds"].to_numpy()
        results.errors[:] = table["error"].to_pylist()
        results.calendar[:, 0] = table["first_session"].to_numpy()
        results.calendar[:, 1] = table["sessions"].to_numpy()
        if "curve_begins" in table.column_names:  # older versions did not write it
            results.begins[:] = table["curve_begins"].to_numpy()
        for name in ("sums", "squares"):
            flat = table[name].combine_chunks().flatten().to_numpy()
            getattr(results, name)[:] = flat.reshape(-1, BLOCKS)
        if "curve" in table.column_names:
            for place, curve in enumerate(table["curve"]):
                results.curves[place] = None if curve.as_py() is None else curve.values.to_numpy()
        return results, table["run"].to_pylist()
    except (pa.ArrowException, OSError, KeyError, ValueError):
        return None
    finally:
        table = None
        pa.default_memory_pool().release_unused()
