"""What a report's uncertainty says, at the seams where it meets dates, benchmarks and trials."""

import dataclasses
import math

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.significance.random_draws import RandomDraws
from corvex.significance.words import as_html, rows


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
    for name in ("sharpe", "max_drawdown", "cagr", "calmar"):
        key = "daily_sharpe" if name == "sharpe" else name
        assert found[name] == pytest.approx(stats[key], rel=1e-9)
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
    assert found["spa_p"] > 0.05
    assert corvex.trial_statistics(searched.assign(skill=walk(1000, 0.002, 41))).superiority < 0.01
    assert corvex.confidence(made, 1, **rate).figures["dsr"] == alone["psr"]


@pytest.mark.filterwarnings("ignore:the benchmark covers")
@pytest.mark.parametrize("part", [slice(None), slice(300, None), slice(None, 700)])
def test_a_benchmark_is_compared_on_the_days_of_both(part):
    market = walk(1000, 0.0002, 5)
    prices = pd.Series(np.cumprod(1 + market), DAYS)
    own = market + walk(1000, 0.001, 6) / 5
    made = report(own, DAYS, benchmark=prices.iloc[part])
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
        ({"draws": 2.5}, "draws must be a whole number"),
        ({"seed": -1}, "seed must be a whole number, at least 0"),
        ({"method": "normal"}, "bca"),
        ({"trials": 0}, "at least 1"),
        ({"trials": [1.0, math.nan]}, "finite"),
        ({"riskfree_rate": -1}, "above -1"),
    ):
        with pytest.raises(ValueError, match=text):
            corvex.confidence(made, **wrong)


def test_the_words_tell_the_figures_in_both_languages():
    made = report(
        walk(600, 0.001), DAYS[:600], benchmark=report(walk(600, 0, 1), DAYS[:600]).creturn
    )
    made.name = "<b>x</b>"
    made.trials_statistics = pd.DataFrame({i: walk(600, 0.0, i) for i in range(9)})
    made.random_draws = [
        RandomDraws(test, figure, 0.5, pd.DataFrame({figure: np.linspace(0, 1, 1000)}))
        for test, figure in (("portfolios", "daily_sharpe"), ("entries", "mean_return"))
    ]
    found = corvex.confidence(made, draws=100)
    f = found.figures
    for language in ("en", "zh-Hant"):
        told = dict(rows(found, language))
        assert list(told) == [
            "daily_sharpe", "psr", "cagr", "beats_benchmark", "max_drawdown_rank", "drawdown_rank",
            "dsr", "pbo", "spa_p", "random_portfolios", "random_entries",
        ]  # fmt: skip
        assert f"{f['sharpe']:.2f}" in told["daily_sharpe"]
        assert f"{f['cagr_low']:.2%}" in told["cagr"]
        assert f"{f['psr']:.1%}" in told["psr"]
        assert f"{f['min_track_record_years']:.1f}" in told["psr"]
        assert f"{f['drawdown_rank']:.1%}" in told["drawdown_rank"]
        assert f"{f['dsr']:.1%}" in told["dsr"]
        assert all("50.0%" in told[f"random_{name}"] for name in ("portfolios", "entries"))
        html = as_html(found, language)
        assert "<b>" not in html
        assert html.count("<tr>") == html.count("title=") == len(told)
    assert repr(found).splitlines()[1].endswith(dict(rows(found))["daily_sharpe"])
    never = dataclasses.replace(found, figures=f.replace(f["min_track_record_years"], math.inf))
    assert "no number of years" in dict(rows(never))["psr"]


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
def test_a_search_is_tested_against_a_benchmark_that_does_not_cover_it(zone):
    draw = np.random.default_rng(1)
    days = pd.bdate_range("2015-01-01", periods=1500, tz=zone)
    market = pd.Series(draw.normal(0.0008, 0.01, 1500), days)
    table = pd.DataFrame(draw.normal(0, 0.003, (1500, 12)), days, list("ABCDEFGHIJKL"))
    table = table.add(market, axis=0)
    table["G"] += 0.0006
    table.iloc[3, 2] = np.nan
    late = market.iloc[200:1400].where(np.arange(1200) % 50 != 7)
    against = corvex.superior_strategies(table, late)
    assert (against.best, against.superior) == ("G", ["G"])
    assert against.lower <= against.consistent <= against.upper < 0.05
    assert against.bars == late.notna().sum()
    assert corvex.superior_strategies(table).consistent < 0.05  # they rose with the market
    without = corvex.superior_strategies(table.drop(columns="G"), market)
    assert without.superior == []
    assert without.reality_check > 0.05
    with pytest.raises(ValueError, match="shares 0 dates"):
        corvex.superior_strategies(table, late.set_axis(late.index + pd.Timedelta("1h")))
    with pytest.raises(ValueError, match="no strategy has"):
        corvex.superior_strategies(table[["A"]] * 0)
    for wrong, text in (
        ({"benchmark": table}, "number, got DataFrame"),
        ({"draws": 0}, "at least 1"),
    ):
        with pytest.raises(ValueError, match=text):
            corvex.superior_strategies(table, **wrong)
