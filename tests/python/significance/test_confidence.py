"""What a report's uncertainty says, at the seams where it meets dates, benchmarks and trials."""

import math

import numpy as np
import pandas as pd
import pytest

import corvex


def report(steps: np.ndarray, dates: pd.DatetimeIndex, **options):
    return corvex.from_equity(pd.Series(np.cumprod(1 + steps), dates), **options)


def walk(rows: int, mean: float = 0.0, seed: int = 0) -> np.ndarray:
    return np.random.default_rng(seed).normal(mean, 0.01, rows)


DAYS = pd.bdate_range("2018-01-01", periods=1000)


@pytest.mark.parametrize("zone", [None, "UTC", "America/New_York", "Asia/Taipei"])
@pytest.mark.parametrize("rule", ["B", "W-FRI", "ME"])
def test_the_ratio_is_the_statistics_own_whatever_the_dates(zone, rule):
    dates = pd.date_range("2015-01-02", periods=200, freq=rule)
    steps = walk(200, 0.002)
    bare = report(steps, dates, market="us_stock")
    made = report(steps, dates if zone is None else dates.tz_localize(zone), market="us_stock")
    found = corvex.confidence(made, draws=50, riskfree_rate=0.01).figures
    stats = made.get_stats(riskfree_rate=0.01)
    for name, key in (("sharpe", "daily_sharpe"), ("max_drawdown", "max_drawdown")):
        assert found[name] == pytest.approx(stats[key], rel=1e-12)
    expected = corvex.confidence(bare, draws=50, riskfree_rate=0.01).figures
    pd.testing.assert_series_equal(found, expected)
    assert found["sharpe_low"] < found["sharpe"] < found["sharpe_high"]


def test_skill_is_told_from_luck():
    skilled = corvex.confidence(report(walk(1000, 0.0015), DAYS), draws=400).figures
    lucky = corvex.confidence(report(walk(1000, 0.0001, 3), DAYS), draws=400).figures
    assert skilled["psr"] > 0.99 > lucky["psr"]
    assert skilled["sharpe_low"] > 0 > lucky["sharpe_low"]
    assert skilled["min_track_record_years"] < skilled["track_record_years"]
    assert abs(skilled["t_statistic"]) > 2 > abs(lucky["t_statistic"])


def test_a_search_lowers_what_its_best_is_worth():
    searched = pd.DataFrame({i: walk(1000, 0.0, i) for i in range(40)}, index=DAYS)
    best = searched.sum().idxmax()
    made = report(searched[best].to_numpy(), DAYS)
    rate = {"riskfree_rate": 0.0, "draws": 20}
    alone = corvex.confidence(made, **rate).figures
    assert math.isnan(alone["dsr"])
    ratios = searched.mean() / searched.std() * math.sqrt(252)
    for trials in (searched, ratios, 40, corvex.trial_statistics(searched)):
        found = corvex.confidence(made, trials, **rate).figures
        assert found["trials"] == 40
        assert found["dsr"] < found["psr"] - 0.1
        assert found["expected_largest_sharpe"] == pytest.approx(ratios.max(), abs=0.4)
    assert 0.2 < found["pbo"] < 0.8
    assert 30 < found["effective_trials"] <= 40
    assert corvex.confidence(made, 1, **rate).figures["dsr"] == alone["psr"]


@pytest.mark.parametrize("part", [slice(None), slice(300, None), slice(None, 700)])
def test_a_benchmark_is_compared_on_the_days_of_both(part):
    market = walk(1000, 0.0002, 5)
    prices = pd.Series(np.cumprod(1 + market), DAYS)
    own = market + walk(1000, 0.001, 6) / 5
    made = report(own, DAYS)
    made.daily_benchmark = prices.iloc[part].reindex(DAYS)
    found = corvex.confidence(made, draws=200)
    both = pd.DataFrame({"own": np.cumprod(1 + own), "market": prices}).iloc[part]
    growth = both.iloc[-1] / both.iloc[0]
    assert found.figures["final_value_excess"] == pytest.approx(growth["own"] - growth["market"])
    assert found.figures["beats_benchmark"] > 0.95
    # Drawn together: the difference is far better known than either figure.
    assert found.excess["cagr"].std() < 0.5 * found.draws["cagr"].std()


def test_what_is_undefined_has_its_name_and_no_number():
    full = corvex.confidence(report(walk(300), DAYS[:300]), draws=10).figures
    for values in ([1.0, 1.0, 1.0], [1.0, 1.2]):
        bare = corvex.confidence(corvex.from_equity(pd.Series(values, DAYS[: len(values)])))
        assert sorted(bare.figures.index) == sorted(full.index)
        assert math.isnan(bare.figures["psr"])
        assert "too few" in repr(bare)
    made = report(walk(50), DAYS[:50])
    for wrong, text in (
        ({"draws": 1}, "at least 2"),
        ({"method": "normal"}, "bca"),
        ({"trials": 0}, "at least 1"),
        ({"trials": [1.0, math.nan]}, "finite"),
        ({"riskfree_rate": -1}, "above -1"),
    ):
        with pytest.raises(ValueError, match=text):
            corvex.confidence(made, **wrong)
    named = report(walk(50), DAYS[:50], name="<b>x</b>")
    assert "<b>" not in corvex.confidence(named, draws=5)._repr_html_()
