"""An account on a user's tables: what is accepted, refused, told, and kept in files."""

import pickle
import warnings

import numpy as np
import pandas as pd
import pytest

import corvex

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
        ({"splits": pd.DataFrame({"AAA": [0.0]}, DAYS[3:4])}, "splits of 'AAA' on 2024-01-05 is 0"),
        ({"dividends": pd.Series({"AAA": 1.0})}, "dividends must be a table"),
        ({"cash_rate": pd.Series({"AAA": 0.1})}, "cash_rate must be a number or a Series by date"),
        ({"fee_ratio": pd.Series({"AAA": 1.5, "BBB": 0})}, "fee_ratio of 'AAA' must be a fraction"),
        ({"fee_table": {5: 0.1}}, "fee_table must begin at 0"),
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
        ({"cash_rate": pd.Series([0.1], DAYS[20:21])}, "cash_rate is missing at first"),
        (
            {"dividends": pd.DataFrame({"AAA": [1.0]}, [pd.Timestamp("2024-01-13")])},
            "1 dividends on dates without a session, such as 2024-01-13",
        ),
        ({"flows": pd.Series([5.0, 5.0], ["2023-01-05", "2024-01-08"])}, "1 flows, such as that"),
        ({"borrow_rate": pd.Series({"AAA": 0.1})}, "short sales were cut"),
    ],
)
def test_what_is_hardly_meant_is_told(terms, told):
    with pytest.warns(UserWarning, match=told):
        run(**terms)


def test_orders_wait_for_a_volume_and_a_warning_counts_them():
    volume = PRICES * 0.0 + 1000.0
    volume.iloc[1, 0] = np.nan
    with pytest.warns(UserWarning, match="1 orders met a session whose volume is missing"):
        report = run({"close": PRICES, "volume": volume}, volume_share=0.5)
    assert report.trades.entry_date.tolist() == [DAYS[2], DAYS[1]]
    assert report.trades.cut.tolist() == ["", ""]


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


def test_money_weighted_return_is_the_curves_own_without_flows():
    with warnings.catch_warnings(action="error"):
        report = run(cash_rate=0.02)
    curve = report.creturn
    years = (curve.index[-1] - curve.index[0]).days / 365.25
    grown = curve.iloc[-1] ** (1 / years) - 1
    assert report.account.attrs["money_weighted_return"] == pytest.approx(grown)
