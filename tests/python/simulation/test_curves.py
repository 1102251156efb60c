"""Reports on curves from elsewhere."""

import pickle
import warnings

import numpy as np
import pandas as pd
import pytest

import corvex

DAYS = pd.bdate_range("2024-01-02", periods=6)
EQUITY = pd.Series([200.0, 210, 189, 200, 220, 231], index=DAYS, name="account")


def test_an_equity_curve():
    report = corvex.from_equity(EQUITY, EQUITY * 2 + 1, name="fund")

    assert report.creturn.tolist() == pytest.approx([1.0, 1.05, 0.945, 1.0, 1.1, 1.155])
    assert report.position.eq(1.0).all(axis=None)
    assert len(report.trades) == len(report.mae_mfe) == len(report.current_trades) == 0
    assert len(report.weights) == len(report.next_weights) == len(report.actions) == 0
    assert "trade_price@exit_date" in report.trades
    assert report.name == "fund"
    assert report.next_trading_date == pd.Timestamp("2024-01-10")
    assert report.benchmark.iloc[1] == 421
    assert report.get_stats()["win_ratio"] == 0
    assert report.get_metrics()["profitability"]["annualReturn"] == report.get_stats()["cagr"]
    assert pickle.loads(pickle.dumps(report)).creturn.equals(report.creturn)


@pytest.mark.parametrize(
    ("days", "market"),
    [
        (pd.date_range("2023-01-31", periods=30, freq="ME"), "us_stock"),
        (pd.date_range("2024-01-07", periods=30, freq="W-SUN"), "us_stock"),
        (pd.bdate_range("2024-01-01", periods=60).union([pd.Timestamp("2024-02-17")]), "us_stock"),
        (pd.date_range("2024-01-01", periods=60, tz="UTC"), "crypto"),
    ],
)
def test_a_share_of_weekends_tells_the_market(days, market):
    report = corvex.from_equity(pd.Series(np.arange(1.0, 1 + len(days)), days))

    assert report.market.get_name() == market


def test_returns_and_equity_agree():
    returns = EQUITY.pct_change()
    expected = corvex.from_equity(EQUITY).creturn

    with_base = corvex.from_returns(returns, returns)
    without = corvex.from_returns(returns.dropna())

    pd.testing.assert_series_equal(with_base.creturn, expected, check_freq=False)
    pd.testing.assert_series_equal(without.creturn, expected, check_freq=False)
    pd.testing.assert_series_equal(
        with_base.benchmark, expected, check_names=False, check_freq=False
    )


@pytest.mark.parametrize(
    ("index", "base"),
    [
        (pd.bdate_range("2024-01-01", periods=5), "2023-12-29"),
        (pd.date_range("2024-01-06", periods=5), "2024-01-05"),
        (pd.date_range("2024-01-31", periods=5, freq="ME"), "2023-12-31"),
        (pd.date_range("2024-01-05", periods=5, freq="W-FRI"), "2023-12-29"),
        (pd.date_range("2024-01-05 10:00", periods=5, freq="h"), "2024-01-05 09:00"),
        (pd.date_range("2024-03-11", periods=7, tz="America/New_York"), "2024-03-10"),
    ],
)
def test_the_first_return_has_a_day_before_it(index, base):
    report = corvex.from_returns(pd.Series(0.01, index=index))

    assert report.creturn.index[0] == pd.Timestamp(base, tz=index.tz)
    assert report.creturn.iloc[[0, -1]].tolist() == pytest.approx([1.0, 1.01 ** len(index)])


def test_dirty_dates_are_mended_aloud():
    messy = pd.concat([EQUITY.iloc[::-1], EQUITY.iloc[2:3] + 1])
    messy.iloc[1] = np.nan

    with pytest.warns(UserWarning, match=r"sorted|more than once|left out") as caught:
        report = corvex.from_equity(messy.set_axis(messy.index.strftime("%d %b %Y")))

    assert len(caught) == 3
    assert report.creturn.tolist() == pytest.approx([1.0, 1.05, 0.95, 1.0, 1.155])
    with pytest.warns(UserWarning, match="missing returns, the first on 2024-01-05"):
        corvex.from_returns(EQUITY.pct_change().where(DAYS[3] != DAYS))


@pytest.mark.parametrize(
    ("make", "values", "message"),
    [
        (corvex.from_equity, EQUITY - 200, "equity is 0.0 on 2024-01-02"),
        (corvex.from_equity, EQUITY.where(EQUITY < 220, -1), "equity is -1.0 on 2024-01-08"),
        (corvex.from_equity, EQUITY.replace(189.0, np.inf), "2024-01-04 is inf"),
        (corvex.from_equity, EQUITY.astype(object).replace(189.0, "n/a"), "2024-01-04 is 'n/a'"),
        (corvex.from_equity, EQUITY.iloc[:0], "equity is empty"),
        (corvex.from_equity, EQUITY.reset_index(drop=True), "must hold dates"),
        (corvex.from_equity, pd.concat([EQUITY, EQUITY], axis=1), "one series, got 2 columns"),
        (corvex.from_returns, EQUITY, "look like prices"),
        (corvex.from_returns, EQUITY * 0 - 1.5, "hold -1.5 on 2024-01-02"),
        (corvex.from_returns, EQUITY * np.nan, "returns are empty"),
        (corvex.from_returns, (EQUITY * 1e200).where(DAYS[1] != DAYS, -0.5), "that no number"),
        (corvex.from_equity, (EQUITY * 1e300).where(DAYS[1] < DAYS, 1e-9), "that no number"),
    ],
)
def test_values_that_cannot_be(make, values, message):
    with pytest.raises(ValueError, match=message):
        make(values)


@pytest.mark.parametrize("form", ["digits", "serial"])
def test_dates_written_as_numbers_are_dates(form):
    numbers = DAYS.strftime("%Y%m%d").astype(int)
    if form == "serial":
        numbers = pd.Index((DAYS - pd.Timestamp("1899-12-30")).days)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        own = corvex.from_equity(EQUITY.set_axis(numbers), EQUITY.set_axis(numbers))
        prices = EQUITY.set_axis(numbers).to_frame()
        run = corvex.simulate(prices > 0, prices, market="us_stock")
    assert own.creturn.index.as_unit(DAYS.unit).equals(DAYS)
    assert own.benchmark.index.as_unit(DAYS.unit).equals(DAYS)
    assert run.creturn.index.as_unit(DAYS.unit).equals(DAYS)
    assert any("serial days" in str(w.message) for w in caught) == (form == "serial")
    for wrong in (range(6), [20_241_301 + i for i in range(6)]):
        with pytest.raises(ValueError, match="neither dates such as 20240131"):
            corvex.from_equity(EQUITY.set_axis(list(wrong)))
