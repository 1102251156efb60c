"""Markets by name and class, markets bound to tables, and their pickles."""

import copy
import pickle

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import data
from corvex.data.context import _default_context
from corvex.market import Market
from corvex.markets import (
    CryptoMarket,
    TWMarket,
    USMarket,
    get_market_by_name,
    infer_market_name,
    register_market,
)

NEW_YORK = "America/New_York"


@register_market
class ParisMarket(Market):
    """A user's market that has its own way to prices."""

    calendar_name = "XPAR"
    fee_ratio = 0.002

    def get_name(self):
        return "paris"

    def get_price(self, name, adj=True):
        raise AssertionError("bound to tables, it must not be asked")


def _closes(n: int = 300, columns: tuple[str, ...] = ("2330 first", "2317 second", "1101")):
    dates = pd.bdate_range("2023-01-02", periods=n)
    values = np.arange(n * len(columns), dtype=float).reshape(n, -1) + 1
    return pd.DataFrame(values, dates, list(columns))


def test_markets_are_found_by_name_and_know_their_costs():
    for name, kind, fee, tax in (
        ("tw_stock", TWMarket, 0.001425, 0.003),
        ("us_stock", USMarket, 0, 0),
        ("crypto", CryptoMarket, 0.001, 0),
        ("paris", ParisMarket, 0.002, 0),
    ):
        market = get_market_by_name(name)
        assert isinstance(market, kind)
        assert isinstance(market, Market)
        assert (market.get_name(), market.fee_ratio, market.tax_ratio) == (name, fee, tax)
    with pytest.raises(ValueError, match=r"did you mean 'tw_stock'.*accepted: 'tw_stock', 'us_st"):
        get_market_by_name("tw_stok")
    with pytest.raises(TypeError, match="abstract"):
        Market()


@pytest.mark.parametrize(
    ("labels", "name"),
    [
        (["2330 some name", "006208", "00631L"], "tw_stock"),
        (["2330", "AAPL"], "us_stock"),
        (["2330", "BTCUSDT"], "crypto"),
        (["123", "1234567"], "us_stock"),
        ([], "us_stock"),
    ],
)
def test_the_market_is_told_from_the_labels(labels, name):
    assert infer_market_name(labels) == name


def test_without_tables_of_its_own_a_market_answers_from_samples_or_empty(tmp_path):
    us, tw = USMarket(), TWMarket()

    assert us.get_price("close").shape == (8313, 20)
    assert us.get_benchmark().index.equals(us.get_price("close").index)
    for ask in (tw.get_benchmark, tw.get_market_value, tw.get_industry):
        assert len(ask()) == len(tw.get_price("close")) == 0
    # Prices of the user's own are not set against the old index of the sample.
    _closes().to_csv(tmp_path / "us_stock_close.csv")
    (_closes() / 2).to_csv(tmp_path / "us_stock_adj_close.csv")
    (tmp_path / "tw_stock_industry.csv").write_text("id,industry\n0050,fund\n2330,chips\n")
    with _default_context.override(data_dir=tmp_path):
        assert us.get_price("close").iloc[0, 0] == 0.5
        assert us.get_price("close", adj=False).iloc[0, 0] == 1
        assert len(us.get_benchmark()) == 0
        assert tw.get_industry() == {"0050": "fund", "2330": "chips"}


@pytest.mark.parametrize("market", [TWMarket(), ParisMarket()])
def test_a_bound_market_answers_from_the_tables_alone(market):
    close = _closes()
    fields = {"open": close + 1, "high": close + 4, "low": close - 1, "close": close}

    bound = market.bound_to(fields, benchmark=close["1101"])

    assert isinstance(bound, type(market))
    assert bound.get_name() == market.get_name()
    assert bound.get_price("close") is close  # handed on, not copied
    assert bound.get_freq() == "D"
    pd.testing.assert_frame_equal(bound.get_trading_price("ohlc"), close + 1)
    pd.testing.assert_series_equal(bound.get_benchmark(), close["1101"], check_freq=False)
    revised = pd.concat([close["1101"] * 2, close["1101"]]).sort_index(
        ascending=False, kind="stable"
    )
    of_revised = market.bound_to(fields, benchmark=revised).get_benchmark()
    pd.testing.assert_series_equal(of_revised, close["1101"], check_freq=False)
    assert market.bound_to(close, freq="1D").get_freq() == "1D"
    for wrong, text in (("volume", "no 'volume' table; they hold: open, high"), ("vwap", "'vwap'")):
        with pytest.raises(ValueError, match=text):
            bound.get_price(wrong)
    with pytest.raises(ValueError, match="trade_at must be"):
        bound.get_trading_price("vwap")


TAIPEI = "Asia/Taipei"
STAMPS = [(None, "0h"), ("UTC", "0h"), (NEW_YORK, "0h"), (NEW_YORK, "16h")]


@pytest.mark.parametrize("unit", ["ns", "s"])
@pytest.mark.parametrize(
    ("market", "price", "own"),
    [
        *((USMarket(), p, s) for p in [(None, "13h"), ("UTC", "21h"), *STAMPS] for s in STAMPS),
        (TWMarket(), (TAIPEI, "0h"), (None, "0h")),
    ],
)
def test_a_benchmark_keeps_its_session_dates_whatever_the_zones(market, price, own, unit):
    dates = pd.bdate_range("2024-03-04", "2024-03-15").as_unit(unit)  # the clocks change within
    index, stamps = ((dates + pd.Timedelta(t)).tz_localize(zone) for zone, t in (price, own))
    if price[0] == TAIPEI:
        index = index.tz_convert("UTC")  # its midnights stand on the day before
    prices = pd.DataFrame({"A": 1.0}, index)
    benchmark = pd.Series(np.arange(1.0, 1 + len(dates)), stamps)

    found = market.bound_to(prices, benchmark=benchmark).get_benchmark()

    assert str(found.index.tz) == str(prices.index.tz)
    # As the report takes it: prices by calendar day, the benchmark's last value carried on.
    daily = prices["A"].resample("1D").last().dropna()
    if found.index.tz is not None:
        found.index = pd.Series(found.index).dt.tz_convert(prices.index.tz)
    assert found.reindex(daily.index, method="ffill").tolist() == benchmark.tolist()


@pytest.mark.parametrize("zone", [None, "UTC", NEW_YORK, TAIPEI])
@pytest.mark.parametrize("bars_a_day", [1, 5])
def test_every_table_of_a_bound_market_meets_its_prices(zone, bars_a_day, tmp_path):
    days = pd.bdate_range("2024-01-02", periods=20)
    stamps = days.repeat(bars_a_day)
    if bars_a_day > 1:
        stamps = stamps + pd.to_timedelta(np.tile(np.arange(9, 14), 20), unit="h")
        own = stamps.tz_localize(TAIPEI).tz_convert(zone) if zone else stamps
    else:
        own = stamps.tz_localize(zone)
    close = pd.DataFrame({"2330": np.linspace(100, 120, len(own)), "2317": 50.0}, own)
    weights = pd.DataFrame({"2330": [1.0, 0.0, 1.0], "2317": [0.0, 1.0, 0.0]}, days[[0, 5, 12]])
    listed = pd.DataFrame({"2330": 1}, days[:10])  # says nothing of the last entry
    listed.to_csv(tmp_path / "tw_stock_disposal.csv")
    (listed * np.arange(1, 11)[:, None]).to_csv(tmp_path / "tw_stock_market_value.csv")
    volume = (close * 0 + 1000).tz_localize(None)  # on the clock of the prices

    with _default_context.override(data_dir=tmp_path):
        report = corvex.simulate(weights, {"close": close, "volume": volume}, market="tw_stock")
        assert report.get_metrics()["liquidity"]["disposalStockRatio"] == 0.5
        assert report.get_metrics()["liquidity"]["capacity"] > 0
        report.to_payload_dict()
        report.run_analysis("Liquidity", display=False)
        value = report.market.get_market_value()["2330"]
    assert report.trades["turnover@entry_date"].notna().all()
    first = report.trades["entry_date"].iloc[0]
    assert value.index.isin(own).all()
    assert (len(value), value[first]) == (10 * bars_a_day, 2)


def test_the_own_benchmark_is_left_out_when_it_ends_before_the_prices():
    def bound(last):
        return USMarket().bound_to(_closes().set_axis(pd.bdate_range(end=last, periods=300)))

    assert bound("2022-12-28").get_benchmark().iloc[-1] == 3783.22
    assert len(bound("2023-01-10").get_benchmark()) == 0
    by_name = USMarket().bound_to(_closes(), benchmark="sp500")
    assert by_name.get_benchmark().name == "SP500"
    with pytest.raises(data.UnknownTableError, match="near: sp500"):
        USMarket().bound_to(_closes(), benchmark="sp50")


def test_a_pickle_holds_settings_and_the_named_assets_only():
    columns = tuple(f"{1101 + i} name{i}" for i in range(400))
    close = _closes(1000, columns)
    bound = TWMarket().bound_to({"close": close, "open": close + 1, "volume": close * 1000})
    bound.fee_ratio = 0.0005
    bound.market_close_at_timestamp("2024-02-01")  # opens the calendar

    bare = pickle.dumps(bound)
    bound.restrict_pickle_to(["1102 name1", "1103"])
    full = pickle.dumps(bound)
    loaded = pickle.loads(full)

    assert len(pickle.dumps(TWMarket())) < 100
    assert len(bare) < 1000 * 8 + 3000
    assert len(full) < 1000 * 8 * (1 + 3 * 2) + 3000  # one index, three tables of two columns
    assert isinstance(loaded, TWMarket)
    assert (loaded.fee_ratio, loaded.get_freq()) == (0.0005, "D")
    pd.testing.assert_frame_equal(
        loaded.get_price("close"), close[["1102 name1", "1103 name2"]], check_freq=False
    )
    assert pickle.loads(bare).get_price("close").index[-1] == close.index[-1]
    assert len(pickle.dumps(loaded)) < 1.05 * len(full)
    assert bound.get_price("close").shape == (1000, 400)
    for twin in (copy.copy(bound), copy.deepcopy(bound)):
        assert twin.get_price("close") is close
