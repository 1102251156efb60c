"""The kinds of executors, and how the chunks of a sweep reach the workers of each."""

from __future__ import annotations

import contextlib
import importlib
import os
import sys
import tempfile
import time
from abc import ABC, abstractmethod
from collections.abc import Callable
from concurrent.futures import (
    BrokenExecutor,
    Executor,
    Future,
    ProcessPoolExecutor,
    ThreadPoolExecutor,
)
from pathlib import Path
from typing import Any

from corvex.simulation.notices import warn
from corvex.sweeping.runner import Job
from corvex.sweeping.values import Named, unwrap
from corvex.sweeping.workers.chunks import Chunk
from corvex.sweeping.workers.parcel import Parcel, dumps
from corvex.sweeping.workers.worker import Answer, Note, Station, work

__all__ = ["Pool", "check_executor", "pool_of"]

# A cluster may grow; asking it takes milliseconds.
_ASK_SECONDS = 2.0


def check_executor(executor: Any) -> None:
    """Refuse what runs nothing.

    Raises
    ------
    ValueError
        When it is neither an executor nor a Dask client.
    """
    if isinstance(executor, Executor) or _is_dask_client(executor):
        return
    raise ValueError(
        "executor must be a concurrent.futures.Executor, such as a ProcessPoolExecutor or what "
        f"client.get_executor() of a Dask client returns, or the client, got {executor!r}"
    )


def pool_of(executor: Any, job: Job, threads: int, *, raises: bool) -> Pool:
    """Return the pool of an executor; see `Pool`."""
    if isinstance(executor, ThreadPoolExecutor):
        return _Threads(executor, job, threads, raises=raises)
    client = executor if _is_dask_client(executor) else getattr(executor, "_client", None)
    if _is_dask_client(client):
        kept = getattr(executor, "_kwargs", {})
        return _Dask(client, kept, job, threads, raises=raises)
    return _Processes(executor, job, threads, raises=raises)


def _is_dask_client(value: Any) -> bool:
    return any(
        kind.__name__ == "Client" and kind.__module__.partition(".")[0] == "distributed"
        for kind in type(value).__mro__
    )


class Pool(ABC):
    """Workers that run chunks of one job.

    Attributes
    ----------
    loss : str
        What is told of a death.
    runs_here : bool
        Chunks run in this process, so that an error of one is as the run raised it.

    Parameters
    ----------
    executor : Executor
        Where they are.
    job : Job
        What the runs have in common.
    threads : int
        Of the engine in each worker.
    raises : bool
        The first error of a run ends the sweep.
    """

    loss = (
        "a worker process died and its pool with it; the sweep goes on in a new pool, and runs "
        "again what was lost"
    )
    runs_here = False

    def __init__(self, executor: Executor, job: Job, threads: int, *, raises: bool) -> None:
        self._executor = executor
        self._job, self._engine_threads, self._raises = job, threads, raises

    def __enter__(self) -> Pool:
        return self

    def __exit__(self, *_: object) -> None:
        """Clean up; the executor is the user's, and stays."""

    @property
    def workers(self) -> int:
        """How many chunks can run at a time."""
        return int(getattr(self._executor, "_max_workers", None) or os.cpu_count() or 1)

    @abstractmethod
    def submit(self, chunk: Chunk) -> Future[Answer]:
        """Hand a chunk over."""

    def submit_whole(self, chunk: Chunk) -> Future[Answer]:
        """Hand a chunk over together with the job, which its worker did not have."""
        return self.submit(chunk)

    def is_death(self, error: BaseException) -> bool:
        """Whether an error of a chunk says that its worker, or one beside it, died."""
        return isinstance(error, BrokenExecutor)

    def renew(self) -> bool:
        """Take a new pool in the place of a broken one; False when that cannot be done."""
        return False


class _Threads(Pool):
    """Threads of this process: nothing travels."""

    runs_here = True

    def __init__(self, executor: Executor, job: Job, threads: int, *, raises: bool) -> None:
        super().__init__(executor, job, threads, raises=raises)
        self._station = Station(job, threads, raises=raises)

    def submit(self, chunk: Chunk) -> Future[Answer]:
        return self._executor.submit(self._station.run, chunk.tasks)


class _Carried(Pool):
    """Other processes: the job travels once, what is peculiar to a chunk with it."""

    def __init__(self, executor: Executor, job: Job, threads: int, *, raises: bool) -> None:
        super().__init__(executor, job, threads, raises=raises)
        self._holders = _holders_of(job)
        self._parcel = Parcel(job.without_tables(), self._holders)
        self._note = Note(self._parcel.token, None, threads, raises)

    def _written(self, chunk: Chunk) -> bytes:
        values = [unwrap(value) for task in chunk.tasks for value in task.signal.values()]
        return dumps(chunk.tasks, [*self._holders, *filter(callable, values)])


class _Processes(_Carried):
    """Processes of this machine, which map a file, or of others, which get its content."""

    def __init__(self, executor: Executor, job: Job, threads: int, *, raises: bool) -> None:
        super().__init__(executor, job, threads, raises=raises)
        self._own: Executor | None = None
        self._whole: bytes | None = None
        self._folder = tempfile.TemporaryDirectory(prefix="corvex-", ignore_cleanup_errors=True)
        path = Path(self._folder.name) / self._parcel.token
        self._parcel.write(path)
        self._note = Note(self._parcel.token, str(path), threads, raises)

        if _forks(executor) and "polars" in sys.modules:
            warn(
                "this pool forks its processes, and polars hangs in a forked process once it has "
                "been used here; if the strategy uses it, make the pool with "
                'mp_context=multiprocessing.get_context("spawn")'
            )

    def __exit__(self, *_: object) -> None:
        self._folder.cleanup()
        if self._own is not None:
            self._own.shutdown(wait=True, cancel_futures=True)

    def submit(self, chunk: Chunk) -> Future[Answer]:
        return self._executor.submit(work, self._note, self._written(chunk))

    def submit_whole(self, chunk: Chunk) -> Future[Answer]:
        if self._whole is None:
            self._whole = self._parcel.whole()
        return self._executor.submit(work, self._note, self._written(chunk), self._whole)

    def renew(self) -> bool:
        broken = self._executor
        make = _renewer(broken)
        if make is None:
            return False
        # Its threads end first: a process that forks should have no others.
        broken.shutdown(wait=True)
        self._executor, self._own = make()
        try:
            self._executor.submit(os.getpid).result()
        except BrokenExecutor:  # it breaks by itself, such as in its initializer
            return False
        return True


def _forks(executor: Any) -> bool:
    """Whether the processes of a pool are forked from this one: all that runs here goes along."""
    context = getattr(executor, "_mp_context", None)
    return type(executor) is ProcessPoolExecutor and (
        getattr(context, "get_start_method", str)() == "fork"
    )


def _renewer(broken: Any) -> Callable[[], tuple[Executor, Executor | None]] | None:
    """What makes a pool like a broken one; and the same pool where the sweep has to close it."""
    if type(broken) is ProcessPoolExecutor:
        # What a pool was made with it does not tell otherwise.
        names = ("max_workers", "mp_context", "initializer", "initargs", "max_tasks_per_child")
        known = {name: getattr(broken, f"_{name}", None) for name in names}
        arguments: dict[str, Any] = {name: one for name, one in known.items() if one is not None}

        def pool() -> tuple[Executor, Executor]:
            made = ProcessPoolExecutor(**arguments)
            return made, made

        return pool
    package, _, module = type(broken).__module__.rpartition(".")
    if package.split(".")[-1:] == ["loky"] and module in ("reusable_executor", "process_executor"):
        loky = importlib.import_module(package)
        # The package's own pool, which all of the process share and it closes by itself.
        return lambda: (loky.get_reusable_executor(max_workers=broken._max_workers), None)
    return None


class _Dask(_Carried):
    """The workers of a Dask client: the job is scattered to all, a late one gets it from another.

    Dask itself tries the chunks of a dead worker again, on others.
    """

    loss = "workers died, and what was scattered to them is lost; it is handed out anew"

    def __init__(
        self, client: Any, kept: dict[str, Any], job: Job, threads: int, *, raises: bool
    ) -> None:
        if client.asynchronous:
            raise ValueError("executor is an asynchronous Dask client; make one without that")
        # Two chunks are never one and the same call to Dask.
        super().__init__(
            client.get_executor(**{**kept, "pure": False}), job, threads, raises=raises
        )
        self._client = client
        self._scattered: Any = None
        self._asked, self._workers = 0.0, 1

    @property
    def workers(self) -> int:
        if time.monotonic() - self._asked > _ASK_SECONDS:
            self._workers = max(1, sum(self._client.nthreads().values()))
            self._asked = time.monotonic()
        return self._workers

    def submit(self, chunk: Chunk) -> Future[Answer]:
        if self._scattered is None:
            self._scattered = self._client.scatter(self._parcel.whole(), broadcast=True, hash=False)
        written: Any = self._written(chunk)
        if len(written) > 1 << 20:  # not through the scheduler
            written = self._client.scatter(written, hash=False)
        return self._executor.submit(work, self._note, written, self._scattered)

    def is_death(self, error: BaseException) -> bool:
        # What was scattered to workers that are gone is lost, and its calls are cancelled.
        name = type(error).__name__
        return name == "KilledWorker" or "Cancelled" in name

    def renew(self) -> bool:
        self._scattered = None
        return True

    def __exit__(self, *_: object) -> None:
        self._scattered = None
        with contextlib.suppress(Exception):
            self._executor.shutdown(wait=False)


def _holders_of(job: Job) -> list[Any]:
    """What of a job may come from the user's own modules."""
    given = [*job.fixed.values(), *(value for row in job.options for value in row.values())]
    plain = (type(None), bool, int, float, str)
    held = {id(value): value for value in map(_bare, given) if not isinstance(value, plain)}
    return [job.strategy.given, *held.values()]


def _bare(value: Any) -> Any:
    return value.value if isinstance(value, Named) else value
