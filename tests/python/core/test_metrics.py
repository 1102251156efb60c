import datetime
import inspect
import math
import pickle
import re
import warnings

import empyrical
import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.core.dashboard.figures.dataset import collect
from corvex.core.dashboard.page.index_page import index_html
from corvex.core.metrics import Metrics
from corvex.core.report import STATS_METRIC_ALIASES
from corvex.data.context import _default_context
from corvex.markets import get_market_by_name

FIGURES = [
    name
    for name, member in inspect.getmembers(Metrics, inspect.isfunction)
    if not name.startswith("_")
]


def curve(seed=0, days=300):
    returns = np.random.default_rng(seed).normal(0.0005, 0.01, days)
    index = pd.bdate_range("2022-01-03", periods=days)
    return pd.Series(100 * np.cumprod(1 + returns), index=index)


def _report(values, benchmark=None, trades=None):
    report = corvex.from_equity(values, benchmark)
    report.trades = report.trades if trades is None else trades
    return report


def _trades(dates):
    """Three closed trades and an open one; weights 0.5."""
    return pd.DataFrame(
        {
            "symbol": ["A Alpha", "B", "A Alpha", "B"],
            "entry_date": dates[[1, 1, 5, 9]],
            "exit_date": [dates[4], dates[4], dates[8], pd.NaT],
            "return": [0.10, -0.20, 0.0, 0.05],
            "trade_price@entry_date": [10.0, 20.0, 10.0, 20.0],
            "trade_price@exit_date": [11.0, 16.0, 10.0, np.nan],
            "position": 0.5,
            "mae": [-0.02, -0.25, -0.01, -0.9],
        }
    )


def test_the_figures_are_complete_and_survive_a_bare_report():
    report = _report(curve(days=1))
    report.position, report.next_trading_date = report.position.iloc[:0], pd.NaT
    metrics = Metrics(report)
    assert len(FIGURES) == 44
    values = {name: getattr(metrics, name)() for name in FIGURES}
    undefined = {name for name, value in values.items() if value != value}
    assert {"alpha", "beta", "value_at_risk", "tail_ratio", "expectancy", "capacity"} <= undefined
    assert values["win_rate"] == values["avg_n_stock"] == values["max_n_stock"] == 0
    assert values["next_trading_date"] is None
    assert values["current_rebalance_date"] is None
    assert values["expired"] is False


def test_risk_figures_agree_with_empyrical():
    strategy, benchmark = curve(1), curve(2)
    with pytest.warns(UserWarning, match="covers 2022-01-17 to 2023-02-24 of 2022-01-03 to 2023-0"):
        metrics = Metrics(_report(strategy, benchmark.iloc[10:]))
    returns, factor = strategy.pct_change().dropna(), benchmark.iloc[10:].pct_change()
    expected = {
        "value_at_risk": empyrical.value_at_risk(returns),
        "cvalue_at_risk": empyrical.conditional_value_at_risk(returns),
        "tail_ratio": empyrical.tail_ratio(returns),
        "alpha": empyrical.alpha(returns.reindex(factor.index), factor),
        "beta": empyrical.beta(returns.reindex(factor.index), factor),
    }
    for name, value in expected.items():
        assert getattr(metrics, name)() == pytest.approx(value, rel=1e-9), name


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
@pytest.mark.parametrize(
    ("rows", "message"),
    [
        (slice(0, 200), "covers 2022-01-03 to 2022-10-07 of 2022-01-03 to 2023-02-24"),
        (slice(50, None), "covers 2022-03-14 to 2023-02-24"),
        (np.r_[:100, 140:300], "no value on 40 dates .* the first of them 2022-05-23"),
        (np.r_[4:300:5], "no value on"),
        (np.r_[:100, 102:300], None),
    ],
)
def test_only_dates_that_both_have_count(rows, message, zone):
    strategy, benchmark = curve(1).tz_localize(zone), curve(2).rename("index").iloc[rows]
    with warnings.catch_warnings(record=True) as told:
        warnings.simplefilter("always")
        report = _report(strategy, benchmark)
    expected = _report(strategy.iloc[rows], benchmark)

    assert bool(told) == bool(message)
    assert not told or any(re.search(message, str(one.message)) for one in told)
    assert report.metrics.beta() == pytest.approx(expected.metrics.beta(), rel=1e-12)
    assert report.metrics.alpha() == pytest.approx(expected.metrics.alpha(), rel=1e-12)
    own, cut = collect(report).facts["stats"], collect(expected).facts["stats"]
    assert own["relative"] == pytest.approx(cut["relative"])
    for key in ("cagr", "daily_vol", "max_drawdown", "worst_month"):
        assert own["benchmark"][key] == pytest.approx(cut["benchmark"][key]), key
    assert len(report.daily_benchmark) == len(strategy)


def test_moments_within_a_day_and_weekends_are_paired_as_the_curve_is():
    hours = pd.date_range("2022-01-03", periods=1200, freq="h")
    hourly = curve(3, 1200).set_axis(hours)
    assert _report(hourly, hourly**2).metrics.beta() == pytest.approx(0.5, abs=0.05)
    daily = curve(3).resample("D").ffill()  # a benchmark of weekdays beside a market of all days
    with_weekends = _report(daily, curve(4)).metrics
    assert with_weekends.beta() == pytest.approx(_report(curve(3), curve(4)).metrics.beta())
    assert with_weekends.alpha() == pytest.approx(_report(curve(3), curve(4)).metrics.alpha())


def test_a_market_open_at_weekends_has_365_days():
    strategy, benchmark = curve(1), curve(2)
    on_weekdays = Metrics(_report(strategy, benchmark)).alpha()
    every_day = pd.date_range("2022-01-01", periods=len(strategy))
    daily = Metrics(_report(strategy.set_axis(every_day), benchmark.set_axis(every_day)))
    assert daily.alpha() == pytest.approx((1 + on_weekdays) ** (365 / 252) - 1)


def test_trade_figures_count_closed_trades_only():
    values = curve()
    metrics = Metrics(_report(values, trades=_trades(values.index)))
    assert metrics.win_rate() == pytest.approx(1 / 3)
    assert metrics.expectancy() == pytest.approx(-0.1 / 3)
    assert metrics.profit_factor() == pytest.approx(0.5)
    assert metrics.mae() == pytest.approx(-0.28 / 3)
    assert math.isnan(metrics.mfe())


def test_liquidity_figures_read_the_market_on_the_fill_dates():
    values = curve()
    dates = values.index
    price = pd.DataFrame({"A": 10.0, "B": 20.0}, index=dates)
    volume = pd.DataFrame({"A": 100.0, "B": 1000.0}, index=dates)
    volume.loc[dates[5], "A"] = 10.0
    warned = pd.DataFrame({"B": dates < dates[3]}, index=dates)
    report = _report(values, trades=_trades(dates))
    report.market = get_market_by_name("us_stock").bound_to(
        {"close": price, "high": price, "low": price * 0.9, "volume": volume}
    )
    report.market.get_status = {"warning": warned, "disposal": pd.DataFrame()}.get
    metrics = Metrics(report)
    # Seven fills: A at 1000 traded (three times), A at 100, B at 20000 (three times).
    limits = 0.05 * np.array([1000, 1000, 1000, 100, 20000, 20000, 20000]) / 0.5
    assert metrics.capacity() == pytest.approx(np.quantile(limits, 0.1))
    assert metrics.warning_stock_ratio() == pytest.approx(1 / 4)
    assert math.isnan(metrics.disposal_stock_ratio())
    assert metrics.buy_high() == 1.0
    assert metrics.sell_low() == pytest.approx(1 / 3)  # only 16 is below the low of its day


def test_dates_are_whole_epoch_seconds_whatever_their_form():
    report = _report(curve().tz_localize("Asia/Taipei"))
    report.next_trading_date = "1970-01-02"
    report.live_performance_start = pd.Timestamp("1970-01-01 08:00", tz="Asia/Taipei")
    metrics = Metrics(report)
    assert metrics.start_date() == pd.Timestamp("2022-01-02 16:00", tz="UTC").timestamp()
    assert (metrics.next_trading_date(), metrics.live_performance_start()) == (86400, 0)
    assert metrics.expired() is True
    for days, expired in ((2, False), (-4, True)):
        report.next_trading_date = pd.Timestamp.now().normalize() + pd.Timedelta(days=days)
        assert metrics.expired() is expired


def test_a_report_expires_at_the_close_whatever_its_form(monkeypatch):
    report = _report(curve())
    report.next_trading_date = datetime.datetime(2024, 1, 2)
    local = datetime.datetime(2024, 1, 2, 13, 30)
    for close in (local, pd.Timestamp(local), pd.Timestamp(local.astimezone())):
        monkeypatch.setattr(report.market, "market_close_at_timestamp", lambda _, at=close: at)
        for seconds in (-1, 0):
            now = local.astimezone() + datetime.timedelta(seconds=seconds)
            with _default_context.override(now=now):
                assert Metrics(report).expired() is (seconds == 0)


def test_results_follow_a_changed_report_and_stay_out_of_the_pickle(monkeypatch):
    report = _report(curve(1), curve(2))
    bare = len(pickle.dumps(report))
    report.metrics = Metrics(report)
    first = report.metrics.beta()
    assert len(pickle.dumps(report)) < bare + 300
    report.daily_benchmark = curve(3)
    assert report.metrics.beta() != first
    report.trades = _trades(report.daily_creturn.index)
    figures = report.metrics.win_rate, report.metrics.mae, report.metrics.warning_stock_ratio
    dates = report.daily_creturn.index
    kinds = {"warning": pd.DataFrame({"B": dates == report.trades["entry_date"].iloc[1]}, dates)}
    monkeypatch.setattr(report.market, "get_status", kinds.get)
    assert [ask() for ask in figures] == pytest.approx([1 / 3, -0.28 / 3, 1 / 4])
    report.trades.loc[4] = report.trades.loc[0]
    assert [ask() for ask in figures] == pytest.approx([2 / 4, -0.30 / 4, 1 / 5])
    report.trades["return"] = 0.1
    report.trades.loc[4, "symbol"] = "B"
    assert [ask() for ask in figures] == pytest.approx([1.0, -0.30 / 4, 2 / 5])


def test_asking_for_figures_changes_nothing_but_the_one_column_of_market_values():
    dates = curve().index
    close = pd.DataFrame({"A": 10.0, "B": 20.0}, index=dates)
    tables = {"close": close, "volume": close, "market_value": close.iloc[4:]}
    report = _report(curve(), trades=_trades(dates))
    report.market = report.market.bound_to(tables)
    trades, won = report.trades.copy(), report.get_stats()["win_ratio"]
    for name in FIGURES:
        getattr(report.metrics, name)()
        pd.testing.assert_frame_equal(report.trades, trades)
    report.get_metrics()
    valued = report.trades["market_value@entry_date"].tolist()
    assert valued == pytest.approx([math.nan, math.nan, 10.0, 20.0], nan_ok=True)
    for name in FIGURES:
        getattr(report.metrics, name)()
    assert report.trades.columns.tolist() == [*trades, "market_value@entry_date"]
    assert _report(curve(), trades=report.trades).get_stats()["win_ratio"] == won
    bare = corvex.Report(report.creturn, report.position, 0, 0, "close", None, report.market)
    assert len(bare.get_metrics()) == 6


def test_the_page_reads_a_record_that_nobody_else_holds():
    report = _report(curve())

    def shown():
        page = collect(report).facts["stats"]["strategy"]
        return page["cagr"], index_html("all", [("a.html", "a", "a.pkl", report)])

    before = shown()
    report.get_stats()["cagr"] = 99.0
    assert shown() == before


@pytest.mark.parametrize("rate", [0.0, 0.02, 0.07])
def test_rate_dependent_figures_are_those_of_the_statistics(rate):
    values = curve(4, 700)
    report = corvex.from_equity(values, benchmark=curve(5, 700))
    stats = report.get_stats(riskfree_rate=rate)
    sections = report.get_metrics(riskfree_rate=rate)
    figures = {name: value for part in sections.values() for name, value in part.items()}
    aliases = {k: v for k, v in STATS_METRIC_ALIASES.items() if v in figures}
    assert len(aliases) == 9
    assert {v: figures[v] for v in aliases.values()} == {v: stats[k] for k, v in aliases.items()}
