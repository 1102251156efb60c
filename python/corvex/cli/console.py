"""What the commands print beside their results: notes, errors, progress and times."""

from __future__ import annotations

import contextlib
import shutil
import sys
import threading
import time
import warnings
from collections.abc import Callable, Iterator
from typing import Any, Self

from corvex.plaintext import PlainStream

__all__ = ["FAILED", "Steps", "note", "plot_width", "run_plainly", "settings"]

FAILED = 1
_PATIENCE = 1.0  # seconds without a sign of life that a user bears


class _Settings:
    """Options that hold for every command."""

    traceback = False


settings = _Settings()


def note(message: str) -> None:
    """Tell the user something beside the result, on the standard error."""
    print(f"corvex: note: {message}", file=sys.stderr)


def plot_width() -> int:
    """Return how wide a chart may be so that its lines fit the terminal (80 columns elsewhere)."""
    from corvex.terminal import label_width

    columns = shutil.get_terminal_size((80, 24)).columns
    return min(max(columns - label_width(), 20), 200)


def run_plainly(command: Callable[..., None], given: dict[str, Any]) -> int:
    """Call a command; where it fails, one line on the standard error says why.

    Warnings of the library become notes.

    Returns
    -------
    int
        The exit status.
    """
    with _nothing_steers_the_terminal():
        try:
            with _warnings_as_notes():
                command(**given)
        except BrokenPipeError:
            raise
        except Exception as error:
            if settings.traceback:
                import traceback

                traceback.print_exc()
            print(f"corvex: error: {_in_words(error)}", file=sys.stderr)
            return FAILED
    return 0


@contextlib.contextmanager
def _nothing_steers_the_terminal() -> Iterator[None]:
    """Guard both streams against what texts of foreign files could do to a terminal."""
    out: Any = PlainStream(sys.stdout)
    errors: Any = PlainStream(sys.stderr)
    with contextlib.redirect_stdout(out), contextlib.redirect_stderr(errors):
        yield


def _in_words(error: Exception) -> str:
    text = str(error) or type(error).__name__
    if isinstance(error, OSError) and error.strerror:
        name = f": {error.filename}" if error.filename is not None else ""
        return f"{error.strerror}{name}"
    if isinstance(error, OSError | ValueError):
        return text
    # Not foreseen: the kind of error helps to find the cause.
    return f"{type(error).__name__}: {text} (corvex --traceback ... shows where)"


@contextlib.contextmanager
def _warnings_as_notes() -> Iterator[None]:
    shown: set[str] = set()

    def show(message: Warning | str, category: type[Warning], *_: Any, **__: Any) -> None:
        text = str(message)
        if issubclass(category, UserWarning | RuntimeWarning) and text not in shown:
            shown.add(text)
            note(text)

    with warnings.catch_warnings():
        warnings.simplefilter("always")
        warnings.showwarning = show
        yield


class Steps:
    """The steps of a longer command: timed, and shown while they run.

    In a terminal a progress bar appears on the standard error once the work has taken a second,
    and goes when it is done. Elsewhere nothing is shown.
    """

    def __init__(self, count: int) -> None:
        self.count = count
        self.times: list[tuple[str, float]] = []
        self._bar: Any = None
        self._task: Any = None
        self._current = ""
        self._lock = threading.Lock()
        self._stream = getattr(sys.stderr, "unguarded", sys.stderr)  # the bar moves the cursor
        self._timer = threading.Timer(_PATIENCE, self._show)
        self._timer.daemon = True

    def __enter__(self) -> Self:
        if sys.stderr.isatty():
            self._timer.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._timer.cancel()
        with self._lock:
            self.count = 0  # a timer that fires just now shows nothing
            if self._bar is not None:
                self._bar.stop()

    def _show(self) -> None:
        from rich.console import Console
        from rich.progress import BarColumn, Progress, TextColumn, TimeElapsedColumn

        with self._lock:
            if self.count == 0:
                return
            self._bar = Progress(
                TextColumn("{task.description}"),
                BarColumn(),
                TextColumn("{task.completed}/{task.total}"),
                TimeElapsedColumn(),
                console=Console(file=self._stream),
                transient=True,
            )
            self._task = self._bar.add_task(
                self._current, total=self.count, completed=len(self.times)
            )
            self._bar.start()

    @contextlib.contextmanager
    def step(self, name: str) -> Iterator[None]:
        """Run one step under its name."""
        with self._lock:
            self._current = name
            if self._bar is not None:
                self._bar.update(self._task, description=name)
        start = time.perf_counter()
        yield
        with self._lock:
            self.times.append((name, time.perf_counter() - start))
            if self._bar is not None:
                self._bar.update(self._task, completed=len(self.times))

    def print_times(self) -> None:
        """Print how long each step took."""
        rows = [*self.times, ("all", sum(seconds for _, seconds in self.times))]
        wide = max(len(name) for name, _ in rows)
        print("Time taken")
        for name, seconds in rows:
            print(f"  {name:<{wide}}  {seconds:8.3f} s")
