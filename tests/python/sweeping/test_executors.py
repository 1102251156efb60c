"""Sweeps on executors: every run is there once, bit for bit that of this process."""

import contextlib
import dataclasses
import multiprocessing
import os
import pickle
import signal
import sys
import threading
import warnings
from concurrent.futures import Executor, Future, ProcessPoolExecutor, ThreadPoolExecutor

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.sweeping.runner import Task
from corvex.sweeping.workers import chunks, worker
from corvex.sweeping.workers.chunks import Chunks, Spent
from corvex.sweeping.workers.pools import pool_of

LIMIT = 0.0
LOCK = threading.Lock()
FIXED = {"market": "us_stock", "fee_ratio": 0.001, "tax_ratio": 0.0, "keep": "curves"}
OPTIONS = {"trail_stop": [None, 0.05, -1.0], "resample": ["W", "ME"]}


def prices():
    draw = np.random.default_rng(7)
    dates = pd.bdate_range("2021-01-04", periods=300, tz="Asia/Taipei")
    return pd.DataFrame(
        100 * np.exp(draw.normal(0.0005, 0.02, (300, 4)).cumsum(axis=0)), dates, list("ABCD")
    )


def strategy(prices, lookback, how=abs, flag=None, parent=None):
    """Kills the process in which it stands: once where there is a flag, always with a parent."""
    if lookback == 7:
        with contextlib.suppress(FileExistsError):
            if flag is not None:
                os.close(os.open(flag, os.O_CREAT | os.O_EXCL))
            if flag is not None or parent not in (None, os.getpid()):
                os.kill(os.getpid(), signal.SIGKILL)
    if lookback == 13:
        raise RuntimeError("unlucky")
    return how(prices.pct_change(lookback, fill_method=None)) > LIMIT


def swept(executor=None, lookbacks=range(1, 20), **more):
    how = {"rises": lambda change: change, "moves": abs}
    arguments = {"signal": {"lookback": lookbacks, "how": how}, "options": OPTIONS, **FIXED, **more}
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)
        return corvex.sweep(
            arguments.pop("strategy", strategy), arguments.pop("prices", prices()),
            executor=executor, **arguments,
        )  # fmt: skip


def assert_same(found, serial):
    columns = [name for name in serial.figures.columns if name != "seconds"]
    own, other = found.figures[columns], serial.figures[columns]
    pd.testing.assert_frame_equal(own, other, check_exact=True)
    pd.testing.assert_frame_equal(found.curves, serial.curves, check_exact=True)


def processes():
    context = multiprocessing.get_context("forkserver")
    context.set_forkserver_preload(["corvex.sweeping.workers.worker"])
    return ProcessPoolExecutor(2, mp_context=context)


def loky_processes():
    loky = pytest.importorskip("loky")
    return loky.get_reusable_executor(max_workers=1)


@contextlib.contextmanager
def dask_client():
    distributed = pytest.importorskip("distributed")
    options = {"processes": True, "threads_per_worker": 1, "dashboard_address": None}
    with (
        distributed.LocalCluster(n_workers=2, silence_logs="CRITICAL", **options) as cluster,
        distributed.Client(cluster) as client,
    ):
        yield client


@pytest.fixture(scope="module")
def serial():
    return swept()


@pytest.mark.parametrize(
    "pool",
    [
        processes,
        pytest.param(loky_processes, marks=pytest.mark.slow),
        pytest.param(dask_client, marks=pytest.mark.slow),
    ],
)
def test_a_worker_that_dies_costs_no_run(pool, serial, tmp_path, monkeypatch):
    monkeypatch.setattr(chunks, "_LEAST_SECONDS", 0.02)
    flag = str(tmp_path / "killed")
    with pool() as executor:
        found = swept(executor, strategy=lambda *given, **more: strategy(*given, flag=flag, **more))
    assert os.path.exists(flag)
    assert_same(found, serial)


def test_a_chunk_that_kills_its_workers_becomes_rows_with_an_error(serial, monkeypatch):
    monkeypatch.setattr(chunks, "_LEAST_SECONDS", 1e-6)  # a call of the strategy each
    monkeypatch.setattr(chunks, "_SHARE", 1e9)
    parent = os.getpid()
    with processes() as executor:
        found = swept(
            executor, strategy=lambda *given, **more: strategy(*given, parent=parent, **more)
        )
    killed = found.figures["error"].str.contains("died twice", na=False)
    assert set(found.figures.index[killed].get_level_values("lookback")) == {7}
    columns = [name for name in serial.figures.columns if name != "seconds"]
    left = [table.figures.loc[~killed.to_numpy(), columns] for table in (found, serial)]
    pd.testing.assert_frame_equal(*left, check_exact=True)


class Here(Executor):
    """Runs everything at once in this process; sees the files of the machine or does not."""

    _max_workers = 1

    def __init__(self, *, far=False, version=None):
        self.far, self.version, self.parcels, self.calls = far, version, 0, 0

    def submit(self, function, note, chunk, parcel=None):
        self.calls, self.parcels = self.calls + 1, self.parcels + (parcel is not None)
        note = dataclasses.replace(note, path="/nowhere" if self.far else note.path,
                                   version=self.version or note.version)  # fmt: skip
        future = Future()
        try:
            future.set_result(pickle.loads(pickle.dumps(function(note, chunk, parcel))))
        except BaseException as error:
            future.set_exception(error)
        return future


def test_threads_and_executors_of_any_kind_run_a_sweep(serial, tmp_path):
    with ThreadPoolExecutor(3) as threads:
        assert_same(swept(threads), serial)
    far = Here(far=True)
    assert_same(swept(far), serial)
    assert far.parcels == 1  # the worker keeps what it was sent
    swept(None, range(1, 9), store=tmp_path)
    near = Here()
    assert_same(swept(near, store=tmp_path), serial)
    assert near.parcels == 0
    tables = {name: strategy(prices(), name) for name in (3, 5)}
    found = corvex.sweep(tables, prices(), executor=Here(), **FIXED)
    assert_same(found, corvex.sweep(tables, prices(), **FIXED))


def test_a_worker_opens_a_sweep_once_and_its_arrays_are_those_of_the_file(monkeypatch):
    opened = []
    real = worker.open_file
    monkeypatch.setattr(worker, "open_file", lambda path: opened.append(real(path)) or opened[-1])
    table = prices()
    before = table.copy()

    def careless(prices, lookback):
        prices.iloc[0, 0] = lookback  # in the worker's own pages
        return prices.pct_change(lookback, fill_method=None) > 0

    executor = Here()
    corvex.sweep(careless, table, signal={"lookback": [3, 5, 8]}, executor=executor, **FIXED)
    assert (len(opened), executor.calls > 1) == (1, True)
    pd.testing.assert_frame_equal(table, before)


class Unreadable(Exception):
    def __init__(self, one, other):
        super().__init__(f"{one} and {other}")


def fail(kind, *told):
    raise kind(*told)


@pytest.mark.parametrize(
    ("error", "raised", "text"),
    [
        ((ValueError, "as it is"), ValueError, "as it is"),
        # Some packages make such errors readable.
        ((Unreadable, "this", "that"), (RuntimeError, Unreadable), "this and that"),
    ],
)
def test_errors_come_back_from_workers(error, raised, text):
    with pytest.raises(raised, match=text):
        corvex.sweep(lambda prices: fail(*error), prices(), executor=Here(), on_error="raise")
    with ThreadPoolExecutor(1) as threads, pytest.raises(error[0], match=text):
        corvex.sweep(lambda prices: fail(*error), prices(), executor=threads, on_error="raise")


def test_what_no_worker_can_run_is_told(monkeypatch):
    with pytest.raises(RuntimeError, match="it has corvex .*, the caller 0.0"):
        corvex.sweep(strategy, prices(), signal={"lookback": [3]}, executor=Here(version="0.0"))
    with pytest.raises(ValueError, match=r"executor must be a concurrent.futures.Executor"):
        corvex.sweep(strategy, prices(), signal={"lookback": [3]}, executor=4)
    job = corvex.sweep(strategy, prices(), signal={"lookback": [3]}, **FIXED).source.job
    for method, count in (("fork", 1), ("spawn", 0)):
        pool = ProcessPoolExecutor(1, mp_context=multiprocessing.get_context(method))
        with warnings.catch_warnings(record=True) as told, monkeypatch.context() as patch:
            warnings.simplefilter("always")
            patch.setitem(sys.modules, "polars", sys)
            with pool_of(pool, job, 1, raises=False):
                assert ["polars hangs" in str(one.message) for one in told] == [True] * count
    stopped = lambda prices, lookback: fail(KeyboardInterrupt) if lookback == 3 else prices > 0  # noqa: E731
    with pytest.warns(UserWarning, match="interrupted: 1 of 4 runs are done"):
        found = corvex.sweep(
            stopped, prices(), signal={"lookback": [1, 2, 3, 4]}, executor=Here(), **FIXED
        )
    assert found.figures["cagr"].notna().tolist() == [True, False, False, False]


@pytest.mark.parametrize(("call", "run"), [(0.03, 0.0001), (0.0, 0.0002), (1.0, 0.01), (0.0, 2.0)])
def test_chunks_hold_each_run_once_and_are_worth_a_journey(call, run):
    options = np.arange(500)
    tasks = [Task({"at": at}, np.column_stack([at * 500 + options, options])) for at in range(40)]
    cut, seen, seconds = Chunks(tasks), [], []
    while (chunk := cut.take(2, idle=True)) is not None:
        seen += chunk.runs
        calls, count = len(chunk.tasks), len(chunk.runs)
        seconds.append(calls * call + count * run)
        first = len(seconds) == 1
        cut.learn(Spent(calls, count, calls * call, count * run + 0.5 * first, first))
    assert sorted(seen) == list(range(20_000))
    later = seconds[2:-1]  # the first tells how long runs take, with the reading of prices
    assert min(later) >= 0.25
    assert (
        max(later) <= max(1.0 + call + 500 * run if call else 1.0, 2 * call, run) + 2 * run + call
    )
