"""Reports of the real package: saved small, loaded whole, remembered once."""

import copy
import pickle

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.core.report import Report


@pytest.fixture(scope="module")
def report():
    """Two of two hundred assets, traded every month for two years."""
    dates = pd.bdate_range("2020-01-01", periods=500)
    walk = np.random.default_rng(1).normal(0, 0.01, (500, 200)).cumsum(axis=0)
    prices = pd.DataFrame(np.exp(walk), index=dates, columns=[f"A{i}" for i in range(200)])
    weights = pd.DataFrame({"A3": 0.5, "A150": 0.5}, index=dates[::20])
    return corvex.simulate(
        weights, prices, resample="ME", market="us_stock", benchmark=prices["A0"]
    )


def test_file_holds_the_prices_of_the_traded_assets_alone(report, tmp_path):
    report.to_pickle(tmp_path / "before.pkl")
    assert report.metrics.annual_return(0.02) == report.get_stats()["cagr"]
    report.market.market_close_at_timestamp(report.next_trading_date)
    report.to_pickle(tmp_path / "after.pkl")
    sizes = [(tmp_path / name).stat().st_size for name in ("before.pkl", "after.pkl")]
    assert sizes[0] < 150_000
    assert sizes[1] <= sizes[0] + 200


def test_loaded_report_answers_as_the_saved_one(report, tmp_path):
    report.to_pickle(tmp_path / "report.pkl")
    loaded = Report.from_pickle(tmp_path / "report.pkl")
    assert loaded.to_text("x") == report.to_text("x")
    # As text: a figure may be NaN, which equals nothing.
    assert str(loaded.get_metrics()["ratio"]) == str(report.get_metrics()["ratio"])
    assert loaded.execution.to_dict()["positions"] == report.execution.to_dict()["positions"]
    holdings = [str(r.position_info2()["positions"]) for r in (loaded, report)]
    assert holdings[0] == holdings[1]
    pd.testing.assert_frame_equal(loaded.trades, report.trades)


def test_metrics_travel_with_their_report(report):
    twin = pickle.loads(pickle.dumps(report))
    assert twin.metrics.sharpe_ratio(0.02) == report.metrics.sharpe_ratio(0.02)
    twin.fee_ratio = 0.5
    assert twin.metrics.fee_ratio() == 0.5
    assert copy.copy(report).get_stats() is not report.get_stats()
