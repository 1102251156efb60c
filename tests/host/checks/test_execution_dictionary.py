"""The dictionary of an execution record, in both layouts, and its readers."""

import datetime
import json

import numpy as np
import pandas as pd
import pytest

SIGNAL, NEXT = pd.Timestamp("2024-01-31 05:30", tz="UTC"), pd.Timestamp("2024-02-29")
CONFIG = """market dataFreq scheduled entryTradePrice exitTradePrice resample currentWeightsAt
    nextWeightsAt stopLoss takeProfit trailStop totalWeight currentSignalAt nextSignalAt
    rebalanceTiming dataReadiness plannedRebalanceDate""".split()
LEGACY_CONFIG = """rebalanceTiming dataReadiness plannedRebalanceDate currentSignalAt nextSignalAt
    scheduled isDailyStrategy market sl tp ts resample entryTradePrice exitTradePrice dataFreq
    currentRebalanceDate nextRebalanceDate totalWeight""".split()


@pytest.fixture
def record(module, us_market, monkeypatch):
    monkeypatch.setattr("corvex.rebalance.execution_timing", lambda *_, **__: {"status": "known"})
    actions = pd.Series(["enter", "hold", "sl"], index=["1 One Two", "2", "2"])
    record = module.ReportExecution(
        {"3": 0.5, "2": 1}, {"1 One Two": np.float32(0.25)}, [SIGNAL, NEXT], actions,
        datetime.datetime(2024, 3, 1), "open", us_market(), np.float64(0.1), np.int64(1), np.inf,
        0.5, {"reason": "x"}, SIGNAL)  # fmt: skip
    record.weights.name, record.next_weights.name = SIGNAL, NEXT
    return record


@pytest.fixture
def read(module):
    def read(positions=(), **config):
        return module.ReportExecution.from_dict({"positions": list(positions), "config": config})

    return read


def test_the_dictionary_holds_what_was_agreed(record):
    written = record.to_dict()
    assert list(written) == ["schema", "positions", "config"]
    assert written["schema"] == "report.execution.v1"
    keys = ["assetId", "assetName", "currentWeight", "nextWeight", "action"]
    assert [list(position) for position in written["positions"]] == [keys] * 3
    assert [tuple(position.values()) for position in written["positions"]] == [
        ("1", "One Two", 0, 0.25, "enter"),
        ("2", "", 1, 0, "sl"),  # of a repeated label the last action
        ("3", "", 0.5, 0, "hold"),
    ]
    values = ["us_stock", "1D", "2024-03-01T00:00:00", "open", "open",
              [SIGNAL.timestamp(), NEXT.timestamp()], SIGNAL.timestamp(), NEXT.timestamp(),
              0.1, 1, np.inf, 0.5, "2024-01-31T05:30:00+00:00", "2024-02-29T00:00:00",
              {"status": "known"}, {"reason": "x"}, "2024-01-31T05:30:00+00:00"]  # fmt: skip
    assert list(written["config"].items()) == list(zip(CONFIG, values, strict=True))
    json.dumps(written)


def test_an_empty_record_of_a_mute_market_writes_every_setting(module):
    record = module.ReportExecution(*[None] * 4, pd.NaT, *[None] * 5)
    record.market, record.trade_at = module.Market(), ""
    record.rebalance_timing = lambda: None
    written = record.to_dict()
    assert (written["positions"], list(written["config"])) == ([], CONFIG)
    given = {name: value for name, value in written["config"].items() if value is not None}
    prices = dict.fromkeys(["entryTradePrice", "exitTradePrice"], "close")
    assert given == {"market": "tw_stock", "dataFreq": "D", "totalWeight": 1.0} | prices


def test_the_older_layout_tells_the_same(record, module):
    legacy = record.to_legacy_position_info2()
    assert list(legacy) == ["positions", "positionConfig"]
    assert list(legacy["positionConfig"]) == LEGACY_CONFIG
    assert [p["action"] for p in legacy["positions"]] == ["entry", "exit_sl", "hold"]
    # The stand-in host knows no other market than Taiwan's, and that one says nothing of itself.
    again = module.ReportExecution.from_dict(legacy)._replace(market=record.market)
    assert again.to_dict() == record.to_dict()
    assert again.to_legacy_position_info2() == legacy


def test_collections_keep_their_names_and_name_a_stranger(record, module):
    class Mine(module.ReportExecution):
        pass

    names = ["a", "positions", "config", "positionConfig", "schema", ""]
    written = Mine.to_dict_collection(dict.fromkeys(names, record))
    for reader in (Mine.from_dict_collection, Mine.from_json):
        assert list(reader(written)) == names
        assert type(reader(written)["a"]) is type(reader(record.to_dict())) is Mine
        assert type(reader(Mine.to_legacy_position_info2_collection(record))) is Mine
        assert reader({}) == {}
    for write in (Mine.to_dict_collection, Mine.to_legacy_position_info2_collection):
        with pytest.raises(ValueError) as refused:
            write({"a": record, "b": 3})
        assert str(refused.value) == "execution[b] should be ReportExecution, got <class 'int'>"
        with pytest.raises(ValueError, match="execution should be ReportExecution or dict, got"):
            write([record])
    Mine._from_legacy_position_leaf = lambda payload: "legacy"
    assert Mine.from_json({"a": {"positionConfig": None, "config": {}}}) == {"a": "legacy"}


def test_what_is_not_there_reads_as_its_default(read, module):
    record = read()
    assert (record.take_profit, record.trail_stop, record.stop_loss) == (np.inf, np.inf, None)
    assert (record.total_weight, record.trade_at, record.resample) == (1.0, "close", None)
    assert (record.weights.name, record.next_weights.name) == ("weight", "next_weight")
    assert record.weights.dtype == record.next_weights.dtype == np.float64
    assert type(record.market) is type(read(market="nowhere").market) is module.TWMarket
    assert datetime.datetime.now() - record.next_trading_date < datetime.timedelta(minutes=1)
    null = read(**dict.fromkeys(CONFIG))
    assert (null.trail_stop, null.total_weight, null.weights.name) == (np.inf, 1.0, "weight")


def test_positions_are_read_by_either_spelling(read):
    record = read([
        {"asset_id": "1", "asset_name": "One", "currentWeight": 1},
        {"assetId": 2, "nextWeight": 0.5, "action": "exit_tp_"},
        {"assetName": "x", "action": "exit_p_sl"},
        {"assetId": 2, "currentWeight": 0.5, "action": "exit_p_sl"},  # the past does not count
    ])  # fmt: skip
    assert record.weights.to_dict() == {"1 One": 1.0, "2": 0.0, "x": 0.0}
    assert record.next_weights.to_dict() == {"1 One": 0.0, "2": 0.5, "x": 0.0}
    assert record.actions.to_dict() == {"1 One": "_", "2": "tp_", "x": "exit_p_sl"}


def test_signal_dates_come_from_the_newest_key_that_is_there(read):
    keys = {"currentSignalAt": "2024-01-03T00:00:00+08:00", "currentWeightsAt": 0.5}
    old = {"currentRebalanceDate": 86400, "nextRebalanceDate": 86400}
    assert read(**keys, **old).weights.name == pd.Timestamp(keys["currentSignalAt"])
    seconds = read(currentWeightsAt=0.5, nextSignalAt=None, **old)
    assert seconds.weights.name == pd.Timestamp(0.5, unit="s")
    assert seconds.next_weights.name == "next_weight"
    assert read(**old).next_weights.name == pd.Timestamp("1970-01-02")
    second = datetime.datetime(1970, 1, 1, 0, 0, 1, tzinfo=datetime.UTC)
    assert read(scheduled=1.0000000015).next_trading_date == second


@pytest.mark.parametrize("unit", ["s", "ns"])
def test_dates_of_a_schedule_are_posix_seconds_whatever_holds_them(module, unit):
    write = module.ReportExecution._serialize_resample
    read = module.ReportExecution._deserialize_resample
    dates = pd.DatetimeIndex([NEXT, NEXT + pd.Timedelta(days=1)]).as_unit(unit)
    seconds = [1709164800.0, 1709251200.0]
    for given in (dates, pd.Series(dates), dates.to_numpy(), list(dates), tuple(map(str, dates)),
                  iter(dates), dict.fromkeys(dates),
                  dates.tz_localize("UTC").tz_convert("Asia/Taipei"),
                  [d.tz_localize("UTC").to_pydatetime() for d in dates],
                  # a date is the same in every zone and on every machine
                  dates.tz_localize("Asia/Taipei"), list(dates.tz_localize("America/New_York")),
                  [d.to_pydatetime() for d in dates], [d.date() for d in dates]):  # fmt: skip
        assert write(given) == seconds
    assert read(seconds) == read([str(date) for date in dates]) == list(dates)
    assert read(["2024-02-29T00:00:00+08:00"]) == [NEXT]
    moment = NEXT.tz_localize("UTC") + pd.Timedelta(hours=1)
    assert read([1709164800, 1709168400.0]) == [NEXT.tz_localize("UTC"), moment]
    assert read(["2024-02-29T09:00:00+08:00"]) == [moment]
    assert [write(rule) for rule in (None, "ME", [])] == [None, "ME", []]
    assert [read(rule) for rule in (None, "ME", [])] == [None, "ME", []]


@pytest.mark.parametrize(
    ("config", "told"),
    [
        ({"currentSignalAt": 10**5000}, "currentSignalAt should be a date between 1677 and 2262"),
        ({"currentSignalAt": ""}, "currentSignalAt should be POSIX seconds or an ISO-8601 text"),
        ({"nextWeightsAt": float("nan")}, "nextWeightsAt should be a date .*, got nan"),
        ({"resample": {"a": 1}}, "resample should be None, a frequency text or a list of dates"),
        ({"resample": [None]}, "resample should be POSIX seconds or an ISO-8601 text, got <class"),
        ({"stopLoss": "0.1"}, "stopLoss should be a number, got <class 'str'>"),
        ({"totalWeight": 10**400}, "totalWeight should be a number that a float can hold"),
        ({"scheduled": "soon"}, "Invalid isoformat"),
        ({"plannedRebalanceDate": []}, "plannedRebalanceDate should be"),
    ],
)
def test_a_setting_that_cannot_be_read_is_told(read, config, told):
    with pytest.raises(ValueError, match=told):
        read(**config)


def test_what_is_no_record_is_refused(module):
    ill = [{"config": []}, {"positions": {"a": 1}}, {"positions": [{"assetId": []}]}]
    for payload in (None, [], "x", *ill):
        with pytest.raises(ValueError, match="should be"):
            module.ReportExecution.from_dict(payload)
