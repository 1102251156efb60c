"""What the dates decide: bars, years, time zones, the first return, holes."""

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.ffn_core import PerformanceStats
from corvex.markets.bars import has_weekends, infer_freq


def walk(dates: pd.DatetimeIndex, seed: int = 0) -> pd.Series:
    steps = np.random.default_rng(seed).normal(0, 0.01, len(dates))
    return pd.Series(100 * np.exp(np.cumsum(steps)), index=dates)


def figures(prices: pd.Series) -> dict[str, float]:
    return prices.calc_stats().stats.drop(["start", "end"]).to_dict()


DAYS = pd.date_range("2024-01-01", periods=70)  # from a Monday on
WORKDAYS = pd.bdate_range(DAYS[0], DAYS[-1])


@pytest.mark.parametrize(
    ("dates", "bar", "periods"),
    [
        (pd.date_range("2020-01-01", periods=9, freq="182D"), "half-yearly", 2),
        (pd.date_range("2024-01-01", periods=9, freq="108h"), "daily", 365),
        (pd.date_range("2024-01-01", periods=9, freq="19h"), "daily", 365),
        (pd.date_range("2024-01-07", periods=50, freq="W-SUN"), "weekly", 52),
        (WORKDAYS, "daily", 252),
        (WORKDAYS.union(DAYS[[33]]), "daily", 252),  # one Saturday
        (WORKDAYS.delete(range(3, 40)), "daily", 252),
        (DAYS[[4, 7]], "daily", 252),  # a Friday and a Monday
        (DAYS, "daily", 365),
        (DAYS[[5, 6]], "daily", 365),
        (DAYS[np.arange(70) % 3 != 1], "daily", 365),
        (pd.date_range("2024-01-01", periods=500, freq="h"), "intraday", 365),
        (WORKDAYS.union(WORKDAYS + pd.Timedelta(hours=3)), "intraday", 252),
        (DAYS[[0, 7, 14, 22, 28]], "weekly", 52),
        (pd.date_range("2024-01-01", periods=50, freq="MS"), "monthly", 12),
        (pd.date_range("2024-01-01", periods=5, freq="QE"), "quarterly", 4),
        (pd.date_range("2020-01-01", periods=3, freq="YE"), "yearly", 1),
    ],
)
def test_convention_is_told_by_the_dates_and_said(dates, bar, periods):
    stats = walk(dates).calc_stats()
    assert (stats.stats["bar"], stats.stats["periods_per_year"]) == (bar, periods)
    assert stats.convention in stats.to_text()
    assert bar in stats.convention
    assert f"{periods} " in stats.convention
    # A market reads the same from the dates of its prices.
    names = {"intraday": "h", "daily": "D", "weekly": "W", "monthly": "ME", "quarterly": "QE"}
    names |= {"half-yearly": "2QE", "yearly": "YE"}
    assert infer_freq(dates).endswith(names[bar])
    assert has_weekends(dates) == (periods == 365)


def test_given_periods_win():
    prices = walk(pd.bdate_range("2024-01-01", periods=100))
    stats = prices.calc_stats(periods_per_year=244)
    assert stats.daily_mean == pytest.approx(prices.calc_stats().daily_mean * 244 / 252, rel=1e-12)
    assert "244 a year, as given" in stats.to_text()


@pytest.mark.parametrize("zone", ["America/New_York", "Asia/Taipei", "Pacific/Auckland"])
@pytest.mark.parametrize("unit", ["s", "ns"])
def test_time_zone_and_unit_change_no_figure(zone, unit):
    prices = walk(pd.bdate_range("2019-10-31", periods=700, unit=unit))
    zoned = prices.tz_localize(zone)
    np.testing.assert_equal(figures(zoned), figures(prices))
    pd.testing.assert_frame_equal(zoned.calc_stats().return_table, prices.calc_stats().return_table)
    assert zoned.calc_stats().start == zoned.index[0]
    assert zoned.calc_stats().monthly_prices.index.tz is zoned.index.tz


def test_hours_repeated_when_clocks_go_back_are_in_order():
    hours = pd.date_range("2024-11-02", periods=72, freq="h", tz="America/New_York")
    assert walk(hours).calc_stats().bar == "intraday"


def test_first_day_of_an_hourly_curve_counts():
    hours = pd.date_range("2024-01-01", periods=24 * 30, freq="h")
    prices = pd.Series(np.geomspace(100.0, 42.0, len(hours)), index=hours)
    prices.iloc[:24] = np.geomspace(100.0, 80.0, 24)
    stats = prices.calc_stats()
    daily = prices.groupby(prices.index.date).last()
    expected = np.append([100.0], daily).astype(float)
    returns = expected[1:] / expected[:-1] - 1
    assert stats.total_return == pytest.approx(-0.58)
    assert stats.daily_mean == pytest.approx(returns.mean() * 365)
    assert stats.worst_day == pytest.approx(returns.min())
    elapsed = (hours[-1] - hours[0]).total_seconds() / (365.25 * 86_400)
    assert stats.cagr == pytest.approx(0.42 ** (1 / elapsed) - 1)


def test_hole_of_a_year_leaves_figures_of_the_years_that_are_there():
    prices = pd.Series(
        np.linspace(100, 200, 1040), index=pd.bdate_range("2018-01-01", periods=1040)
    )
    stats = prices[prices.index.year != 2020].calc_stats()
    # 2019 after 2018 is the one year with a year before it; ffn would count it as one of three.
    assert stats.win_year_perc == 1.0
    table = stats.return_table
    assert list(table.index) == [2018, 2019, 2021]
    assert table.loc[2021, "YTD"] == pytest.approx(
        prices.iloc[-1] / prices[prices.index.year == 2021].iloc[0] - 1
    )


@pytest.mark.parametrize("count", [0, 3])
def test_nothing_to_look_at(count):
    prices = pd.Series(np.nan, index=pd.bdate_range("2024-01-01", periods=count))
    stats = prices.calc_stats()
    record = stats.stats
    assert record["start"] is pd.NaT
    assert record["end"] is pd.NaT
    assert record["bar"] == "unknown"
    assert record["periods_per_year"] == 0
    assert record.drop(["start", "end", "rf", "bar", "periods_per_year"]).isna().all()
    assert stats.return_table.empty
    assert stats.drawdown_details.empty
    assert "no values" in stats.to_text()


def test_constant_growth_has_no_dispersion():
    prices = pd.Series(100 * 1.001 ** np.arange(300.0), pd.bdate_range("2024-01-01", periods=300))
    stats = PerformanceStats(prices)
    assert stats.daily_vol == 0.0
    assert np.isnan(stats.daily_sharpe)
    assert stats.daily_sortino == np.inf
    assert stats.calmar == np.inf
    # Growth at the risk-free rate itself is neither above nor below it.
    riskless = [1.02 ** (np.arange(300) / 252), np.cumprod(np.full(300, 1.02 ** (1 / 252)))]
    for values in riskless:
        assert np.isnan(PerformanceStats(pd.Series(values, prices.index), 0.02).daily_sortino)


def test_a_curve_that_ends_its_first_day_at_nothing_says_so():
    hours = pd.date_range("2024-01-02 09:00", periods=3, freq="h")
    report = corvex.from_equity(pd.Series([1.0, 0.5, 0.0], hours))
    with pytest.raises(ValueError, match="worth nothing at the end of its first day"):
        report.get_stats()
