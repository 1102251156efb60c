"""Running parts of a grid: strategies are called, plans made once, and the engine runs batches."""

from __future__ import annotations

import dataclasses
import multiprocessing
import os
import threading
import time
import warnings
from collections import Counter
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from functools import cached_property
from typing import Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.markets import infer_market_name
from corvex.markets.bars import period_before
from corvex.simulation.doubts import warn_about_guessed_costs, warn_about_run
from corvex.simulation.held_prices import check_held_prices
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan, Timeline, make_timeline, plan_of
from corvex.simulation.read.asset_prices import AssetPrices
from corvex.simulation.read.clock import Clock
from corvex.simulation.read.price_data import PriceData, read_prices
from corvex.simulation.read.weights import WeightTable, read_weights
from corvex.simulation.report.results import curve_and_position
from corvex.simulation.run import run_plan
from corvex.sweeping.account_runs import account_results
from corvex.sweeping.grid import Combination
from corvex.sweeping.run_results import BLOCKS, FIGURES, Results, joined
from corvex.sweeping.settings import Settings
from corvex.sweeping.strategy import FormError, Strategy

__all__ = ["Job", "Runner", "Task"]

# A batch is run when it has so many runs, bytes of targets or seconds of strategies.
_MOST_RUNS = 4096
_MOST_ACCOUNTS = 16
_MOST_BYTES = 1 << 26
_BYTES_A_THREAD = 1 << 23  # enough that none waits long for the last run of another
_MOST_SECONDS = 1.0
_MOST_TIMELINES = 64
_MOST_OPTIONS = 2 * _MOST_RUNS
# Catching warnings changes what all threads of a process do with theirs.
_CATCHING = threading.Lock()
_STOPS_ABOVE_ONE = ("stop_loss", "take_profit", "trail_stop")


@dataclass(frozen=True, eq=False)
class Job:
    """What all runs of a sweep have in common; it can be carried to other processes.

    Attributes
    ----------
    strategy : Strategy
        Makes the weights.
    prices : object
        As the user handed them over.
    fixed : mapping of str to object
        Arguments of `simulate` that do not vary.
    options : sequence of dict
        Combinations of those that do.
    riskfree_rate : float
        Per year, a fraction.
    keep_curves : bool
        Keep the equity curves.
    """

    strategy: Strategy
    prices: Any
    fixed: Mapping[str, Any]
    options: Sequence[Combination]
    riskfree_rate: float
    keep_curves: bool

    def without_tables(self) -> Job:
        """Return the same, for where each task brings the table that it runs."""
        return dataclasses.replace(self, strategy=self.strategy.without_tables())


@dataclass(frozen=True, slots=True, eq=False)
class Task:
    """One call of the strategy, and the runs that its weights serve.

    Attributes
    ----------
    signal : dict
        The strategy's arguments.
    runs : int64 array of shape (n, 2)
        The number of each run and that of its options.
    """

    signal: Combination
    runs: np.ndarray


class _Calendar:
    """How figures read the sessions of a clock."""

    def __init__(self, clock: Clock) -> None:
        self._clock = clock
        local = clock.index if clock.index.tz is None else clock.index.tz_localize(None)
        self.times: np.ndarray = np.ascontiguousarray(local.as_unit("ns").asi8)
        self.closes = _engine.day_end_rows(self.times)
        self.key = int(clock.index.as_unit("ns").asi8[0]), len(clock)
        self.blocks = BLOCKS if len(clock) > 2 * BLOCKS else 0

    @cached_property
    def before(self) -> int:
        """One bar before the first session."""
        stamp = period_before(self._clock.index)
        return int(pd.Timestamp(stamp.tz_localize(None)).as_unit("ns").value)

    def before_plan(self, plan: Plan) -> int:
        # The curve of a plan that is signalled within the sessions starts at that signal.
        signals = plan.schedule.sessions
        return self.before if len(signals) and signals[0] < 0 else 0


@dataclass(frozen=True, slots=True, eq=False)
class _Route:
    """What runs have in common whose weights have the same dates and labels, and their options.

    Attributes
    ----------
    settings, labels, data, options, prices
        What the run rests on.
    plan_key : int
        The same for routes whose plans are the same.
    watched : bool
        Each run is to be looked at, for stops that are hardly meant.
    """

    settings: Settings
    labels: pd.Index
    data: PriceData
    options: Options
    prices: AssetPrices
    plan_key: int
    watched: bool


@dataclass(eq=False)
class _Group:
    """Runs that share prices, and so a call of the engine."""

    data: PriceData
    prices: AssetPrices
    calendar: _Calendar
    plans: list[Plan] = field(default_factory=list)
    options: list[Options] = field(default_factory=list)
    pairs: list[tuple[int, int]] = field(default_factory=list)
    settings: list[Settings] = field(default_factory=list)
    runs: list[int] = field(default_factory=list)
    seconds: list[float] = field(default_factory=list)
    _known: dict[int, int] = field(default_factory=dict)

    def add(self, run: int, plan: Plan, options: Options, settings: Settings, secs: float) -> None:
        # Plans and options are alive in the lists, so their ids are theirs alone.
        place = self._known.setdefault(id(plan), len(self.plans))
        if place == len(self.plans):
            self.plans.append(plan)
        at = self._known.setdefault(id(options), len(self.options))
        if at == len(self.options):
            self.options.append(options)
        self.pairs.append((place, at))
        self.settings.append(settings)
        self.runs.append(run)
        self.seconds.append(secs)

    def drop_unfinished(self) -> None:
        """Take away what an interrupted `add` has left."""
        for kept in (self.pairs, self.settings, self.runs):
            del kept[len(self.seconds) :]


class Runner:
    """Runs tasks, part by part; prices that were read are kept for the next ones.

    Parameters
    ----------
    job : Job
        What the runs have in common.
    threads : int
        Of the engine; 0 is one for each core, and one in a process that others have started: a
        pool has one for each core already.
    raises : bool
        An error of a run is raised instead of recorded.
    """

    def __init__(self, job: Job, threads: int = 0, *, raises: bool = False) -> None:
        self._job = job
        self._threads = threads or int(multiprocessing.parent_process() is not None)
        self._raises = raises
        cores = self._threads or os.cpu_count() or 1
        self._most_bytes = min(_MOST_BYTES, cores * _BYTES_A_THREAD)
        self._data: dict[Any, PriceData] = {}
        self._settings: dict[Any, Settings] = {}
        self._settings_at: dict[int, Settings] = {}
        self._routes: dict[int, _Route] = {}
        self._plan_keys: dict[Any, int] = {}
        self._calendars: dict[int, _Calendar] = {}
        self._like: WeightTable | None = None
        self._timelines: dict[tuple[int, int], tuple[pd.Index, Timeline, bool]] = {}
        self._groups: dict[int, _Group] = {}
        self._failed: list[Results] = []
        self._alone: list[Results] = []
        #: Texts of warnings, and in how many plans each was given.
        self.warned: Counter[str] = Counter()
        #: What the calls of the strategy took.
        self.call_seconds = 0.0

    def run(self, tasks: Sequence[Task]) -> Iterator[Results]:
        """Yield the results of tasks, some hundreds or thousands of runs at a time."""
        runs = weight = 0
        since = time.perf_counter()
        try:
            for task, weights, seconds in self._called(tasks):
                for count, size in self._prepare(task, weights, seconds):
                    runs += count
                    weight += size
                    full = runs >= _MOST_RUNS or weight >= self._most_bytes
                    if full or time.perf_counter() - since >= _MOST_SECONDS:
                        yield self._flush()
                        runs = weight = 0
                        since = time.perf_counter()
        except KeyboardInterrupt:  # to call strategies took time, and the rest takes next to none
            for group in self._groups.values():
                group.drop_unfinished()
            yield self._flush()
            raise
        if runs:
            yield self._flush()

    # -- before the engine -------------------------------------------------------------------

    def _called(self, tasks: Sequence[Task]) -> Iterator[tuple[Task, Any, float]]:
        """Yield each task with its weights, or what went wrong, and the seconds that they took."""
        strategy, prices = self._job.strategy, self._job.prices
        most = strategy.calls_of(prices)
        for first in range(0, len(tasks), most):
            some = tasks[first : first + most]
            found, took = self._call(some)
            if isinstance(found, Exception) and len(some) > 1 and not isinstance(found, FormError):
                for task in some:  # find out whose fault it is
                    alone, took = self._call([task])
                    yield task, alone if isinstance(alone, Exception) else alone[0], took
                continue
            for at, task in enumerate(some):
                yield task, found if isinstance(found, Exception) else found[at], took / len(some)

    def _call(self, tasks: Sequence[Task]) -> tuple[list[Any] | Exception, float]:
        begin = time.perf_counter()
        found: list[Any] | Exception
        try:
            found = self._job.strategy.called(self._job.prices, [task.signal for task in tasks])
        except Exception as error:
            found = error
        took = time.perf_counter() - begin
        self.call_seconds += took
        return found, took

    def _prepare(self, task: Task, weights: Any, seconds: float) -> Iterator[tuple[int, int]]:
        """Plan the runs of a task; yield the number of some, and the bytes of their targets."""
        if isinstance(weights, Exception):
            self._fail(task.runs[:, 0], weights)
            yield len(task.runs), 0
            return
        each = seconds / len(task.runs)
        tables: dict[Any, WeightTable] = {}
        plans: dict[int, Plan] = {}
        told: set[str] = set()
        most = self._runs_at_once(task)
        for first in range(0, len(task.runs), most):
            known = len(plans)
            part = task.runs[first : first + most].tolist()
            with _CATCHING, warnings.catch_warnings(record=True) as caught:
                warnings.simplefilter("always")
                for run, options in part:
                    try:
                        self._plan(run, options, weights, tables, plans, each)
                    except Exception as error:
                        self._fail([run], error)
            told.update([str(one.message) for one in caught])
            new = list(plans.values())[known:]
            yield len(part), sum([plan.schedule.targets.nbytes for plan in new])
        if told:
            self.warned.update(told)

    def _plan(
        self,
        run: int,
        at: int,
        weights: Any,
        tables: dict[Any, WeightTable],
        plans: dict[int, Plan],
        seconds: float,
    ) -> None:
        begin = time.perf_counter()
        settings = self._settings_of(at)
        table = tables.get(settings.weights)
        if table is None:
            table = tables[settings.weights] = read_weights(
                weights,
                limit=settings.limit,
                leverage=settings.leverage,
                like=self._like,
                **settings.axes,
            )
            self._remember(table)
        route = self._routes.get(at)
        if route is None or route.labels is not table.labels:
            route = self._routes[at] = self._find_route(at, settings, table)
        plan = plans.get(route.plan_key)
        new = plan is None
        late = False
        if plan is None:
            timeline, late = self._timeline(table.index, route)
            plan = plans[route.plan_key] = plan_of(table, timeline)
        if settings.account is not None:
            self._run_alone(run, plan, route, seconds, begin)
            return
        prices, options = route.prices, route.options
        group = self._groups.get(id(prices))
        if not prices.is_sound and (new or group is None):
            check_held_prices(prices, plan, route.data.clock)
        if route.watched or late or (new and (plan.scaled is not None or plan.is_idle)):
            warn_about_run(plan, options, route.data.clock)
        if group is None:
            group = _Group(route.data, prices, self._calendar(route.data.clock))
            self._groups[id(prices)] = group
        group.add(run, plan, options, settings, seconds + time.perf_counter() - begin)

    def _runs_at_once(self, task: Task) -> int:
        """How many runs of a task are prepared before others may see what is done.

        Those that keep an account are not prepared but run.
        """
        first = self._job.options[int(task.runs[0, 1])]
        keeps = "account" in self._job.fixed or "account" in first
        return _MOST_ACCOUNTS if keeps else _MOST_RUNS

    def _run_alone(self, run: int, plan: Plan, route: _Route, secs: float, begin: float) -> None:
        calendar = self._calendar(route.data.clock)
        results = account_results(
            run, route.data, plan, route.options, route.settings,
            riskfree_rate=self._job.riskfree_rate, blocks=calendar.blocks,
            keep_curve=self._job.keep_curves,
        )  # fmt: skip
        results.calendar[:] = calendar.key
        results.calendars[calendar.key] = route.data.clock.index
        results.seconds[:] = secs + time.perf_counter() - begin
        self._alone.append(results)

    def _settings_of(self, at: int) -> Settings:
        found = self._settings_at.get(at)
        if found is None:
            given = self._job.options[at]
            shared = Settings.key(given)
            found = self._settings.get(shared)
            if found is None:
                found = self._settings[shared] = Settings.read(self._job.fixed, given)
            if len(self._settings_at) >= _MOST_OPTIONS:
                self._settings_at.clear()
            self._settings_at[at] = found
        return found

    def _remember(self, table: WeightTable) -> None:
        """Take a table for the one that others are likened to; routes are those of its dates."""
        like = self._like
        if like is None or table.index is not like.index or table.labels is not like.labels:
            self._routes.clear()
        self._like = table

    def _find_route(self, at: int, settings: Settings, table: WeightTable) -> _Route:
        given = self._job.options[at]
        data = self._data_of(settings, given, table)
        options = settings.engine_options(data, given)
        if len(self._routes) >= _MOST_OPTIONS:
            self._routes.clear()
        prices = data.of_assets(
            table.labels, settings.arguments["trade_at"], with_bars=options.touched_exit
        )
        stops = any(1.0 < getattr(options, stop) < np.inf for stop in _STOPS_ABOVE_ONE)
        key = settings.plan, id(data)
        return _Route(
            settings=settings,
            labels=table.labels,
            data=data,
            options=options,
            prices=prices,
            plan_key=self._plan_keys.setdefault(key, len(self._plan_keys)),
            watched=stops,
        )

    def _timeline(self, dates: pd.DatetimeIndex, route: _Route) -> tuple[Timeline, bool]:
        """When plans are rebalanced whose weights have these dates; most tables share them.

        Beside it, whether the weights begin after the last price.
        """
        key = id(dates), route.plan_key
        known = self._timelines.get(key)
        if known is not None:
            return known[1:]
        settings, clock = route.settings, route.data.clock
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            found = make_timeline(dates, route.data, settings.rule, settings.offset)
        for one in caught:  # each table is to say so
            warnings.warn_explicit(one.message, one.category, one.filename, one.lineno)
        late = bool(found.begins > clock.last)
        if not caught:
            if len(self._timelines) >= _MOST_TIMELINES:
                self._timelines.clear()
            self._timelines[key] = dates, found, late
        return found, late

    def _data_of(self, settings: Settings, options: Combination, table: WeightTable) -> PriceData:
        """The prices of a run; those that were read for another one where it may share them."""
        given, prices = settings.arguments, self._job.prices
        key: tuple[Any, ...] = settings.span
        if given["market"] is None:
            key += (infer_market_name(table.labels),)
        if getattr(prices, "ndim", 2) == 1:  # a price without a label is that of the weights
            key += (tuple(table.labels),)
        if key not in self._data:
            data = read_prices(prices, table.labels, **settings.prices)
            if given["market"] is None and prices is not None:
                ratios = settings.cost_ratios(options)
                warn_about_guessed_costs(data.market, settings.account, ratios)
            if given["live_performance_start"] is not None:
                data.clock.border(given["live_performance_start"], "live_performance_start")
            self._data[key] = data
        return self._data[key]

    def _calendar(self, clock: Clock) -> _Calendar:
        found = self._calendars.get(id(clock))
        if found is None:
            found = self._calendars[id(clock)] = _Calendar(clock)
        return found

    def _fail(self, runs: list[int] | np.ndarray, error: Exception) -> None:
        if self._raises:
            raise error
        self._failed.append(Results.empty(runs, _told(error)))

    # -- the engine --------------------------------------------------------------------------

    def _flush(self) -> Results:
        groups, self._groups = self._groups, {}
        parts = [self._run_group(group) for group in groups.values() if group.runs]
        parts += self._failed + self._alone
        self._failed, self._alone = [], []
        return joined(parts)

    def _run_group(self, group: _Group) -> Results:
        begin = time.perf_counter()
        calendar = group.calendar
        results = Results.empty(group.runs)
        try:
            found = self._call_engine(group, calendar)
        except (ValueError, OverflowError) as error:
            if len(group.runs) > 1:  # find out whose fault it is
                return joined(self._run_group(one) for one in _single(group))
            self._explain(group, results, 0)
            if results.errors[0] is None:  # a single run has nothing to say against it
                if self._raises:
                    raise
                results.put(Results.empty([0], _told(error)))
            return results
        count = len(FIGURES)
        results.figures[:, :count] = found["figures"]
        costs = [found["fees"], found["taxes"], found["slippage"]]
        wins = np.where(np.isnan(found["win_rate"]), 0.0, found["win_rate"])
        extras = [*costs, costs[0] + costs[1] + costs[2], found["turnover"], wins, found["trades"]]
        results.figures[:, count:] = np.column_stack(extras)
        if found["sums"] is not None and found["squares"] is not None:
            results.sums[:] = found["sums"]
            results.squares[:] = found["squares"]
        results.begins[:] = found["begins"]
        results.calendar[:] = calendar.key
        results.calendars[calendar.key] = group.data.clock.index
        if found["curves"] is not None:
            for place, curve in enumerate(found["curves"]):
                results.curves[place] = curve
        total = results.figures[:, FIGURES.index("total_return")]
        broken = np.isinf(total) | (np.isnan(results.sums).any(axis=1) & (calendar.blocks > 0))
        for place in np.flatnonzero(broken | np.isinf(results.sums).any(axis=1)).tolist():
            self._explain(group, results, place)
        results.seconds[:] = group.seconds
        results.seconds += (time.perf_counter() - begin) / len(group.runs)
        return results

    def _call_engine(self, group: _Group, calendar: _Calendar) -> _engine.BatchResult:
        return _engine.simulate_many(
            group.prices.shared,
            [
                (
                    np.ascontiguousarray(plan.schedule.targets),
                    np.ascontiguousarray(plan.schedule.sessions, dtype=np.int64),
                    plan.first_session,
                )
                for plan in group.plans
            ],
            list(group.options),
            np.array(group.pairs, dtype=np.int64).reshape(-1, 2),
            times=calendar.times,
            closes=calendar.closes,
            before_first=np.array([calendar.before_plan(one) for one in group.plans], np.int64),
            riskfree_rate=self._job.riskfree_rate,
            blocks=calendar.blocks,
            curves=self._job.keep_curves,
            threads=self._threads,
        )

    def _explain(self, group: _Group, results: Results, place: int) -> None:
        """Record what a single run says of a curve that is none."""
        plan, options = group.plans[group.pairs[place][0]], group.options[group.pairs[place][1]]
        try:
            with _CATCHING, warnings.catch_warnings():
                warnings.simplefilter("ignore")
                trade_at = group.settings[place].arguments["trade_at"]
                run = run_plan(group.data, plan, options, trade_at)
                curve_and_position(run.result, plan.labels, group.data.clock, plan.first_session)
        except Exception as error:
            if self._raises:
                raise
            results.put(Results.empty([place], _told(error)))


def _single(group: _Group) -> Iterator[_Group]:
    for place, (plan, options) in enumerate(group.pairs):
        one = _Group(group.data, group.prices, group.calendar)
        one.add(
            group.runs[place], group.plans[plan], group.options[options],
            group.settings[place], group.seconds[place],
        )  # fmt: skip
        yield one


def _told(error: Exception) -> str:
    text = str(error)
    return f"{type(error).__name__}: {text}" if text else type(error).__name__
