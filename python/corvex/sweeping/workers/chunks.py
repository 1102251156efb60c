"""Cutting the tasks of a sweep into chunks that are worth a journey."""

from __future__ import annotations

from collections import deque
from collections.abc import Sequence
from dataclasses import dataclass

from corvex.sweeping.runner import Task

__all__ = ["Chunk", "Chunks", "Spent"]

# Seconds of work. A journey takes up to some milliseconds, so these waste little of it; longer
# chunks would leave workers idle at the end, and more to do again where one dies.
_LEAST_SECONDS = 0.25
_MOST_SECONDS = 1.0
_MOST_RUNS = 20_000
_PROBE_RUNS = 16
# So many chunks a worker are left for the end, when some are done before others.
_SHARE = 4


@dataclass(frozen=True, slots=True)
class Spent:
    """What a chunk took.

    Attributes
    ----------
    calls, runs : int
        Calls of the strategy, and runs.
    call_seconds, run_seconds : float
        Of all of them.
    reading : bool
        The prices were read in that time too.
    """

    calls: int
    runs: int
    call_seconds: float
    run_seconds: float
    reading: bool


@dataclass(eq=False)
class Chunk:
    """Tasks that travel together.

    Attributes
    ----------
    tasks : list of Task
        What is to be done.
    deaths : int
        How many workers died while they had it.
    """

    tasks: list[Task]
    deaths: int = 0

    @property
    def runs(self) -> list[int]:
        """The numbers of its runs."""
        return [run for task in self.tasks for run in task.runs[:, 0].tolist()]


class Chunks:
    """Hands out tasks in chunks; the first ones are small, and tell how long the others take.

    A call of the strategy stays in one chunk, unless its runs take so long that several workers
    had better share them.

    Parameters
    ----------
    tasks : sequence of Task
        All there is to do.
    """

    def __init__(self, tasks: Sequence[Task]) -> None:
        self._waiting = deque(tasks)
        self._runs = sum(len(task.runs) for task in tasks)
        self._calls = len(tasks)
        self._call = self._run = 0.0  # seconds of one
        self._known = self._exact = False
        self._probes = 0

    def __bool__(self) -> bool:
        return bool(self._waiting)

    def learn(self, spent: Spent) -> None:
        """Take note of what a chunk took."""
        if not spent.runs or (spent.reading and self._exact):
            return
        call, run = spent.call_seconds / max(spent.calls, 1), spent.run_seconds / spent.runs
        if self._exact:  # parameters differ in what they take
            call, run = (self._call + call) / 2, (self._run + run) / 2
        self._call, self._run = call, run
        self._known, self._exact = True, not spent.reading

    def take(self, workers: int, *, idle: bool) -> Chunk | None:
        """Return the next chunk; None when there is none, or not before others have come back.

        Parameters
        ----------
        workers : int
            How many there are.
        idle : bool
            Nothing is on its way.
        """
        if not self._waiting or (not self._known and self._probes >= workers and not idle):
            return None
        if not self._known:
            self._probes += 1
            return Chunk([self._cut(_PROBE_RUNS)])
        left = self._calls * self._call + self._runs * self._run
        aim = min(max(left / (workers * _SHARE), _LEAST_SECONDS), _MOST_SECONDS)
        tasks: list[Task] = []
        seconds, runs = 0.0, 0
        while self._waiting and seconds < aim and runs < _MOST_RUNS:
            room = max(aim - seconds - self._call, self._call, 0.0)
            task = self._cut(min(_MOST_RUNS, int(room / max(self._run, 1e-9)) + 1))
            tasks.append(task)
            seconds += self._call + len(task.runs) * self._run
            runs += len(task.runs)
        return Chunk(tasks)

    def _cut(self, most: int) -> Task:
        """The next task, or so many of its runs."""
        task = self._waiting.popleft()
        if len(task.runs) > 2 * most:
            self._waiting.appendleft(Task(task.signal, task.runs[most:]))
            task = Task(task.signal, task.runs[:most])
        else:
            self._calls -= 1
        self._runs -= len(task.runs)
        return task
