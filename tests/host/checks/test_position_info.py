"""The holdings view for live trading: one record per current trade, and how the strategy trades."""

import datetime
import json
import logging
from unittest import mock

import numpy as np
import pandas as pd
import pytest

POSITION = """assetId assetName entryDate entrySigDate exitDate exitSigDate entryPrice entryAdjPrice
    exitPrice currentPrice profit currentWeight nextWeight action industry""".split()
FULL = """isDailyStrategy sl tp resample entryTradePrice exitTradePrice currentRebalanceDate
    nextRebalanceDate scheduled dataFreq created lastTimestamp rebalanceTiming dataReadiness
    plannedRebalanceDate currentSignalAt nextSignalAt""".split()
SHORT = """rebalanceTiming dataReadiness plannedRebalanceDate currentSignalAt nextSignalAt scheduled
    isDailyStrategy market sl tp ts resample entryTradePrice exitTradePrice dataFreq
    currentRebalanceDate nextRebalanceDate""".split()
DAYS = pd.date_range("2024-01-01", periods=10)  # of the curve that make_report draws
LAST = DAYS[-1]


@pytest.fixture
def market(us_market, monkeypatch):
    class Exchange(us_market):
        """Two assets, adjusted prices a tenth of the plain ones; the second has no open price."""

        adjusted = pd.DataFrame({"1": np.arange(10.0), "2": np.arange(10) + 0.5}, index=DAYS)

        def get_benchmark(self):
            return pd.Series(dtype="float64")

        def get_price(self, name, adj):
            assert name == "close"
            return self.adjusted if adj else self.adjusted * 10

        def get_trading_price(self, trade_at, adj):
            prices = self.get_price("close", adj)
            return prices if trade_at == "close" else prices.assign(**{"2": np.nan})

    timing = {"status": "known"}
    monkeypatch.setattr("corvex.rebalance.execution_timing", lambda *_, **__: timing)
    return Exchange()


@pytest.fixture
def hold(make_report, market):
    """A report with current trades: label, entry signal and fill, exit signal and fill, return."""

    def hold(*trades, market=market, **attributes):
        columns = ["label", "entry_sig_date", "entry_date", "exit_sig_date", "exit_date", "return"]
        rows = [(*trade, *[None] * (6 - len(trade))) for trade in trades]
        current = pd.DataFrame(rows, columns=columns).set_index("label")
        current[columns[1:5]] = current[columns[1:5]].apply(pd.to_datetime)
        prices = {"trade_price@entry_date": 5.0, "trade_price@exit_date": np.nan}
        weights = {"weight": 0.5, "next_weights": 0.25}
        report = make_report()
        report.current_trades = current.astype({"return": float}).assign(**prices, **weights)
        report.market = market
        report.weights, report.next_weights = pd.Series(name=DAYS[0]), pd.Series(name="w")
        vars(report).update(attributes)
        return report

    return hold


def column(report, key):
    return [position[key] for position in report.position_info2()["positions"]]


def test_a_held_asset_is_told_whole(hold, market):
    market.get_industry = lambda: {"1": "Chips", "2": np.nan}
    report = hold(
        ("1 One Two", DAYS[1], DAYS[2], pd.NaT, pd.NaT, 0.1),
        ("2", DAYS[3], DAYS[4], LAST, pd.NaT, -0.1),
        trade_at="open",
        stop_loss=np.float64(0.1),
        take_profit=np.int64(1),
        resample=DAYS[:1],
        data_readiness={"reason": "x"},
        planned_rebalance_date=LAST,
    )
    told = report.position_info2()
    assert list(told) == ["positions", "positionConfig"]
    assert [list(position) for position in told["positions"]] == [POSITION] * 2
    one, two = (list(position.values()) for position in told["positions"])
    assert one[:9] == ["1", "One Two", "2024-01-03", "2024-01-02", "", "", 5.0, 2.0, one[8]]
    assert np.isnan(one[8])
    assert one[9:] == [90.0, 0.1, 0.5, 0.25, "hold", "Chips"]
    assert two[5] == "2024-01-10"
    assert two[9:] == [95.0, -0.1, 0.5, 0.25, "exit", ""]  # no open price: the latest close
    config = told["positionConfig"]
    created = datetime.datetime.fromisoformat(config["created"])
    assert abs(datetime.datetime.now(datetime.UTC) - created) < datetime.timedelta(minutes=1)
    start = DAYS[0].timestamp()
    values = [True, 0.1, 1, [start], "open", "open", start, None, LAST.isoformat(), "1D",
              config["created"], LAST.isoformat(), {"status": "known"}, {"reason": "x"},
              LAST.isoformat(), DAYS[0].isoformat(), None]  # fmt: skip
    assert list(config.items()) == list(zip(FULL, values, strict=True))
    json.dumps(told)


def test_without_current_trades_the_short_form_is_given(hold, market):
    report = hold(trail_stop=0.3, trade_at=pd.DataFrame(), resample="ME")
    told = report.position_info2()
    values = [{"status": "known"}, None, None, DAYS[0].isoformat(), None, LAST.isoformat(), True,
              "us_stock", None, None, 0.3, "ME", "custom", "custom", "1D", DAYS[0].timestamp(),
              None]  # fmt: skip
    assert told["positions"] == []
    assert list(told["positionConfig"].items()) == list(zip(SHORT, values, strict=True))


@pytest.mark.parametrize(
    ("entry", "fill", "leave", "left", "reason", "profit", "action"),
    [
        (8, 9, None, None, "hold", None, "hold"),
        (9, None, None, None, "enter", None, "entry"),
        (5, None, None, None, "enter", None, "entry"),  # still waits for a price
        (12, None, None, None, "enter", None, "entry_f"),
        (1, 2, 9, None, "exit", 0.1, "exit"),
        (1, 2, 12, None, None, 0.1, "exit"),
        (1, 2, 5, None, "exit", 0.1, "exit"),  # could not be sold yet
        (1, 2, 5, 6, "enter", 0.1, "exit_p"),  # the action is of the asset's next trade
        (1, 2, 9, None, "sl", None, "exit_sl"),  # a missing profit counts as none
        (1, 2, 9, None, "sl_", -0.1, "exit_sl_"),
        (1, 2, 9, None, "sl", 0.1, "exit"),
        (1, 2, 5, 6, "tp", 0.1, "exit_p_tp"),
        (1, 2, 9, None, "tp_", -0.1, "exit"),
    ],
)
def test_a_trade_is_what_its_signals_say(hold, entry, fill, leave, left, reason, profit, action):
    def date(n):
        return pd.NaT if n is None else DAYS[0] + pd.Timedelta(days=n)

    actions = pd.Series(["x", reason], index=["1 One", "1 One"], dtype="object")  # the last counts
    trade = ("1 One", date(entry), date(fill), date(leave), date(left), profit)
    assert column(hold(trade, actions=actions), "action") == [action]


def test_a_trade_of_no_type_is_reported_and_the_others_are_told(hold, caplog):
    report = hold(("1 One", pd.NaT), ("1 One", LAST), actions=pd.Series(dtype="object"))
    with caplog.at_level(logging.WARNING, logger="corvex.host"):
        assert column(report, "action") == ["hold", "entry"]
    assert caplog.messages == ["There is a strange type for stock 1 One "]


@pytest.mark.parametrize(
    ("reason", "profit", "trail_stop", "shown"),
    [
        ("sl", 0.05, None, "_"),
        ("sl_", "0.05", np.inf, "_"),
        ("sl", 0.05, 0, "_"),
        ("sl", 0.05, 0.1, "sl"),
        ("sl", 0.0, None, "sl"),
        ("tp", -0.01, 0.1, "_"),
        ("tp_", 0.0, None, "tp_"),
        ("hold", 0.2, None, "_"),
        ("hold", None, None, "_"),
        ("sl", np.nan, None, "sl"),
        ("sl", "much", None, "sl"),
        ("slx", 1.0, None, "slx"),
        (pd.Series(["tp", "sl"]), 1.0, 0.1, "sl"),
        (pd.Series(dtype="object"), 1.0, None, "_"),
    ],
)
def test_an_exit_reason_must_be_credible(hold, reason, profit, trail_stop, shown):
    assert hold(trail_stop=trail_stop)._normalize_position_exit_reason(reason, profit) == shown


@pytest.mark.parametrize("zones", [(None, None), ("Asia/Taipei", "Asia/Taipei"),
                                   ("UTC", None), (None, "UTC")])  # fmt: skip
def test_entry_prices_are_those_in_force_at_any_time_of_day(hold, market, zones):
    noon = pd.Timedelta(hours=12)
    market.adjusted = market.adjusted.drop(DAYS[4]).tz_localize(zones[1])
    times = [t.tz_localize(zones[0]) for t in (DAYS[4] + noon, DAYS[2] + noon, DAYS[2], LAST)]
    before = DAYS[0].tz_localize(zones[0]) - noon
    dates = [*times, before, pd.NaT]
    report = hold(*[("1", None, date) for date in dates], ("3", None, times[0]))
    report.current_trades["entry_sig_date"] = report.current_trades["entry_date"]
    report.creturn = report.creturn.tz_localize(zones[0])
    prices = column(report, "entryAdjPrice")
    assert prices[:4] == [3.0, 2.0, 2.0, 9.0]
    assert np.isnan(prices[4:]).all()
    assert column(report, "entryDate")[0].startswith("2024-01-05T12:00:00")
    assert column(report, "entryDate")[2] == "2024-01-03"


def test_prices_come_from_whatever_form_a_market_gives(hold, market):
    entries = [("1 One", DAYS[1], DAYS[2]), ("1 One", DAYS[1], DAYS[3]), ("2", DAYS[1], DAYS[2])]
    report = hold(*entries)
    assert column(report, "currentPrice") == [90.0, 90.0, 95.0]
    own = pd.DataFrame({"1": [7.0, 8.0]}, index=DAYS[[2, 5]])
    filled = hold(*entries, trade_at=own.iloc[::-1])  # the latest first
    assert column(filled, "currentPrice") == [8.0, 8.0, 95.0]  # no such price: the latest close
    np.testing.assert_equal(column(filled, "entryAdjPrice"), [7.0, 7.0, np.nan])
    market.adjusted = market.adjusted.rename(columns={"1": "1 One"})
    assert column(report, "entryAdjPrice") == [2.0, 3.0, 2.5]
    for table in (pd.DataFrame(), market.adjusted.iloc[:0], market.adjusted[[]]):
        market.adjusted = table
        for key in ("entryAdjPrice", "currentPrice"):
            assert np.isnan(column(hold(*entries, trade_at="close"), key)).all()
    market.get_trading_price = lambda *_, **__: pd.Series([1.0, 2.0], index=DAYS[:2], name="1")
    assert column(hold(entries[0]), "currentPrice") == [2.0]
    market.get_industry = lambda: None
    assert column(hold(entries[0]), "industry") == [""]


@pytest.mark.parametrize(
    ("index", "daily"),
    [
        (DAYS, True),
        (DAYS.tz_localize("Asia/Taipei"), True),
        (pd.RangeIndex(0), True),
        (DAYS[:1].append(DAYS[1:2] + pd.Timedelta(seconds=1)), False),
    ],
)
def test_a_strategy_is_daily_when_all_its_stamps_are_midnights(hold, index, daily):
    report = hold(position=pd.DataFrame(index=index))
    assert report.position_info2()["positionConfig"]["isDailyStrategy"] is daily


def test_a_next_date_that_is_not_known_is_told_as_none(hold):
    report = hold(("1", DAYS[1], DAYS[2]), next_trading_date=pd.NaT)
    assert report.position_info2()["positionConfig"]["scheduled"] is None


def test_several_executions_leave_timing_to_the_report_itself(hold, module, monkeypatch):
    timing = mock.Mock(return_value={})
    monkeypatch.setattr("corvex.rebalance.execution_timing", timing)
    report = hold(data_readiness={"reason": "own"})
    other = module.ReportExecution.from_report(report)._replace(data_readiness={"reason": "other"})
    for override, schedulers, reason in [
        (other, None, "other"),
        ({"a": other}, None, "own"),
        (other, {"a": other}, "own"),
    ]:
        report._execution_override = override
        vars(report).update({"position_schedulers": schedulers} if schedulers else {})
        config = report.position_info2()["positionConfig"]
        assert config["dataReadiness"] == {"reason": reason}
        assert (timing.call_args.args[0] is other) is (reason == "other")


def test_the_record_of_read_tables_is_as_before_whatever_happens(hold, market):
    from corvex.data.context import _default_context as context

    before = context._loaded_datasets
    seen = []

    def read(*_, **__):
        context._loaded_datasets.add("industry")
        seen.append(context._loaded_datasets)
        raise KeyError("industry")

    market.get_industry = read
    report = hold(("1", DAYS[1], DAYS[2]))
    with pytest.raises(KeyError):
        report.position_info2()
    assert context._loaded_datasets is before
    assert "industry" not in before
    assert seen == [{*before, "industry"}]
    market.get_industry = lambda: seen.append(context._loaded_datasets)
    report._position_info2()
    assert seen[1] is before
