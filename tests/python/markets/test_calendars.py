"""Sessions, closes and bars of the markets."""

import warnings

import exchange_calendars
import pandas as pd
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from corvex.markets import CryptoMarket, TWMarket, USMarket, exchanges, session_store
from corvex.markets.calendars import CalendarRangeError
from corvex.markets.exchanges import ExchangeCalendar, as_calendar

T = pd.Timestamp
NEW_YORK = "America/New_York"


@pytest.mark.parametrize(
    ("market", "date", "close"),
    [
        (USMarket(), "2023-11-24", "2023-11-24 18:00"),  # half day
        (USMarket(), "2023-11-23", "2023-11-22 21:00"),  # holiday
        (USMarket(), "2022-01-02", "2021-12-31 21:00"),  # across the year's end
        (USMarket(), "2024-07-05", "2024-07-05 20:00"),  # summer time
        (USMarket(), T("2024-01-03 02:00", tz="Asia/Taipei"), "2024-01-02 21:00"),
        (USMarket(), T("2024-01-03 02:00"), "2024-01-03 21:00"),
        (USMarket(), T("2024-01-03 04:59", tz="UTC"), "2024-01-02 21:00"),
        (TWMarket(), "2024-02-14", "2024-02-05 05:30"),  # new-year break
        (TWMarket(), T("2024-02-14 16:30", tz="UTC"), "2024-02-15 05:30"),
        (TWMarket(), "2024-10-31", "2024-10-30 05:30"),  # typhoon
        (CryptoMarket(), "2023-12-31", "2024-01-01 00:00"),
        (CryptoMarket(), T("2024-01-01 20:00", tz=NEW_YORK), "2024-01-03 00:00"),
    ],
)
def test_close_is_that_of_the_last_session_on_the_local_date(market, date, close):
    found = market.market_close_at_timestamp(date)

    assert found == T(close, tz="UTC")
    assert str(found.tz) == market.timezone


@pytest.mark.parametrize("value", [None, pd.NaT, "soon", float("nan")])
def test_close_of_no_date_is_refused(value):
    with pytest.raises(ValueError, match="date"):
        TWMarket().market_close_at_timestamp(value)


@settings(max_examples=12, deadline=None)
@given(st.lists(st.dates(T("1995-01-05").date(), T("2027-06-30").date()), min_size=1, max_size=3))
def test_a_calendar_widened_in_any_order_answers_as_one_opened_whole(dates):
    exchanges._opened.clear()
    market = USMarket()
    for date in dates:
        day = T(date)
        whole = _whole_calendar()
        later = whole[whole > day][0]
        earlier = whole[whole < day][-1]

        assert market.next_session(day) == later
        assert market.previous_session(day) == earlier
        assert list(market.sessions(earlier, later)) == list(
            whole[(whole >= earlier) & (whole <= later)]
        )
        assert market.market_close_at_timestamp(day).date() == whole[whole <= day][-1].date()


def _whole_calendar(_cache={}):  # noqa: B006 - opened once for all examples
    if not _cache:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            opened = exchange_calendars.get_calendar("XNYS", start="1994-12-01", end="2028-01-31")
        _cache["sessions"] = pd.DatetimeIndex(opened.sessions)
    return _cache["sessions"]


def test_the_answer_of_next_session_has_the_form_of_the_question():
    taipei = TWMarket()

    assert taipei.next_session("2024-02-05") == T("2024-02-15")
    # Taipei's midnights written in UTC stand on the day before.
    assert taipei.next_session(T("2024-02-04 16:00", tz="UTC")) == T("2024-02-14 16:00", tz="UTC")
    assert taipei.previous_session(T("2024-02-15", tz="Asia/Taipei")) == T(
        "2024-02-05", tz="Asia/Taipei"
    )


@pytest.mark.parametrize("zone", [None, "UTC", NEW_YORK, "Asia/Taipei"])
@pytest.mark.parametrize(
    ("market", "close", "following"),
    [
        (USMarket(), "2024-01-05 21:00", "2024-01-08"),
        (TWMarket(), "2024-01-05 05:30", "2024-01-08"),
        (CryptoMarket(), "2024-01-06 00:00", "2024-01-06"),
    ],
)
def test_a_midnight_names_its_date_in_any_zone(market, close, following, zone):
    days = pd.bdate_range("2024-01-01", "2024-01-05").tz_localize(zone)
    bound = market.bound_to(pd.DataFrame({"A": 1.0}, days))

    for asked in (market, bound):
        assert asked.market_close_at_timestamp(days[-1]) == T(close, tz="UTC")
        assert asked.next_session(days[-1]) == asked.next_bar(days) == T(following, tz=zone)
    # To intraday bars midnight is a moment as any other.
    hours = pd.date_range("2024-01-05", periods=30, freq="h", tz="Asia/Taipei")
    bars = market.bound_to(pd.DataFrame({"A": 1.0}, hours))
    assert bars.session_date(hours[24]) == hours[24].tz_convert(market.tz).tz_localize(None).floor(
        "D"
    )


def test_years_that_no_exchange_recorded_are_named():
    shanghai = ExchangeCalendar("XSHG")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        last = exchange_calendars.get_calendar("XSHG").bound_max()

    assert shanghai.last_session(last) <= last
    with pytest.raises(CalendarRangeError, match=f"{last.year}-12-31"):
        shanghai.session_close(T(last.year + 5, 3, 1))
    with pytest.raises(ValueError, match="no trading calendar 'NOPE'"):
        ExchangeCalendar("NOPE").sessions("2024-01-01", "2024-01-31")


def test_a_calendar_is_taken_in_every_accepted_form():
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        opened = exchange_calendars.get_calendar("XTAI", start="2024-01-02", end="2024-12-31")

    for form in (opened, "XTAI", ExchangeCalendar("XTAI")):
        assert as_calendar(form).next_session("2024-02-05") == T("2024-02-15")
    with pytest.raises(CalendarRangeError, match="2024-12-31"):
        as_calendar(opened).session_close("2025-02-05")
    with pytest.raises(TypeError, match="calendar must be"):
        as_calendar(3)


def _bars(*days: str, start: str, end: str = "16:00") -> pd.DatetimeIndex:
    parts = [pd.date_range(f"{day} {start}", f"{day} {end}", freq="30min") for day in days]
    return parts[0].append(parts[1:])


TWO_DAYS = _bars("2024-07-01", "2024-07-02", start="09:30")
ONE_DAY = _bars("2024-07-01", start="09:30", end="15:30")
HALF_DAY = _bars("2024-07-03", start="09:30", end="13:00")
# The clocks went forward after the second.
CLOSES = pd.DatetimeIndex(["2024-03-07 16:00", "2024-03-08 16:00"]).tz_localize(NEW_YORK)
HOURS = pd.date_range("2023-12-31", periods=24, freq="h", tz="UTC")


@pytest.mark.parametrize(
    ("market", "index", "expected"),
    [
        (TWMarket(), pd.DatetimeIndex(["2024-02-02", "2024-02-05"]), T("2024-02-15")),
        (USMarket(), CLOSES, T("2024-03-11 16:00", tz=NEW_YORK)),
        (USMarket(), TWO_DAYS[:-1], T("2024-07-02 16:00")),
        (USMarket(), TWO_DAYS, T("2024-07-03 09:30")),
        # One day alone, stamped by the start of its bars (none at the close) and by their end.
        (USMarket(), ONE_DAY.tz_localize(NEW_YORK), T("2024-07-02 09:30", tz=NEW_YORK)),
        (USMarket(), ONE_DAY[1:], T("2024-07-01 16:00")),
        (USMarket(), TWO_DAYS.append(HALF_DAY), T("2024-07-05 09:30")),
        (CryptoMarket(), HOURS, T("2024-01-01", tz="UTC")),
    ],
)
def test_next_bar(market, index, expected):
    for unit in ("ns", "s"):
        found = market.next_bar(index.as_unit(unit))

        assert found == expected
        assert (found.tzinfo is None) == (index.tz is None)


def test_sessions_are_kept_between_processes_unless_the_package_may_have_been_changed(
    tmp_path, monkeypatch
):
    monkeypatch.setattr("tempfile.tempdir", str(tmp_path))
    span = pd.Timestamp("2020-01-01"), pd.Timestamp("2021-12-31")
    calendar = ExchangeCalendar("XTAI")
    asked = exchanges._ask("XTAI", span, span)
    session_store.save("XTAI", span, asked)
    monkeypatch.setattr(exchanges, "_opened", {})
    monkeypatch.setattr(exchanges, "_ask", lambda *_: pytest.fail("the package was asked"))
    assert not session_store.may_load()  # it is loaded in this process
    monkeypatch.setattr(session_store, "may_load", lambda: True)
    closed = ExchangeCalendar("XTAI", closed_days=("2020-03-03",))
    assert len(closed.sessions("2020-01-01", "2020-12-31")) == 244
    kept = calendar._cover(*span[:1], pd.Timestamp("2020-12-31"))
    for field in ("first", "last", "tz"):
        assert getattr(kept, field) == getattr(asked, field)
    for field in ("sessions", "opens", "closes"):
        assert (getattr(kept, field) == getattr(asked, field)).all()
        assert str(getattr(kept, field).tz) == str(getattr(asked, field).tz)
    (file,) = tmp_path.rglob("sessions-*.bin")
    file.write_bytes(file.read_bytes()[:-24])
    assert session_store.load("XTAI", span) is None
