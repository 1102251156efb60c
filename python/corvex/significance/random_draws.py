"""A strategy among portfolios that were drawn at random."""

from __future__ import annotations

import warnings
from collections.abc import Callable
from dataclasses import dataclass, replace
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
import pandas as pd

from corvex import _engine
from corvex.significance.draw_counts import check_draws
from corvex.significance.random_result import RandomDraws
from corvex.simulation.batch import batch_dates
from corvex.simulation.options import checked_limit, cost_ratios, read_options
from corvex.simulation.plan.plan import Plan, make_plan
from corvex.simulation.plan.schedule import read_offset, read_resample
from corvex.simulation.read.columns import match_columns
from corvex.simulation.read.price_data import PriceData, read_prices
from corvex.simulation.read.weights import read_weights
from corvex.simulation.report.origins import Origin, origin_of
from corvex.tables.asset_labels import match_labels
from corvex.tables.frames import TableInput, as_table, require_arrays
from corvex.trades.trade_lookup import through_splits

if TYPE_CHECKING:
    from corvex.core.report import Report
    from corvex.simulation.read.asset_prices import AssetPrices

__all__ = ["RandomDraws", "random_entries", "random_portfolios", "report_among_random"]

_Floats = npt.NDArray[np.float64]
#: Of simulate's arguments, those that tell how a portfolio is traded.
_OPTIONS = (
    *_engine.OPTION_NAMES,
    "resample",
    "resample_offset",
    "trade_at",
    "position_limit",
    "leverage",
    "start",
    "end",
    "market",
    "dates",
    "assets",
    "account",
)
#: Numbers in the tables of weights that are drawn and run at once: 64 MiB.
_AT_ONCE = 1 << 23
#: Draws where nobody says how many, how few say nothing, and the work that they may be: sessions x
#: held assets and rebalances x assets, some 10 ns each.
_USUAL_DRAWS, _FEWEST_DRAWS, _WORK = 200, 50, 30_000_000
#: How much longer all this takes with an account, and the assets that a session itself is worth.
_ACCOUNT, _ACCOUNT_SESSION = 3, 6


def random_portfolios(
    weights: TableInput,
    prices: Any,
    draws: int = 1000,
    seed: int = 0,
    *,
    figure: str = "daily_sharpe",
    riskfree_rate: float = 0.02,
    **options: Any,
) -> RandomDraws:
    """Compare a strategy with portfolios of the same dates, numbers and weights in other assets.

    Whenever the strategy begins to hold an asset, a random portfolio draws one that has a price,
    and keeps it as long. So holding periods, turnover and costs are alike, and only the choice of
    the assets differs: the test says whether choosing paid.

    Parameters
    ----------
    weights, prices
        As `simulate` takes them. The assets of `prices` are those drawn from.
    draws : int, default 1000
        How many portfolios are drawn and simulated, with the same costs, stops and account.
    seed : int, default 0
        The same seed draws the same portfolios.
    figure : str, default "daily_sharpe"
        A figure of the statistics record where more is better.
    riskfree_rate : float, default 0.02
        Per year, a fraction.
    **options
        As `simulate` takes them: `resample`, `trade_at`, costs, stops, `market`, `account`, ...
        Where an account has terms by asset, those without one are not drawn.

    Returns
    -------
    RandomDraws
        Its `draws` have all figures of the statistics record.

    Raises
    ------
    ValueError
        For fewer than 1 draw, an unknown figure, or what `simulate` refuses.

    Examples
    --------
    >>> import corvex
    >>> prices = corvex.data.sample("us_stocks").loc["2015":]
    >>> best = prices.pct_change(252, fill_method=None).rank(axis=1, ascending=False) <= 5
    >>> drawn = corvex.random_portfolios(best, prices, 200, resample="QE", fee_ratio=0.001)
    >>> 0 <= drawn.rank <= 1
    True
    """
    check_draws(draws, seed)
    if figure not in _engine.FIGURE_NAMES:
        raise ValueError(f"figure must be one of the statistics record's, not {figure!r}")
    origin, data = _read(weights, prices, options)
    return _drawn(origin, data, draws, seed, figure, riskfree_rate)


def report_among_random(
    report: Report, draws: int | None = None, seed: int = 0, riskfree_rate: float = 0.02
) -> RandomDraws | None:
    """Set a report among random portfolios, by its ``daily_sharpe``.

    Parameters
    ----------
    report : Report
        One that `corvex.simulate` made in this process, whose plan and prices are still known.
    draws : int, optional
        How many portfolios. Default: 200; of a run that takes long fewer, as many as take some
        tenths of a second, and none where these were too few to rank among.
    seed : int, default 0
        The same seed draws the same portfolios.
    riskfree_rate : float, default 0.02
        Per year, a fraction.

    Returns
    -------
    RandomDraws or None
        None where nothing is known of the run, or every draw is the strategy itself: it holds all
        assets that there are.
    """
    origin = origin_of(report)
    data = None if origin is None or origin.plan.is_idle else origin.prices(report)
    if origin is None or data is None:
        return None
    asked = draws is not None
    if draws is None:
        draws = _affordable(origin, len(data.clock), len(data.close.columns))
    if draws < 1:
        return None
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # of its terms the run has told already
            found = _drawn(origin, data, draws, seed, "daily_sharpe", riskfree_rate)
    except ValueError:  # the account lacks what assets need that the run never held
        if asked or origin.account is None:
            raise
        return None
    alone = found.draws[[found.figure]]  # a saved report may keep them
    known = alone[found.figure].dropna()
    return replace(found, draws=alone) if len(known) and np.ptp(known) > 0 else None


def _affordable(origin: Origin, sessions: int, assets: int) -> int:
    """How many portfolios can be drawn and simulated beside what a page does anyway."""
    schedule = origin.plan.schedule
    held = int((schedule.targets != 0.0).sum(axis=1).max(initial=1))
    each = sessions * held + len(schedule) * assets
    if origin.account is not None:
        each = _ACCOUNT * (each + sessions * _ACCOUNT_SESSION)
    draws = min(_USUAL_DRAWS, _WORK // max(each, 1))
    return draws if draws >= _FEWEST_DRAWS else 0


def _drawn(
    origin: Origin, data: PriceData, draws: int, seed: int, figure: str, riskfree_rate: float
) -> RandomDraws:
    plan, trade_at = origin.plan, origin.trade_at
    universe = pd.Index(data.close.columns)
    of_all = data.of_assets(universe, trade_at, with_bars=origin.options.touched_exit)
    sessions = np.ascontiguousarray(plan.schedule.sessions, dtype=np.int64)
    targets, labels = _in_universe(plan, universe)
    known = ~np.isnan(of_all.matrices.close[np.maximum(sessions, 0)])
    if origin.account is None:
        figures = _batch_figures(origin, data, of_all, sessions, riskfree_rate)
    else:
        from corvex.significance.account_draws import account_figures, drawn_from

        drawable = drawn_from(origin.account, labels)
        known &= drawable
        figures = account_figures(
            data, plan, labels, drawable, origin.account, origin.options, trade_at, riskfree_rate
        )
    step = max(1, _AT_ONCE // max(targets.size, 1))
    drawn = [
        figures(_engine.random_targets(targets, known, at, min(step, draws - at), seed))
        for at in range(0, draws, step)
    ]
    names = list(_engine.FIGURE_NAMES)
    own = figures(targets[np.newaxis])[0, names.index(figure)]
    table = pd.DataFrame(np.concatenate(drawn), columns=names)
    return RandomDraws("portfolios", figure, float(own), table)


def _batch_figures(
    origin: Origin,
    data: PriceData,
    of_all: AssetPrices,
    sessions: npt.NDArray[np.int64],
    riskfree_rate: float,
) -> Callable[[_Floats], _Floats]:
    """Return what simulates tables of targets without an account and tells their figures."""
    first = origin.plan.first_session
    dates = batch_dates(data.clock.index, [first])

    def figures(tables: _Floats) -> _Floats:
        found = _engine.simulate_many(
            of_all.shared,
            [(table, sessions, first) for table in tables],
            [origin.options],
            np.array([(row, 0) for row in range(len(tables))], dtype=np.int64),
            times=dates.times,
            closes=dates.closes,
            before_first=np.repeat(dates.before_first, len(tables)),
            riskfree_rate=riskfree_rate,
        )
        return found["figures"]

    return figures


def random_entries(report: Report, draws: int = 1000, seed: int = 0) -> RandomDraws:
    """Compare the trades of a report with the same trades begun on random dates.

    Each closed trade keeps its asset, side, weight and length, and begins anywhere in the prices
    of its asset: the test says whether its timing paid, whatever the assets did on the whole.

    Parameters
    ----------
    report : Report
        Its trades, and the closes of its market.
    draws : int, default 1000
        How often all trades are begun anew.
    seed : int, default 0
        The same seed draws the same dates.

    Returns
    -------
    RandomDraws
        By ``mean_return``, the mean return of the trades from close to close, without costs,
        weighted with the size of their weights; NaN without a closed trade.

    Raises
    ------
    ValueError
        For fewer than 1 draw.
    """
    check_draws(draws, seed)
    generator = np.random.Generator(np.random.PCG64(seed))
    total, sizes = np.zeros(draws), 0.0
    own = 0.0
    for trade in _closed_trades(report):
        starts = trade.starts()
        if not len(starts):
            continue
        begun = starts[generator.integers(0, len(starts), draws)]
        total += trade.size * trade.returns(begun)
        own += trade.size * float(trade.returns(np.array([trade.entry]))[0])
        sizes += trade.size
    means = total / sizes if sizes else np.full(draws, np.nan)
    table = pd.DataFrame({"mean_return": means})
    return RandomDraws("entries", "mean_return", own / sizes if sizes else float("nan"), table)


@dataclass(frozen=True)
class _Trade:
    prices: _Floats
    entry: int
    bars: int
    side: float
    size: float

    def returns(self, starts: npt.NDArray[np.int64]) -> _Floats:
        moved: _Floats = self.prices[starts + self.bars] / self.prices[starts] - 1.0
        return self.side * moved

    def starts(self) -> npt.NDArray[np.int64]:
        """Rows at which the trade could begin and end at a price."""
        last = len(self.prices) - self.bars
        known = ~np.isnan(self.prices)
        return np.flatnonzero(known[:last] & known[self.bars :])


def _read(weights: TableInput, prices: Any, options: dict[str, Any]) -> tuple[Origin, PriceData]:
    unknown = sorted(set(options) - set(_OPTIONS))
    if unknown:
        raise TypeError(f"unknown argument {unknown[0]!r}; known are {', '.join(_OPTIONS)}")
    get = options.get
    limit = checked_limit(get("position_limit"))
    axes = {"dates": get("dates"), "assets": get("assets")}
    require_arrays(*axes.values(), weights, prices, get("trade_at"))
    table = read_weights(weights, limit=limit, leverage=bool(get("leverage")), **axes)
    rule = read_resample(get("resample"))
    offset = read_offset(rule, get("resample_offset"))
    data = read_prices(
        prices, table.labels, market=get("market"), start=get("start"), end=get("end"), **axes
    )
    account = get("account")
    ratios = cost_ratios(account, get("fee_ratio"), get("tax_ratio"), get("slippage_ratio") or 0.0)
    settings = read_options(data.market, {**options, **ratios})
    trade_at = as_table(get("trade_at", "close"), "trade_at", **axes)
    plan = make_plan(table, data, rule, offset)
    return Origin(plan, settings, trade_at, data.clock.index, data.end is not None, account), data


def _in_universe(plan: Plan, universe: pd.Index) -> tuple[_Floats, pd.Index]:
    """Bring the targets to the columns of all assets; these have the plan's labels where it can."""
    found = match_columns(plan.labels, universe)
    if found is None:
        return np.ascontiguousarray(plan.schedule.targets), universe
    targets = np.zeros((len(plan.schedule), len(universe)))
    targets[:, found[found >= 0]] = plan.schedule.targets[:, found >= 0]
    labels = universe.to_numpy(dtype=object, copy=True)
    labels[found[found >= 0]] = plan.labels[found >= 0]
    return targets, pd.Index(labels, dtype=object)


def _closed_trades(report: Report) -> list[_Trade]:
    trades = report.trades.dropna(subset=["entry_date", "exit_date", "return"])
    close = through_splits(report.market, report.market.get_price("close"))
    columns = match_labels(pd.Index(trades["symbol"]), pd.Index(close.columns))
    rows = [
        close.index.get_indexer(pd.DatetimeIndex(trades[c])) for c in ("entry_date", "exit_date")
    ]
    found = []
    weights = trades["position"].to_numpy(dtype=np.float64)
    for column, entry, leave, weight in zip(columns, *rows, weights, strict=True):
        if column < 0 or entry < 0 or leave <= entry or weight == 0.0:
            continue
        prices = close.iloc[:, column].to_numpy(dtype=np.float64)
        if np.isnan(prices[[entry, leave]]).any():
            continue
        found.append(_Trade(prices, int(entry), int(leave - entry), np.sign(weight), abs(weight)))
    return found
