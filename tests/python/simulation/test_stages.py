"""Prices, plans and runs are values: made once, used by many, carried to other processes."""

import pickle
from concurrent.futures import ThreadPoolExecutor
from unittest import mock

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine
from corvex.simulation.options import Options
from corvex.simulation.plan.plan import make_plan
from corvex.simulation.read.price_data import read_prices
from corvex.simulation.read.weights import read_weights
from corvex.simulation.report.simulated import report_of
from corvex.simulation.run import run_plan


def weights_and_tables():
    draw = np.random.default_rng(4)
    days = pd.bdate_range("2020-01-01", periods=300, tz="America/New_York")
    close = pd.DataFrame(
        100 * np.exp(draw.normal(0, 0.02, (300, 5)).cumsum(axis=0)), days, list("ABCDE")
    )
    tables = {"close": close, "high": close * 1.01, "low": close * 0.99}
    rank = close.pct_change(20, fill_method=None).rank(axis=1)
    return (rank >= 4) * 0.5, (rank <= 2) * 0.3, tables


def assert_same(one, other):
    pd.testing.assert_series_equal(one.creturn, other.creturn, check_exact=True)
    for name in ("position", "trades", "fills"):
        pd.testing.assert_frame_equal(getattr(one, name), getattr(other, name), check_exact=True)
    assert one.settings == other.settings
    assert one.next_weights.to_dict() == other.next_weights.to_dict()


@pytest.mark.parametrize("through_pickle", [False, True])
def test_many_runs_share_prices_and_plans_and_equal_single_ones(monkeypatch, through_pickle):
    winners, losers, tables = weights_and_tables()
    whole = mock.Mock(wraps=_engine.PriceSet)
    monkeypatch.setattr(_engine, "PriceSet", whole)

    def carried(value):
        return pickle.loads(pickle.dumps(value)) if through_pickle else value

    span = {"start": "2020-02-03", "end": "2020-12-31", "market": "us_stock"}
    tables_read = [read_weights(table, limit=np.inf, leverage=False) for table in (winners, losers)]
    data = carried(read_prices(tables, winners.columns, **span))
    plans = [carried(make_plan(table, data, "ME")) for table in tables_read]
    variants = [Options(fee_ratio=0.001, stop_loss=stop) for stop in (np.inf, 0.05, 0.02)]
    tasks = [(plan, options) for plan in plans for options in variants]
    with ThreadPoolExecutor(4) as pool:
        runs = list(pool.map(lambda task: run_plan(data, *task), tasks))
    assert whole.call_count == 1  # all assets' prices were matched and checked once

    reports = [report_of(carried(run), data) for run in runs]
    for report, (plan, options) in zip(reports, tasks, strict=True):
        stop = options.stop_loss if np.isfinite(options.stop_loss) else None
        single = corvex.simulate(
            winners if plan is plans[0] else losers,
            tables, resample="ME", fee_ratio=0.001, tax_ratio=0.0, stop_loss=stop, **span,
        )  # fmt: skip
        assert_same(report, single)
        assert (report.stop_loss, report.resample) == (single.stop_loss, single.resample)
    # Each report keeps the prices of its own assets, whatever the others hold.
    some = read_weights(winners[["A"]], limit=np.inf, leverage=False)
    alone = report_of(run_plan(data, make_plan(some, data), Options()), data)
    report_of(runs[0], data)
    assert list(pickle.loads(pickle.dumps(alone)).market.get_price("close").columns) == ["A"]


def test_a_run_of_curves_alone_has_the_same_curve():
    winners, _, tables = weights_and_tables()
    data = read_prices(tables, winners.columns, market="us_stock")
    plan = make_plan(read_weights(winners, limit=np.inf, leverage=False), data)
    options = Options(fee_ratio=0.001, trail_stop=0.03, touched_exit=True)
    whole = run_plan(data, plan, options).result
    curves = run_plan(data, plan, options, curves_only=True).result
    np.testing.assert_array_equal(whole["equity"], curves["equity"])
    assert curves["trades"] is curves["position"] is curves["fills"] is None
