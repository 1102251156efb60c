"""The page of a sweep: one self-contained HTML string."""

from __future__ import annotations

import datetime
import math
from collections.abc import Mapping, Sequence
from typing import TYPE_CHECKING, Any, Protocol

import numpy as np
import pandas as pd

import corvex
from corvex.core.dashboard.embed import plain, rounded
from corvex.core.dashboard.figures.activity import assumptions
from corvex.core.dashboard.figures.confidence_figures import confidence_figures
from corvex.core.dashboard.figures.curve_series import iso_day, wall_days
from corvex.core.dashboard.page.report_page import SHARED_MODULES, page_script, render
from corvex.ffn_core.benchmarks import known_benchmark, moves
from corvex.ffn_core.catalogue import catalogue
from corvex.ffn_core.curve_figures import days_per_year
from corvex.significance.trials import TrialStatistics
from corvex.simulation.notices import date_text
from corvex.sweeping.axes import axis_of
from corvex.sweeping.run_results import EXTRAS, FIGURES, LESS_IS_BETTER

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["MODULES", "Swept", "sweep_html"]

MODULES = (
    *SHARED_MODULES,
    "activity",
    "confidence",
    "statistics",
    "sections",
    "browse",
    "curves",
    "runs",
    "landscape",
    "sweep",
)
_NAME = "Sweep"
_CURVES = 10
_CURVE_VALUES = 120_000
# About three bytes each in the page: all figures of 9,000 runs, and the best-known ones of more.
_VALUES = 400_000
_FEWEST_FIGURES = 8
_DIGITS = 5
_MOST_ERRORS, _LONGEST_ERROR = 20, 300
_RANK_BARS = 20


class Swept(Protocol):
    """What the page asks of a sweep."""

    @property
    def title(self) -> str | None: ...
    @property
    def riskfree_rate(self) -> float: ...
    @property
    def figures(self) -> pd.DataFrame: ...
    @property
    def labels(self) -> Mapping[str, Sequence[Any]]: ...
    @property
    def fixed(self) -> Mapping[str, Any]: ...
    @property
    def trials_statistics(self) -> TrialStatistics: ...
    @property
    def can_report(self) -> bool: ...
    def best_places(self, figure: str, count: int | None) -> list[int]: ...
    def curve_of(self, place: int) -> pd.Series | None: ...

    def own_curve_of(self, place: int) -> pd.Series | None: ...
    def report_of(self, place: int) -> Report: ...


def sweep_html(
    sweep: Swept, figure: str, *, simulate: bool, title: str | None, with_iframe: bool = False
) -> str:
    """Render a sweep as `generate_html` renders a report.

    Parameters
    ----------
    sweep : Sweep
        The runs.
    figure : str
        The column of `figures` by which runs are ranked at first.
    simulate : bool
        Simulate the best runs again where their curves were not kept.
    """
    facts, series = _Page(sweep, figure, simulate).content()
    heading = title or sweep.title or _NAME
    return render(
        str(heading), str(heading), plain(facts), series, page_script(MODULES),
        with_iframe=with_iframe,
    )  # fmt: skip


class _Page:
    """Collects what the page shows."""

    def __init__(self, sweep: Swept, figure: str, simulate: bool) -> None:
        self.sweep = sweep
        self.figure = figure
        self.simulate = simulate and sweep.can_report
        self.table = sweep.figures
        self.axes = {name: axis_of(values) for name, values in sweep.labels.items()}
        ranked = sweep.best_places(figure, None)
        self.best = ranked[:_CURVES]
        self.columns = self._carried_figures()
        self.places = self._carried_runs(ranked)
        self.reports: dict[int, Report] = {}

    def _carried_figures(self) -> dict[str, str]:
        """The columns that have values, by the figures' names in the catalogue.

        The best known come first, as many as there is room for.
        """
        there = self.table.notna().any()
        columns = {_listed(name): name for name in (*FIGURES, *EXTRAS) if there[name]}
        known = [_listed(self.figure), *catalogue().views["swept"], *columns]
        most = max(_VALUES // max(len(self.table), 1), _FEWEST_FIGURES)
        names = [name for name in dict.fromkeys(known) if name in columns][:most]
        return {name: columns[name] for name in names}

    def _carried_runs(self, ranked: list[int]) -> list[int]:
        """All runs, or of very many the best, in the order of the grid."""
        most = _VALUES // _FEWEST_FIGURES
        if len(self.table) <= most:
            return list(range(len(self.table)))
        return sorted(ranked[:most])

    def content(self) -> tuple[dict[str, Any], dict[str, Any]]:
        """Return facts and series."""
        named, curves = self._curves()
        first = self.reports.get(self.best[0]) if self.best else None
        facts = {
            "meta": self._meta(curves),
            "figure": _listed(self.figure),
            "less": [name for name, column in self.columns.items() if column in LESS_IS_BETTER],
            "figures": list(self.columns),
            "parameters": [
                {"name": name, "texts": axis.texts, "ranks": axis.ranks}
                for name, axis in self.axes.items()
            ],
            "luck": self._luck(),
            "overfitting": self._overfitting(),
            "confidence": self._confidence(),
            "fixed": self._fixed(first),
            "assumptions": [] if first is None else self._assumptions(first),
            "errors": self._errors(),
            "curves": named,
        }
        errors = self.table["error"].iloc[self.places]
        texts = {text: at for at, text in enumerate(dict.fromkeys(errors.dropna()))}
        series = {
            "days": curves["days"],
            "curves": curves["values"],
            "codes": [[axis.places[place] for place in self.places] for axis in self.axes.values()],
            "values": {
                name: rounded(self.table[column].iloc[self.places].astype("float64"), _DIGITS)
                for name, column in self.columns.items()
            },
            "errors": [_cut(text) for text in texts],
            "failed": [
                [row, texts[text]] for row, text in enumerate(errors) if isinstance(text, str)
            ],
        }
        return facts, series

    def _carried(self, place: int) -> int | None:
        return self.places.index(place) if place in self.places else None

    def _meta(self, curves: Mapping[str, Any]) -> dict[str, Any]:
        days = curves["days"]
        return {
            "name": self.sweep.title,
            "runs": len(self.table),
            "carried": len(self.places),
            "failed": int(self.table["error"].notna().sum()),
            "start": iso_day(days[0]) if days else None,
            "end": iso_day(days[-1]) if days else None,
            "years": (days[-1] - days[0]) / 365.25 if days else None,
            "periods": curves["periods"],
            "riskfree": self.sweep.riskfree_rate,
            "version": corvex.__version__,
            "generated": datetime.datetime.now(datetime.UTC).isoformat(timespec="seconds"),
        }

    # -- the best runs -----------------------------------------------------------------------

    def _report(self, place: int) -> Report | None:
        if place not in self.reports and self.simulate:
            self.reports[place] = self.sweep.report_of(place)
        return self.reports.get(place)

    def _curve(self, place: int) -> pd.Series | None:
        kept = self.sweep.curve_of(place)
        if kept is not None:
            return kept
        report = self._report(place)
        return None if report is None else report.daily_creturn

    def _curves(self) -> tuple[list[dict[str, Any]], dict[str, Any]]:
        """The curves of the best runs, and behind them the benchmark's."""
        found: dict[int, pd.Series] = {}
        for place in self.best:
            curve = self._curve(place)
            if curve is not None and len(curve):
                found[place] = _by_day(curve)
        named: list[dict[str, Any]] = [{"run": self._carried(place)} for place in found]
        columns = list(found.values())
        report = self._report(self.best[0]) if self.best else None
        benchmark = None if report is None else known_benchmark(report)
        if columns and benchmark is not None and moves(benchmark):
            columns.append(_by_day(benchmark.dropna()))
            named.append({"benchmark": str(getattr(benchmark, "name", None) or "") or None})
        if not columns:
            return [], {"days": [], "values": [], "periods": None}
        own = pd.concat(columns[: len(found)], axis=1, sort=True)
        most = max(_CURVE_VALUES // len(own), 1)
        beside = [column.reindex(own.index) for column in columns[len(found) :]]
        table = pd.concat([own.iloc[:, :most], *beside], axis=1)
        values = [rounded(table.iloc[:, at], 6) for at in range(table.shape[1])]
        kept = named[: min(most, len(found))] + named[len(found) :]
        days = wall_days(own.index).tolist()
        return kept, {"days": days, "values": values, "periods": days_per_year(own.index)}

    def _fixed(self, report: Report | None) -> list[tuple[str, Any]]:
        """What was given for all runs, and the parameters that have one value."""
        alone = [(name, axis.texts[0]) for name, axis in self.axes.items() if len(axis.texts) == 1]
        told = () if report is None else {row["key"] for row in self._assumptions(report)}
        given = [
            (name, _told(value)) for name, value in self.sweep.fixed.items()
            if name not in told and value is not None and name != "name"
            and not (name == "account" and report is not None)  # its terms are told
        ]  # fmt: skip
        return [*given, *alone]

    def _assumptions(self, report: Report) -> list[dict[str, Any]]:
        varying = [name for name, axis in self.axes.items() if len(axis.texts) > 1]
        return [
            row for row in assumptions(report)
            if row["key"] not in self.axes
            and not ("account" in varying and row["key"].startswith("account_"))
        ]  # fmt: skip

    # -- skill or luck -----------------------------------------------------------------------

    def _luck(self) -> dict[str, Any] | None:
        """How many runs were tried, and the best Sharpe ratio that luck alone finds in so many."""
        trials = self.sweep.trials_statistics
        ratios = self.table["daily_sharpe"].to_numpy(dtype=np.float64)
        ratios = ratios[np.isfinite(ratios)]
        if not trials.trials > 1 or ratios.size < 2:
            return None
        yearly = TrialStatistics(trials=trials.trials, spread=float(ratios.std(ddof=1)))
        return {
            "trials": trials.trials,
            "effective": trials.effective_trials,
            "expected": yearly.threshold(trials.trials, math.nan),
            "best": float(ratios.max()),
            "positive": float((ratios > 0).mean()),
        }

    def _overfitting(self) -> dict[str, Any] | None:
        """Where, in one half of the time, those stood that were best in the other."""
        found = self.sweep.trials_statistics
        if math.isnan(found.overfitting):
            return None
        with np.errstate(over="ignore"):
            ranks = 1.0 / (1.0 + np.exp(-found.logits[np.isfinite(found.logits)]))
        counts, edges = np.histogram(ranks, bins=_RANK_BARS, range=(0.0, 1.0))
        return {
            "pbo": found.overfitting,
            "loss": found.loss,
            "counts": counts,
            "edges": rounded(edges),
        }

    def _confidence(self) -> dict[str, Any] | None:
        """What `Sweep.confidence` says of the run with the largest Sharpe ratio."""
        best = self.sweep.best_places("daily_sharpe", 1)
        report = self._judged(best[0]) if best else None
        if report is None:
            return None
        found = confidence_figures(report, self.sweep.riskfree_rate)
        return found and {**found, "run": self._carried(best[0])}

    def _judged(self, place: int) -> Report | None:
        report = self._report(place)
        if report is not None:
            return report
        curve = self.sweep.own_curve_of(place)
        if curve is None:
            return None
        made = corvex.from_equity(curve)
        made.trials_statistics = self.sweep.trials_statistics
        return made

    def _errors(self) -> list[dict[str, Any]]:
        places: dict[str, list[int]] = {}
        for place, error in enumerate(self.table["error"]):
            if isinstance(error, str):
                places.setdefault(error, []).append(place)
        groups = sorted(places.items(), key=lambda group: -len(group[1]))[:_MOST_ERRORS]
        return [
            {"text": _cut(text), "count": len(runs), "first": self._described(runs[0])}
            for text, runs in groups
        ]

    def _described(self, place: int) -> str:
        shown = {name: axis.texts[axis.places[place]] for name, axis in self.axes.items()}
        return ", ".join(f"{name}={text}" for name, text in shown.items())


def _listed(column: str) -> str:
    """The name of a figure in the catalogue, which readers' texts go by."""
    known = catalogue().find(column)
    return column if known is None else known.name


def _by_day(curve: pd.Series) -> pd.Series:
    """The last value of each day, by the date on its own clock."""
    days = wall_days(curve.index).astype("datetime64[D]").astype("datetime64[s]")
    daily = pd.Series(curve.to_numpy(dtype=np.float64), index=pd.DatetimeIndex(days))
    return daily[~daily.index.duplicated(keep="last")]


def _cut(text: str) -> str:
    return text if len(text) <= _LONGEST_ERROR else f"{text[: _LONGEST_ERROR - 1]}…"


def _told(value: Any) -> str | float | bool:
    """A fixed argument in a few words."""
    value = value.item() if isinstance(value, np.number | np.bool_) else value
    if isinstance(value, str | bool | int | float):
        return _cut(value) if isinstance(value, str) else value
    if isinstance(value, pd.Timestamp):
        return date_text(value)
    if isinstance(value, datetime.date | pd.Timedelta):
        return str(value)
    if isinstance(value, pd.offsets.BaseOffset):
        return str(value.freqstr)
    name = getattr(value, "name", None) or getattr(value, "__name__", None)
    return _cut(str(name)) if isinstance(name, str) and name else type(value).__name__
