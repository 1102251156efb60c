"""An account on a user's tables: what is accepted, refused, told, and kept in files."""

import pickle
import warnings

import numpy as np
import pandas as pd
import pyarrow as pa
import pytest

import corvex
from corvex.analysis._edge import edge_by_bars
from corvex.analysis.liquidityAnalysis import LiquidityAnalysis
from corvex.core.dashboard.figures.account_money import benchmark_money
from corvex.core.dashboard.figures.trade_series import price_paths
from corvex.market import Market
from corvex.markets import get_market_by_name
from corvex.simulation.read.clock import Clock

DAYS = pd.bdate_range("2024-01-02", periods=40)
MOVES = np.random.default_rng(5).normal(0.001, 0.02, (40, 2)).cumsum(axis=0)
PRICES = pd.DataFrame(50.0 * np.exp(MOVES), DAYS, ["AAA", "BBB"])
WEIGHTS = pd.DataFrame({"AAA": 0.8, "BBB": -0.3}, index=DAYS[::8])


def run(prices=PRICES, weights=WEIGHTS, **terms):
    account = corvex.Account(**{"capital": 10_000, **terms})
    return corvex.simulate(weights, prices, market="us_stock", leverage=True, account=account)


@pytest.mark.parametrize(
    ("terms", "told"),
    [
        ({"capital": 0}, "capital must be a number above 0"),
        ({"lot_size": -1}, "lot_size must be a number above 0, got -1"),
        ({"lot_size": pd.Series({"AAA": 1.0})}, "lot_size has no value for 'BBB'"),
        ({"rounding": "up"}, "rounding must be one of 'down', 'nearest'"),
        ({"unfilled": pd.Series(["wait"])}, "unfilled must be one of 'wait', 'lapse'"),
        ({"splits": pd.DataFrame({"AAA": [0.0]}, DAYS[3:4])}, "splits of 'AAA' on 2024-01-05 is 0"),
        ({"dividends": pd.Series({"AAA": 1.0})}, "dividends must be a table"),
        ({"lot_size": pd.Series(1.0, ["AAA", "AAA", "BBB"])}, "lot_size has 'AAA' more than once"),
        ({"cash_rate": {"AAA": 0.1}}, "cash_rate must be a number or a Series by date, got a Ser"),
        ({"lot_size": pd.Series(1.0, DAYS)}, "lot_size must be a number or a Series by asset"),
        ({"band": pd.Series(0.1, DAYS[:0])}, "band is empty"),
        ({"price_limit": True}, "the market 'us_stock' knows no price limit"),
        ({"price_limit": 0.0}, "price_limit must be above 0"),
        (
            {"withholding_tax": pd.Series([0.3, 30], DAYS[:2])},
            "withholding_tax must be a number fr",
        ),
        ({"fee_ratio": pd.Series({"AAA": 1.5, "BBB": 0})}, "fee_ratio of 'AAA' must be a fraction"),
        ({"fee_table": {5: 0.1}}, "fee_table must begin at 0"),
        (
            {"price_ticks": {0: 0.0}, "price_limit": 0.1},
            "what price_ticks maps to must be a number above 0",
        ),
        ({"price_ticks": True, "price_limit": 0.1}, "the market 'us_stock' knows no ticks"),
        ({"volume_share": 0.1}, "no 'volume' table"),
        ({"flows": pd.Series([-20_000.0], DAYS[9:10])}, "the withdrawal of 2024-01-15 is no less"),
        ({"borrow_rate": "5 %"}, "borrow_rate must be a number"),
    ],
)
def test_terms_that_cannot_be_are_refused(terms, told):
    with pytest.raises(ValueError, match=told.replace("(", r"\(")):
        run(**terms)


def test_costs_that_are_given_twice_and_adjusted_prices_are_refused():
    account = corvex.Account(fee_ratio=0.001, dividends=PRICES * 0.0)
    with pytest.raises(ValueError, match="fee_ratio is given twice"):
        corvex.simulate(WEIGHTS, PRICES, market="us_stock", fee_ratio=0.1, account=account)
    with pytest.raises(ValueError, match="dividends and splits go with quoted prices"):
        run({"close": PRICES, "adj_close": PRICES * 0.9}, dividends=PRICES * 0.0)


@pytest.mark.parametrize(
    ("terms", "told"),
    [
        ({"cash_rate": 5}, "cash_rate is as high as 5"),
        ({"capital": 20, "lot_size": 1}, "nothing was traded: no target comes to a whole lot; is "),
        ({"capital": 1, "min_fee": 0.001}, "the capital is 1, while min_fee count in money"),
        ({"min_fee": 20_000}, "1 rebalances were left out, as their costs would have been more"),
        ({"cash_rate": pd.Series([0.1], DAYS[20:21])}, "cash_rate is missing at first"),
        (
            {"dividends": pd.DataFrame({"AAA": [1.0]}, [pd.Timestamp("2024-01-13")])},
            "1 dividends on dates without a session, such as 2024-01-13",
        ),
        (
            {"splits": pd.DataFrame({"AAA US": [2.0, 2]}, DAYS[5:7]).rename(columns=str.lower)},
            "splits names none of the assets: its first is 'aaa us'",
        ),
        ({"flows": pd.Series([5.0, 5.0], ["2023-01-05", "2024-01-08"])}, "1 flows, such as that"),
        ({"borrow_rate": pd.Series({"AAA": 0.1})}, "short sales were cut"),
        ({"short_rebate": {"AAA": 0.1}}, "short_rebate of 'BBB' is missing; it counts as 0"),
        ({"fee_ratio": {"2024-02-01": 0.1}}, "fee_ratio is missing at first .* that of the run"),
    ],
)
def test_what_is_hardly_meant_is_told(terms, told):
    with pytest.warns(UserWarning, match=told):
        run(**terms)


def test_flows_of_before_the_first_fill_are_kept():
    late = PRICES.iloc[8:].reindex(DAYS)
    report = run(late, flows=pd.Series([500.0], DAYS[3:4]))
    assert report.account["flows"].sum() == 500.0
    assert report.account.attrs["capital"] == 10_000.0
    assert (report.creturn.index[0], report.creturn.iloc[0]) == (DAYS[3], 1.0)
    assert run(late).creturn.index[0] == DAYS[7]


def test_a_stop_that_an_order_takes_over_is_none_of_the_margins_cuts():
    """The rebalance finds no price, so that stop, order and margin call meet a session later."""
    dates = pd.bdate_range("2024-01-02", periods=7)
    close = pd.DataFrame({"A": [10.0, 10.0, 8.0, np.nan, 8.0, 8.0, 8.0]}, dates)
    weights = pd.DataFrame({"A": [2.0, 2.0]}, dates[[0, 2]])
    account = corvex.Account(capital=100, lot_size=20, maintenance_margin=0.5)
    report = corvex.simulate(
        weights, close, market="us_stock", leverage=True, stop_loss=0.1, account=account
    )
    assert report.fills["shares"].tolist() == [20.0, 0.0]
    assert report.trades["exit_reason"].tolist() == ["stop_loss"]


def test_flows_after_a_ruin_are_told():
    fallen = PRICES.assign(AAA=np.where(np.arange(40) < 9, 50.0, 10.0))
    flows = pd.Series([10.0, 20, 300, -40], DAYS[[3, 9, 12, 20]])
    with pytest.warns(UserWarning, match="fell to zero on 2024-01-15") as told:
        report = run(fallen, pd.DataFrame({"AAA": [2.0]}, DAYS[:1]), flows=flows)
    assert any(
        "2 flows after" in str(one.message) and "first on 2024-01-18" in str(one.message)
        for one in told
    )
    assert report.account["flows"].sum() == 30.0


DATES = [str(day.date()) for day in DAYS[[0, 25]]]
VALUED = {
    "short_rebate": 0.02, "borrow_rate": 0.03, "withholding_tax": 0.3, "fee_ratio": 0.001,
    "tax_ratio": 0.002, "slippage_ratio": 0.003, "band": 0.06, "price_limit": 0.02,
    "cash_rate": 0.04, "cash_spread": 0.01, "financing_rate": 0.05,
}  # fmt: skip


@pytest.mark.parametrize("name", VALUED)
def test_a_value_is_the_same_in_every_form(name):
    value = VALUED[name]
    of_cash = name in ("cash_rate", "cash_spread", "financing_rate")
    others = {"dividends": pd.DataFrame({"AAA": [0.5, 0.7]}, DAYS[[12, 30]])}
    others |= {"cash_rate": 0.1} if name == "cash_spread" else {}
    weights = WEIGHTS.mul(np.linspace(1.0, 1.2, 5), axis=0)
    weights = weights * (2.0 if name == "financing_rate" else 1.0)

    def money(given):
        return run(weights=weights, **{**others, name: given}).account.to_numpy()

    series = pd.Series([value, value / 2], DAYS[[0, 25]])
    table = pd.DataFrame({"BBB": series, "AAA": series})
    forms = [series, series.set_axis(series.index.date), dict(zip(DATES, series, strict=True))]
    forms += [pa.table({"date": series.index, "AAA": series})] if of_cash else []
    forms += [] if of_cash else [table, pa.table({"day": table.index, **table})]
    holed = series.reindex(DAYS[[0, 10, 25]])  # what is not there does not count
    forms += [] if name == "borrow_rate" else [holed]
    alone, changing = money(value), money(series)
    for given in forms:
        np.testing.assert_array_equal(money(given), changing)
    np.testing.assert_array_equal(changing[:25], alone[:25])
    assert not np.allclose(changing, alone)
    if not of_cash:
        np.testing.assert_array_equal(money({"AAA": value, "BBB": value}), alone)


@pytest.mark.parametrize("close", [9.07, 9.5, 33.33, 47.85, 48.0, 99.9, 455.0, 931.0, 1234.0])
def test_taiwans_limits_are_those_that_its_orders_have(close):
    lowest, highest = get_market_by_name("tw_stock").price_range(close)
    up, down = (sign * 1e-6 * close for sign in (1, -1))
    account = corvex.Account(price_limit=True, price_ticks=True)

    def fills(opens, *weights):
        weights = pd.DataFrame({"1101": weights}, DAYS[: 3 * len(weights) : 3])
        prices = pd.DataFrame({"1101": close}, DAYS[:8])
        prices.iloc[3 * len(weights) - 2] = opens
        report = corvex.simulate(weights, prices, market="tw_stock", account=account)
        return DAYS[3 * len(weights) - 2] in set(report.fills["date"])

    assert [fills(highest + move, 0.5) for move in (down, up, 0)] == [True, False, False]
    assert [fills(lowest + move, 0.5, 0.0) for move in (down, up, 0)] == [False, True, False]


def test_an_account_shows_what_it_was_given_and_nothing_of_its_tables():
    account = corvex.Account(capital=5e3, cash_rate={"2024-01-02": 0.01}, splits=PRICES * 0 + 1)
    assert repr(account) == "Account(capital=5000.0, cash_rate='by date', splits='a table')"


def test_what_is_less_than_a_lot_short_is_nothing():
    report = run(weights=pd.DataFrame({"AAA": [-0.5, -0.001]}, DAYS[[0, 9]]), lot_size=10)
    assert not np.signbit(report.fills["shares"].iloc[-1])


def test_a_run_that_never_found_a_volume_says_so():
    with pytest.warns(UserWarning, match=r"nothing was traded: every order was cut \(volume\)"):
        run({"close": PRICES, "volume": PRICES * 0.0}, volume_share=0.5)


def test_orders_wait_for_a_volume_and_a_warning_counts_them():
    volume = PRICES * 0.0 + 1000.0
    volume.iloc[1, 0] = np.nan
    with pytest.warns(UserWarning, match="1 orders met a session whose volume is missing"):
        report = run({"close": PRICES, "volume": volume}, volume_share=0.5)
    assert report.trades.entry_date.tolist() == [DAYS[2], DAYS[1]]
    assert report.trades.cut.tolist() == ["volume", ""]


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
@pytest.mark.parametrize("terms_zone", [None, "America/New_York"])
def test_dates_of_terms_count_by_date_in_any_zone(zone, terms_zone):
    def terms(zone):
        days = DAYS if zone is None else DAYS.tz_localize(zone)
        return {
            "cash_rate": pd.Series([0.01, 0.1], days[[0, 20]]),
            "dividends": pd.DataFrame({"AAA": [1.0]}, days[5:6]),
            "flows": pd.Series([500.0], days[9:10]),
        }

    prices = PRICES if zone is None else PRICES.tz_localize(zone)
    found = run(prices, **terms(terms_zone)).account.to_numpy()
    np.testing.assert_array_equal(found, run(**terms(None)).account.to_numpy())


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei", "America/Santiago"])
@pytest.mark.parametrize("kind", ["dates", "closes", "bars"])
def test_many_dates_of_terms_are_read_as_one_is(kind, zone):
    hours = pd.to_timedelta(np.tile({"dates": [0], "closes": [14]}.get(kind, [0, 10, 14]), 40), "h")
    sessions = DAYS.repeat(len(hours) // 40) + hours
    clock = Clock(sessions.tz_localize(zone), corvex.markets.USMarket())
    draw = np.random.default_rng(3)
    given = DAYS[0] + pd.to_timedelta(draw.integers(-9, 60, 40) * 24 + draw.choice([0, 9], 40), "h")
    for dates in (given, *(given.tz_localize(name) for name in ("UTC", "America/New_York"))):
        keys, days = clock.begins(dates)
        borders = [clock.border(date, "a date") for date in dates]
        assert keys.tolist() == [border.key for border in borders]
        local = pd.DatetimeIndex([clock.local_of(border.date) for border in borders]).normalize()
        if dates.tz is not None:  # inside a day, and without a zone: the day that is written
            assert days.tolist() == local.as_unit("ns").asi8.tolist()


def test_impact_sees_through_splits_of_before_the_run():
    volume = PRICES * 0.0 + 1000.0
    late = WEIGHTS.loc[DAYS[12] :]
    plain = run({"close": PRICES, "volume": volume}, late, impact=0.5, impact_window=10)
    shares = pd.Series(np.where(DAYS[9] > DAYS, 1.0, 2.0), DAYS)
    split = run(
        {"close": PRICES.div(shares, axis=0), "volume": volume.mul(shares, axis=0)}, late,
        impact=0.5, impact_window=10, splits=pd.DataFrame({"AAA": 2.0, "BBB": 2.0}, DAYS[9:10]),
    )  # fmt: skip
    np.testing.assert_allclose(split.account, plain.account, rtol=1e-9, atol=1e-9)


@pytest.mark.parametrize("zone", [None, "Asia/Taipei"])
def test_what_follows_prices_over_time_sees_through_splits(tmp_path, zone):
    prices = PRICES if zone is None else PRICES.tz_localize(zone)
    shares = pd.DataFrame({"AAA": np.where(DAYS[7] > DAYS, 1.0, 3.0), "BBB": 1.0}, prices.index)
    weights = pd.DataFrame(
        {"AAA Alpha": [0.8, 0.0, 0.8, 0.0, 0.8], "BBB": [-0.3, -0.3, 0.0, -0.3, 0.0]}, DAYS[3:40:8]
    )
    splits = pd.DataFrame({"AAA": [3.0]}, DAYS[7:8])
    plain = run(prices, weights)
    split = run(prices / shares, weights, splits=splits)
    corvex.save(split, tmp_path / "a.corvex")
    wanted = edge_by_bars(plain, [1, 5]), price_paths(plain, 1000)
    drawn = corvex.random_entries(plain, 50).draws
    for other in (split, pickle.loads(pickle.dumps(split)), corvex.load(tmp_path / "a.corvex")):
        found = edge_by_bars(other, [1, 5]), price_paths(other, 1000)
        for mine, own in zip(found[0], wanted[0], strict=True):
            assert mine == pytest.approx(own)
        assert found[1]["values"] == pytest.approx(wanted[1]["values"], abs=1)
        np.testing.assert_allclose(corvex.random_entries(other, 50).draws, drawn, rtol=1e-9)
    other_run = corvex.simulate(weights, market=split.market, leverage=True)
    assert other_run.market.split_factors is None


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
def test_a_price_limit_counts_from_the_day_before_also_for_bars_of_a_day(zone):
    hours = pd.to_timedelta([9, 11, 13], unit="h")
    bars = pd.DatetimeIndex([day + hour for day in DAYS[:3] for hour in hours], tz="Asia/Taipei")
    bars = bars.tz_localize(None) if zone is None else bars.tz_convert(zone)
    close = pd.DataFrame({"2330": [100.0, 112, 100, 105, 110, 110, 111, 110, 110]}, bars)

    def bought(row):
        weights = pd.DataFrame({"2330": [0.5]}, bars[row : row + 1])
        account = corvex.Account(capital=1e4, price_limit=True)
        report = corvex.simulate(weights, close, market="tw_stock", account=account)
        return int(bars.get_loc(report.fills["date"].iloc[0]))

    assert [bought(row) for row in (0, 2, 3, 4)] == [1, 3, 6, 6]


def test_bars_of_a_day_accrue_between_days_and_meet_events_at_the_first_bar():
    hours = pd.to_timedelta(np.tile([10, 12, 14], 40), unit="h")
    bars = pd.DataFrame(100.0, pd.DatetimeIndex(DAYS.repeat(3) + hours), ["AAA"])
    weights = pd.DataFrame({"AAA": [0.5]}, bars.index[:1])
    dividends = pd.DataFrame({"AAA": [1.0]}, DAYS[2:3])
    money = run(bars, weights, capital=36_500, cash_rate=0.1, dividends=dividends).account
    assert money["interest"].iloc[:4].round(6).tolist() == [0.0, 0.0, 0.0, 5.0]
    assert money.index[money["dividends"] > 0].tolist() == [bars.index[6]]


def test_a_report_keeps_its_account_in_files_and_others_have_none(tmp_path):
    flows = pd.Series([2000.0, -500.0], DAYS[[10, 25]])
    dividends = pd.DataFrame({"AAA": [0.5, 0.7]}, DAYS[[12, 30]])
    report = run(
        cash_rate=0.03, borrow_rate=0.02, min_fee=1, lot_size=1, flows=flows, dividends=dividends,
        splits=pd.DataFrame({"BBB": [2.0]}, DAYS[20:21]),
    )  # fmt: skip
    corvex.save(report, tmp_path / "a.corvex")
    for other in (pickle.loads(pickle.dumps(report)), corvex.load(tmp_path / "a.corvex")):
        pd.testing.assert_frame_equal(other.account, report.account)
        assert other.account.attrs == report.account.attrs
        parts = corvex.contributions(other)
        assert parts.sum() == pytest.approx(report.creturn.iloc[-1] - 1, abs=1e-10)
        kinds = corvex.contributions(other, by_kind=True)
        assert kinds["total"].sum() == pytest.approx(parts.sum(), abs=1e-10)
        assert -kinds["costs"].sum() == pytest.approx(report.costs["fees"])
        assert "(other)" not in parts.index
    report.to_payload_dict()
    plain = corvex.simulate(WEIGHTS, PRICES, market="us_stock", leverage=True)
    assert plain.account is plain.bookings is None
    assert not {"account", "bookings"} & {*vars(plain), *dir(plain)}


DOLLAR = pd.Series(30.0 + np.arange(40) / 10, DAYS)
QUOTED = {"AAA": "usd", "BBB": "TWD"}


def abroad(fx, prices=PRICES, currency=QUOTED, **terms):
    return run(prices, currency=currency, fx=fx, base="TWD", **terms)


@pytest.mark.parametrize(
    "fx",
    [
        pd.DataFrame({"USD/TWD": DOLLAR, "DXY index": 1.0}),
        {"TWDUSD": 1.0 / DOLLAR, "EURTWD": 9.0},
        {"JPYUSD": 0.01, "JPYTWD": DOLLAR / 100.0},
        DOLLAR[::-1].rename("USD").set_axis(DAYS[::-1].strftime("%Y-%m-%d")),
        pd.DataFrame({"USDTWD": DOLLAR}).tz_localize("America/New_York"),
    ],
)
@pytest.mark.filterwarnings("ignore:fx of USD.* was not in order")
def test_pairs_are_found_however_they_are_written(fx):
    converted = PRICES.assign(AAA=PRICES["AAA"] * DOLLAR)
    found = abroad(fx).account
    np.testing.assert_allclose(found["equity"], run(converted).account["equity"], rtol=1e-12)


@pytest.mark.parametrize(
    ("terms", "told"),
    [
        ({"fx": None}, "the rate of USDTWD is missing on 2024-01-03, where 'AAA' needs it"),
        ({"fx": {"EURTWD": 33}}, "USDTWD is missing .*; fx has: EURTWD"),
        (
            {"fx": {"USDTWD": DOLLAR[2:]}},
            "USDTWD is missing on 2024-01-03.* first one is of 2024-0",
        ),
        ({"fx": {"USDTWD": DOLLAR[:5]}}, "USDTWD is missing on 2024-02-13: .* more than 35 days"),
        ({"fx": {"USDTWD": -DOLLAR}}, "the rate of USDTWD on 2024-01-02 is -30; rates must be"),
        ({"fx": {"USDTWD": "30"}}, "fx of USDTWD must be a Series by date or a number above 0"),
        ({"fx": {"USDTWD": 30, "USD-TWD": 30}}, "fx has the pair USDTWD twice"),
        ({"fx": DOLLAR.rename("USDTWD").reset_index(drop=True)}, "fx of USDTWD must hold dates"),
        ({"fx": 30}, "fx must be a table or Series by date, or a mapping"),
        ({"currency": {"AAA": "USD"}}, "currency has no value for 'BBB'"),
        (
            {"currency": {"AAA": "USD", "BBB": 3}},
            "currency of 'BBB' must be the code of a currency",
        ),
        ({"currency": None}, "fx, base and benchmark_currency go with currency"),
        ({"base": None}, "currency needs base"),
        ({"min_fee": {"TWD": 1.0}}, "min_fee has no value for USD; every currency needs one"),
        ({"fee_per_share": {"USD": -1.0}}, "fee_per_share of USD must be a number from 0 on"),
        (
            {"min_fee": {"USD": 1.0}, "currency": None, "fx": None, "base": None},
            "min_fee by currency needs currency",
        ),
    ],
)
def test_currencies_that_cannot_be_are_refused(terms, told):
    with pytest.raises(ValueError, match=told):
        run(**{"currency": QUOTED, "fx": {"USDTWD": DOLLAR}, "base": "TWD", **terms})


def test_an_old_rate_is_told_once_and_one_of_before_the_prices_counts():
    early = pd.Series([31.0], [pd.Timestamp("2023-12-30")])
    rates = pd.concat([early, DOLLAR[5:20], DOLLAR[30:]])
    with pytest.warns(UserWarning, match="USDTWD is more than 10 days old in 2 sessions") as told:
        report = abroad({"USDTWD": rates, "USDJPY": 150.0}, currency={"AAA": "USD", "BBB": "JPY"})
    assert len(told) == 1
    assert report.fx["USD"].iloc[[0, 4, 5, 29]].tolist() == [31.0, 31.0, 30.5, 31.9]
    assert report.fx["JPY"].iloc[0] == pytest.approx(31.0 / 150.0)


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
@pytest.mark.parametrize("bars", [False, True])
def test_a_benchmark_is_compared_in_the_base(zone, bars, tmp_path):
    hours = pd.to_timedelta([10, 14] if bars else [0], unit="h")
    prices = pd.concat([PRICES.set_axis(DAYS + hour) for hour in hours]).sort_index()
    index = pd.Series(np.linspace(1000.0, 1500.0, 40), DAYS, name="index")
    account = corvex.Account(
        currency=QUOTED, base="TWD", fx={"USDTWD": DOLLAR}, benchmark_currency="usd"
    )
    report = corvex.simulate(
        WEIGHTS, prices.tz_localize(zone), market="us_stock", leverage=True,
        benchmark=index.tz_localize("America/New_York"), account=account,
    )  # fmt: skip
    corvex.save(report, tmp_path / "a.corvex")
    for market in (report.market, corvex.load(tmp_path / "a.corvex").market):
        again = corvex.simulate(WEIGHTS, market=market, leverage=True, account=account).market
        for one in (market, again):  # whose benchmark is in the base already
            assert one.get_benchmark().tolist() == pytest.approx((index * DOLLAR).tolist())


def test_a_benchmark_of_an_unknown_currency_is_told():
    prices = PRICES.set_axis(corvex.data.sample("sp500").loc["2020"].index[:40])
    weights = WEIGHTS.set_axis(prices.index[::8])

    def compared(benchmark, **terms):
        with warnings.catch_warnings(record=True, action="always") as told:
            account = corvex.Account(currency=QUOTED, base="TWD", fx={"USDTWD": 30.0}, **terms)
            made = corvex.simulate(
                weights, prices, market="us_stock", leverage=True, benchmark=benchmark,
                account=account,
            )  # fmt: skip
        money = benchmark_money(made)
        return made.market.benchmark_source, [str(one.message) for one in told], money

    guess = "the benchmark 'SP500' is compared as it is quoted, while the account is kept in TWD"
    for benchmark, source in ((None, "default"), ("sp500", "table")):
        found, told, money = compared(benchmark)
        assert (found, len(told), money) == (source, 1, {"to": "TWD"})
        assert told[0].startswith(guess)
        money = {"from": "USD", "to": "TWD"}  # as page and summary tell it
        assert compared(benchmark, benchmark_currency="USD") == (source, [], money)
    for found in (compared(None, benchmark_currency="TWD"), compared(prices["AAA"])):
        assert found[1:] == ([], None)
    with pytest.raises(ValueError, match="EURTWD is missing on 2020-01-02, where the benchmark"):
        compared(None, benchmark_currency="EUR")


def test_a_market_of_ones_own_has_its_benchmark_in_the_base():
    class Own(Market):
        benchmark = PRICES["BBB"].iloc[:30]  # ends before the prices, and counts all the same

        def get_name(self):
            return "own"

        def get_price(self, name, adj=True):
            return PRICES if name == "close" else pd.DataFrame()

        def get_benchmark(self):
            return self.benchmark

    def found(market):
        account = corvex.Account(
            currency=QUOTED, base="TWD", fx={"USDTWD": DOLLAR}, benchmark_currency="USD"
        )
        return corvex.simulate(WEIGHTS, market=market, leverage=True, account=account)

    assert found(Own).benchmark.tolist() == pytest.approx((Own.benchmark * DOLLAR)[:30].tolist())
    none = type("NoBenchmark", (Own,), {"benchmark": Own.benchmark.iloc[:0]})
    assert found(none).benchmark.nunique() == 1


@pytest.mark.parametrize("freq", ["BME", "ME", "BMS"])
def test_rates_by_month_are_enough(freq):
    days = pd.bdate_range("2025-11-03", "2026-01-30")  # 28 November to 31 December
    prices = pd.DataFrame(100.0, days, ["AAA"])
    months = pd.date_range("2025-09-01", "2026-01-31", freq=freq)
    rates = {"USDTWD": pd.Series(np.arange(30.0, 30.0 + len(months)), months)}
    account = corvex.Account(currency="USD", base="TWD", fx=rates)
    with pytest.warns(UserWarning, match="more than 10 days old"):
        report = corvex.simulate(prices > 0, prices, market="us_stock", account=account)
    known = rates["USDTWD"].reindex(report.fx.index, method="ffill")
    assert report.fx["USD"].tolist() == known.tolist()


def test_a_days_rate_counts_for_bars_when_the_day_is_over_and_moves_what_has_no_price():
    hours = pd.to_timedelta(np.tile([10, 14], 40), unit="h")
    bars = pd.DataFrame(100.0, pd.DatetimeIndex(DAYS.repeat(2) + hours), ["AAA", "BBB"])
    bars.iloc[5:7] = np.nan
    report = abroad({"USDTWD": DOLLAR}, bars, borrow_rate=0.0)
    assert report.fx["USD"].iloc[:6].tolist() == [30.0, 30.0, 30.1, 30.1, 30.2, 30.2]
    shares = report.fills.set_index("symbol").loc["AAA", "shares"]
    assert report.account["long"].iloc[2:5].tolist() == pytest.approx(
        [shares * 100 * rate for rate in (30.1, 30.1, 30.2)]
    )


def test_contributions_by_kind_tell_currencies_also_from_a_file(tmp_path):
    volume = PRICES * 0.0 + 1000.0
    report = abroad(
        pd.DataFrame({"USDTWD": DOLLAR}), {"close": PRICES, "volume": volume},
        dividends=pd.DataFrame({"AAA": [1.0]}, DAYS[12:13]), fee_per_share=0.01, min_fee=1.0,
        flows=pd.Series([5000.0], DAYS[20:21]), splits=pd.DataFrame({"BBB": [2.0]}, DAYS[9:10]),
    )  # fmt: skip
    corvex.save(report, tmp_path / "a.corvex")
    for other in (report, pickle.loads(pickle.dumps(report)), corvex.load(tmp_path / "a.corvex")):
        kinds = corvex.contributions(other, by_kind=True)
        assert kinds["total"].sum() == pytest.approx(report.creturn.iloc[-1] - 1, abs=1e-10)
        assert kinds.loc["AAA", "currency"] == pytest.approx(report.costs["currency"])
        assert kinds.loc["BBB", "currency"] == 0.0 < kinds.loc["AAA", "currency"]
        pd.testing.assert_frame_equal(other.fx, report.fx)
    assert report.account.attrs["currency"] == report.fx.attrs["base"] == "TWD"
    assert report.settings["account"]["currency"] == QUOTED
    # Traded value, and the capital that it carries, are in the base too.
    value = LiquidityAnalysis().analyze(report)["turnover"][0]["median"]
    trades = report.trades
    rates = np.where(trades["symbol"] == "AAA", report.fx["USD"].reindex(trades["entry_date"]), 1.0)
    assert value == pytest.approx(np.median(trades["trade_price@entry_date"] * 1000.0 * rates))
    plain = run()
    assert plain.fx is None
    assert "currency" not in {*plain.account, *plain.costs, *plain.trades, *plain.fills}


def test_money_weighted_return_is_the_curves_own_without_flows():
    with warnings.catch_warnings(action="error"):
        report = run(cash_rate=0.02)
    curve = report.creturn
    years = (curve.index[-1] - curve.index[0]).days / 365.25
    grown = curve.iloc[-1] ** (1 / years) - 1
    assert report.account.attrs["money_weighted_return"] == pytest.approx(grown)


def quoted_prices(kind):
    """Prices without splits and dividends inside, both events, and the prices adjusted for them."""
    whole = corvex.data.sample("us_stocks").loc["2019":"2021", ["AAPL", "MSFT", "JNJ"]]
    rng = np.random.default_rng(7)
    pays = np.zeros(whole.shape)
    ratio = np.ones(whole.shape)
    if kind == "quarterly":  # half a percent in turns, and Apple's split of August 2020
        for asset in range(3):
            pays[30 + 10 * asset :: 63, asset] = 0.005
        ratio[whole.index.get_loc("2020-08-31"), 0] = 4.0
    else:  # often on neighbouring dates, now and then large, with splits on the same date
        pays[1:] = rng.uniform(0, 0.2, pays[1:].shape) * (rng.random(pays[1:].shape) < 0.05)
        ratio[rng.random(whole.shape) < 0.01] = 1.5
        ratio[rng.random(whole.shape) < 0.01] = 0.25
        ratio[0] = 1.0
    shares = ratio.cumprod(axis=0)  # that one share of the beginning has become
    quoted = whole / shares
    dividends = quoted * pays
    adjusted = whole * (1 + pays).cumprod(axis=0)  # all before an ex-date times p / (p + d)
    return quoted, dividends, quoted * 0 + ratio, shares, adjusted


@pytest.mark.parametrize("kind", ["quarterly", "random"])
def test_quoted_prices_differ_from_adjusted_ones_by_the_reinvestment_alone(kind):
    """A share bought at P has since paid D1, D2, ... (P and D by the share of the beginning).

    The account holds P(t) + D1 + D2 + ...; prices adjusted by p / (p + d) put each dividend back
    at the ex-date's close, where it buys D/P shares: P(t) (1 + D1/P1) (1 + D2/P2) ... A rebalance
    puts the account's cash back too, so one on each session leaves no difference. (Prices
    adjusted by 1 - d / close before buy at another price, and never agree to the last digit.)
    """
    quoted, dividends, splits, shares, adjusted = quoted_prices(kind)
    rng = np.random.default_rng(11)
    targets = rng.uniform(-0.3, 0.4, (12, 3))
    rows = np.sort(rng.choice(np.arange(len(quoted) - 2), 12, replace=False))
    weights = pd.DataFrame(targets, quoted.index[rows], quoted.columns)
    free = {"fee_ratio": 0, "tax_ratio": 0, "leverage": True, "market": "us_stock"}
    account = corvex.Account(capital=1e6, dividends=dividends, splits=splits)
    paid = corvex.simulate(weights, quoted, account=account, **free).creturn
    back = corvex.simulate(weights, adjusted, **free).creturn

    price, money = quoted * shares, (dividends * shares).cumsum()
    bought = (1 + dividends / quoted).cumprod()
    largest = 0.0
    fills = quoted.index[rows + 1]
    for fill, end, weight in zip(fills, [*fills[1:], quoted.index[-1]], targets, strict=True):
        held = slice(fill, end)
        reinvested = price[held] * (bought[held] / bought.loc[fill] - 1)
        apart = ((reinvested - (money[held] - money.loc[fill])) / price.loc[fill]) @ weight
        grown = back[held] / back[fill] - paid[held] / paid[fill]
        np.testing.assert_allclose(grown, apart, atol=1e-12)
        largest = max(largest, apart.abs().max())
    assert largest > 1e-4  # or nothing was shown

    daily = weights.reindex(quoted.index, method="ffill").loc[weights.index[0] :]
    paid = corvex.simulate(daily, quoted, account=account, resample="D", **free).creturn
    back = corvex.simulate(daily, adjusted, resample="D", **free).creturn
    np.testing.assert_allclose(paid, back, rtol=1e-12)
    # Splits alone differ by nothing, whatever is rebalanced when.
    account = corvex.Account(capital=1e6, splits=splits)
    split = corvex.simulate(weights, quoted, account=account, **free).creturn
    np.testing.assert_allclose(split, corvex.simulate(weights, price, **free).creturn, rtol=1e-13)
