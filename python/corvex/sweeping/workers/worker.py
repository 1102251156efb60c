"""What is called in a worker: it opens the sweep once, and runs the chunks that it is given."""

from __future__ import annotations

import pickle
import threading
import time
from collections import Counter, OrderedDict
from collections.abc import Sequence
from dataclasses import dataclass, field

from corvex import __version__
from corvex.sweeping.run_results import Results, joined
from corvex.sweeping.runner import Job, Runner, Task
from corvex.sweeping.workers.chunks import Spent
from corvex.sweeping.workers.parcel import open_file, open_parcel

__all__ = ["Answer", "Note", "Station", "work"]

# Sweeps whose prices a process keeps.
_MOST_JOBS = 2


@dataclass(frozen=True, slots=True)
class Note:
    """What goes with each chunk.

    Attributes
    ----------
    token : str
        Of the parcel with the job.
    path : str or None
        Where the parcel lies, if on this machine.
    threads : int
        Of the engine.
    raises : bool
        The first error of a run ends the sweep.
    version : str
        Of the package that asks.
    """

    token: str
    path: str | None
    threads: int
    raises: bool
    version: str = __version__


@dataclass(slots=True)
class Answer:
    """What comes of a chunk.

    Attributes
    ----------
    results : Results or None
        None where it was not run.
    warned : Counter
        Texts of warnings, and in how many plans each was given.
    spent : Spent or None
        How long it took.
    lacks_parcel : bool
        The worker has no prices, and does not see the file.
    refused : str
        Why the worker can run no part of the sweep.
    raised : bytes
        The error of a run that ends the sweep, pickled.
    """

    results: Results | None = None
    warned: Counter[str] = field(default_factory=Counter)
    spent: Spent | None = None
    lacks_parcel: bool = False
    refused: str = ""
    raised: bytes = b""


class Station:
    """Runs the chunks of one job in one process; each thread has prices of its own.

    Parameters
    ----------
    job : Job
        What the runs have in common.
    threads, raises
        As in `Note`.
    """

    def __init__(self, job: Job, threads: int, *, raises: bool) -> None:
        self._job, self._threads, self._raises = job, threads, raises
        self._local = threading.local()

    def run(self, tasks: Sequence[Task]) -> Answer:
        """Run tasks; the first error of a run comes through where it ends the sweep."""
        runner: Runner | None = getattr(self._local, "runner", None)
        reading = runner is None
        if runner is None:
            runner = self._local.runner = Runner(self._job, self._threads, raises=self._raises)
        runner.warned, runner.call_seconds = Counter(), 0.0
        begin = time.perf_counter()
        try:
            results = joined(runner.run(tasks))
        except BaseException:
            self._local.runner = None  # it may hold half a batch
            raise
        seconds = time.perf_counter() - begin - runner.call_seconds
        spent = Spent(len(tasks), len(results), runner.call_seconds, seconds, reading)
        return Answer(results, runner.warned, spent)


_stations: OrderedDict[Note, Station] = OrderedDict()
_opening = threading.Lock()


def work(note: Note, chunk: bytes, parcel: bytes | None = None) -> Answer:
    """Run a chunk in a process of its own.

    Parameters
    ----------
    note : Note
        Which sweep it belongs to.
    chunk : bytes
        Its tasks, pickled.
    parcel : bytes, optional
        The job, where there is no file to read it from.
    """
    if note.version != __version__:
        return Answer(refused=f"it has corvex {__version__}, the caller {note.version}")
    try:
        station = _station(note, parcel)
        tasks = pickle.loads(chunk)
    except FileNotFoundError:
        return Answer(lacks_parcel=True)
    except Exception as error:
        return Answer(refused=f"it cannot read the sweep: {type(error).__name__}: {error}")
    if not note.raises:
        return station.run(tasks)
    try:
        return station.run(tasks)
    except Exception as error:
        return Answer(raised=_pickled(error))


def _station(note: Note, parcel: bytes | None) -> Station:
    with _opening:
        found = _stations.get(note)
        if found is None:
            if parcel is not None:
                job = open_parcel(parcel)
            elif note.path is not None:
                job = open_file(note.path)
            else:
                raise FileNotFoundError
            found = _stations[note] = Station(job, note.threads, raises=note.raises)
            while len(_stations) > _MOST_JOBS:
                _stations.popitem(last=False)
        _stations.move_to_end(note)
        return found


def _pickled(error: Exception) -> bytes:
    """The error in a form that can be read; some need more to be made than they tell."""
    try:
        text = pickle.dumps(error)
        pickle.loads(text)
    except Exception:
        return pickle.dumps(RuntimeError(f"{type(error).__name__}: {error}"))
    return text
