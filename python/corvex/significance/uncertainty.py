"""The uncertainty of a report's figures."""

from __future__ import annotations

import math
from collections.abc import Iterator
from dataclasses import dataclass
from functools import cached_property
from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.ffn_core.benchmarks import known_benchmark, moves
from corvex.significance.draw_counts import check_draws
from corvex.significance.sample import Sample, read_sample
from corvex.significance.trials import Trials, TrialStatistics, read_trials
from corvex.significance.words import as_html, as_text

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.significance.random_result import RandomDraws

__all__ = ["Confidence", "confidence"]

_Floats = npt.NDArray[np.float64]

#: Probability inside the intervals, and asked of the track record.
LEVEL = 0.95
#: Years for which drawdowns are foretold.
HORIZONS = (1, 3, 5)
#: Shares of the drawn paths between which the fan is shown.
FAN = (0.05, 0.25, 0.5, 0.75, 0.95)
_FAN_POINTS = 120
_NAMES = _engine.PATH_FIGURE_NAMES
_RATIO = (
    "psr",
    "min_track_record_years",
    "track_record_years",
    "dsr",
    "dsr_effective",
    "expected_largest_sharpe",
    "trials",
    "effective_trials",
    "pbo",
    "spa_p",
    "sharpe_autocorrelated",
    "t_statistic",
    "skewness",
    "kurtosis",
)
_RANKS = ("beats_benchmark", "max_drawdown_rank", "drawdown", "drawdown_rank")
_COMPARED = ("sharpe", "cagr", "max_drawdown", "final_value")


@dataclass(frozen=True, repr=False)
class Confidence:
    """What a result is worth.

    Attributes
    ----------
    figures : Series
        By name. ``sharpe``, ``volatility``, ``cagr``, ``max_drawdown``, ``calmar`` and
        ``final_value`` with ``..._low`` and ``..._high``, the bounds of their 95 % intervals.
        ``psr``: probability that the true Sharpe ratio is above 0; ``min_track_record_years``:
        years that it takes to say so with 95 %. ``dsr``: the same probability after a search of
        ``trials`` (``dsr_effective``: of ``effective_trials``); ``expected_largest_sharpe``: the
        best Sharpe ratio that luck alone finds in so many. ``sharpe_autocorrelated``: annualised
        with regard to autocorrelation; ``t_statistic``: of the mean excess return. ``pbo``:
        probability of backtest overfitting; ``spa_p``: how likely the best trial is no better than
        the riskless return. ``max_drawdown_rank``: share of the drawn paths
        whose largest drawdown is at least as deep; ``drawdown`` and ``drawdown_rank``: the
        present one, and the share of drawn years that hold one at least as deep. With a
        benchmark ``cagr_excess``, ``sharpe_excess``, ... with bounds, and ``beats_benchmark``,
        the share of the draws that end above it. ``block``: mean length of a block, ``returns``,
        ``draws``, ``seed``. NaN where undefined.
    draws : DataFrame, draws x figures
        The figures of each drawn path.
    excess : DataFrame, draws x figures
        Those less the benchmark's over the same blocks; empty without a benchmark.
    fan : DataFrame, dates x shares
        Growth of 1 along the dates of the curve, at 5, 25, 50, 75 and 95 % of the drawn paths.
    drawdowns : DataFrame, years x figures
        For 1, 3 and 5 years: the depth (negative fraction) and the days below a high that the
        worse half (``depth_50``, ``days_50``) and the worst twentieth (``depth_95``, ``days_95``)
        of the drawn paths reach.
    trials : TrialStatistics
        What was known of the search.
    random : tuple of RandomDraws
        The random portfolios and entries that the report was set among.
    name : str or None
        The report's.
    """

    figures: pd.Series
    draws: pd.DataFrame
    excess: pd.DataFrame
    fan: pd.DataFrame
    drawdowns: pd.DataFrame
    trials: TrialStatistics
    random: tuple[RandomDraws, ...] = ()
    name: str | None = None

    def __repr__(self) -> str:
        return as_text(self)

    def _repr_html_(self) -> str:
        return as_html(self)


def confidence(
    report: Report,
    trials: Trials = None,
    draws: int = 1000,
    seed: int = 0,
    *,
    riskfree_rate: float = 0.02,
    method: str = "percentile",
    random_portfolios: int | None = None,
) -> Confidence:
    """Say how far a report's figures could have come about by chance.

    The returns are drawn anew in blocks, so that their dispersion, skewness and short memory
    stay; the length of the blocks follows from their autocorrelation.

    Parameters
    ----------
    report : Report
        Its daily curve, and its benchmark's on the dates that both have; and its attributes
        `trials_statistics` and `random_draws` where it has them.
    trials : int, iterable of float, DataFrame or TrialStatistics, optional
        What it was chosen from: how many trials there were, the yearly Sharpe ratio of each, or
        their returns per bar as columns. Default: what the report says itself (one out of a sweep
        does), else unknown.
    draws : int, default 1000
        How many paths are drawn.
    seed : int, default 0
        The same seed draws the same paths, on every machine and number of threads.
    riskfree_rate : float, default 0.02
        Per year, a fraction, as in `Report.get_stats`.
    method : {"percentile", "basic", "bca"}, default "percentile"
        How the intervals are taken from the draws.
    random_portfolios : int, optional
        Among how many random portfolios a report is set that `simulate` made in this process, with
        the assets of its prices; 0 for none. Default: 200, fewer or none where these take long;
        and none where the report has `random_draws` of its own.

    Returns
    -------
    Confidence

    Raises
    ------
    ValueError
        For fewer than 2 draws, a seed below 0, an unknown method, trials that are no trials, or
        fewer than 0 portfolios.

    Notes
    -----
    It knows the returns alone: not whether the times stay as they were, whether the assets are
    those that survived, or what was tried and thrown away before. Probabilistic and deflated
    Sharpe ratio: D. H. Bailey and M. Lopez de Prado, Journal of Risk 15 (2012) and JPM 40 (2014).
    Stationary bootstrap: D. N. Politis and J. P. Romano, JASA 89 (1994); block length: A. Patton,
    D. N. Politis and H. White, Econometric Reviews 28 (2009).

    Examples
    --------
    >>> import corvex
    >>> index = corvex.from_equity(corvex.data.sample("sp500"))
    >>> found = corvex.confidence(index)
    >>> bool(found.figures["sharpe_low"] < found.figures["sharpe"] < found.figures["sharpe_high"])
    True
    """
    check_draws(draws, seed, least=2)
    if method not in ("percentile", "basic", "bca"):
        raise ValueError(f"method must be 'percentile', 'basic' or 'bca', not {method!r}")
    if random_portfolios is not None and random_portfolios < 0:
        raise ValueError(f"random_portfolios must be at least 0, not {random_portfolios}")
    sample = read_sample(report.daily_creturn, riskfree_rate)
    if trials is None:
        trials = getattr(report, "trials_statistics", None)
    known = read_trials(trials, sample.periods_per_year, sample.riskfree)
    name = getattr(report, "name", None)
    among = _among_random(report, random_portfolios, seed, riskfree_rate)
    if not sample.enough:
        return _nothing(sample, known, among, name, draws, seed)
    drawn = _Drawn(sample, draws, seed, method)
    excess, compared = _against_benchmark(report, riskfree_rate, draws, seed, method)
    deepest, ranks = _drawdowns(report, sample, drawn)
    figures = {
        **_of_the_ratio(sample, known),
        **drawn.intervals(),
        **compared,
        **ranks,
        "block": drawn.block,
        "returns": float(sample.returns.size),
        "draws": float(draws),
        "seed": float(seed),
    }
    return Confidence(
        figures=pd.Series(figures, dtype=np.float64, name="confidence"),
        draws=drawn.table,
        excess=excess,
        fan=drawn.fan(),
        drawdowns=deepest,
        trials=known,
        random=among,
        name=name,
    )


class _Drawn:
    """The paths drawn from one sample."""

    def __init__(self, sample: Sample, draws: int, seed: int, method: str) -> None:
        self.sample = sample
        self.how: tuple[int, float, int] = (
            draws,
            _engine.automatic_block_length(sample.returns),
            seed,
        )
        self.method = method
        annual = (float(sample.periods_per_year), sample.riskfree)
        self.observed = sample.in_years(_engine.path_figures(sample.returns, *annual))
        self.values = sample.in_years(
            _engine.bootstrap_figures(sample.returns, annual[0], annual[1], *self.how)
        )
        self.table = pd.DataFrame(self.values, columns=list(_NAMES))
        self.without = np.empty((0, len(_NAMES)))
        if method == "bca":
            self.without = sample.in_years(_engine.figures_without_each(sample.returns, *annual))

    @property
    def block(self) -> float:
        return self.how[1]

    def intervals(self) -> dict[str, float]:
        found: dict[str, float] = {}
        for place, name in enumerate(_NAMES):
            found[name] = float(self.observed[place])
            found[f"{name}_low"], found[f"{name}_high"] = _interval(
                self.values[:, place], found[name], self.method, self.without[:, place]
            )
        return found

    def rank(self, name: str) -> float:
        """Share of the draws that are at most as high as the figure itself."""
        place = _NAMES.index(name)
        return float(np.mean(self.values[:, place] <= self.observed[place]))

    @cached_property
    def _points(self) -> npt.NDArray[np.int64]:
        """Bars of the curve at which the fan is shown."""
        bars = self.sample.returns.size
        return np.unique(np.linspace(0, bars, min(_FAN_POINTS, bars + 1)).astype(np.int64))

    @cached_property
    def _paths(self) -> tuple[_Floats, _Floats, _Floats]:
        """Wealth at the points, deepest falls and longest stays below a high at the horizons."""
        ends = np.array(HORIZONS, dtype=np.int64) * self.sample.periods_per_year
        return _engine.draw_paths(self.sample.returns, self._points, ends, *self.how)

    def fan(self) -> pd.DataFrame:
        shares = np.quantile(self._paths[0], FAN, axis=0).T
        return pd.DataFrame(shares, index=self.sample.dates[self._points], columns=list(FAN))

    def falls(self) -> Iterator[tuple[int, _Floats, _Floats]]:
        """Yield for each horizon its years, and the depths and the bars of the falls."""
        for place, years in enumerate(HORIZONS):
            yield years, self._paths[1][:, place], self._paths[2][:, place]


def _among_random(
    report: Report, portfolios: int | None, seed: int, riskfree_rate: float
) -> tuple[RandomDraws, ...]:
    """The random results that somebody noted on the report, one or several, or those drawn here."""
    from corvex.significance.random_draws import report_among_random

    noted = getattr(report, "random_draws", None) or ()
    given = tuple(noted) if isinstance(noted, list | tuple) else (noted,)
    if portfolios == 0 or (portfolios is None and given):
        return given
    found = report_among_random(report, portfolios, seed, riskfree_rate)
    if found is None:
        return given
    return (*(one for one in given if one.test != found.test), found)


def _interval(
    draws: _Floats, observed: float, method: str, without: _Floats
) -> tuple[float, float]:
    return _engine.bootstrap_interval(
        np.ascontiguousarray(draws),
        observed,
        LEVEL,
        method,  # type: ignore[arg-type]
        np.ascontiguousarray(without),
    )


def _of_the_ratio(sample: Sample, known: TrialStatistics) -> dict[str, float]:
    """Everything that follows from the moments of the returns and the trials."""
    moments = sample.moments
    years = sample.returns.size / sample.periods_per_year
    bars = _engine.minimum_track_record(*moments, 0.0, LEVEL)
    error = 1.0 / math.sqrt(max(sample.returns.size - 1, 1))
    lags = _engine.usual_lags(sample.returns.size)
    thresholds = {
        name: known.threshold(count, error)
        for name, count in (("dsr", known.trials), ("dsr_effective", known.effective_trials))
    }
    scale = _engine.autocorrelated_scale(sample.returns, float(sample.periods_per_year), lags)
    return {
        "psr": _engine.probabilistic_sharpe(*moments, 0.0),
        "min_track_record_years": bars / sample.periods_per_year,
        "track_record_years": years,
        **{
            name: math.nan
            if math.isnan(threshold)
            else _engine.probabilistic_sharpe(*moments, threshold)
            for name, threshold in thresholds.items()
        },
        "expected_largest_sharpe": thresholds["dsr"] * sample.root,
        "trials": known.trials,
        "effective_trials": known.effective_trials,
        "pbo": known.overfitting,
        "spa_p": known.superiority,
        "sharpe_autocorrelated": moments[0] * scale,
        "t_statistic": _engine.mean_t_statistic(sample.returns - sample.riskfree, lags),
        "skewness": moments[1],
        "kurtosis": moments[2],
    }


def _against_benchmark(
    report: Report, riskfree_rate: float, draws: int, seed: int, method: str
) -> tuple[pd.DataFrame, dict[str, float]]:
    """Compare on the dates that both have, block by block the same ones."""
    names = [f"{name}_excess{bound}" for name in _COMPARED for bound in ("", "_low", "_high")]
    nothing = dict.fromkeys([*names, "beats_benchmark"], math.nan)
    benchmark = known_benchmark(report)
    if not moves(benchmark):
        return pd.DataFrame(), nothing
    pair = pd.DataFrame({"own": report.daily_creturn, "benchmark": benchmark}).dropna()
    own, other = (read_sample(pair[name], riskfree_rate) for name in ("own", "benchmark"))
    if not (own.enough and other.enough) or own.returns.size != other.returns.size:
        return pd.DataFrame(), nothing
    # One length of blocks, or they would not hold the same days.
    block = _engine.automatic_block_length(own.returns - other.returns)
    tables, observed, without = [], [], []
    for sample in (own, other):
        annual = (float(sample.periods_per_year), sample.riskfree)
        drawn = _engine.bootstrap_figures(sample.returns, *annual, draws, block, seed)
        tables.append(sample.in_years(drawn))
        observed.append(sample.in_years(_engine.path_figures(sample.returns, *annual)))
        if method == "bca":
            alone = _engine.figures_without_each(sample.returns, *annual)
            without.append(sample.in_years(alone))
    with np.errstate(invalid="ignore"):  # of two curves that never fall the ratios are infinite
        excess = tables[0] - tables[1]
        jackknife = without[0] - without[1] if without else np.empty((0, len(_NAMES)))
    found: dict[str, float] = {}
    for name in _COMPARED:
        place = _NAMES.index(name)
        value = float(observed[0][place] - observed[1][place])
        found[f"{name}_excess"] = value
        found[f"{name}_excess_low"], found[f"{name}_excess_high"] = _interval(
            excess[:, place], value, method, jackknife[:, place]
        )
    found["beats_benchmark"] = float(np.mean(excess[:, _NAMES.index("final_value")] > 0))
    return pd.DataFrame(excess, columns=list(_NAMES)), found


def _drawdowns(
    report: Report, sample: Sample, drawn: _Drawn
) -> tuple[pd.DataFrame, dict[str, float]]:
    """Foretell drawdowns, and judge the present and the largest one by them."""
    days = 365.25 / sample.periods_per_year
    rows: dict[int, dict[str, float]] = {}
    first: _Floats = np.empty(0)
    for years, deepest, longest in drawn.falls():
        first = deepest if years == 1 else first
        rows[years] = {
            "depth_50": float(np.quantile(deepest, 0.5)),
            "depth_95": float(np.quantile(deepest, 0.05)),
            "days_50": float(np.quantile(longest, 0.5)) * days,
            "days_95": float(np.quantile(longest, 0.95)) * days,
        }
    curve = report.daily_creturn.dropna()
    present = float(curve.iloc[-1] / curve.max() - 1.0)
    table = pd.DataFrame.from_dict(rows, orient="index")
    table.index.name = "years"
    return table, {
        "max_drawdown_rank": drawn.rank("max_drawdown"),
        "drawdown": present,
        "drawdown_rank": float(np.mean(first <= present)) if present < 0 else math.nan,
    }


def _nothing(
    sample: Sample,
    known: TrialStatistics,
    among: tuple[RandomDraws, ...],
    name: str | None,
    draws: int,
    seed: int,
) -> Confidence:
    """Without two returns that differ every figure is undefined, and still has its name."""
    bounds = [f"{figure}{bound}" for figure in _NAMES for bound in ("", "_low", "_high")]
    excess = [f"{figure}_excess{bound}" for figure in _COMPARED for bound in ("", "_low", "_high")]
    figures = dict.fromkeys([*_RATIO, *bounds, *excess, *_RANKS, "block"], math.nan)
    figures |= {
        "trials": known.trials,
        "returns": float(sample.returns.size),
        "draws": float(draws),
        "seed": float(seed),
    }
    empty = pd.DataFrame(columns=list(_NAMES), dtype=np.float64)
    return Confidence(
        figures=pd.Series(figures, dtype=np.float64, name="confidence"),
        draws=empty,
        excess=pd.DataFrame(),
        fan=pd.DataFrame(columns=list(FAN), dtype=np.float64),
        drawdowns=pd.DataFrame(),
        trials=known,
        random=among,
        name=name,
    )
