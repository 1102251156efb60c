"""Running the tasks of a sweep on a pool, through the death of workers."""

from __future__ import annotations

import pickle
from collections import Counter
from collections.abc import Iterator, Sequence
from concurrent.futures import FIRST_COMPLETED, CancelledError, Future, wait
from typing import Any

from corvex.simulation.notices import warn
from corvex.sweeping.run_results import Results
from corvex.sweeping.runner import Job, Task
from corvex.sweeping.workers.chunks import Chunk, Chunks
from corvex.sweeping.workers.pools import Pool, pool_of
from corvex.sweeping.workers.worker import Answer

__all__ = ["Crew"]

# A chunk that has been with so many dying workers is not tried again.
_MOST_DEATHS = 2
_AHEAD = 2
_KILLED = "RuntimeError: the worker process died twice while it had this run"


class Crew:
    """Runs tasks on an executor.

    Parameters
    ----------
    job : Job
        What the runs have in common.
    executor : Executor or dask.distributed.Client
        Where they run.
    threads : int
        Of the engine in each worker; 0 is one, as the executor spreads the work already.
    raises : bool
        An error of a run is raised instead of recorded.
    """

    def __init__(self, job: Job, executor: Any, threads: int = 0, *, raises: bool = False) -> None:
        self._job, self._executor = job, executor
        self._threads, self._raises = threads or 1, raises
        self._pending: dict[Future[Answer], Chunk] = {}
        self._answered = False
        self._told = False
        #: Texts of warnings, and in how many plans each was given.
        self.warned: Counter[str] = Counter()

    def run(self, tasks: Sequence[Task]) -> Iterator[Results]:
        """Yield the results of tasks as chunks of them come back, in any order.

        Raises
        ------
        RuntimeError
            When the workers cannot run any part of the sweep, such as for want of a package.
        """
        if not tasks:
            return
        chunks = Chunks(tasks)
        with pool_of(self._executor, self._job, self._threads, raises=self._raises) as pool:
            try:
                yield from self._run(pool, chunks)
            except KeyboardInterrupt:
                yield from self._finished()
                raise
            finally:
                for future in self._pending:
                    future.cancel()
                self._pending.clear()

    def _run(self, pool: Pool, chunks: Chunks) -> Iterator[Results]:
        while chunks or self._pending:
            lost: list[Chunk] = []
            while not lost and len(self._pending) < _AHEAD * pool.workers:
                chunk = chunks.take(pool.workers, idle=not self._pending)
                if chunk is None:
                    break
                if not self._submit(pool, chunk):
                    lost.append(chunk)
            done = () if lost else wait(self._pending, return_when=FIRST_COMPLETED).done
            for future in done:
                yield from self._settle(pool, chunks, future, lost)
            if lost:
                yield from self._recover(pool, chunks, lost)

    def _submit(self, pool: Pool, chunk: Chunk, *, whole: bool = False) -> bool:
        """Hand a chunk over; False when the pool is broken."""
        try:
            future = pool.submit_whole(chunk) if whole else pool.submit(chunk)
        except Exception as error:
            if not pool.is_death(error):
                raise
            return False
        self._pending[future] = chunk
        return True

    def _settle(
        self, pool: Pool, chunks: Chunks, future: Future[Answer], lost: list[Chunk]
    ) -> Iterator[Results]:
        """Take what came of a chunk; one whose worker may have died joins the lost."""
        chunk = self._pending.pop(future)
        error = CancelledError() if future.cancelled() else future.exception()
        if error is None:
            answer = future.result()
            if answer.lacks_parcel and not self._submit(pool, chunk, whole=True):
                lost.append(chunk)
            if answer.lacks_parcel:
                return
            yield self._read(chunks, answer)
        elif isinstance(error, KeyboardInterrupt):
            raise error
        elif pool.is_death(error):
            chunk.deaths += 1
            lost.append(chunk)
        elif pool.runs_here and self._raises:
            raise error
        elif not self._answered:
            raise RuntimeError(f"the workers cannot run the sweep: {error}") from error
        else:
            yield Results.empty(chunk.runs, f"{type(error).__name__}: {error}")

    def _read(self, chunks: Chunks, answer: Answer) -> Results:
        if answer.refused:
            raise RuntimeError(f"a worker cannot run the sweep: {answer.refused}")
        if answer.raised:
            raise pickle.loads(answer.raised)
        self._answered = True
        self.warned.update(answer.warned)
        if answer.spent is not None:
            chunks.learn(answer.spent)
        return Results.empty([]) if answer.results is None else answer.results

    def _recover(self, pool: Pool, chunks: Chunks, lost: list[Chunk]) -> Iterator[Results]:
        """Go on after the death of a worker that the pool did not make up for by itself.

        Nobody knows which of the chunks did it: each of those that were lost runs once more by
        itself, so that a second death is its own doing.
        """
        yield from self._settle_all(pool, chunks, lost)
        whole = self._renew(pool)
        while lost and whole:
            chunk = lost.pop(0)
            if chunk.deaths >= _MOST_DEATHS:
                yield Results.empty(chunk.runs, _KILLED)
                continue
            again = [] if self._submit(pool, chunk) else [chunk]
            yield from self._settle_all(pool, chunks, again)
            if again:
                lost[:0] = again
                whole = self._renew(pool)
        if not whole:
            yield from self._give_up(chunks, lost)

    def _settle_all(self, pool: Pool, chunks: Chunks, lost: list[Chunk]) -> Iterator[Results]:
        while self._pending:  # twice where a worker had to be sent the job
            for future in wait(self._pending).done:
                yield from self._settle(pool, chunks, future, lost)

    def _renew(self, pool: Pool) -> bool:
        if not pool.renew():
            return False
        if not self._told:
            self._told = True
            warn(pool.loss)
        return True

    def _give_up(self, chunks: Chunks, lost: list[Chunk]) -> Iterator[Results]:
        error = "RuntimeError: the pool of workers broke and could not be replaced"
        for chunk in lost:
            yield Results.empty(chunk.runs, error)
        while (one := chunks.take(1, idle=True)) is not None:
            yield Results.empty(one.runs, error)

    def _finished(self) -> Iterator[Results]:
        """What is done already, of the chunks that nobody has looked at yet."""
        for future in list(self._pending):
            if future.done() and not future.cancelled() and future.exception() is None:
                answer = future.result()
                if answer.results is not None:
                    del self._pending[future]
                    yield answer.results
