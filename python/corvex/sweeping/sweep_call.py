"""`corvex.sweep`: many runs of one strategy, each as `corvex.simulate` would make it."""

from __future__ import annotations

import ast
import json
import numbers
import os
from collections import Counter
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
import pandas as pd

from corvex import __version__
from corvex.simulation.notices import warn
from corvex.simulation.read.market_choice import choose_market
from corvex.simulation.read.price_tables import price_table
from corvex.sweeping.digest import digest
from corvex.sweeping.future_check import check_signals
from corvex.sweeping.grid import Grid, RunFinder, Space, read_space
from corvex.sweeping.progress import Progress, ProgressInput
from corvex.sweeping.run_results import INTERRUPTED, Results
from corvex.sweeping.runner import Job, Runner, Task
from corvex.sweeping.settings import check_names
from corvex.sweeping.store import Fingerprint, Store
from corvex.sweeping.strategy import Strategy, StrategyInput
from corvex.sweeping.swept import Source, Sweep
from corvex.sweeping.values import loads
from corvex.sweeping.workers.crew import Crew
from corvex.sweeping.workers.pools import check_executor
from corvex.sweeping.writing import Writer
from corvex.tables.frames import reread

if TYPE_CHECKING:
    from concurrent.futures import Executor

    from distributed import Client

    from corvex.simulation.read.price_tables import PriceInput

__all__ = ["open_sweep", "sweep"]

_MOST_WARNINGS = 5
# What a fingerprint holds beside the arguments of `simulate`.
_OWN_FINGERPRINT = ("version", "prices", "strategy", "keep", "riskfree_rate")


def sweep(
    strategy: StrategyInput,
    prices: PriceInput = None,
    *,
    signal: Space = None,
    options: Space = None,
    keep: Literal["figures", "curves"] = "figures",
    store: str | os.PathLike[str] | None = None,
    executor: Executor | Client | None = None,
    progress: ProgressInput = None,
    on_error: Literal["record", "raise"] = "record",
    riskfree_rate: float = 0.02,
    threads: int = 0,
    check_lookahead: bool = False,
    batched: bool = False,
    **fixed: Any,
) -> Sweep:
    """Simulate a strategy with many combinations of parameters.

    The strategy is called once for each combination of its own arguments; what it returns serves
    all combinations of options. The figures of a run are, bit for bit, those of
    ``corvex.simulate(...).get_stats()`` with the same arguments. ``docs/sweep.md`` tells more.

    Parameters
    ----------
    strategy : callable, mapping of str to table, or table
        A function of the prices and its own arguments that returns weights as `corvex.simulate`
        takes them; or weights that are there already, by name.
    prices : table or array, mapping of str to these, or None
        As `corvex.simulate` takes them; the strategy receives them as they are.
    signal : mapping, list of dict or DataFrame, optional
        The strategy's arguments. A mapping of names to values gives all combinations, the last
        name changing fastest; a list of dictionaries, or the rows of a table, are combinations as
        they are. Values that no index can hold, such as tables and functions, need names: a
        mapping of name to value in place of the values.
    options : mapping, list of dict or DataFrame, optional
        Arguments of `corvex.simulate` that vary, in the same forms.
    keep : {"figures", "curves"}, default "figures"
        "curves" keeps the equity of each run too.
    store : str or path, optional
        A folder that keeps the runs as Parquet files. A second call runs what is missing.
    executor : concurrent.futures.Executor or dask.distributed.Client, optional
        Where the runs are made: a pool of processes, a cluster. Default: on the engine's own
        threads in this process.
    progress : bool or callable, optional
        Whether to tell on standard error how far it is; None: on a terminal. A callable receives
        the numbers of runs done and of all.
    on_error : {"record", "raise"}, default "record"
        "record": a run that fails is a row with its error, and the others go on.
    riskfree_rate : float, default 0.02
        Per year, a fraction, as in `Report.get_stats`.
    threads : int, default 0
        Of the engine; 0 is one for each core, and one with an `executor` or in a process that
        another one has started, where the cores are busy already.
    check_lookahead : bool, default False
        First see, by `corvex.check_lookahead`, whether weights know later prices: for up to five
        combinations of the strategy's own arguments, from the first to the last. A finding is a
        warning; `lookahead` of the sweep has them all.
    batched : bool, default False
        The strategy makes the weights of many combinations in one call: of each of its arguments
        it is given an array, and it returns an array of shape (combinations, dates, assets) for
        the dates and assets of the prices, or a table for each combination, in their order. It is
        called with up to 512 combinations at a time, fewer where their weights would take more
        than 64 MB.
    **fixed
        Arguments of `corvex.simulate` that do not vary.

    Returns
    -------
    Sweep
        Also after Ctrl-C, which keeps what is done.

    Raises
    ------
    TypeError
        For an argument that `corvex.simulate` does not take.
    ValueError
        For parameters that cannot be used, and for a store that holds another sweep.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks")
    >>> def momentum(prices, lookback, top):
    ...     change = prices.pct_change(lookback, fill_method=None)
    ...     return change.rank(axis=1, ascending=False) <= top
    >>> found = corvex.sweep(
    ...     momentum, prices, signal={"lookback": [126, 252], "top": [3, 5]},
    ...     options={"trail_stop": [None, 0.2]}, resample="ME", fee_ratio=0.001,
    ...     market="us_stock",
    ... )
    >>> len(found)
    8
    >>> report = found.report(lookback=252, top=5, trail_stop=None)
    >>> bool(report.get_stats()["cagr"] == found.figures["cagr"].iloc[6])
    True
    """
    if keep not in ("figures", "curves"):
        raise ValueError(f"keep must be 'figures' or 'curves', got {keep!r}")
    if on_error not in ("record", "raise"):
        raise ValueError(f"on_error must be 'record' or 'raise', got {on_error!r}")
    known = isinstance(riskfree_rate, numbers.Real) and not isinstance(riskfree_rate, bool)
    if not (known and np.isfinite(riskfree_rate) and riskfree_rate > -1):
        raise ValueError(f"riskfree_rate must be a finite fraction above -1, got {riskfree_rate!r}")
    if isinstance(threads, bool) or not isinstance(threads, numbers.Integral) or threads < 0:
        raise ValueError(f"threads must be a whole number, 0 for one each core, got {threads!r}")
    check_names(fixed, varies=False)
    if executor is not None:
        check_executor(executor)
    source, prices = Strategy(strategy, batched=batched), reread(prices)
    grid = Grid(
        source.combinations(read_space(signal, "signal"), signal is not None),
        read_space(options, "options"),
    )
    _check_grid(grid, fixed)
    job = Job(source, prices, fixed, grid.options, riskfree_rate, keep == "curves")
    folder = None if store is None else Store(store)
    title = fixed.get("name") or source.name
    if folder is not None:
        shown = {"strategy": str(title or ""), "riskfree_rate": repr(float(riskfree_rate))}
        folder.open(_fingerprint(job), grid.columns, shown)
    checks = check_signals(source, prices, grid.signals) if check_lookahead else []
    raises = on_error == "raise"
    runner = (
        Runner(job, threads, raises=raises)
        if executor is None
        else Crew(job, executor, threads, raises=raises)
    )
    results = _run(runner, grid, folder, progress)
    found = Sweep(
        grid.columns,
        results,
        title=title,
        riskfree_rate=riskfree_rate,
        source=Source(job, grid),
    )
    found.lookahead = checks
    return found


def open_sweep(folder: str | os.PathLike[str]) -> Sweep:
    """Read a sweep from the folder that it was stored in.

    Parameters
    ----------
    folder : str or path
        What `corvex.sweep` was given as `store`.

    Returns
    -------
    Sweep
        With the runs in the order in which they were made. It has no strategy, so it makes no
        reports.

    Raises
    ------
    ValueError
        When the folder holds no sweep.
    """
    found = Store(folder)
    manifest = found.manifest
    if manifest is None:
        raise ValueError(f"{folder} holds no sweep")
    count, parts = found.latest()
    results = Results.empty(np.arange(count))
    labels: dict[str, list[Any]] = {name: [] for name in manifest["parameters"]}
    done = 0
    for part, keys in parts:
        results.put(part, np.arange(done, done + len(part)))
        done += len(part)
        for key in keys:
            read = json.loads(key)
            row = {**loads(read["signal"]), **loads(read["options"])}
            for name, values in labels.items():
                values.append(row.get(name, "default"))
    rate = float(manifest["riskfree_rate"])
    kept = manifest["fingerprint"].items()
    fixed = {name: _read_shown(text) for name, text in kept if name not in _OWN_FINGERPRINT}
    title = manifest["strategy"] or None
    return Sweep(labels, results, title=title, riskfree_rate=rate, fixed=fixed)


def _check_grid(grid: Grid, fixed: dict[str, Any]) -> None:
    check_names(grid.option_names, varies=True)
    for names, what in ((fixed, "fixed"), (grid.signal_names, "an argument of the strategy")):
        twice = [name for name in grid.option_names if name in names]
        if twice:
            raise ValueError(f"{twice[0]!r} is in options and {what} too; give it once")


def _fingerprint(job: Job) -> Fingerprint:
    """What has to be the same for runs to belong together."""
    if job.prices is not None:
        prices = digest(job.prices)
    elif job.fixed.get("market") is not None:
        market = choose_market(job.fixed["market"], pd.Index([]))
        prices = digest(price_table(market, "close"))
    else:
        raise ValueError("a store of runs on a market's own tables needs market=, its name")
    return {
        "version": __version__,
        "prices": prices,
        "strategy": job.strategy.fingerprint(),
        "keep": "curves" if job.keep_curves else "figures",
        "riskfree_rate": repr(float(job.riskfree_rate)),
        **{name: _shown(job.fixed[name]) for name in sorted(job.fixed) if name != "name"},
    }


def _read_shown(text: str) -> Any:
    """Read back what `_shown` wrote; of tables and functions only that there was something."""
    try:
        return ast.literal_eval(text)
    except (ValueError, SyntaxError):
        return "…"


def _shown(value: Any) -> str:
    value = value.item() if isinstance(value, np.number | np.bool_) else value
    plain = value is None or isinstance(value, str | int | float)
    return repr(value) if plain else digest(value)


def _run(
    runner: Runner | Crew, grid: Grid, store: Store | None, progress: ProgressInput
) -> Results:
    """Run what is not there yet; a combination that occurs twice runs once."""
    first = grid.first_alike(for_good=store is not None)
    results = Results.empty(np.arange(len(grid)), INTERRUPTED)
    missing = first == np.arange(len(grid))
    count = int(missing.sum())
    if store is not None:
        _read_store(store, grid, missing, results)
    tasks = _tasks(grid, missing)
    told = Progress(progress, count, count - int(missing.sum()))
    writer = None if store is None else Writer(store, grid)
    interrupted = False
    try:
        for part in runner.run(tasks):
            results.put(part)
            if writer is not None:
                writer.add(part)
            told.add(len(part))
    except KeyboardInterrupt:
        interrupted = True
    finally:
        told.close()
        if writer is not None:
            writer.close()
    repeated = np.flatnonzero(first != np.arange(len(grid)))
    if len(repeated):
        results.put(results.take(first[repeated]), repeated)
    _tell(results, runner.warned, interrupted)
    return results


def _read_store(store: Store, grid: Grid, missing: np.ndarray, results: Results) -> None:
    """Take the runs that are there for those that miss, which they no longer do then."""
    finder: RunFinder | None = None
    for found, keys in store.rows():
        finder = finder or RunFinder(grid, missing)
        runs = finder.find(keys)
        failed = found.errors.astype(bool)  # may go well now
        there = np.flatnonzero((runs >= 0) & ~failed)
        results.put(found.take(there), runs[there])
        missing[runs[there]] = False
        again = runs[(runs >= 0) & failed]
        results.put(Results.empty(again, INTERRUPTED))
        missing[again] = True


def _tasks(grid: Grid, missing: np.ndarray) -> list[Task]:
    runs = np.flatnonzero(missing)
    signals, options = np.divmod(runs, max(1, len(grid.options)))
    pairs = np.column_stack([runs, options])
    first = np.flatnonzero(np.diff(signals, prepend=-1))
    ends = np.append(first, len(runs))[1:]
    return [
        Task(grid.signals[signal], pairs[begin:end])
        for signal, begin, end in zip(
            signals[first].tolist(), first.tolist(), ends.tolist(), strict=True
        )
    ]


def _tell(results: Results, warned: Counter[str], interrupted: bool) -> None:
    """Say once what single runs would have said each, and how many failed."""
    for text, count in warned.most_common(_MOST_WARNINGS):
        warn(text if count == 1 else f"{text} (and so in {count} parts of the sweep)")
    if len(warned) > _MOST_WARNINGS:
        warn(f"{len(warned) - _MOST_WARNINGS} more warnings of single runs are not shown")
    failed = [error for error in results.errors if error is not None and error != INTERRUPTED]
    if failed:
        warn(f"{len(failed)} of {len(results)} runs failed, the first with {failed[0]}")
    if interrupted:
        done = sum(error != INTERRUPTED for error in results.errors)
        warn(f"the sweep was interrupted: {done} of {len(results)} runs are done")
