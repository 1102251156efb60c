"""What the page says must be so: months, open drawdowns, dates in their own zone."""

import json
import math

import numpy as np
import pandas as pd
import pytest
from dashboard_reports import bare_report

import corvex
from corvex.core.dashboard.figures.dataset import collect
from corvex.ffn_core.catalogue import catalogue


def rising(start, end, tz=None):
    days = pd.bdate_range(start, end, tz=tz)
    return pd.Series(1.001 ** np.arange(days.size), index=days)


def test_months_that_have_not_come_are_blank_and_parts_are_marked():
    facts = collect(bare_report(rising("2022-11-30", "2024-03-14"))).facts
    first, middle, last = facts["returns"]["years"]
    # The first day is the start itself and no month's return.
    assert first["months"][:11] == [None] * 11
    assert first["months"][11] == pytest.approx(1.001**22 - 1)
    assert (first["from"], "to" in first) == ("2022-11-30", False)
    assert None not in middle["months"]
    assert not {"from", "to"} & set(middle)
    assert last["months"][3:] == [None] * 9
    assert (last["to"], "from" in last) == ("2024-03-14", False)
    assert facts["returns"]["partial"] == ["2022-11", "2024-03"]
    total = math.prod(1 + row["total"] for row in (first, middle, last)) - 1
    assert total == pytest.approx(facts["stats"]["strategy"]["total_return"])


def test_a_year_that_ends_on_its_last_weekday_is_whole():
    # 2021-12-31 was a Friday, 2023-12-29 one too: no weekday of the year is left.
    for end in ("2021-12-31", "2023-12-29"):
        facts = collect(bare_report(rising("2020-12-31", end))).facts
        assert "to" not in facts["returns"]["years"][-1]
        assert facts["returns"]["partial"] == ["2020-12"]


@pytest.mark.parametrize("zone", [None, "Asia/Taipei", "America/Los_Angeles"])
@pytest.mark.parametrize("unit", ["s", "ns"])
def test_no_zone_moves_a_day_or_a_month(zone, unit):
    curve = rising("2023-01-02", "2023-12-29", zone)
    curve.index = curve.index.as_unit(unit) + pd.Timedelta(hours=1)
    report = bare_report(curve)
    report.live_performance_start = pd.Timestamp("2023-07-03", tz=zone)
    data = collect(report)
    ends = curve.groupby(curve.index.month).last().to_numpy()
    assert data.facts["returns"]["years"][0]["months"][1:] == pytest.approx(
        ends[1:] / ends[:-1] - 1
    )
    days = np.array(data.series["days"]).astype("datetime64[D]").astype(str)
    assert list(days) == [str(date.date()) for date in curve.index]
    assert data.facts["meta"]["start"] == "2023-01-02"
    live = data.facts["live"]["parts"]["live"]
    assert live["from"] == "2023-06-30"
    assert live.keys() - {"from", "to"} < catalogue().figures.keys()  # each row has its label
    assert np.datetime64(data.facts["live"]["start"], "D") == np.datetime64("2023-07-03")


def test_an_open_drawdown_is_told_as_open():
    days = pd.bdate_range("2023-01-02", periods=6)
    benchmark = pd.Series([10.0, 10, 9, 9, 9, 9.5], index=days)
    facts = collect(
        bare_report(pd.Series([1, 1.2, 1.1, 1.3, 0.9, 1.0], index=days), benchmark)
    ).facts
    deepest, healed = facts["drawdowns"]
    assert (deepest["start"], deepest["valley"], deepest["end"]) == (
        "2023-01-05",
        "2023-01-06",
        None,
    )
    assert (deepest["recovery"], deepest["length"], deepest["benchmark"]) == (None, 4, 0.0)
    assert (healed["end"], healed["recovery"]) == ("2023-01-05", 1)
    assert healed["benchmark"] == pytest.approx(-0.1)
    assert facts["now"] == {"drawdown": pytest.approx(1 / 1.3 - 1), "peak": "2023-01-05"}


def test_the_rate_and_the_readers_notes_are_the_reports_own_or_given():
    report = bare_report(1 + rising("2022-11-30", "2024-03-14"))
    report.riskfree_rate = 0.05
    report.notes = ["<b>", {"en": "said", "zh-Hant": "說"}]
    for given, rate in ((None, 0.05), (0.1, 0.1)):
        facts = collect(report, given).facts
        assert facts["meta"]["riskfree"] == rate
        expected = report.get_stats(riskfree_rate=rate)["daily_sharpe"]
        assert facts["stats"]["strategy"]["daily_sharpe"] == expected
    assert facts["meta"]["notes"] == report.notes
    prices = corvex.data.sample("us_stocks").loc["2020":, ["AAPL", "HD"]]
    kinds = {}
    for benchmark in (None, "sp500", prices["HD"]):
        facts = collect(corvex.simulate(prices > 0, prices, benchmark=benchmark)).facts["meta"]
        kinds[type(benchmark)] = (facts["benchmark_default"], facts["price_index"])
    assert list(kinds.values()) == [(True, True), (False, True), (False, False)]


def test_figures_by_hand():
    days = pd.bdate_range("2023-01-30", periods=6)  # a Monday; February starts on Wednesday
    curve = pd.Series([1.0, 2.0, 1.0, 2.0, 1.5, 1.8], index=days)
    figures = collect(bare_report(curve)).facts["stats"]["strategy"]
    assert figures["longest_drawdown_days"] == 4  # Thursday to Monday, still open
    assert figures["time_under_water"] == pytest.approx(3 / 6)
    assert figures["ulcer_index"] == pytest.approx(((0.25 + 0.0625 + 0.01) / 6) ** 0.5)
    assert figures["omega"] == pytest.approx((1 + 1 + 0.2) / (0.5 + 0.25))
    assert (figures["win_day_perc"], figures["win_month_perc"]) == (3 / 5, 0)


def test_what_a_report_lacks_is_left_out_without_an_error():
    facts = collect(bare_report(rising("2024-01-01", "2024-02-15"))).facts
    assert facts["stats"]["benchmark"] is None
    assert facts["stats"]["relative"] == {}
    assert facts["stats"]["trades"] is facts["liquidity"] is facts["live"] is None
    assert all(row["benchmark"] is None for row in facts["returns"]["years"])
    # Without weights the last row of the position table is shown, and said to be that.
    assert facts["holdings"]["source"] == "position"
    assert [(row["asset"], row["weight"]) for row in facts["holdings"]["rows"]] == [("A", 1.0)]
    one = pd.Series([1.0], index=pd.DatetimeIndex(["2024-01-02"]))
    assert collect(bare_report(one)).facts["stats"]["strategy"]["cagr"] is None


def test_ruin_late_benchmarks_and_odd_trades_do_no_harm():
    days = pd.bdate_range("2006-06-01", "2011-12-30")
    ruined = pd.Series(np.where(days < "2007-06-01", 1.0, 0.0), index=days)
    benchmark = pd.Series(np.arange(800.0, 1600.0), index=days[-800:])
    report = bare_report(ruined, benchmark)
    report.trades = pd.DataFrame({"return": [0.1, np.nan], "exit_date": [days[1], pd.NaT]})
    report.trades["mae"] = np.nan
    facts = collect(report).facts
    assert facts["now"]["drawdown"] == -1.0
    assert facts["meta"]["benchmark_from"] == f"{days[-800]:%Y-%m-%d}"
    crisis = {row["key"]: row for row in facts["crises"]}
    assert crisis["financial_crisis"]["strategy"] is None
    assert crisis["us_downgrade"]["benchmark"] > 0
    assert (facts["stats"]["trades"]["trades"], facts["assets"]) == (1, None)
    report.create_yearly_return_figure(report.get_stats()["return_table"])


def test_confidence_is_left_out_where_it_is_unknown_or_unwanted():
    days = pd.bdate_range("2020-01-01", periods=60)
    for values in ([1.0, 1.1], [1.0] * 60, [1.0]):
        curve = pd.Series(values, days[: len(values)])
        assert collect(bare_report(curve)).facts["confidence"] is None
    moving = 1 + 0.1 * np.sin(np.arange(60.0))
    for values in (np.where(days < days[30], moving, 0.0), moving * np.linspace(1, -1, 60)):
        found = collect(bare_report(pd.Series(values, days))).facts["confidence"]
        assert found["depths"]["own"] == -1.0
        assert json.dumps(found, allow_nan=False)
    report = bare_report(pd.Series(moving, days))
    assert collect(report, confidence=False).facts["confidence"] is None
    report.show_confidence = False
    assert collect(report).facts["confidence"] is None
    assert collect(report, confidence=True).facts["confidence"]


def test_the_month_and_year_of_a_start_alone_are_blank():
    days = pd.bdate_range("2019-12-31", "2021-03-31")
    curve = pd.Series(np.arange(1.0, 1 + len(days)), index=days)
    years = collect(bare_report(curve, curve[curve.index >= "2020-01-31"])).facts["returns"][
        "years"
    ]
    assert (years[0]["months"][11], years[0]["total"]) == (None, None)
    assert years[1]["benchmark"]["months"][0] is None
    assert years[1]["benchmark"]["months"][1] > 0


def test_the_figures_agree_with_the_report(simulated):
    data = collect(simulated)
    facts, trades = data.facts, data.series["trades"]
    metrics = simulated.metrics
    tail = facts["distribution"]["daily"]["tails"][0]["strategy"]
    assert tail["var"] == pytest.approx(metrics.value_at_risk())
    assert tail["cvar"] == pytest.approx(metrics.cvalue_at_risk())
    assert facts["stats"]["strategy"]["tail_ratio"] == pytest.approx(metrics.tail_ratio())
    assert facts["stats"]["relative"]["alpha"] == pytest.approx(metrics.alpha())
    assert facts["stats"]["relative"]["beta"] == pytest.approx(metrics.beta())
    figures = facts["stats"]["trades"]
    assert figures["win_rate"] == pytest.approx(simulated.get_stats()["win_ratio"])
    assert figures["profit_factor"] == pytest.approx(metrics.profit_factor())
    assert figures["trades"] + figures["open_trades"] == trades["count"] == len(simulated.trades)
    assert np.array(trades["return"]) * 1e-8 == pytest.approx(simulated.trades["return"], abs=5e-9)
    assets = facts["assets"]
    parts = corvex.contributions(simulated)
    assert {row["asset"]: row["sum"] for row in assets["rows"]} == pytest.approx(
        parts.iloc[:-1].to_dict()
    )
    assert assets["total"] == pytest.approx(facts["stats"]["strategy"]["total_return"])
    held = facts["holdings"]
    assert {row["asset"] for row in held["rows"] if row["weight"]} == set(simulated.weights.index)
    assert held["cash"] == pytest.approx(1 - simulated.weights.sum())
    # One return is the same text in both tables: it is the same number to the last digit.
    by_asset = dict(zip(trades["asset"], trades["return"], strict=True))  # the open one is last
    for row in held["rows"]:
        if row["entry"]:
            assert row["return"] == by_asset[trades["assets"].index(row["asset"])] * 1e-8
    covid = next(row for row in facts["crises"] if row["key"] == "covid")
    curve = simulated.daily_creturn
    assert covid["strategy"] == pytest.approx(curve["2020-03-23"] / curve["2020-02-19"] - 1)


def test_the_money_of_an_account_is_what_its_table_and_its_costs_say(with_account):
    report, data = with_account, collect(with_account)
    table, held = report.account, data.facts["holdings"]
    assert held["cash_money"] == table["cash"].iloc[-1]
    money = [row["money"] for row in held["rows"] if row["money"] is not None]
    assert sum(m for m in money if m > 0) == pytest.approx(table["long"].iloc[-1])
    assert sum(m for m in money if m < 0) == pytest.approx(table["short"].iloc[-1])
    shares = {row["asset"]: row["shares"] for row in held["rows"]}
    assert all(count == round(count) for count in shares.values() if count is not None)
    shown, series = data.facts["account"], data.series["account"]
    assert shown["end"] == table["equity"].iloc[-1] == pytest.approx(series["equity"][-1], rel=1e-6)
    assert shown["total"]["money"] == pytest.approx(series["paid"][-1], rel=1e-6)
    # Where the equity hardly moves, a year's drag times the years is what was paid of it in all.
    years = (table.index[-1] - table.index[0]).days / 365.25
    for kind, found in shown["kinds"].items():
        assert found["money"] == pytest.approx(table[kind].sum())
        assert found["yearly"] * years == pytest.approx(report.costs[kind], rel=0.05)
    rates = {row["key"]: row["value"] for row in data.facts["assumptions"]}
    assert rates["account_fee_table"] == "0: 0.1%, 5,000: 0.05%"
    assert rates["account_slippage_ratio"] == data.facts["costs"]["slippage_ratio"] == 0.001
    assert data.facts["costs"]["fee_ratio"] == "by value"


def test_the_way_of_a_trade_follows_its_closes(simulated):
    paths = collect(simulated).series["paths"]
    trade, row, length = (paths[name][0] for name in ("trade", "row", "length"))
    close = simulated.market.get_price("close")
    known = simulated.trades.iloc[trade]
    prices = close[known["symbol"]].loc[known["entry_date"] : known["exit_date"]]
    assert str(np.datetime64(paths["days"][row], "D")) == f"{known['entry_date']:%Y-%m-%d}"
    expected = prices.to_numpy() / prices.iloc[0] - 1
    assert np.array(paths["values"][:length]) / 1e4 == pytest.approx(expected, abs=6e-5)
