"""The methods on pandas objects and the objects that they return."""

import pickle
import subprocess
import sys

import numpy as np
import pandas as pd
import pytest

from corvex import _engine, ffn_core
from corvex.ffn_core import GroupStats, largest_drawdowns

DATES = pd.bdate_range("2024-01-01", periods=7)
HOLES = pd.Series([np.nan, 10.0, np.nan, 8.0, np.nan, 12.0, 6.0], index=DATES, name="a")


@pytest.fixture
def prices() -> pd.Series:
    steps = np.random.default_rng(5).normal(5e-4, 0.01, 800)
    dates = pd.bdate_range("2020-01-01", periods=800)
    return pd.Series(100 * np.exp(np.cumsum(steps)), index=dates, name="fund")


def test_import_adds_the_documented_methods_only_and_stays_light():
    code = (
        "import sys, pandas as pd\n"
        "kinds = (pd.Series, pd.DataFrame)\n"
        "before = [set(vars(kind)) for kind in kinds]\n"
        "import requests, corvex.ffn_core as f\n"
        "names = {m.__name__ for m in f.PANDAS_METHODS}\n"
        "assert [set(vars(k)) - b for k, b in zip(kinds, before)] == [names, names]\n"
        "heavy = {'plotly', 'IPython', 'pyarrow.parquet', 'rich', 'corvex.core.report'}\n"
        "assert not heavy & set(sys.modules), heavy & set(sys.modules)\n"
    )
    subprocess.run([sys.executable, "-c", code], check=True)


def test_rebase_divides_each_column_by_its_first_present_value():
    frame = pd.DataFrame({"a": HOLES, "b": 2.0, "empty": np.nan})
    rebased = frame.rebase()
    assert rebased["a"].dropna().tolist() == [100.0, 80.0, 120.0, 60.0]
    assert rebased["b"].eq(100.0).all()
    assert rebased["empty"].isna().all()
    whole = pd.Series([4, 6], index=DATES[:2], name="n")
    pd.testing.assert_series_equal(whole.rebase(1), whole / 4)
    twins = pd.concat([HOLES, HOLES], axis=1)
    assert twins.rebase().columns.tolist() == ["a", "a"]


def test_drawdown_series_carries_the_last_value():
    drawdown = HOLES.to_drawdown_series()
    np.testing.assert_allclose(drawdown, [np.nan, 0, 0, -0.2, -0.2, 0, -0.5])
    assert drawdown.name == "a"
    pd.testing.assert_series_equal(HOLES.to_frame().to_drawdown_series()["a"], drawdown)


def test_returns_and_back(prices):
    pd.testing.assert_series_equal(
        prices.to_returns().to_price_index(prices.iloc[0]), prices, check_freq=False
    )
    np.testing.assert_allclose(np.exp(prices.to_log_returns()) - 1, prices.to_returns())
    excess = prices.to_returns().to_excess_returns(0.02)
    assert (prices.to_returns() - excess).iloc[1] == pytest.approx(1.02 ** (1 / 252) - 1)
    assert HOLES.to_returns().isna().sum() == 6


def test_monthly_keeps_the_last_row_of_each_month(prices):
    holes = prices[prices.index.month != 5].copy()
    expected = holes.groupby([holes.index.year, holes.index.month]).tail(1)
    pd.testing.assert_series_equal(holes.to_monthly(), expected)
    frame = pd.DataFrame({"a": holes, "b": holes.iloc[:-3]})
    assert frame.to_monthly().index.equals(expected.index)
    assert frame.to_monthly()["b"].iloc[-1] == holes.iloc[-4]


def test_single_figures_equal_those_of_the_record(prices):
    stats, returns = prices.calc_stats(rf=0.02), prices.to_returns()
    assert prices.calc_cagr() == stats.cagr
    assert prices.calc_calmar_ratio() == stats.calmar
    assert prices.calc_max_drawdown() == stats.max_drawdown
    assert prices.calc_total_return() == stats.total_return
    assert returns.calc_sharpe(rf=0.02) == pytest.approx(stats.daily_sharpe, rel=1e-12)
    assert returns.calc_sortino_ratio(rf=0.02) == pytest.approx(stats.daily_sortino, rel=1e-12)
    assert returns.calc_sharpe(rf=0.02, annualize=False) == pytest.approx(
        stats.daily_sharpe / np.sqrt(252), rel=1e-12
    )
    both = pd.DataFrame({"x": prices, "y": prices * 2}).calc_cagr()
    assert both.to_dict() == pytest.approx({"x": stats.cagr, "y": stats.cagr})


def test_rate_and_range_change_the_record(prices):
    stats = prices.calc_stats()
    before = stats.stats
    assert stats.stats is before
    stats.set_riskfree_rate(0.02)
    assert stats.stats["rf"] == 0.02
    assert stats.daily_sharpe < before["daily_sharpe"]
    assert stats.cagr == before["cagr"]
    stats.set_date_range("2021-01-01", "2021-12-31")
    pd.testing.assert_series_equal(
        stats.stats, prices.loc["2021"].calc_stats(rf=0.02).stats, check_names=False
    )
    stats.set_date_range()
    assert stats.end == prices.index[-1]


def test_curves_seen_at_other_frequencies(prices):
    stats = prices.calc_stats()
    assert stats.monthly_prices.iloc[-1] == stats.yearly_prices.iloc[-1] == prices.iloc[-1]
    assert len(stats.yearly_prices) == len(stats.return_table) == 4
    assert stats.drawdown.min() == stats.max_drawdown
    assert stats.drawdown_details["drawdown"].mean() == pytest.approx(stats.avg_drawdown)
    assert stats.drawdown_details["Length"].mean() == pytest.approx(stats.avg_drawdown_days)
    assert stats.lookback_returns["ytd"] == stats.ytd
    assert "cagr" in dir(stats)
    with pytest.raises(AttributeError, match="no attribute 'sharp'"):
        stats.sharp  # noqa: B018


def test_largest_drawdowns_by_hand():
    dates = pd.bdate_range("2024-01-01", periods=10)
    values = [8.0, 10, 5, 5, 10, 12, 9, 12, np.nan, 3]  # a tie with the high ends a fall
    table = largest_drawdowns(pd.Series(values, index=dates), n=2)
    expected = {
        "start": [dates[7], dates[1]],  # the latest row at the high
        "valley": [dates[9], dates[2]],  # the first of two equal lows
        "end": [pd.NaT, dates[4]],
        "length": [(dates[9] - dates[7]).days, 3],
        "depth": [-0.75, -0.5],
    }
    pd.testing.assert_frame_equal(table, pd.DataFrame(expected), check_dtype=False)
    assert largest_drawdowns(pd.Series([1.0, 2.0], index=dates[:2])).empty
    with pytest.raises(ValueError, match="must not be negative"):
        largest_drawdowns(HOLES, -1)


def test_group_looks_at_each_column_on_its_own_dates(prices):
    frame = pd.DataFrame({"long": prices, "short": prices.iloc[300:]})
    group = frame.calc_stats()
    group.set_riskfree_rate(0.02)
    assert group.stats.columns.tolist() == ["long", "short"]
    expected = prices.iloc[300:].calc_stats(rf=0.02).stats
    pd.testing.assert_series_equal(group.stats["short"], expected, check_names=False)
    assert group["long"].start == prices.index[0]
    assert group.lookback_returns.loc["incep", "long"] == group["long"].cagr
    with pytest.raises(ValueError, match="'long' occurs twice"):
        frame[["long", "long"]].calc_stats()


def test_pickles_hold_the_curve_and_no_figures(prices):
    stats = prices.calc_stats(rf=0.02)
    blank = pickle.dumps(stats)
    assert stats.stats is not None
    assert len(pickle.dumps(stats)) < len(blank) + 100
    pd.testing.assert_series_equal(pickle.loads(blank).stats, stats.stats)
    group = pd.DataFrame({"x": prices, "y": prices * 2}).calc_stats()
    group.set_riskfree_rate(0.01)
    back = pickle.loads(pickle.dumps(group))
    assert isinstance(back, GroupStats)
    pd.testing.assert_frame_equal(back.stats, group.stats)


def test_text_shows_the_figures(prices, capsys):
    stats = prices.calc_stats()
    stats.display()
    shown = capsys.readouterr().out
    assert shown == f"{stats}\n"
    assert "Statistics of fund, 2020-01-01 to 2023-01-24" in shown
    assert f"{stats.cagr * 100:.2f}%" in shown
    group = pd.DataFrame({"x": prices, "y": prices}).calc_stats()
    for display in (stats.display_monthly_returns, stats.display_lookback_returns, group.display,
                    group.display_lookback_returns):  # fmt: skip
        display()
        assert f"{stats.mtd * 100:.2f}%" in capsys.readouterr().out
    assert "<PerformanceStats 'fund' 2020-01-01 to 2023-01-24, daily bars>" in repr(stats)
    assert stats.to_csv().splitlines()[3].startswith("total_return,")


@pytest.mark.parametrize(
    ("prices", "error", "message"),
    [
        (pd.Series([1.0, 2.0]), TypeError, "needs dates as its index .* not RangeIndex"),
        (pd.Series([1.0, 2.0], DATES[[1, 0]]), ValueError, "is earlier than the date before it"),
        (pd.Series([1.0, 2.0], DATES[[0, 0]], name="x"), ValueError, "'x' .* 00:00:00 repeats"),
        (pd.Series([1.0], pd.DatetimeIndex([pd.NaT])), ValueError, "missing date"),
        (pd.Series(["a", "b"], DATES[:2]), ValueError, "must hold numbers"),
        (pd.Series([1.0, np.inf], DATES[:2]), ValueError, "infinite"),
    ],
)
def test_bad_curves_are_refused(prices, error, message):
    with pytest.raises(error, match=message):
        prices.calc_stats()


@pytest.mark.parametrize(
    ("settings", "error", "message"),
    [
        ({"rf": -1.0}, ValueError, "above -1"),
        ({"rf": float("nan")}, ValueError, "finite"),
        ({"rf": "high"}, TypeError, "must be a number per year"),
        ({"periods_per_year": 0}, ValueError, "whole number from 1 on"),
    ],
)
def test_bad_settings_are_refused(settings, error, message):
    with pytest.raises(error, match=message):
        HOLES.calc_stats(**settings)


def test_engine_takes_strided_and_read_only_arrays(prices):
    values, times = prices.to_numpy(), prices.index.as_unit("ns").asi8
    wide = np.repeat(values, 2)[::2]
    wide.setflags(write=False)
    assert _engine.performance_record(wide, times)[0] == pytest.approx(
        _engine.performance_record(values, times)[0], nan_ok=True
    )
    assert ffn_core.PerformanceStats(prices.astype("Float64")).cagr == prices.calc_stats().cagr
