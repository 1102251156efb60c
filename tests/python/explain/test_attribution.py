"""Contributions, exposure, turnover and live figures keep to what the report itself says."""

import math

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.explain.attribution import COSTS, OTHER

DATES = pd.bdate_range("2020-01-01", periods=500)


def _tables(assets=6, seed=3):
    draw = np.random.default_rng(seed)
    names = [f"A{i}" for i in range(assets)]
    steps = draw.normal(0.0004, 0.02, (len(DATES), assets))
    close = pd.DataFrame(100 * np.exp(steps.cumsum(axis=0)), DATES, names)
    opened = close.shift(1).fillna(100.0) * (1 + draw.normal(0, 0.004, close.shape))
    high, low = np.maximum(opened, close) * 1.002, np.minimum(opened, close) * 0.998
    return {"open": opened, "high": high, "low": low, "close": close}


def _signals(tables):
    close = tables["close"]
    rank = (close / close.shift(20)).rank(axis=1)
    return (rank >= 5).astype(float) * 0.4 - (rank <= 1).astype(float) * 0.2


def _report(**settings):
    tables = _tables()
    settings = {
        "resample": "ME",
        "market": "us_stock",
        "benchmark": tables["close"]["A0"],
    } | settings
    return corvex.simulate(_signals(tables), tables, **settings)


def _years(report):
    return (report.creturn.index[-1] - report.creturn.index[0]) / pd.Timedelta(days=365.25)


@pytest.mark.parametrize(
    "settings",
    [
        {"fee_ratio": 0.0},
        {"fee_ratio": 0.002, "tax_ratio": 0.003, "slippage_ratio": 0.001, "resample": "W-FRI"},
        {"fee_ratio": 0.001, "resample": None, "trade_at": "open"},
        {"fee_ratio": 0.001, "resample": "ME", "resample_offset": "3D", "stop_loss": 0.05},
        {"fee_ratio": 0.001, "resample": DATES[30::45], "take_profit": 0.1, "trade_at": "open"},
        {"fee_ratio": 0.0, "touched_exit": True, "stop_loss": 0.04, "trade_at": "open"},
        {"fee_ratio": 0.001, "touched_exit": True, "trail_stop": 0.03, "take_profit": 0.05},
    ],
    ids=["free", "all costs", "at changes", "stops", "dates", "touched", "touched at the close"],
)
def test_contributions_and_costs_add_up_to_the_return(settings):
    report = _report(**settings)
    parts = corvex.contributions(report)
    assert list(parts.index[-1:]) == [COSTS]
    assert OTHER not in parts
    assert parts.sum() == pytest.approx(report.creturn.iloc[-1] - 1, abs=1e-12)
    # The simulation has counted its costs itself, so nothing else is left unexplained.
    assert parts[COSTS] == pytest.approx(-report.costs["total"], abs=1e-10)
    traded = corvex.turnover(report)
    assert traded["turnover"].sum() / _years(report) == pytest.approx(report.yearly_turnover)


def test_contributions_of_periods_add_up_to_their_returns():
    report = _report(fee_ratio=0.001, touched_exit=True, stop_loss=0.04)
    months = corvex.contributions(report, "ME")
    ends = report.creturn.resample("ME").last()
    returns = (ends / ends.shift(1, fill_value=1.0)) - 1
    pd.testing.assert_series_equal(months.sum(axis=1), returns, check_names=False)
    assert list(months.columns) == list(corvex.contributions(report).index)


def test_a_report_without_fills_is_guessed_from_its_weights():
    report = _report(fee_ratio=0.002, tax_ratio=0.003, slippage_ratio=0.001, trade_at="open")
    exact = corvex.contributions(report)
    held = corvex.exposure(report)
    report.fills = None  # as in reports that older versions saved
    guess = corvex.contributions(report)
    pd.testing.assert_series_equal(guess, exact, atol=1e-9)
    pd.testing.assert_frame_equal(corvex.exposure(report), held, atol=1e-9)
    assert guess.attrs["estimated"]
    assert not exact.attrs["estimated"]

    report = _report(fee_ratio=0.002, stop_loss=0.03)
    exact = corvex.contributions(report)
    report.fills = None
    guess = corvex.contributions(report)
    # Stops are guessed as rebalances: what that misses is told apart from the costs.
    assert guess.sum() == pytest.approx(exact.sum())
    assert abs(guess.get(OTHER, 0.0)) < 0.05


def test_a_ruin_writes_off_the_debt():
    close = pd.DataFrame({"A": [100.0, 100, 150, 220, 100]}, index=DATES[:5])
    with pytest.warns(UserWarning, match="fell to zero"):
        report = corvex.simulate(pd.DataFrame({"A": [-1.0]}, DATES[:1]), close, fee_ratio=0.01)
    parts = corvex.contributions(report)
    assert parts.sum() == pytest.approx(-1.0)
    assert parts[COSTS] == pytest.approx(-report.costs["total"])
    assert parts["A"] == pytest.approx(report.fills.shares.iloc[0] * 120)
    assert parts[OTHER] > 0
    assert corvex.contributions(report, by_kind=True)["total"].sum() == pytest.approx(-1.0)


def test_an_asset_alone_made_the_whole_return_also_after_a_gap_in_its_prices():
    close = _tables(1)["close"]
    close.iloc[40:60] = np.nan
    weights = pd.DataFrame({"A0 Alpha": 1.0}, index=DATES[[10, 45, 100]])
    report = corvex.simulate(weights, close, resample="ME", market="us_stock", fee_ratio=0.0)
    parts = corvex.contributions(report)
    assert parts["A0 Alpha"] == pytest.approx(report.creturn.iloc[-1] - 1)
    assert parts[COSTS] == pytest.approx(0, abs=1e-12)


def test_exposure_drifts_between_rebalances_and_meets_the_targets_on_them():
    report = _report(fee_ratio=0.0)
    held = corvex.exposure(report)
    assert (held["gross"] - held["long"] + held["short"]).abs().max() < 1e-12
    assert (held["net"] - held["long"] - held["short"]).abs().max() < 1e-12
    target = report.position
    filled = target.ne(target.shift()).any(axis=1) & target.ne(0).any(axis=1)
    on_fill = held[filled.to_numpy()]
    assert on_fill["net"].to_numpy() == pytest.approx(target.sum(axis=1)[filled].to_numpy())
    assert held["net"].iloc[-1] != pytest.approx(target.iloc[-1].sum(), abs=1e-6)
    assert (held["holdings"] == target.ne(0).sum(axis=1)).all()


def test_without_prices_the_target_weights_count():
    report = _report(fee_ratio=0.0)
    report.market = corvex.markets.get_market_by_name("us_stock")
    assert corvex.exposure(report)["gross"].iloc[-1] == pytest.approx(1.0)
    by_year = corvex.turnover(report, "YE")
    assert by_year["turnover"].sum() == pytest.approx(corvex.turnover(report)["turnover"].sum())
    with pytest.raises(ValueError, match="no close prices of the assets held"):
        corvex.contributions(report)
    curve = corvex.from_equity(_tables(1)["close"]["A0"])
    parts = corvex.contributions(curve)
    assert parts.iloc[0] == pytest.approx(curve.creturn.iloc[-1] - 1)
    assert corvex.turnover(curve)["turnover"].sum() == 0


def test_live_figures_split_the_curve_and_its_trades():
    report = _report(fee_ratio=0.001, live_performance_start="2021-03-01")
    figures = corvex.live_figures(report, riskfree_rate=0.03)
    grown = 1 + figures.loc["total_return"]
    assert grown["backtest"] * grown["live"] == pytest.approx(report.creturn.iloc[-1])
    assert figures.loc["days", ["backtest", "live"]].sum() == len(report.daily_creturn) - 1
    closed = report.trades.dropna(subset=["exit_date"])
    assert figures.loc["trades", ["backtest", "live"]].sum() == len(closed)
    live = report.daily_creturn.loc["2021-02-26":].calc_stats()
    live.set_riskfree_rate(0.03)
    assert figures.loc["daily_sharpe", "live"] == live.daily_sharpe
    assert list(figures.columns[2:]) == ["benchmark backtest", "benchmark live"]

    report.live_performance_start = "2035-01-01"
    later = corvex.live_figures(report)
    assert math.isnan(later.loc["cagr", "live"])
    assert later.loc["days", "live"] == 0
    report.live_performance_start = None
    with pytest.raises(ValueError, match="no live part"):
        corvex.live_figures(report)
