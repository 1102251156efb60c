"""The older holdings view: one flat dictionary by asset."""

import numpy as np
import pandas as pd
import pytest

KEYS = ["status", "weight", "next_weight", "entry_date", "exit_date", "return", "entry_price"]
WIDE = ["update_date", "next_trading_date", "trade_at", "freq", "market", "stop_loss",
        "take_profit"]  # fmt: skip
DAYS = pd.date_range("2024-01-01", periods=10)


@pytest.fixture
def told(make_report, us_market):
    def told(rows, actions=None, **attributes):
        report = make_report()
        columns = ["label", "entry_sig_date", "exit_sig_date", "weight"]
        current = pd.DataFrame(rows, columns=columns).set_index("label")
        current[columns[1:3]] = current[columns[1:3]].apply(pd.to_datetime)
        more = {"next_weights": 0.25, "return": 0.1, "trade_price@entry_date": 5.0}
        report.current_trades = current.assign(**more)
        report.actions = pd.Series(actions or {}, dtype="object")
        report.market, report.stop_loss = us_market(), 0.1
        vars(report).update(attributes)
        return report.position_info()

    return told


def test_assets_come_first_then_what_holds_for_all(told):
    rows = [("B x", DAYS[3], DAYS[9], 1.0), ("A", DAYS[1], pd.NaT, 0.5), ("C", DAYS[9], None, 0.0)]
    record = told(rows, {"C": "enter", "A": np.nan})
    assert list(record) == ["A", "B x", "C", *WIDE]  # by the latest signal
    assert list(record["A"].items()) == list(
        zip(KEYS, ["hold", 0.5, 0.25, "2024-01-02T00:00:00", "", 0.1, 5.0], strict=True)
    )
    assert (record["B x"]["status"], record["B x"]["exit_date"]) == ("exit", "2024-01-10T00:00:00")
    assert record["C"]["status"] == "enter"
    assert [record[key] for key in WIDE] == [DAYS[9].isoformat()] * 2 + [
        "close", "1D", "us_stock", 0.1, None]  # fmt: skip


def test_of_several_trades_of_an_asset_the_latest_signal_counts(told):
    rows = [("A", DAYS[5], DAYS[8], 1.0), ("A", DAYS[6], pd.NaT, 2.0),
            ("B", DAYS[1], DAYS[4], 3.0), ("B", DAYS[4], pd.NaT, 4.0)]  # fmt: skip
    record = told(rows, {"A": "sl"}, trade_at=pd.DataFrame())
    assert {name: record[name]["weight"] for name in "AB"} == {"A": 1.0, "B": 4.0}
    assert [record[name]["status"] for name in "AB"] == ["sl", "hold"]
    assert record["trade_at"] == "close"


@pytest.mark.parametrize("zone", [None, "Asia/Taipei"])
def test_times_keep_their_zone(told, zone):
    time = (DAYS[3] + pd.Timedelta(hours=9)).tz_localize(zone)
    assert told([("A", time, pd.NaT, 1.0)])["A"]["entry_date"] == time.isoformat()


def test_without_trades_only_the_columns_are_told(told):
    assert told([]) == {key: {} for key in KEYS}
