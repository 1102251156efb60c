"""What the constructor of a report derives."""

import datetime

import numpy as np
import pandas as pd
import pytest

DAYS = pd.date_range("2024-01-01", periods=10)
GIVEN_OR_DERIVED = """creturn daily_creturn benchmark daily_benchmark position fee_ratio tax_ratio
    trade_at update_date asset_type last_trading_date next_trading_date market""".split()
EMPTY = """weights next_weights actions trades live_performance_start stop_loss take_profit
    trail_stop _execution_override""".split()


def test_attributes_come_in_order_and_the_last_are_empty(make_report):
    report = make_report()
    assert list(vars(report)) == GIVEN_OR_DERIVED + EMPTY
    assert isinstance(report.trades, pd.DataFrame)
    assert report.trades.empty
    assert all(getattr(report, name) is None for name in EMPTY if name != "trades")


def test_intraday_curves_are_sampled_by_day(module):
    times = pd.to_datetime(
        ["2024-01-01 09:00", "2024-01-01 13:00", "2024-01-03 09:00", "2024-01-04 09:00"]
    )
    creturn = pd.Series([1.0, 2.0, np.nan, 3.0], index=times)
    position = pd.DataFrame({"A": [1.0] * 4}, index=times)
    market = module.TWMarket()
    market.benchmark = pd.Series([5.0, np.nan, 10.0], index=pd.to_datetime(
        ["2023-12-29", "2024-01-01", "2024-01-02"]))  # fmt: skip
    report = module.Report(creturn, position, 0, 0, "close", None, market)
    days = list(pd.to_datetime(["2024-01-01", "2024-01-04"]))
    assert report.creturn is creturn
    assert report.daily_creturn.to_dict() == dict(zip(days, [100.0, 150.0], strict=True))
    assert report.daily_benchmark.to_dict() == dict(zip(days, [100.0, 200.0], strict=True))
    assert report.update_date == times[-1]


def test_dates_before_the_first_benchmark_value_stay_missing(make_report):
    report = make_report(benchmark=pd.Series([2.0], index=[DAYS[4]]))
    assert report.daily_benchmark.isna().tolist() == [True] * 4 + [False] * 6


@pytest.mark.parametrize("unit", ["ns", "s"])
def test_benchmark_zones_follow_the_weight_table_and_the_market_keeps_its_own(module, unit):
    zoned = pd.Series(1.0, index=DAYS.tz_localize("UTC").as_unit(unit))
    naive = pd.Series(1.0, index=DAYS.as_unit(unit))

    def report(benchmark, index):
        market = module.TWMarket()
        market.benchmark = benchmark
        creturn = pd.Series(1.0, index=index)
        return module.Report(creturn, pd.DataFrame({"A": creturn}), 0, 0, "close", None, market)

    assert report(zoned, DAYS).benchmark.index.tz is None
    assert report(zoned, DAYS).benchmark.index.tolist() == DAYS.tolist()
    assert str(zoned.index.tz) == "UTC"
    taipei = report(zoned, DAYS.tz_localize("Asia/Taipei")).benchmark
    assert str(taipei.index.tz) == "Asia/Taipei"
    assert taipei.index[0].hour == 8
    assert report(naive, DAYS).benchmark is naive
    empty = report(naive.iloc[:0], DAYS)
    assert empty.benchmark.to_dict() == dict.fromkeys(DAYS, 1)
    assert empty.daily_benchmark.eq(100).all()


def test_last_trading_date_is_the_last_change_of_any_weight(make_report, module):
    report = make_report()
    assert report.last_trading_date == DAYS[3]
    assert report.update_date == DAYS[-1]

    def last(weights):
        position = pd.DataFrame({"A": weights}, index=DAYS)
        creturn, market = pd.Series(1.0, index=DAYS), module.TWMarket()
        return module.Report(creturn, position, 0, 0, "close", None, market).last_trading_date

    for kind in (float, object, "float32"):
        steps = pd.Series([0, 0.5, 0.5, np.nan, 0.5, 0.25, np.nan, 0.25, np.nan, 0]).astype(kind)
        assert last(steps.to_numpy()) == DAYS[5]
    assert last([0.5] * 10) == DAYS[0]
    assert last([0.5] * 9 + [0.25]) == DAYS[-1]
    assert last([0.5] * 4 + [np.nan] * 6) == DAYS[0]


def test_asset_type_is_crypto_by_one_label(make_report):
    assert make_report(["A", "B"]).asset_type == "tw_stock"
    assert make_report(["A", "BTCUSDT"]).asset_type == "crypto"
    assert make_report(["1000 USDT-like", "B"]).asset_type == "crypto"
    with pytest.raises(AttributeError, match="Can only use .str accessor"):
        make_report([1, 2])


@pytest.mark.parametrize("zone", [None, "UTC"])
def test_an_empty_weight_table_counts_as_one_without_labels(module, zone):
    creturn = pd.Series(1.0, index=DAYS)
    market = module.TWMarket()
    market.benchmark = pd.Series(1.0, index=DAYS.tz_localize(zone))
    for position in (pd.DataFrame(), pd.DataFrame(index=DAYS[:0]), pd.DataFrame({"A": []})):
        before = datetime.datetime.now()
        report = module.Report(creturn, position, 0, 0, "close", None, market)
        assert report.asset_type == "tw_stock"
        assert before <= report.update_date <= report.last_trading_date <= datetime.datetime.now()
        assert report.benchmark.index.tz is None
