"""What a report makes when it is first read: the same as if it had been there from the start."""

import copy
import pickle
import sys

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.core.report import Report
from corvex.data.context import _default_context
from corvex.simulation.report.deferred import Deferred

DATES = pd.bdate_range("2015-01-01", periods=60)
PRICES = pd.DataFrame(
    50 * np.exp(np.cumsum(np.random.default_rng(5).normal(0, 0.02, (60, 4)), axis=0)),
    DATES,
    list("ABCD"),
)
WEIGHTS = pd.DataFrame(np.eye(4)[np.arange(0, 60, 5) % 4], DATES[::5], PRICES.columns)
LATER = {
    *("daily_creturn", "benchmark", "daily_benchmark", "weights", "next_weights", "actions"),
    *("trades", "mae_mfe", "fills", "data_readiness", "current_trades"),
}


def simulated():
    moment = pd.Timestamp("2016-01-04 12:00", tz="UTC").to_pydatetime()
    with _default_context.override(now=moment):
        return corvex.simulate(WEIGHTS, PRICES, market="us_stock")


def same(one, other):
    assert list(one) == list(other)
    for name, value in one.items():
        if isinstance(value, pd.DataFrame | pd.Series):
            assert value.equals(other[name]), name
            assert str(value.name) == str(other[name].name) if value.ndim == 1 else True
        elif name != "market":
            assert repr(value) == repr(other[name]), name


READERS = {
    "vars": vars,
    "copy": lambda report: vars(copy.copy(report)),
    "deepcopy": lambda report: vars(copy.deepcopy(report)),
    "pickle": lambda report: vars(pickle.loads(pickle.dumps(report))),
    "one by one": lambda report: [getattr(report, name) for name in sorted(LATER)] and vars(report),
}


@pytest.mark.parametrize("how", READERS)
def test_every_way_of_reading_shows_all_attributes_in_their_order(how):
    expected = dict(vars(simulated()))
    assert set(expected) >= LATER
    assert "_deferred" not in expected
    assert list(expected)[:5] == "creturn daily_creturn benchmark daily_benchmark position".split()
    same(READERS[how](simulated()), expected)
    assert expected["data_readiness"]["checked_at"].startswith("2016-01-04T12:00")


def test_other_threads_find_a_whole_report_at_every_step_of_its_first_reading():
    report, seen = simulated(), []

    def watch(frame, event, _):
        if frame.f_code is Deferred.__call__.__code__:
            seen.append("position" in frame.f_locals["attributes"])
        return watch

    before = sys.gettrace()
    sys.settrace(watch)
    try:
        vars(report)
    finally:
        sys.settrace(before)
    assert len(seen) > 5
    assert all(seen)


def test_what_happens_after_the_run_does_not_enter_what_is_made_later():
    expected = dict(vars(simulated()))
    report = simulated()
    report.creturn.iloc[-1] = 99.0
    report.position.iloc[-1] = 0.5
    report.trades["return"] = 7.0
    report.trades.loc[:, "mae"] = 7.0
    report.weights["A"] = 0.123
    report.actions = None
    for name in LATER - {"trades", "weights", "actions"}:
        same({name: getattr(report, name)}, {name: expected[name]})
    assert report.actions is None
    assert vars(report)["actions"] is None
    del report.mae_mfe
    with pytest.raises(AttributeError, match="^'Report' object has no attribute 'mae_mfe'$"):
        _ = report.mae_mfe


def test_prices_that_change_after_the_run_do_not_change_quoted_prices_of_its_trades():
    tables = {"close": PRICES.copy(), "adj_close": PRICES * 0.5}
    report = corvex.simulate(WEIGHTS, tables, market="us_stock")
    prices = PRICES.stack()
    tables["close"].iloc[:] = 1.0
    tables["adj_close"].iloc[:] = 1.0
    trades = report.trades.dropna(subset=["exit_date"])
    for date in ("entry_date", "exit_date"):
        keys = pd.MultiIndex.from_arrays([trades[date], trades["symbol"]])
        np.testing.assert_allclose(trades[f"trade_price@{date}"], prices[keys].to_numpy())


def test_statistics_need_no_tables_and_are_those_of_the_tables(monkeypatch):
    def strategy(report):
        # Another rate in between: the record of the last call is kept.
        report.get_stats(riskfree_rate=0.5)
        return report.get_stats()

    report = simulated()
    early = strategy(report)
    assert report._deferred.makes("daily_creturn")
    assert set(vars(report)) >= LATER
    assert repr(strategy(report)) == repr(early)
    assert 0.0 < early["win_ratio"] < 1.0
    assert report.trades.isna().any(axis=None)
    table = pd.DataFrame(early["return_table"]).T
    assert table.equals(report.daily_creturn.calc_stats().return_table.astype(float))
    both = report.run_analysis("Drawdown", display=False)
    assert early["drawdown_details"] == both["strategy"]["largest_drawdown"]

    report = simulated()
    report.trades = pd.DataFrame({"return": [0.1, -0.1, np.nan]})
    assert strategy(report)["win_ratio"] == 0.5
    report.run_analysis = lambda *_, **__: {"strategy": {"largest_drawdown": "own"}}
    assert strategy(report)["drawdown_details"] == "own"
    report._ffn_stats_dict = lambda series, rate: {"last": series.iloc[-1], "rate": rate}
    assert strategy(report)["last"] == report.daily_creturn.iloc[-1]
    monkeypatch.setattr(pd.Series, "calc_stats", lambda series: len(series) / 0)
    with pytest.raises(ZeroDivisionError):
        simulated().get_stats()


DAYS = pd.bdate_range("2020-01-01", periods=30)
FORMS = {
    "days": pd.DatetimeIndex(DAYS.asi8),
    "seconds": pd.DatetimeIndex(DAYS.asi8).as_unit("s"),
    "named": pd.DatetimeIndex(DAYS.asi8, name="day"),
    "frequency": DAYS,
    "every day": pd.DatetimeIndex(pd.date_range("2020-01-01", periods=30).asi8),
    "closes": DAYS + pd.Timedelta("13:30:00"),
    "bars": pd.DatetimeIndex(np.sort(np.concatenate([DAYS + pd.Timedelta("9h"), DAYS]))),
    "zone": DAYS.tz_localize("Asia/Taipei"),
    "one": DAYS[:1],
}


class NoBenchmark:
    def get_benchmark(self):
        return pd.Series(dtype=float)


@pytest.mark.parametrize("form", FORMS)
@pytest.mark.parametrize("missing", [False, True])
def test_daily_curve_is_the_last_value_of_each_day(form, missing):
    index = FORMS[form]
    curve = pd.Series(1.0 + 0.01 * np.arange(len(index)), index, name="own")
    if missing and len(index) > 1:
        curve.iloc[3] = np.nan
    held = pd.DataFrame(1.0, index, ["A"])
    report = Report(curve, held, 0, 0, "close", index[-1], NoBenchmark())
    expected = curve.resample("1D").last().dropna().ffill().rebase()
    pd.testing.assert_series_equal(report.daily_creturn, expected)
