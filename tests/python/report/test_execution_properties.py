"""An execution state goes out and comes back whole."""

import datetime
import json
import math
import time
import zoneinfo

import numpy as np
import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

from corvex.core.report import ReportExecution
from corvex.markets import get_market_by_name

ZONES = st.sampled_from([None, datetime.UTC, zoneinfo.ZoneInfo("America/New_York")])
DATES = st.datetimes(datetime.datetime(2015, 1, 1), datetime.datetime(2028, 1, 1), timezones=ZONES)
STAMPS = DATES.map(pd.Timestamp)
LABELS = st.text(st.characters(exclude_categories=["Cs"]), max_size=8).map(str.strip)
WEIGHTS = st.dictionaries(LABELS, st.floats(-2, 2), max_size=4)
ACTIONS = st.dictionaries(
    LABELS, st.sampled_from("hold enter exit exit_p entry_f sl tp sl_ tp_ _ other".split())
)
LIMITS = st.none() | st.just(math.inf) | st.floats(0, 1)
SCHEDULES = (
    st.sampled_from([None, "ME", "W-FRI", ""])
    | st.lists(STAMPS, max_size=3)
    | st.lists(st.dates(datetime.date(1700, 1, 1), datetime.date(2250, 1, 1))).map(
        lambda dates: pd.DatetimeIndex([str(d) for d in dates]).as_unit("s")
    )
)


@st.composite
def executions(draw):
    record = ReportExecution(
        draw(WEIGHTS),
        draw(WEIGHTS),
        draw(SCHEDULES),
        draw(ACTIONS),
        draw(DATES),
        draw(st.sampled_from(["open", "close", "ohlc"])),
        get_market_by_name(draw(st.sampled_from(["tw_stock", "us_stock", "crypto"]))),
        *(draw(LIMITS) for _ in range(3)),
        total_weight=draw(st.floats(-2, 2)),
        data_readiness=draw(st.none() | st.just({"reason": "x"})),
        planned_rebalance_date=draw(st.none() | DATES),
    )
    for series in (record.weights, record.next_weights):
        series.name = draw(st.just(series.name) | STAMPS)
    return record


def carried(record):
    """What the dictionary of a record carries; no limit may be told as None or infinity."""
    told = record.to_dict()
    told["config"].pop("rebalanceTiming")  # tells the present
    for limit in ("stopLoss", "takeProfit", "trailStop"):
        if told["config"][limit] in (None, math.inf):
            told["config"][limit] = None
    return told


def sent(value):
    return json.loads(json.dumps(value))


@given(st.dictionaries(LABELS, executions(), max_size=3), executions())
def test_what_goes_out_comes_back(named, single):
    again = ReportExecution.from_json(sent(ReportExecution.to_dict_collection(named)))
    assert {name: carried(record) for name, record in again.items()} == {
        name: carried(record) for name, record in named.items()
    }
    again = ReportExecution.from_dict_collection(sent(ReportExecution.to_dict_collection(single)))
    assert carried(again) == carried(single)
    for attribute in ("weights", "next_weights"):
        ours, theirs = getattr(again, attribute), getattr(single, attribute)
        assert (ours.name == theirs.name, ours.dtype) == (True, np.float64)
        assert ours[ours != 0].to_dict() == theirs[theirs != 0].to_dict()


@given(executions())
def test_the_older_layout_keeps_weights_actions_and_schedule(record):
    legacy = sent(record.to_legacy_position_info2())
    again = ReportExecution.from_dict(legacy)
    assert carried(again) == carried(record)
    twice = sent(again.to_legacy_position_info2())
    assert twice["positions"] == legacy["positions"]


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei", "America/New_York"])
@pytest.mark.parametrize("kind", [pd.Timestamp, pd.Timestamp.to_pydatetime, pd.Timestamp.date])
def test_a_record_read_back_answers_as_the_one_written(zone, kind, monkeypatch):
    monkeypatch.setenv("TZ", "Asia/Taipei")  # naive datetimes are no local times
    time.tzset()
    stamps = pd.DatetimeIndex(["2024-01-31", "2024-02-29", "2024-04-10"]).tz_localize(zone)
    hours = pd.date_range("2024-02-29 01:00", periods=9, freq="h", tz=zone)
    bound = get_market_by_name("crypto").bound_to(pd.DataFrame({"A": 1.0}, hours))
    for market, current, following in (
        (get_market_by_name("tw_stock"), stamps[0], stamps[0]),
        (bound, stamps[0], hours[-1]),
    ):
        schedule = [kind(stamp) for stamp in stamps]
        record = ReportExecution(
            {"A": 1.0}, {"A": 0.5}, schedule, None, stamps[1], "close", market, None, None, None
        )
        record.weights.name, record.next_weights.name = current, following
        again = ReportExecution.from_json(sent(record.to_dict()))
        legacy = ReportExecution.from_json(sent(record.to_legacy_position_info2()))
        for now in pd.date_range("2024-02-28 17:00", "2024-03-01 01:00", freq="4h", tz="UTC"):
            answers = [
                (r.uses_next_weights(now), r.rebalance_timing(now)) for r in (record, again, legacy)
            ]
            assert answers[0] == answers[1] == answers[2]
            if market is not bound:  # its rebalance is due at the close of a listed date
                start = answers[0][1]["update_start_at"]
                assert start == "2024-02-29T05:30:00+00:00"
    monkeypatch.undo()
    time.tzset()


@pytest.mark.parametrize("name", [datetime.date(2024, 1, 31), "2024-01-31", pd.NaT])
def test_only_a_datetime_as_name_is_a_signal_date(name):
    record = ReportExecution(
        {"A": 1.0}, {"A": 0.5}, None, None, "2024-03-01", "close", None, None, None, None,
        planned_rebalance_date=pd.NaT,
    )  # fmt: skip
    record.weights.name = record.next_weights.name = name
    config = record.to_dict()["config"]
    assert config["rebalanceTiming"]["status"] == "no_signal"
    assert (config["nextSignalAt"], config["plannedRebalanceDate"]) == (None, None)
    assert not record.uses_trading_calendar()
    assert not record.uses_next_weights(pd.Timestamp("2024-02-15", tz="UTC"))


def test_depth_and_length_do_not_matter():
    deep = None
    for _ in range(100_000):
        deep = {"positions": [deep], "config": deep}
    for reader in (ReportExecution.from_dict, ReportExecution.from_json):
        with pytest.raises(ValueError, match=r"^.{,200}$"):
            reader({"positions": [{"assetId": deep}]})
        record = reader(
            {"config": {"dataReadiness": deep, "market": deep, "entryTradePrice": deep}}
        )
        assert record.data_readiness is deep
        with pytest.raises(ValueError, match="Invalid isoformat"):
            reader({"config": {"scheduled": "x" * 10**6}})
    while deep:  # freed level by level
        deep = deep["config"]
