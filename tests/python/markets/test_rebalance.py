"""The timing record of an execution state."""

import datetime as dt
import json
from types import SimpleNamespace

import numpy as np
import pandas as pd
import pytest

from corvex.markets import CryptoMarket, TWMarket, USMarket
from corvex.rebalance import execution_timing

T = pd.Timestamp
TAIPEI, US, COINS = "Asia/Taipei", USMarket(), CryptoMarket()
JANUARY = T("2024-01-31")
MOMENT = T("2024-02-01 00:00", tz="UTC")


def _state(current, following, *, market=None, resample=None, planned=None):
    return SimpleNamespace(
        weights=pd.Series({"2330": 1.0}, name=current),
        next_weights=pd.Series({"2330": 0.5}, name=following),
        next_trading_date=T("2024-02-15"),
        market=market or TWMarket(),
        resample=resample,
        planned_rebalance_date=planned,
    )


HELD = (JANUARY, JANUARY)
LISTED = ["2024-01-31", "2024-02-10", "2024-04-10"]


@pytest.mark.parametrize(
    ("dates", "more", "start", "fill"),
    [
        # Signalled before the new-year break: filled after it.
        ((JANUARY, T("2024-02-05")), {}, "2024-02-05 05:30", "2024-02-15 05:30"),
        # A month's end on a Sunday counts as the Friday before.
        ((JANUARY, T("2024-03-31")), {}, "2024-03-29 05:30", "2024-04-01 05:30"),
        (
            ("weight", T("2024-02-29").tz_localize(TAIPEI)),
            {},
            "2024-02-29 05:30",
            "2024-03-01 05:30",
        ),
        # A daily stamp at midnight names its date, whatever its zone.
        (("weight", T("2024-02-29", tz="UTC")), {}, "2024-02-29 05:30", "2024-03-01 05:30"),
        (
            (T("2024-01-31", tz="UTC"),) * 2,
            {"market": US, "resample": [T("2024-02-29", tz=TAIPEI)]},
            "2024-02-29 21:00",
            "2024-03-01 21:00",
        ),
        # A holiday in New York, and the half day after it.
        (
            (JANUARY, dt.datetime(2023, 11, 23)),
            {"market": US},
            "2023-11-22 21:00",
            "2023-11-24 18:00",
        ),
        ((JANUARY, T("2023-12-31")), {"market": COINS}, "2024-01-01 00:00", "2024-01-01 00:00"),
        # The next weights are held already: what is planned, then the schedule.
        (HELD, {"planned": dt.datetime(2024, 3, 29)}, "2024-03-29 05:30", "2024-04-01 05:30"),
        (HELD, {"resample": "M"}, "2024-02-29 05:30", "2024-03-01 05:30"),
        (HELD, {"resample": "MS"}, "2024-02-01 05:30", "2024-02-02 05:30"),
        # 28 February was a holiday: the month had ended the day before.
        ((T("2025-02-27"),) * 2, {"resample": "ME"}, "2025-03-31 05:30", "2025-04-01 05:30"),
        ((T("2024-02-05"),) * 2, {"resample": "W-FRI"}, "2024-02-16 05:30", "2024-02-19 05:30"),
        (HELD, {"resample": LISTED}, "2024-02-05 05:30", "2024-02-15 05:30"),
    ],
)
def test_known_timing_switches_exactly_at_the_close_of_the_signal(dates, more, start, fill):
    state, start, fill = _state(*dates, **more), T(start, tz="UTC"), T(fill, tz="UTC")
    for seconds, due in ((-1, False), (0, True)):
        record = execution_timing(state, now=start + pd.Timedelta(seconds=seconds))

        assert record["status"] == "known"
        assert dt.datetime.fromisoformat(record["update_start_at"]) == start
        assert record["rebalance_due"] is due
        local = T(record["now_at"]).to_pydatetime().astimezone().replace(tzinfo=None)
        assert execution_timing(state, now=T(local)) == record
        assert record["next_session_date"] == str(fill.date())
        assert record["deadline_at"].endswith(f"T{fill:%H:%M}:00+00:00")
    later = T(record["deadline_at"]) + pd.Timedelta(hours=1)
    record = execution_timing(state, now=later.tz_convert("Asia/Tokyo"))
    assert record["rebalance_due"]
    assert record["overdue"]
    json.dumps(record, allow_nan=False)
    moments = [value for key, value in record.items() if key.endswith("_at") and value]
    assert all(value.endswith("+00:00") for value in moments)


def _intraday_market():
    index = pd.date_range("2024-01-31 09:00", periods=20, freq="5min")
    return TWMarket().bound_to(pd.DataFrame({"2330": np.ones(20)}, index))


class _Unrecorded(USMarket):
    calendar_name = "XNOWHERE"
    timezone = None


@pytest.mark.parametrize(
    ("state", "status"),
    [
        (_state("weight", "next_weight"), "no_signal"),
        (_state(JANUARY, "next_weight", resample="ME"), "no_signal"),
        (_state(JANUARY, JANUARY), "no_schedule"),
        (_state(JANUARY, JANUARY, resample="2ME"), "no_schedule"),
        (_state(JANUARY, JANUARY, resample=["2024-01-31"]), "no_schedule"),
        (_state(T("2024-01-31"), T("2024-02-01"), market=_intraday_market()), "intraday"),
        (_state(T("2024-01-31"), T("2024-02-01"), market=_Unrecorded()), "no_calendar"),
        (_state(T("2024-01-31"), T("2024-02-01"), market=object()), "no_calendar"),
    ],
)
def test_what_the_calendar_cannot_place_says_why(state, status):
    record = execution_timing(state, now=MOMENT)

    assert record["status"] == status
    assert record["update_start_at"] is None
    assert record["rebalance_due"] is False
    json.dumps(record, allow_nan=False)


def test_a_given_calendar_replaces_the_markets_own():
    state = _state(T("2023-10-31"), T("2023-11-23"))

    own = execution_timing(state, now=MOMENT)
    given = execution_timing(state, now=MOMENT, calendar="XNYS")

    assert own["next_signal_date"] == "2023-11-23"
    assert given["next_signal_date"] == "2023-11-22"
    with pytest.raises(TypeError, match="calendar must be"):
        execution_timing(state, calendar=3.5)
    with pytest.raises(ValueError, match="no trading calendar 'NYSE2'"):
        execution_timing(state, calendar="NYSE2")
