"""When a portfolio is rebalanced."""

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.market import Market

YEAR = pd.bdate_range("2023-01-02", "2024-01-31")


def signal_dates(index: pd.DatetimeIndex = YEAR, rows: pd.DatetimeIndex | None = None, **options):
    """Signal dates of all rebalances: the weight changes its sign with every row."""
    rows = index if rows is None else rows
    sign = np.where(np.arange(len(rows)) % 2 == 0, 0.5, -0.5)
    weights = pd.DataFrame({"AAA": sign}, index=rows)
    prices = pd.DataFrame({"AAA": 1.0}, index=index)
    trades = corvex.simulate(weights, prices, **options).trades
    return pd.DatetimeIndex(trades.entry_sig_date)


@pytest.mark.parametrize("rule", ["ME", "BM", "W", "W-WED", "Q-JAN", "WOM-3FRI"])
def test_periods_end_with_their_last_session(rule):
    ends = {"BM": "ME", "Q-JAN": "QE-JAN"}.get(rule, rule)
    expected = pd.Series(YEAR, YEAR).resample(ends).last()
    if rule == "WOM-3FRI":  # no period of ours: its dates are listed
        expected = pd.date_range(YEAR[0], YEAR[-1], freq=rule)
    # Rows whose weight changes its sign with every period: each rebalance is a trade.
    period = np.searchsorted(pd.DatetimeIndex(expected), YEAR)
    weights = pd.DataFrame({"AAA": (-0.5) ** (period % 2 + 1)}, YEAR)
    trades = corvex.simulate(weights, pd.DataFrame({"AAA": 1.0}, YEAR), resample=rule).trades
    assert trades.entry_sig_date.tolist()[:4] == list(expected)[:4]


def test_none_trades_on_changes_only():
    days = YEAR[:6]
    weights = pd.DataFrame({"AAA": [0.0, 0.5, 0.5, 2.0, 1.0, np.nan]}, index=days)

    report = corvex.simulate(weights, pd.DataFrame({"AAA": 1.0}, index=days))

    # 2.0 is scaled to 1.0, so the row after it is no change; a missing weight is a way out.
    assert report.creturn.index[0] == days[1]
    assert report.position["AAA"].tolist() == [0.0, 0.5, 0.5, 1.0, 1.0]
    assert report.actions.to_dict() == {"AAA": "exit"}


def test_a_row_between_sessions_fills_on_the_next_one():
    weekend = pd.DatetimeIndex(["2023-01-07 12:00", "2023-01-08"])  # a Saturday and a Sunday

    assert signal_dates(YEAR[:20], weekend).tolist() == [weekend[1]]
    assert signal_dates(YEAR[:30], weekend[:1], resample="ME").tolist() == [YEAR[21]]


def test_a_month_end_on_a_weekend_counts_for_its_month():
    rows = pd.DatetimeIndex(["2023-03-31", "2023-04-30", "2023-05-31"])  # 04-30 is a Sunday

    assert signal_dates(rows=rows, resample="ME").tolist() == rows.tolist()
    assert signal_dates(rows=rows).tolist() == rows.tolist()


def test_listed_dates():
    listed = ["2023-02-11", pd.Timestamp("2023-01-10"), "2023-02-11"]  # a Saturday; twice
    dates = signal_dates(rows=YEAR[[0, 10, 20]], resample=listed)

    assert dates.tolist() == [pd.Timestamp("2023-01-10")]
    report = corvex.simulate(
        pd.DataFrame({"AAA": [0.5, 1.0]}, index=YEAR[[0, 29]]),
        pd.DataFrame({"AAA": 1.0}, index=YEAR),
        resample=pd.DatetimeIndex(["2023-02-11"]),
    )
    assert report.weights.name == pd.Timestamp("2023-02-11")
    assert report.weights.to_dict() == {"AAA": 1.0}
    assert report.trades.entry_date.tolist() == [pd.Timestamp("2023-02-13")]


def test_offsets_move_periods_and_dates():
    weights = pd.DataFrame({"AAA": [1.0]}, index=YEAR[[0]])
    prices = pd.DataFrame({"AAA": 1.0}, index=YEAR)

    weekly = corvex.simulate(weights, prices, resample="W", resample_offset="2D")
    listed = corvex.simulate(weights, prices, resample=["2023-01-10"], resample_offset="-1D")

    assert weekly.weights.name.day_name() == "Tuesday"
    assert listed.weights.name == pd.Timestamp("2023-01-09")


def test_intraday_bars():
    morning = pd.date_range("2024-03-07 09:30", periods=7, freq="h", tz="America/New_York")
    bars = morning.append(morning + pd.Timedelta(days=1))
    prices = pd.DataFrame({"AAA": np.arange(100.0, 114.0)}, index=bars)
    weights = pd.DataFrame({"AAA": [1.0]}, index=bars[2:3].tz_convert("UTC"))

    report = corvex.simulate(weights, prices)
    daily = corvex.simulate(weights, prices, resample="D")
    monthly = corvex.simulate(weights, prices, resample="ME")

    assert report.trades.entry_date.tolist() == [bars[3]]
    assert report.weights.name == bars[2]
    assert str(report.weights.name.tz) == "America/New_York"
    assert daily.trades.entry_date.tolist() == [bars[7]]
    assert report.next_trading_date == pd.Timestamp("2024-03-11 09:30", tz="America/New_York")
    assert monthly.planned_rebalance_date == pd.Timestamp("2024-03-28 15:30", tz=bars.tz)


@pytest.mark.parametrize("price_zone", [None, "Asia/Taipei", "America/New_York"])
@pytest.mark.parametrize("weight_zone", [None, "UTC", "Asia/Taipei"])
def test_dates_mean_their_day_in_any_zone(price_zone, weight_zone):
    days = YEAR[:30]
    prices = pd.DataFrame({"AAA": 1.0}, index=days.tz_localize(price_zone))
    weights = pd.DataFrame({"AAA": [0.5, -0.5]}, index=days[[3, 5]].tz_localize(weight_zone))

    for unit in ("s", "ms", "us", "ns"):
        report = corvex.simulate(weights.set_axis(weights.index.as_unit(unit)), prices)

        assert report.trades.entry_sig_date.tolist() == prices.index[[3, 5]].tolist()
        assert report.trades.entry_date.tolist() == prices.index[[4, 6]].tolist()


def test_the_same_moments_written_in_two_zones():
    days = YEAR[:9].tz_localize("Asia/Taipei")
    prices = pd.DataFrame({"AAA": 1.0}, index=days.tz_convert("UTC"))

    report = corvex.simulate(pd.DataFrame({"AAA": [1.0]}, index=days[3:4]), prices)

    assert report.trades.entry_date.tolist() == [days[4]]


@pytest.mark.parametrize(
    ("options", "message"),
    [
        ({"resample": "nonsense"}, "unknown rebalance frequency 'nonsense'"),
        ({"resample": []}, "empty list of dates"),
        ({"resample": [1, 2]}, "resample must hold dates"),
        ({"resample_offset": "1D"}, "resample, which is None"),
        ({"resample": "ME", "resample_offset": "soon"}, "length of time such as '1D'"),
    ],
)
def test_schedules_that_cannot_be(options, message):
    with pytest.raises(ValueError, match=message):
        signal_dates(YEAR[:9], **options)


def test_weekdays_are_sessions_where_the_calendar_ends(caplog):
    class Shanghai(Market):
        calendar_name = "XSHG"  # its holidays are known for a year or two ahead

        def get_name(self):
            return "shanghai"

    friday = pd.Timestamp("2041-01-04")
    for index, following in (
        (pd.bdate_range(end=friday, periods=9), "2041-01-07"),
        (pd.date_range(end=friday, periods=9), "2041-01-05"),
    ):
        prices = pd.DataFrame({"AAA": 1.0}, index)
        report = corvex.simulate(prices, prices, market=Shanghai())
        assert report.next_trading_date == pd.Timestamp(following)
    assert "weekdays are taken for sessions" in caplog.text
