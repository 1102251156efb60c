"""When a portfolio is rebalanced."""

import datetime as dt
import warnings

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


@pytest.mark.parametrize(
    ("given", "same"),
    [
        (pd.offsets.MonthEnd(), "ME"),
        (pd.offsets.Week(weekday=4), "W-FRI"),
        (pd.offsets.Week(), "7D"),
        (dt.timedelta(days=3), "3D"),
        # The begins of periods are dates: a Saturday's signal is that of the Friday before.
        ("MS", pd.date_range(YEAR[0], "2024-02-01", freq="MS")),
        (
            pd.offsets.BQuarterBegin(startingMonth=1),
            pd.date_range(YEAR[0], "2024-04-01", freq="BQS"),
        ),
        ("SMS", pd.date_range(YEAR[0], "2024-02-01", freq="SMS")),
    ],
)
def test_frequencies_mean_what_they_do_in_pandas(given, same):
    found = signal_dates(resample=given)

    assert len(found) > 2
    assert found.tolist() == signal_dates(resample=same).tolist()


@pytest.mark.filterwarnings("ignore:the absolute weights")
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


ZONES = [None, "UTC", "America/New_York", "Asia/Taipei"]


def outcome(report, zone=None) -> tuple:
    """What a run did, its dates as naive ones or in a zone."""

    def bare(index: pd.DatetimeIndex) -> list:
        index = pd.DatetimeIndex(index)
        return (index.tz_convert(zone) if zone else index).tz_localize(None).tolist()

    trades = report.trades
    names = ("entry_sig_date", "entry_date", "exit_sig_date", "exit_date")
    asked = [report.next_weights.name, report.planned_rebalance_date, report.next_trading_date]
    return (
        [bare(trades[name]) for name in names],
        bare(report.creturn.index),
        report.position.to_numpy().tolist(),
        report.weights.to_dict(),
        report.next_weights.to_dict(),
        report.actions.to_dict(),
        bare(pd.DatetimeIndex([date for date in asked if date is not None])),
    )


@pytest.mark.parametrize("price_zone", [*ZONES, "16h", "UTC from Taipei"])
@pytest.mark.parametrize("listed", [None, [0, 3], [0, 3, 6], [1, 3, 8], "W"])
def test_dates_mean_their_day_in_any_zone(price_zone, listed):
    days = YEAR[:9]  # a Monday to the Thursday of the next week
    rows = pd.DatetimeIndex([days[0], days[3], days[4] + pd.Timedelta(days=1), days[8]])
    weights = pd.DataFrame({"AAA": [1.0, 0.0, 0.5, 1.0], "BBB": [0.0, 1.0, 0.5, 0.0]}, rows)
    prices = pd.DataFrame({"AAA": np.arange(100.0, 109.0), "BBB": 50.0}, days)
    market = "us_stock"
    listed_dates = days[listed] if isinstance(listed, list) else None
    rule = listed if listed_dates is None else listed_dates
    expected = corvex.simulate(weights, prices, resample=rule, market=market)

    stamps = days.tz_localize(price_zone if price_zone in ZONES else None)
    if price_zone == "16h":  # moments on those days, as the closes of New York
        stamps = (days + pd.Timedelta("16h")).tz_localize("America/New_York")
    elif price_zone == "UTC from Taipei":
        stamps, market = days.tz_localize("Asia/Taipei").tz_convert("UTC"), "tw_stock"
    for zone in ZONES:
        rows_at = weights.tz_localize(zone)
        for unit in ("s", "ns"):
            of_rule = rule if listed_dates is None else listed_dates.tz_localize(zone).as_unit(unit)
            report = corvex.simulate(
                rows_at.set_axis(rows_at.index.as_unit(unit)), prices.set_axis(stamps),
                resample=of_rule, market=market, fee_ratio=0, tax_ratio=0,
            )  # fmt: skip
            if price_zone in ZONES:
                assert outcome(report) == outcome(expected)
            assert report.position.to_numpy().tolist() == expected.position.to_numpy().tolist()
            assert report.actions.to_dict() == expected.actions.to_dict()


HALF_HOURS = pd.DatetimeIndex(
    [day + pd.Timedelta(minutes=30 * bar) for day in YEAR[:6] for bar in range(19, 32)]
).tz_localize("America/New_York")  # 09:30 to 15:30
HOURS = pd.date_range("2024-01-01", periods=5 * 24, freq="h", tz="UTC")


@pytest.mark.parametrize("rule", [None, "D", "W", "ME", [0, 2], [0, 4]])
@pytest.mark.parametrize(("bars", "market"), [(HALF_HOURS, "us_stock"), (HOURS, "crypto")])
def test_a_whole_day_is_known_after_its_last_bar_in_any_zone(bars, market, rule):
    own = pd.Series(bars.tz_localize(None), bars)
    days = pd.DatetimeIndex(own.dt.normalize().unique())
    last = [own.index[own.dt.normalize() == day][-1] for day in days]
    sign = (-1.0) ** np.arange(len(days))
    prices = pd.DataFrame({"A": np.exp(0.01 * np.sin(np.arange(len(bars))))}, bars)
    # The same signals, dated by the moment at which they are known.
    options = {"market": market, "fee_ratio": 0}
    moments = pd.DataFrame({"A": sign}, last).reindex(bars).ffill().dropna()
    listed = isinstance(rule, list)
    expected = corvex.simulate(
        moments, prices, resample=[last[at] for at in rule] if listed else rule, **options
    )
    assert rule in ("W", "ME") or expected.trades.entry_date[0] == bars[bars > last[0]][0]

    # A day of New York's clocks ends after that of a market whose days are those of UTC.
    for zone in [None, "UTC", "Asia/Taipei"] if market == "crypto" else ZONES:
        stamps = bars.tz_convert(zone) if zone else bars.tz_localize(None)
        for dated in [None, "UTC" if market == "crypto" else "Asia/Taipei"]:
            dates = days.tz_localize(dated)
            with warnings.catch_warnings():
                warnings.filterwarnings("ignore", "weights are dated by day")
                report = corvex.simulate(
                    pd.DataFrame({"A": sign}, dates), prices.set_axis(stamps),
                    resample=dates[rule] if listed else rule, **options,
                )  # fmt: skip
            assert outcome(report, zone and bars.tz) == outcome(expected)


@pytest.mark.parametrize(
    ("options", "message"),
    [
        ({"resample": "nonsense"}, "unknown rebalance frequency 'nonsense'"),
        ({"resample": []}, "empty list of dates"),
        ({"resample": [1, 2]}, "resample must hold dates"),
        ({"resample": pd.DateOffset(months=1)}, "no name among pandas' frequencies"),
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
