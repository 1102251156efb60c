"""Walk-forward: parameters chosen in one window and used in the next, again and again."""

from __future__ import annotations

import math
import os
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.core.dashboard.figures.walk_figures import WALK
from corvex.simulation import simulate
from corvex.simulation.notices import date_text
from corvex.simulation.plan.plan import Plan, make_plan
from corvex.simulation.read.price_data import read_prices
from corvex.simulation.read.weights import read_weights
from corvex.sweeping.axes import axis_of
from corvex.sweeping.grid import near
from corvex.sweeping.run_results import FIGURES, LESS_IS_BETTER
from corvex.sweeping.settings import BAKED, STITCHABLE, Settings
from corvex.sweeping.swept import TRIALS, Source, Sweep, same_value
from corvex.sweeping.values import unwrap
from corvex.sweeping.windows import Window, roll
from corvex.tables.frames import arrow_stream, is_array

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.significance import Confidence

__all__ = ["WalkForward", "walk_forward"]

#: What `choices` has beside the parameters: before them, and behind them.
_SPANS = ("train_start", "train_end", "test_start", "test_end")
_SCORES = ("inside", "outside")
#: A figure, or a function of the figures of a window that gives each run a score.
type Choose = str | Callable[[pd.DataFrame], Any]


@dataclass(frozen=True, eq=False, repr=False)
class WalkForward:
    """What came of choosing parameters again and again.

    Attributes
    ----------
    choices : DataFrame
        A row for each window: ``train_start``, ``train_end``, ``test_start``, ``test_end`` (its
        first and last sessions), the parameters that were chosen, and the ``inside`` and
        ``outside`` values, in the training and in the test, of what they were chosen by.
    report : Report
        The winners' weights, one after the other, simulated once.
    riskfree_rate : float
        Per year, a fraction: that of the sweep.
    """

    choices: pd.DataFrame
    report: Report
    riskfree_rate: float = 0.02

    def __arrow_c_stream__(self, requested_schema: object | None = None) -> object:
        """Hand `choices` to other libraries."""
        return arrow_stream(self.choices, requested_schema)

    @property
    def efficiency(self) -> float:
        """The mean of what the choices showed outside, over that inside; NaN unless above 0."""
        inside, outside = self.choices["inside"].mean(), self.choices["outside"].mean()
        return float(outside / inside) if inside > 0 else math.nan

    @property
    def stability(self) -> float:
        """The share of windows that choose what the one before did; NaN for a single one."""
        parameters = self.choices.iloc[:, 4:-2]
        if len(parameters) < 2:
            return math.nan
        same = [
            all(same_value(one, other) for one, other in zip(before, after, strict=True))
            for before, after in zip(
                parameters.iloc[:-1].to_numpy(object), parameters.iloc[1:].to_numpy(object),
                strict=True,
            )
        ]  # fmt: skip
        return sum(same) / len(same)

    def noted(self, choose: str | None) -> dict[str, Any]:
        """Return the windows as plain values, which go with the report to its page and its file."""
        parameters = self.choices.iloc[:, 4:-2]
        axes = [axis_of(parameters.iloc[:, at].tolist()) for at in range(parameters.shape[1])]
        spans = self.choices.iloc[:, :4]
        windows = [
            {
                **{name: date_text(spans[name].iloc[row]) for name in spans},
                "chosen": [axis.texts[axis.places[row]] for axis in axes],
                "inside": float(self.choices["inside"].iloc[row]),
                "outside": float(self.choices["outside"].iloc[row]),
            }
            for row in range(len(self.choices))
        ]
        return {
            "choose": choose,
            "efficiency": self.efficiency,
            "stability": self.stability,
            "parameters": [str(name) for name in parameters.columns],
            "windows": windows,
        }

    def to_html(self, path: str | os.PathLike[str], title: str | None = None) -> None:
        """Write the report's page, which marks the windows and tells what each of them chose.

        Parameters
        ----------
        path : path
            The file; it is written whole or not at all.
        title : str, optional
            Title of the browser tab; the report's name by default.
        """
        self.report.to_html(path, title or getattr(self.report, "name", None))

    def confidence(self, draws: int = 1000, seed: int = 0) -> Confidence:
        """Say how far the report's figures could have come about by chance.

        It knows how many runs the choices were made among; see `corvex.confidence`.

        Parameters
        ----------
        draws : int, default 1000
            How many paths are drawn.
        seed : int, default 0
            The same seed draws the same paths.
        """
        from corvex.significance import confidence

        return confidence(self.report, draws=draws, seed=seed, riskfree_rate=self.riskfree_rate)

    def __repr__(self) -> str:
        first, last = self.choices["test_start"].iloc[0], self.choices["test_end"].iloc[-1]
        return (
            f"Walk forward: {len(self.choices)} windows from {date_text(first)} to "
            f"{date_text(last)}, efficiency {self.efficiency:.2f}, stability {self.stability:.2f}"
        )


def walk_forward(
    sweep: Sweep,
    train: Any,
    test: Any,
    choose: Choose = "daily_sharpe",
    *,
    embargo: Any = None,
    anchored: bool = False,
    where: Mapping[str, Any] | None = None,
) -> WalkForward:
    """Choose parameters in a window, use them in the next one, and go on.

    Nothing runs again for choosing: windows are slices of each run's curve. The winners' weights
    are then put one after the other and simulated once, so that what a change of parameters costs
    is paid.

    Parameters
    ----------
    sweep : Sweep
        With ``keep="curves"``.
    train, test : str, offset or timedelta
        How long to choose in, and to use what was chosen: "5YE" and "1YE" are calendar years, "90D"
        is counted from the first session.
    choose : str or callable, default "daily_sharpe"
        A figure of the statistics record, or a function that is given the figures of a window (runs
        x figures) and returns a score for each run, the larger the better. Ties go to the first run
        of the grid.
    embargo : str, offset or timedelta, optional
        How long before each test the training ends.
    anchored : bool, default False
        Every training begins with the first session.
    where : mapping of str to object, optional
        Values of parameters: other runs are left out.

    Returns
    -------
    WalkForward

    Raises
    ------
    ValueError
        When the sweep has no curves, runs over several spans, or varies costs or stops, which one
        simulation cannot change on its way; and for windows that do not fit.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks").loc["2015":"2020"]
    >>> def momentum(prices, lookback):
    ...     return prices.pct_change(lookback, fill_method=None).rank(axis=1, ascending=False) <= 5
    >>> found = corvex.sweep(momentum, prices, signal={"lookback": [21, 63, 126]}, resample="ME",
    ...                      market="us_stock", keep="curves")
    >>> walk = corvex.walk_forward(found, train="2YE", test="1YE")
    >>> len(walk.choices)
    4
    """
    source = sweep.source
    if source is None:
        raise ValueError("a sweep that was read from its folder has no strategy to run again")
    _refuse_names(sweep)
    places = np.array(sweep.places(where or {}), dtype=np.int64)
    curves, sessions, places = _curves(sweep, places)
    _refuse_varying(sweep, places)
    windows = roll(sessions, train, test, embargo, anchored=anchored)
    chosen, rows = [], []
    for window in windows:
        inside = _scores(sweep, places, curves, sessions, window.train, choose)
        if not np.isfinite(inside).any():
            raise ValueError(
                f"no run has a value to choose by from {date_text(sessions[window.train.start])} "
                f"to {date_text(sessions[window.train.stop - 1])}"
            )
        best = int(np.nanargmax(inside))
        outside = _scores(sweep, places, curves, sessions, window.test, choose)
        sign = -1.0 if isinstance(choose, str) and choose in LESS_IS_BETTER else 1.0
        run = int(places[best])
        chosen.append(run)
        rows.append(
            {
                "train_start": sessions[window.train.start],
                "train_end": sessions[window.train.stop - 1],
                "test_start": sessions[window.test.start],
                "test_end": sessions[window.test.stop - 1],
                **sweep.labels_of(run),
                "inside": sign * inside[best],
                "outside": sign * outside[best],
            }
        )
    report = _simulate(sweep, source, chosen, windows)
    setattr(report, TRIALS, sweep.trials_statistics)
    walk = WalkForward(pd.DataFrame(rows), report, sweep.riskfree_rate)
    setattr(report, WALK, walk.noted(choose if isinstance(choose, str) else None))
    return walk


def _curves(sweep: Sweep, places: np.ndarray) -> tuple[np.ndarray, pd.DatetimeIndex, np.ndarray]:
    """The curves of runs, runs x sessions; those that failed are left out."""
    table = sweep.curves
    there = np.array(sweep.curve_places, dtype=np.int64)
    kept = np.isin(there, places)
    if not kept.any():
        raise ValueError("no run of the sweep has a curve to choose by")
    found = table.iloc[:, np.flatnonzero(kept)]
    if found.isna().any(axis=None):
        raise ValueError("the runs cover several spans of time; sweep without start and end")
    return (
        np.ascontiguousarray(found.to_numpy().T),
        pd.DatetimeIndex(found.index),
        there[kept],
    )


def _refuse_names(sweep: Sweep) -> None:
    for name in sweep.parameters:
        if name in (*_SPANS, *_SCORES):
            raise ValueError(
                f"a parameter is called {name!r}, as a column of choices is; give the strategy's "
                "argument another name and sweep again"
            )


def _refuse_varying(sweep: Sweep, places: np.ndarray) -> None:
    for name in sweep.option_names:
        values = list(dict.fromkeys(str(sweep.labels_of(int(place))[name]) for place in places))
        if name not in STITCHABLE and len(values) > 1:
            listed = ", ".join(values[:5]) + (", …" if len(values) > 5 else "")
            raise ValueError(
                f"{name} varies, and one simulation cannot change it on its way; let where pick "
                f"one of its values: {listed}"
            )


def _scores(
    sweep: Sweep,
    places: np.ndarray,
    curves: np.ndarray,
    sessions: pd.DatetimeIndex,
    rows: slice,
    choose: Choose,
) -> np.ndarray:
    """A score for each run, the larger the better, from its curve in a window."""
    local = sessions if sessions.tz is None else sessions.tz_localize(None)
    # The return of the first session needs the value before it.
    part = slice(max(rows.start - 1, 0), rows.stop)
    times = np.ascontiguousarray(local[part].as_unit("ns").asi8)
    ends = _engine.day_end_rows(times)
    days = np.ascontiguousarray(local[part][ends].normalize().as_unit("ns").asi8)
    values = np.ascontiguousarray(curves[:, part][:, ends])
    records = [_engine.performance_record(curve, days, sweep.riskfree_rate)[0] for curve in values]
    index = sweep.figures.index[places]
    figures = pd.DataFrame(records, index=index, columns=list(FIGURES))
    if callable(choose):
        scores = np.asarray(choose(figures), dtype=np.float64)
        if scores.shape != (len(figures),):
            raise ValueError("choose must return a score for each run")
        return np.where(np.isfinite(scores), scores, np.nan)
    if choose not in FIGURES:
        raise ValueError(f"choose is no figure: {choose!r}; {near(str(choose), FIGURES)}")
    scores = figures[choose].to_numpy(dtype=np.float64)
    scores = np.where(np.isfinite(scores), scores, np.nan)
    return -scores if choose in LESS_IS_BETTER else scores


def _simulate(sweep: Sweep, source: Source, chosen: list[int], windows: list[Window]) -> Report:
    """Put the winners' rebalances one after the other, and simulate them."""
    job, grid = source.job, source.grid
    plans: dict[int, Plan] = {}
    for run in dict.fromkeys(chosen):
        signal, options = grid.parameters(run)
        settings = Settings.read(job.fixed, options)
        weights = read_weights(
            job.strategy.weights(job.prices, signal),
            limit=settings.limit,
            leverage=settings.leverage,
            **settings.axes,
        )
        data = read_prices(job.prices, weights.labels, **settings.prices)
        plans[run] = make_plan(weights, data, settings.rule, settings.offset)
        sessions = data.clock.index
    _, options = grid.parameters(chosen[0])
    arguments = {**job.fixed, **{name: unwrap(options[name]) for name in options}}
    dropped = BAKED if is_array(job.prices) else (*BAKED, "dates", "assets")
    arguments = {name: value for name, value in arguments.items() if name not in dropped}
    arguments.setdefault("name", f"{sweep.title or 'strategy'}, walked forward")
    table = _stitched(plans, chosen, windows, sessions)
    # Limits are in the weights already.
    return simulate(table, job.prices, resample=table.index, leverage=True, **arguments)


def _stitched(
    plans: Mapping[int, Plan],
    chosen: list[int],
    windows: list[Window],
    sessions: pd.DatetimeIndex,
) -> pd.DataFrame:
    parts: list[pd.DataFrame] = []
    before = None
    for run, window in zip(chosen, windows, strict=True):
        plan = plans[run]
        schedule = plan.schedule
        # What is signalled in a session is held from the next one on.
        first, last = window.test.start - 1, window.test.stop - 2
        force = np.searchsorted(schedule.sessions, first, side="right") - 1
        if run != before:
            held = schedule.targets[force] if force >= 0 else np.zeros(len(plan.labels))
            parts.append(pd.DataFrame([held], sessions[[first]], plan.labels))
        inner = (schedule.sessions > first - (run == before)) & (schedule.sessions <= last)
        dates = schedule.dates[inner]
        parts.append(pd.DataFrame(schedule.targets[inner], dates, plan.labels))
        before = run
    schedule = plans[chosen[-1]].schedule
    latest = schedule.sessions == len(sessions) - 1
    parts.append(pd.DataFrame(schedule.targets[latest], schedule.dates[latest], plan.labels))
    if schedule.planned_date is not None and schedule.planned_targets is not None:
        row = pd.DataFrame([schedule.planned_targets], [schedule.planned_date], plan.labels)
        parts.append(row)
    table = pd.concat([part for part in parts if len(part)]).fillna(0.0)
    table.index = pd.DatetimeIndex(table.index)
    return table[~table.index.duplicated(keep="last")].sort_index()
