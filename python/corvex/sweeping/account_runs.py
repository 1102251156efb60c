"""Runs that keep an account: the engine's batch knows none, so each is made as a single one."""

from __future__ import annotations

from typing import Any

import numpy as np

from corvex.simulation.options import Options
from corvex.simulation.plan.plan import Plan
from corvex.simulation.read.price_data import PriceData
from corvex.simulation.report.simulated import report_of
from corvex.simulation.run import run_plan
from corvex.sweeping.run_results import BLOCKS, FIGURES, Results
from corvex.sweeping.settings import Settings

__all__ = ["account_results"]


def account_results(
    run: int,
    data: PriceData,
    plan: Plan,
    options: Options,
    settings: Settings,
    *,
    riskfree_rate: float,
    blocks: int,
    keep_curve: bool,
) -> Results:
    """Simulate one run and return its figures, those of its report.

    Parameters
    ----------
    run : int
        Its number in the grid.
    blocks : int
        Over how many parts of the sessions returns are summed; 0: none.

    Raises
    ------
    ValueError
        What `corvex.simulate` would raise.
    """
    done = run_plan(data, plan, options, settings.arguments["trade_at"], account=settings.account)
    curve = np.ones(len(data.clock))  # 1 before the run starts
    curve[plan.first_session :] = done.result["equity"]
    report: Any = report_of(done, data)
    stats, costs, trades = (
        report.get_stats(riskfree_rate=riskfree_rate),
        report.costs,
        report.trades,
    )
    closed = trades["entry_date"].notna() & trades["exit_date"].notna()
    results = Results.empty([run])
    results.figures[0, : len(FIGURES)] = [stats[name] for name in FIGURES]
    results.figures[0, len(FIGURES) :] = [
        *(costs[name] for name in ("fees", "tax", "slippage", "total")),
        report.yearly_turnover,
        stats["win_ratio"],
        int(closed.sum()),
    ]
    done_at = done.result["start_row"] - done.result["starts_before"]
    results.begins[0] = plan.first_session + done_at
    if blocks:
        results.sums[0], results.squares[0] = _block_sums(curve)
    if keep_curve:
        results.curves[0] = curve
    return results


def _block_sums(curve: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    """Sums of the returns, and of their squares, over parts of the sessions as even as can be."""
    before = curve[:-1]
    returns = np.divide(curve[1:], before, out=np.ones(len(before)), where=before > 0.0) - 1.0
    parts = np.array_split(returns, BLOCKS)
    sums = [[part.sum(), (part * part).sum()] for part in parts]
    return np.array(sums)[:, 0], np.array(sums)[:, 1]
