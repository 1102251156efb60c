"""The data context, expiry and the readiness record."""

import asyncio
import datetime
import gc
import json
import os
import pickle
import threading
from weakref import WeakValueDictionary

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import data
from corvex.data.context import _default_context
from corvex.data.readiness import readiness_record, snapshot_is_ready
from corvex.markets import CryptoMarket, TWMarket, USMarket

T = pd.Timestamp


def _at(text: str):
    return _default_context.override(now=T(text, tz="UTC").to_pydatetime())


def _bound(market, index, at):
    with _at(at):
        return market.bound_to(pd.DataFrame({"A": np.ones(len(index))}, index))


def test_override_is_undone_however_its_block_ends():
    before = _default_context._loaded_datasets
    names = set(before)

    def failing_block():
        with _default_context.override(_loaded_datasets=set(before)):
            data.get("sp500")
            with _default_context.override(_loaded_datasets={"inner"}):
                assert _default_context._loaded_datasets == {"inner"}
            assert _default_context._loaded_datasets == names | {"sp500"}
            data.get("no such table")

    with pytest.raises(data.UnknownTableError):
        failing_block()
    assert _default_context._loaded_datasets is before
    assert before == names
    with pytest.raises(TypeError, match=r"no setting 'loaded'; it has: _loaded_datasets"):
        _default_context.override(loaded=set()).__enter__()


def test_override_is_seen_by_its_own_thread_and_task_only():
    seen = {}

    async def task(name):
        with _default_context.override(_loaded_datasets={name}):
            await asyncio.sleep(0.01)
            return _default_context._loaded_datasets

    async def tasks():
        return await asyncio.gather(task("a"), task("b"))

    with _default_context.override(_loaded_datasets={"mine"}):
        thread = threading.Thread(
            target=lambda: seen.update(other=set(_default_context._loaded_datasets))
        )
        thread.start()
        thread.join()
        assert asyncio.run(tasks()) == [{"a"}, {"b"}]
        assert _default_context._loaded_datasets == {"mine"}
    assert "mine" not in seen["other"]


def _days(last: str, freq: str = "B") -> pd.DatetimeIndex:
    return pd.date_range(end=last, periods=5, freq=freq)


@pytest.mark.parametrize(
    ("market", "index", "bound_at", "expires_at"),
    [
        # Across the new-year break; and a row of a session that had not ended.
        (TWMarket(), _days("2024-02-05"), "2024-02-05 06:00", "2024-02-15 05:30"),
        (TWMarket(), _days("2024-02-05"), "2024-02-05 05:00", "2024-02-05 05:30"),
        (USMarket(), _days("2023-11-22"), "2023-11-23 09:00", "2023-11-24 18:00"),
        (CryptoMarket(), _days("2023-12-31", "D"), "2024-01-01 01:00", "2024-01-02 00:00"),
        # Periods: by their calendar's end (Good Friday is no session), last or first session.
        (USMarket(), _days("2024-01-31", "BME"), "2024-02-01 00:00", "2024-02-29 21:00"),
        (USMarket(), _days("2024-02-29", "ME"), "2024-03-01 00:00", "2024-03-28 20:00"),
        (USMarket(), _days("2023-12-29", "BQE"), "2023-12-30 00:00", "2024-03-28 20:00"),
        (USMarket(), _days("2024-01-26", "W-FRI"), "2024-01-26 21:01", "2024-02-02 21:00"),
        (USMarket(), _days("2024-01-24", "W-WED"), "2024-01-26 21:01", "2024-01-31 21:00"),
        (CryptoMarket(), _days("2024-01-28", "W"), "2024-01-29 01:00", "2024-02-05 00:00"),
        (CryptoMarket(), _days("2024-02-01", "MS"), "2024-02-10 00:00", "2024-03-01 00:00"),
        # A period that is still running when it is dated by its last row.
        (
            USMarket(),
            _days("2024-01-05", "W-FRI").append(_days("2024-01-10", "D")[-1:]),
            "2024-01-11 00:00",
            "2024-01-12 21:00",
        ),
        (  # the bar of 10:30 is finished at 11:00 when stamped by its start
            USMarket(),
            pd.date_range("2024-01-02 09:30", periods=2, freq="30min"),
            "2024-01-02 15:31",
            "2024-01-02 16:00",
        ),
    ],
)
def test_prices_are_tradable_until_newer_ones_should_exist(market, index, bound_at, expires_at):
    bound = _bound(market, index, bound_at)
    end = T(expires_at)

    with _at(bound_at):
        record = readiness_record(bound)
    for seconds, fresh in ((-1, True), (0, False)):
        with _at(str(end + pd.Timedelta(seconds=seconds))):
            assert data.is_tradable(bound) is fresh
            assert (data.suggested_tradable_time(bound) is None) is fresh
            assert snapshot_is_ready(record) is fresh

    assert record["reason"] == "fresh"
    assert json.loads(json.dumps(record)) == record
    assert record["tables"][0]["last_date"] == index[-1].isoformat()
    assert datetime.datetime.fromisoformat(record["expires_at"]) == end.tz_localize("UTC")


class _LocalMarket(CryptoMarket):
    def market_close_at_timestamp(self, date):
        return T(date).tz_localize(None).normalize() + pd.Timedelta("17h")


def test_a_close_without_a_zone_is_local_time():
    bound = _bound(_LocalMarket(), _days("2024-01-03", "D"), "2024-01-03 23:00")
    end = datetime.datetime(2024, 1, 4, 17).astimezone()
    for seconds, fresh in ((-1, True), (0, False)):
        with _default_context.override(now=end + datetime.timedelta(seconds=seconds)):
            assert data.is_tradable(bound) is fresh
            assert data.suggested_tradable_time(bound) == (None if fresh else end)


HOURS = pd.date_range("2023-11-16 15:00", periods=14, freq="h", tz="UTC")


@pytest.mark.parametrize(
    ("market", "index", "now", "expected"),
    [
        (USMarket(), _days("2023-11-17"), "2023-11-24 17:59", "2023-11-22 21:00"),
        (USMarket(), _days("2023-11-17"), "2023-11-26 12:00", "2023-11-24 18:00"),
        (USMarket(), _days("2023-11-10", "W-FRI"), "2023-11-23 12:00", "2023-11-17 21:00"),
        (CryptoMarket(), HOURS, "2023-11-17 07:30", "2023-11-17 07:00"),
        (USMarket(), HOURS[:5] + pd.Timedelta("-30min"), "2023-11-17 17:59", "2023-11-17 17:30"),
        (USMarket(), HOURS[:5] + pd.Timedelta("-30min"), "2023-11-18 17:59", "2023-11-17 21:00"),
        (USMarket(), None, "2023-11-26 12:00", "2023-11-24 18:00"),  # without any prices
    ],
)
def test_the_suggested_time_is_when_the_newest_row_became_final(market, index, now, expected):
    bound = market if index is None else _bound(market, index, str(index[-1]))
    with _at(now), _default_context.override(_loaded_datasets=set()):
        assert not data.is_tradable(bound)
        found = data.suggested_tradable_time(bound)
    assert found == T(expected, tz="UTC")
    assert found.tzinfo is datetime.UTC


def test_expiry_follows_the_prices_at_hand_and_their_markets(tmp_path):
    def write(name, last, columns):
        index = pd.bdate_range(end=last, periods=5)
        pd.DataFrame(1.0, index, columns).to_csv(tmp_path / f"{name}.csv")
        _touch(tmp_path / f"{name}.csv", f"{last} 23:00")

    write("us_stock_adj_close", "2024-07-02", ["AAPL"])
    write("tw_stock_close", "2024-07-03", ["2330"])
    for other in ("tw_stock_benchmark", "tw_stock_market_value", "tw_stock_revenue", "cpi"):
        write(other, "2024-05-31", ["2330"])
    us, tw = USMarket(), TWMarket()
    fresh_context = _default_context.override(
        data_dir=tmp_path, _loaded_datasets=set(), _own_markets={}
    )
    with fresh_context, _at("2024-07-03 12:00"):
        assert data.next_data_expiry() is data.next_future_expiry() is None
        assert not data.is_tradable(us)
        assert readiness_record(us)["reason"] == "no_data"
        us.get_price("close")
        tw.get_price("close")
        assert data.next_data_expiry() == T("2024-07-03 17:00", tz="UTC")  # a half day
        for other in ("tw_stock_benchmark", "tw_stock_market_value", "tw_stock_revenue", "cpi"):
            data.get(other)
        assert data.is_tradable(us)
        assert data.is_tradable(tw)
        assert data.next_data_expiry() == T("2024-07-03 17:00", tz="UTC")
        with _at("2024-07-04 05:30"):
            assert data.next_future_expiry() is None
            assert [(t["name"], t["fresh"]) for t in readiness_record(tw)["tables"]] == [
                ("tw_stock_close", False)
            ]
            # A file written anew does not refresh what was computed from the old one.
            write("tw_stock_close", "2024-07-04", ["2330"])
            assert not data.is_tradable(tw)
            data.get("tw_stock_close")
            assert data.is_tradable(tw)


class _Elsewhere(CryptoMarket):
    def get_name(self):
        return "elsewhere"

    def get_price(self, name, adj=True):
        return pd.DataFrame({"A": 1.0}, _days("2024-07-02", "D"))


def test_prices_without_a_name_count_while_they_are_in_use():
    weights = pd.DataFrame({"A": [1.0]}, _days("2024-07-01")[:1])
    prices = pd.DataFrame({"A": 1.0}, _days("2024-07-02"))
    end = T("2024-07-03 17:00", tz="UTC")
    fresh_context = _default_context.override(
        _loaded_datasets=set(), _own_markets=WeakValueDictionary()
    )
    with fresh_context, _at("2024-07-03 12:00"):
        report = corvex.simulate(weights, prices, market="us_stock")
        again = pickle.loads(pickle.dumps(report))
        assert _default_context._loaded_datasets == set()  # no sample that was not used
        assert data.next_data_expiry() == report.next_future_expiry() == end
        assert again.suggested_tradable_time() is None
        past = corvex.simulate(weights, prices, market="us_stock", end="2024-07-02")
        assert not past.is_tradable()
        assert past.suggested_tradable_time() == T("2024-07-02 20:00", tz="UTC")
        del report, again, past
        gc.collect()
        report = corvex.simulate(weights, market=_Elsewhere())
        assert report.is_tradable()
        assert report.data_readiness["reason"] == "fresh"
        assert report.next_future_expiry() == T("2024-07-04", tz="UTC")


def _touch(path, moment):
    seconds = T(moment, tz="UTC").timestamp()
    os.utime(path, (seconds, seconds))


@pytest.mark.parametrize(
    ("record", "ready"),
    [
        (None, False),
        ({}, False),
        ({"reason": "fresh"}, False),
        ({"reason": "fresh", "expires_at": "2024-01-02T00:00:01+00:00"}, True),
        ({"reason": "stale", "expires_at": "2024-01-02T00:00:00+00:00"}, False),
        ({"reason": "historical_backtest", "expires_at": "2999-01-01T00:00:00+00:00"}, False),
    ],
)
def test_a_snapshot_is_ready_while_its_record_says_so(record, ready):
    assert snapshot_is_ready(record, now=T("2024-01-02", tz="UTC").to_pydatetime()) is ready
