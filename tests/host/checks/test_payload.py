"""The dictionaries a report travels as."""

import datetime
import json
from unittest import mock

import numpy as np
import pandas as pd
import pytest

REPORT_KEYS = """schema timestamps strategy benchmark metrics trades nextFutureExpiry
    suggestedTradableTime isTradable dataReadiness plannedRebalanceDate""".split()
DATE_DTYPES = ["datetime64[s]", "datetime64[ns]", "datetime64[ns, Asia/Taipei]"]


@pytest.fixture
def report(make_report, execution):
    import corvex.data as data

    data.answers.clear()
    data.calls.clear()
    report = make_report()
    report.trades = pd.DataFrame({"stock_id": "A", "return": np.arange(501.0)})
    report.execution = execution
    report.position_info2 = lambda: {"positions": [1], "schema": "mine", "positionConfig": {"a": 2}}
    return report


@pytest.mark.parametrize("dtype", DATE_DTYPES)
def test_trades_text_holds_epoch_milliseconds_and_null(report, unpacked, dtype):
    moments = ["1969-12-31 23:00:00", "2024-01-02 03:04:05", None]
    trades = pd.DataFrame(
        {
            "stock_id": ["A", "中 文", None],
            "exit_date": moments,
            "held": pd.to_timedelta([1, None, 3], unit="D"),
            "any": np.array([pd.Timestamp("2024-01-01"), None, 1], dtype=object),
            "return": [0.5, np.nan, -1.0],
            "period": [1, 2, 3],
        },
        index=pd.date_range("2024-01-01", periods=3),
    )
    exits = pd.to_datetime(moments, utc=True)
    exits = exits if "Taipei" in dtype else exits.tz_localize(None)
    trades["exit_date"] = exits.astype(dtype)
    before = trades.copy()
    packed = report._gzip_b64_trades(trades)
    day = 86_400_000
    keys = ["stockId", "exit_date", "held", "any", "return", "period"]
    assert [list(row) for row in unpacked(packed)] == [keys] * 3
    assert [tuple(row.values()) for row in unpacked(packed)] == [
        ("A", -3_600_000, day, 1_704_067_200_000, 0.5, 1),
        ("中 文", 1_704_164_645_000, None, None, None, 2),
        (None, None, 3 * day, 1, -1.0, 3),
    ]
    pd.testing.assert_frame_equal(trades, before)
    with pytest.raises(ValueError, match="must be unique"):
        report._gzip_b64_trades(trades.set_axis(["x"] * 6, axis=1))


def test_report_dictionary_in_its_order(report, unpacked):
    import corvex.data as data

    report.daily_benchmark = report.daily_benchmark.iloc[2:]
    record = report.to_report_dict()
    assert list(record) == REPORT_KEYS
    assert record["schema"] == "report.v1"
    assert record["timestamps"] == [f"2024-01-{day:02}" for day in range(1, 11)]
    assert record["strategy"] == report.daily_creturn.tolist()
    assert record["benchmark"] == [100.0] * 8
    assert record["metrics"] == report.get_metrics()
    assert len(unpacked(record["trades"])) == 501
    assert [record[key] for key in REPORT_KEYS[6:]] == [None, None, False, None, None]
    assert data.calls == [("next_future_expiry",), ("suggested_tradable_time", report.market)]
    assert json.loads(json.dumps(record)) == record
    again = report.to_json()
    assert unpacked(again.pop("trades")) == unpacked(record.pop("trades"))
    assert again == record

    moment = datetime.datetime(2024, 1, 2, tzinfo=datetime.UTC)
    data.answers.update(next_future_expiry=moment, suggested_tradable_time=moment)
    report.data_readiness = {"ready": True}
    report.planned_rebalance_date = pd.Timestamp("2024-02-29")
    assert [report.to_report_dict()[key] for key in REPORT_KEYS[6:]] == [
        *[moment.timestamp()] * 2, True, {"ready": True}, "2024-02-29T00:00:00"
    ]  # fmt: skip


def test_trades_are_cut_where_a_limit_is_told(report, unpacked):
    def returns(packed):
        return [row["return"] for row in unpacked(packed)]

    last = list(np.arange(1.0, 501.0))
    assert unpacked(report.to_report_dict(0)["trades"]) == []
    assert returns(report.to_report_dict(trades_limit=2)["trades"]) == [499.0, 500.0]
    assert returns(report.to_payload_dict()["report"]["trades"]) == last
    assert returns(report.to_payload()["report"]["trades"]) == last
    assert len(returns(report.to_payload(trades_limit=None)["report"]["trades"])) == 501
    older = report._to_json046()
    assert list(older) == ["metrics", "trades"]
    assert returns(older["trades"]) == last


def test_payload_takes_the_execution_and_the_holdings(report):
    payload = report.to_payload_dict(3)
    assert list(payload) == ["schema", "report", "execution", "holdings"]
    assert payload["schema"] == "report.payload.v1"
    assert payload["execution"] == report.execution.to_dict()
    assert payload["holdings"] == report.to_holdings_dict()
    assert json.loads(json.dumps(payload)) == payload
    report.position_schedulers = {"a": report.execution}
    assert report.to_payload_dict(3)["execution"] == {"a": report.execution.to_dict()}
    report.position_schedulers = None
    with pytest.raises(ValueError, match="NoneType"):
        report.to_payload_dict()


def test_payload_is_computed_in_the_order_of_its_keys(report, module, monkeypatch):
    asked = mock.Mock()
    monkeypatch.setattr(module.ReportExecution, "to_dict_collection", asked.execution)
    report.to_report_dict, report.to_holdings_dict = asked.report, asked.holdings
    execution = report.execution
    report.to_payload_dict(7)
    assert asked.mock_calls == [
        mock.call.report(trades_limit=7), mock.call.execution(execution), mock.call.holdings()
    ]  # fmt: skip


def test_holdings_are_a_copy_under_their_own_schema(report):
    mine = report.position_info2()
    report.position_info2 = lambda: mine
    expected = mine | {"schema": "report.holdings.v1"}
    assert list(report.to_holdings_dict().items()) == list(expected.items())
    assert mine["schema"] == "mine"
    for other in (None, [], pd.DataFrame({"a": [1]})):
        report.position_info2 = lambda other=other: other
        assert report.to_holdings_dict() == expected | {"positions": [], "positionConfig": {}}


def test_envelopes_are_read_in_all_three_forms(module):
    read = module.Report.from_payload
    inner = {"report": {"r": 1}, "schema": "future.v9", "holdings": 3, "execution": {}}
    expected = {"schema": "future.v9", "report": {"r": 1}, "execution": {}, "holdings": 3}
    assert list(read(inner).items()) == list(expected.items())
    assert read({"payload_v1": inner, "report": "outer"}) == expected
    assert read({"payload_v1": "text", "report": 5})["report"] == 5
    twice = read({"payload_v1": {"payload_v1": inner}})
    assert twice == read({}) == dict.fromkeys(expected)

    bare = dict.fromkeys(["trades", "metrics", "strategy", "timestamps"], None)
    bare["schema"] = "report.v1"
    assert read(bare)["report"] is bare
    assert read(bare)["schema"] == "report.v1"
    assert read(bare | {"report": 0})["report"] == 0
    del bare["trades"]
    assert read(bare)["report"] is None
    with pytest.raises(ValueError) as caught:
        module.Report.from_payload_dict([])
    assert str(caught.value) == "payload should be dict, got <class 'list'>"
