"""How far a sweep is, told while it runs."""

from __future__ import annotations

import sys
import time
from collections.abc import Callable

__all__ = ["Progress", "ProgressInput"]

#: Whether to tell, or who is told: a function of the runs done and their number.
type ProgressInput = bool | Callable[[int, int], object] | None

_EVERY = 0.2


class Progress:
    """Tells how many runs are done, how many a second, and how long the rest will take.

    Parameters
    ----------
    wish : bool, callable or None
        None: on a terminal alone. A callable receives the numbers of runs done and of all.
    total, done : int
        How many runs there are, and how many of them are there already.
    """

    def __init__(self, wish: ProgressInput, total: int, done: int) -> None:
        self._told = wish if callable(wish) else None
        # The command line guards its streams against what moves the cursor; this is meant to.
        self._stream = getattr(sys.stderr, "unguarded", sys.stderr)
        self._terminal = self._stream is not None and self._stream.isatty()
        wanted = self._terminal if wish is None else bool(wish) and self._stream is not None
        self._shown = self._told is None and wanted
        self._total, self._done, self._before = total, done, done
        self._begin = self._last = time.monotonic()

    def add(self, runs: int) -> None:
        """Count runs that are done."""
        self._done += runs
        if self._told is not None:
            self._told(self._done, self._total)
        now = time.monotonic()
        if self._shown and (now - self._last >= _EVERY or self._done >= self._total):
            self._last = now
            self._write(now - self._begin)

    def _write(self, seconds: float) -> None:
        rate = (self._done - self._before) / max(seconds, 1e-9)
        left = (self._total - self._done) / rate if rate > 0 else 0.0
        text = f"{self._done:,} of {self._total:,} runs, {rate:,.0f} a second, {_length(left)} left"
        self._stream.write(f"\r\033[K{text}" if self._terminal else f"{text}\n")
        self._stream.flush()

    def close(self) -> None:
        """Leave the terminal with a line of its own for what comes next."""
        if self._shown and self._terminal:
            self._stream.write("\r\033[K")
            self._stream.flush()


def _length(seconds: float) -> str:
    if seconds < 90:
        return f"{seconds:.0f} s"
    return f"{seconds / 60:.0f} min" if seconds < 5400 else f"{seconds / 3600:.1f} h"
