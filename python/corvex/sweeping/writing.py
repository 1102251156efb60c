"""Writing results to a store as they come, in files of a useful size."""

from __future__ import annotations

import time

from corvex.sweeping.grid import Grid
from corvex.sweeping.run_results import Results, joined
from corvex.sweeping.store import Store

__all__ = ["Writer"]

_SECONDS = 2.0
_RUNS = 2_000


class Writer:
    """Gathers results and writes them every two seconds, every 2,000 runs, and at the end."""

    def __init__(self, store: Store, grid: Grid) -> None:
        self._store, self._grid = store, grid
        self._waiting: list[Results] = []
        self._count = 0
        self._last = time.monotonic()

    def add(self, results: Results) -> None:
        """Take results; they are on disk at the latest when the writer is closed."""
        self._waiting.append(results)
        self._count += len(results)
        if self._count >= _RUNS or time.monotonic() - self._last >= _SECONDS:
            self.close()

    def close(self) -> None:
        """Write what waits."""
        if self._count:
            results = joined(self._waiting)
            runs = results.runs.tolist()
            keys = [self._grid.key(run) for run in runs]
            columns = {
                name: [values[run] for run in runs] for name, values in self._grid.columns.items()
            }
            self._store.write(results, keys, columns)
        self._waiting, self._count = [], 0
        self._last = time.monotonic()
