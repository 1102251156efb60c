"""What a sweep found: the figures of its runs, the best of them, and a report of any."""

from __future__ import annotations

import difflib
import math
import os
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, replace
from functools import cached_property
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from corvex import _engine
from corvex.ffn_core.catalogue import show
from corvex.files import write_text
from corvex.markets.bars import period_before
from corvex.significance.trials import TrialStatistics, superiority
from corvex.sweeping.grid import Grid, index_of, near
from corvex.sweeping.run_results import (
    BLOCKS,
    EXTRAS,
    FIGURES,
    LESS_IS_BETTER,
    UNKNOWN_BEGIN,
    Results,
)
from corvex.sweeping.runner import Job
from corvex.sweeping.values import unwrap
from corvex.tables.frames import arrow_stream

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

    from corvex.core.report import Report
    from corvex.significance import Confidence
    from corvex.significance.lookahead import LookaheadCheck

__all__ = ["TRIALS", "Source", "Sweep", "same_value"]

_COUNTS = ("trades",)
#: Where `corvex.confidence` looks for what a report was chosen from.
TRIALS = "trials_statistics"
# Beyond this many curves their correlations take longer than the sweep did.
_MOST_CORRELATED = 2000


@dataclass(frozen=True, eq=False)
class Source:
    """Where runs come from, so that any can be made again."""

    job: Job
    grid: Grid


class Sweep:
    """Many runs of one strategy.

    Parameters
    ----------
    labels : mapping of str to sequence
        The label of each parameter in each run.
    results : Results
        The runs, in the order of the grid.
    title : str or None
        What the strategy is called.
    riskfree_rate : float
        Per year, a fraction: that of the figures.
    source : Source or None
        None for a sweep that was read from its folder.
    fixed : mapping of str to object, optional
        The arguments that did not vary; by default those of the source.
    """

    def __init__(
        self,
        labels: Mapping[str, Sequence[Any]],
        results: Results,
        *,
        title: str | None,
        riskfree_rate: float,
        source: Source | None = None,
        fixed: Mapping[str, Any] | None = None,
    ) -> None:
        self._labels = {name: list(values) for name, values in labels.items()}
        self._results = results
        self.title = title
        self.riskfree_rate = riskfree_rate
        self.source = source
        if fixed is None:
            fixed = {} if source is None else source.job.fixed
        self.fixed: Mapping[str, Any] = fixed
        #: The strategy's arguments that were checked for look-ahead, and what came out.
        self.lookahead: list[tuple[dict[str, Any], LookaheadCheck]] = []

    def __len__(self) -> int:
        return len(self._results)

    def __repr__(self) -> str:
        failed = len(self.errors)
        text = f"Sweep of {self.title or 'a strategy'}: {len(self):,} runs"
        if failed:
            text += f", {failed:,} without figures"
        best = self.best(count=1)
        if len(best):
            value = show("daily_sharpe", float(best["daily_sharpe"].iloc[0]))
            text += f"\nlargest daily_sharpe {value}: {self._described(self._place(best.index[0]))}"
        return text

    def _repr_html_(self) -> str:
        from html import escape

        shown = self.best(count=10)
        columns = ["cagr", "daily_sharpe", "max_drawdown", "turnover", "trades"]
        table: str = shown[columns].to_html(border=0, float_format="{:.4g}".format)
        return f"<div>{escape(repr(self))}</div>{table}"

    def __arrow_c_stream__(self, requested_schema: object | None = None) -> object:
        """Hand `figures` to other libraries: ``polars.DataFrame(sweep)``."""
        return arrow_stream(self.figures, requested_schema)

    @property
    def parameters(self) -> list[str]:
        """The names of what varies."""
        return list(self._labels)

    @property
    def labels(self) -> Mapping[str, Sequence[Any]]:
        """The label of each parameter in each run."""
        return self._labels

    @property
    def can_report(self) -> bool:
        """Whether runs can be simulated again: not those of a sweep read from its folder."""
        return self.source is not None

    @cached_property
    def figures(self) -> pd.DataFrame:
        """The figures, a row a run in the order of the grid.

        The index has a level for each parameter. The columns are those of `Report.get_stats`, then
        ``fees``, ``tax``, ``slippage`` and ``costs`` (in units of the first equity), ``turnover``
        (per year), ``win_ratio``, ``trades`` (closed ones), ``seconds`` and ``error``.
        """
        results = self._results
        table = pd.DataFrame(
            results.figures, columns=[*FIGURES, *EXTRAS], index=index_of(self._labels, len(self)),
            copy=False,  # of a hundred thousand runs one is enough
        )  # fmt: skip
        for name in _COUNTS:
            table[name] = table[name].astype("Int64")
        table["seconds"] = results.seconds
        table["error"] = pd.Series(results.errors, index=table.index, dtype=object)
        return table

    @property
    def errors(self) -> pd.Series:
        """What went wrong in the runs that have no figures, by their parameters."""
        found: pd.Series = self.figures["error"].dropna()
        return found

    @cached_property
    def curves(self) -> pd.DataFrame:
        """The equity of each run, sessions x runs; 1 before a run starts.

        Raises
        ------
        ValueError
            When the sweep kept figures alone.
        """
        results = self._results
        kept = self.curve_places
        if not kept and results.errors.tolist().count(None):
            raise ValueError("this sweep kept no curves; ask for keep='curves'")
        series = {
            place: pd.Series(results.curves[place], index=self._sessions(place)) for place in kept
        }
        table = pd.DataFrame(series)
        table.columns = self.figures.index[kept]
        return table

    @property
    def curve_places(self) -> list[int]:
        """The rows of `figures` that have a column in `curves`."""
        return [place for place, curve in enumerate(self._results.curves) if curve is not None]

    def curve_of(self, place: int) -> pd.Series | None:
        """Return the equity of the run in a row of `figures`; None where it was not kept."""
        kept = self._results.curves[place]
        return None if kept is None else pd.Series(kept, index=self._sessions(place))

    def own_curve_of(self, place: int) -> pd.Series | None:
        """Return the same from just before its first fill on, as a report has it."""
        curve = self.curve_of(place)
        if curve is None:
            return None
        begins = int(self._results.begins[place])
        if begins == UNKNOWN_BEGIN:
            moved = np.flatnonzero(curve.to_numpy() != 1.0)
            begins = int(moved[0]) - 1 if moved.size else 0
        if begins >= 0:
            return curve.iloc[begins:]
        dates = pd.DatetimeIndex(curve.index)
        before = pd.DatetimeIndex([period_before(dates)])
        return pd.Series(np.append(1.0, curve.to_numpy()), index=before.append(dates))

    def _sessions(self, place: int) -> pd.DatetimeIndex:
        first, count = self._results.calendar[place].tolist()
        return self._results.calendars[first, count]

    def best(
        self, figure: str = "daily_sharpe", count: int = 10, *, ascending: bool | None = None
    ) -> pd.DataFrame:
        """Return the runs with the best values of a figure, the best first.

        Parameters
        ----------
        figure : str, default "daily_sharpe"
            A column of `figures`.
        count : int, default 10
            How many runs.
        ascending : bool, optional
            Whether less is better. Default: for volatility, costs, turnover and time.

        Returns
        -------
        DataFrame
            Rows of `figures`; runs without the figure are left out, ties stand in the grid's order.
        """
        return self.figures.iloc[self.best_places(figure, count, ascending=ascending)]

    def best_places(
        self, figure: str, count: int | None = 10, *, ascending: bool | None = None
    ) -> list[int]:
        """Return the rows of `figures` that `best` gives; all that have the figure for None."""
        values = self._values(figure)
        less = figure in LESS_IS_BETTER if ascending is None else ascending
        order = values.reset_index(drop=True).sort_values(ascending=less, kind="stable").dropna()
        return order.index[:count].tolist()

    def _values(self, figure: str) -> pd.Series:
        columns = [name for name in self.figures.columns if name != "error"]
        if figure not in columns:
            raise ValueError(f"a sweep has no figure {figure!r}; {near(figure, columns)}")
        values: pd.Series = self.figures[figure].astype("float64")
        return values

    def heatmap(self, x: str, y: str, figure: str = "daily_sharpe", **where: Any) -> Figure:
        """Draw a figure over two parameters.

        Parameters
        ----------
        x, y : str
            The parameters of the axes.
        figure : str, default "daily_sharpe"
            A column of `figures`.
        **where
            Values of other parameters. Those that are left open get a slider over their
            combinations.

        Returns
        -------
        plotly.graph_objects.Figure
        """
        from corvex.sweeping.heatmap import draw_heatmap

        for name in (x, y):
            self._check_parameter(name)
        if x == y:
            raise ValueError(f"the axes must be two parameters, got {x!r} twice")
        places = self.places(where)
        labels = {
            name: [values[place] for place in places] for name, values in self._labels.items()
        }
        values = self._values(figure).to_numpy()[places]
        return draw_heatmap(labels, values, x, y, figure, list(where))

    def to_html(
        self,
        path: str | os.PathLike[str],
        title: str | None = None,
        *,
        figure: str = "daily_sharpe",
        simulate: bool = True,
    ) -> None:
        """Write the page: one file that opens from a disk and loads nothing.

        Parameters
        ----------
        path : path
            The file; it is written whole or not at all.
        title : str, optional
            Title of the browser tab and of the page; the strategy's name by default.
        figure : str, default "daily_sharpe"
            The column of `figures` that ranks the runs at first. A reader may choose others.
        simulate : bool, default True
            Simulate the ten best runs again where their curves were not kept, for their curves and
            for what `confidence` says. It calls the strategy up to eleven times.

        Raises
        ------
        ValueError
            For a figure that tells nothing of a run.
        """
        from corvex.sweeping.sweep_page import sweep_html

        known = (*FIGURES, *EXTRAS)
        if figure not in known:
            raise ValueError(f"no figure {figure!r} ranks runs; {near(figure, known)}")
        write_text(path, sweep_html(self, figure, simulate=simulate, title=title))

    # -- single runs -------------------------------------------------------------------------

    def report(self, run: Any = None, **parameters: Any) -> Report:
        """Simulate a run again and report on it.

        Parameters
        ----------
        run : tuple, optional
            Its place in the index of `figures`.
        **parameters
            Or its parameters; those with one value may be left out.

        Returns
        -------
        Report
            Its figures are those of the sweep, bit for bit; it knows how many runs it was chosen
            from, so that `corvex.confidence` does.

        Raises
        ------
        ValueError
            When no run, or more than one, has these parameters, or the sweep was read from its
            folder without a strategy.
        """
        return self.report_of(self._place(run) if run is not None else self._only(parameters))

    def report_of(self, place: int) -> Report:
        """Simulate the run in a row of `figures` again; see `report`."""
        from corvex.simulation import simulate

        if self.source is None:
            raise ValueError(
                "a sweep that was read from its folder has no strategy to run again; call "
                "corvex.sweep with the same arguments and store, which runs what is missing"
            )
        job = self.source.job
        signal, options = self.source.grid.parameters(place)
        arguments = {**job.fixed, **{name: unwrap(value) for name, value in options.items()}}
        arguments.setdefault("name", self._name(place))
        report = simulate(job.strategy.weights(job.prices, signal), job.prices, **arguments)
        setattr(report, TRIALS, self.trials_statistics)
        return report

    def _name(self, place: int) -> str:
        described = self._described(place)
        return (
            f"{self.title or 'strategy'} ({described})" if described else self.title or "strategy"
        )

    def _described(self, place: int) -> str:
        return ", ".join(f"{name}={values[place]}" for name, values in self._labels.items())

    def _check_parameter(self, name: str) -> None:
        if name not in self._labels:
            raise ValueError(f"the sweep has no parameter {name!r}; {near(name, self._labels)}")

    @property
    def option_names(self) -> list[str]:
        """The parameters that are arguments of `corvex.simulate`."""
        return [] if self.source is None else self.source.grid.option_names

    def labels_of(self, place: int) -> dict[str, Any]:
        """Return the parameters of the run in a row of `figures`."""
        return {name: values[place] for name, values in self._labels.items()}

    def places(self, parameters: Mapping[str, Any]) -> list[int]:
        """Return the rows of `figures` with some parameters.

        Raises
        ------
        ValueError
            When there is none, naming the values that there are.
        """
        for name in parameters:
            self._check_parameter(name)
        found = [
            place
            for place in range(len(self))
            if all(
                same_value(self._labels[name][place], asked) for name, asked in parameters.items()
            )
        ]
        if not found:
            raise self._no_run(parameters)
        return found

    def _no_run(self, parameters: Mapping[str, Any]) -> ValueError:
        for name, asked in parameters.items():
            there = {str(one): repr(one) for one in self._labels[name]}
            if not any(same_value(one, asked) for one in self._labels[name]):
                near_ones = difflib.get_close_matches(str(asked), there, n=3) or list(there)[:20]
                shown = ", ".join(there[one] for one in near_ones)
                others = "" if len(near_ones) == len(there) else " and others"
                return ValueError(f"no run has {name}={asked!r}; there are {shown}{others}")
        told = ", ".join(f"{name}={value!r}" for name, value in parameters.items())
        return ValueError(f"no run has {told}" if told else "the sweep has no runs")

    def _only(self, parameters: Mapping[str, Any]) -> int:
        places = self.places(parameters)
        open_ones = [
            name
            for name, values in self._labels.items()
            if name not in parameters
            and any(not same_value(values[places[0]], values[place]) for place in places)
        ]
        if open_ones:
            raise ValueError(
                f"{len(places)} runs have these parameters; give {', '.join(open_ones)} too"
            )
        return places[0]

    def _place(self, run: Any) -> int:
        """The place of an entry of the index, in which a missing value stands for None."""
        asked = run if isinstance(run, tuple) else (run,)
        if not self._labels and isinstance(run, int | np.integer) and 0 <= run < len(self):
            return int(run)
        if len(asked) != len(self._labels):
            raise ValueError(f"a run has {len(self._labels)} parameters, got {len(asked)}")
        for place, values in enumerate(zip(*self._labels.values(), strict=True)):
            if all(same_value(own, one) or (own is None and _missing(one))
                   for own, one in zip(values, asked, strict=True)):  # fmt: skip
                return place
        raise self._no_run(dict(zip(self._labels, asked, strict=True)))

    # -- skill or luck -----------------------------------------------------------------------

    @cached_property
    def trials_statistics(self) -> TrialStatistics:
        """What the number and the likeness of the runs say about the best of them.

        The probability of overfitting needs runs over the same sessions; the number of
        independent trials, and the test whether the best is better than cash, need curves.
        """
        results = self._results
        run = np.array([error is None for error in results.errors], dtype=bool)
        distinct = {tuple(map(_hashable, values)) for values in self._rows(np.flatnonzero(run))}
        count = len(distinct) if self._labels else int(run.any())
        if count == 0:
            return TrialStatistics()
        calendars = {tuple(key) for key in results.calendar[run].tolist()}
        periods = _engine.infer_convention(_walls(results.calendars[next(iter(calendars))]))[1]
        daily = results.figures[run, FIGURES.index("daily_sharpe")] / math.sqrt(periods or 252)
        known = daily[np.isfinite(daily)]
        found = TrialStatistics(
            trials=float(count),
            spread=float(known.std(ddof=1)) if known.size > 1 else math.nan,
        )
        if len(calendars) > 1 or count < 2:
            return found
        riskfree = (1.0 + self.riskfree_rate) ** (1.0 / (periods or 252)) - 1.0
        sessions = next(iter(calendars))[1]
        returns = self._returns(run)
        return replace(
            found,
            **_overfitting(results.sums[run], results.squares[run], sessions, riskfree),
            effective_trials=math.nan if returns is None else _engine.effective_trials(returns),
            superiority=math.nan if returns is None else superiority(returns - riskfree),
        )

    def _rows(self, places: np.ndarray) -> list[tuple[Any, ...]]:
        return [tuple(values[place] for values in self._labels.values()) for place in places]

    def _returns(self, run: np.ndarray) -> np.ndarray | None:
        """The returns from session to session, sessions x runs; None where curves were not kept."""
        curves = self._results.curves[run]
        if any(curve is None for curve in curves) or len(curves) > _MOST_CORRELATED:
            return None
        table = np.column_stack(list(curves))
        with np.errstate(divide="ignore", invalid="ignore"):
            returns = np.nan_to_num(table[1:] / table[:-1] - 1.0, nan=0.0)
        return np.ascontiguousarray(returns)

    def confidence(
        self, run: Any = None, draws: int = 1000, seed: int = 0, **parameters: Any
    ) -> Confidence:
        """Say what a run is worth, given how many there were; see `corvex.confidence`.

        Parameters
        ----------
        run : tuple, optional
            Its place in the index of `figures`.
        draws, seed
            As `corvex.confidence` takes them.
        **parameters
            Or its parameters. Without any: the run with the largest ``daily_sharpe``.
        """
        from corvex.significance import confidence

        if run is None and not parameters:
            best = self.best(count=1)
            if not len(best):
                raise ValueError("no run of this sweep has a Sharpe ratio")
            run = best.index[0]
        report = self.report(run, **parameters)
        return confidence(report, draws=draws, seed=seed, riskfree_rate=self.riskfree_rate)

    def to_xarray(self) -> Any:
        """Return the figures as an xarray Dataset with a dimension for each parameter.

        Values stand in the order of the grid, None among numbers as NaN; combinations that did not
        run are missing.

        Raises
        ------
        ImportError
            When xarray is not installed.
        ValueError
            When a combination occurs twice.
        """
        try:
            import xarray  # type: ignore[import-not-found, unused-ignore]
        except ImportError as error:
            raise ImportError(
                "to_xarray needs the package xarray: pip install 'corvex[xarray]'"
            ) from error
        table = self.figures
        if not table.index.is_unique:
            raise ValueError("a combination of parameters occurs twice; xarray needs each once")
        # Not Dataset.from_dataframe, which leaves out the runs whose parameter is missing.
        levels = [table.index.get_level_values(level) for level in range(table.index.nlevels)]
        found = [pd.factorize(level, use_na_sentinel=False) for level in levels]
        places = tuple(codes for codes, _ in found)
        shape = [len(values) for _, values in found]
        names = [str(name) for name in table.index.names]
        variables = {}
        for name in table.columns:
            if name == "error":
                cells = np.full(shape, None, dtype=object)
                cells[places] = table[name].to_numpy(object)
            else:
                cells = np.full(shape, np.nan)
                cells[places] = table[name].to_numpy(np.float64, na_value=np.nan)
            variables[name] = (names, cells)
        values = [np.asarray(values) for _, values in found]
        return xarray.Dataset(variables, coords=dict(zip(names, values, strict=True)))


def _overfitting(
    sums: np.ndarray, squares: np.ndarray, sessions: int, riskfree: float
) -> dict[str, Any]:
    known = np.isfinite(sums).all(axis=1)
    if known.sum() < 2:
        return {}
    counts = np.full(BLOCKS, (sessions - 1) // BLOCKS, dtype=np.int64)
    counts[: (sessions - 1) % BLOCKS] += 1
    excess = sums[known] - riskfree * counts
    spread = squares[known] - 2.0 * riskfree * sums[known] + riskfree**2 * counts
    judged = _engine.backtest_overfitting(
        np.ascontiguousarray(excess.T), np.ascontiguousarray(spread.T), counts
    )
    names = ("overfitting", "loss", "slope", "logits", "inside", "outside")
    return dict(zip(names, judged, strict=True))


def _walls(dates: pd.DatetimeIndex) -> np.ndarray:
    local = dates if dates.tz is None else dates.tz_localize(None)
    return np.ascontiguousarray(local.as_unit("ns").asi8)


def _missing(value: Any) -> bool:
    return value is pd.NaT or value is pd.NA or (isinstance(value, float) and math.isnan(value))


def same_value(own: Any, asked: Any) -> bool:
    """Whether a label is the one that is asked for; missing values are alike, None is no number."""
    if own is None or asked is None or _missing(own) or _missing(asked):
        return own is asked or (_missing(own) and _missing(asked))
    if isinstance(own, bool) != isinstance(asked, bool | np.bool_):
        return False
    try:
        if isinstance(own, pd.Timestamp) and isinstance(asked, str):
            return bool(own == pd.Timestamp(asked))
        return bool(own == asked)
    except (TypeError, ValueError):
        return False


def _hashable(value: Any) -> Any:
    return "nan" if _missing(value) else (type(value).__name__, value)
