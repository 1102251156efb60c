"""Which weights count and whether a rebalance is due: one switch, whatever decides it."""

import datetime
import itertools
import time
from types import SimpleNamespace

import pandas as pd
import pytest

TAIPEI = datetime.timezone(datetime.timedelta(hours=8))
TICK = datetime.timedelta(microseconds=1)
SIGNAL, NEXT, LAST_PRICE = map(pd.Timestamp, ("2024-01-31", "2024-02-29", "2024-03-01"))
SCHEDULES = {"text": "ME", "dates": [SIGNAL, NEXT], "none": None}


@pytest.fixture
def clock(module, monkeypatch):
    """Sets the present of the module; this machine's zone is Taipei's meanwhile."""

    class LikeDatetime(type):
        def __instancecheck__(cls, value):
            return isinstance(value, datetime.datetime)

    class Fixed(datetime.datetime, metaclass=LikeDatetime):
        moment = None

        @classmethod
        def now(cls, tz=None):
            return cls.moment.astimezone(tz) if tz else cls.moment.astimezone().replace(tzinfo=None)

    monkeypatch.setenv("TZ", "Asia/Taipei")
    time.tzset()
    fake = SimpleNamespace(datetime=Fixed, timezone=datetime.timezone)
    monkeypatch.setattr(module, "datetime", fake)
    yield Fixed
    monkeypatch.undo()
    time.tzset()


@pytest.fixture
def build(module):
    class Exchange(module.Market):
        """Closes at 13:30 in Taipei; prices lie up to the first of March."""

        name, freq, aware, price_dates = "us_stock", "1D", True, [SIGNAL, LAST_PRICE]

        def get_name(self):
            return self.name

        def get_freq(self):
            return self.freq

        def market_close_at_timestamp(self, date):
            day = pd.Timestamp(date).tz_localize(None).normalize()
            close = (day + pd.Timedelta(hours=13, minutes=30)).to_pydatetime()
            return close.replace(tzinfo=TAIPEI) if self.aware else close

        def get_price(self, name):
            assert name == "close"
            return pd.DataFrame({"A": 1.0}, index=pd.DatetimeIndex(self.price_dates))

    def build(names=("weight", "next_weight"), next_trading_date="2024-03-04", **settings):
        market = Exchange()
        resample = settings.pop("resample", None)
        actions = settings.pop("actions", None)
        vars(market).update(settings)
        record = module.ReportExecution(
            {"A": 1.0}, {"B": 1.0}, resample, actions, next_trading_date, None, market,
            None, None, None)  # fmt: skip
        record.weights.name, record.next_weights.name = names
        return record

    return build


def close(date):
    return datetime.datetime.combine(date, datetime.time(13, 30), TAIPEI)


def forms(moment):
    """A moment as every kind of time that a caller may hold; naive ones are local."""
    local = moment.astimezone(TAIPEI)
    yield from (moment.astimezone(datetime.UTC), local, local.replace(tzinfo=None))
    yield from (pd.Timestamp(moment), pd.Timestamp(local.replace(tzinfo=None)))


def check_switch(record, clock, switch):
    """Walk the clock over the switch (None: there is none) and compare both answers."""
    around = switch or close(LAST_PRICE)
    far = datetime.timedelta(days=400)
    for step in (-far, -8 * 3600 * 10**6 * TICK, -TICK, 0 * TICK, TICK, far):
        clock.moment = around + step
        expected = switch is not None and clock.moment >= switch
        answers = [record.uses_next_weights(now) for now in (None, *forms(clock.moment))]
        answers.append(record.is_rebalance_due())
        assert answers == [expected] * 7, (step, answers)


@pytest.mark.parametrize("aware", [True, False], ids=["zoned close", "naive close"])
@pytest.mark.parametrize("freq", ["D", "5min"])
@pytest.mark.parametrize("schedule", SCHEDULES)
def test_labels_switch_the_target_when_the_window_opens(build, clock, schedule, freq, aware):
    texts = schedule == "text"
    unsignalled = [("weight", "next_weight"), (SIGNAL, None), (SIGNAL, pd.NaT)]
    expected = dict.fromkeys(unsignalled, close(datetime.date(2024, 3, 4))) | {
        (SIGNAL, NEXT): close(NEXT if texts else LAST_PRICE),
        ("weight", NEXT.to_pydatetime()): close(NEXT if texts else LAST_PRICE),
        (SIGNAL, SIGNAL): close(SIGNAL) if texts else None,
        (NEXT, LAST_PRICE.tz_localize("UTC")): close(LAST_PRICE),
        (NEXT, LAST_PRICE + pd.Timedelta(days=5)): close(datetime.date(2024, 3, 6)),
    }
    settings = {"resample": SCHEDULES[schedule], "freq": freq, "aware": aware}
    for names, switch in expected.items():
        check_switch(build(names, **settings), clock, switch)
    check_switch(build(next_trading_date=pd.NaT, **settings), clock, None)
    check_switch(
        build((SIGNAL, NEXT), **settings, price_dates=[]), clock, close(NEXT)
    )  # no prices to wait for


@pytest.mark.parametrize("freq", ["D", "1D"])
def test_the_calendar_decides_where_it_can(build, clock, monkeypatch, freq):
    start = close(SIGNAL)
    timing = {"status": "known", "update_start_at": start.astimezone(datetime.UTC).isoformat()}

    def execution_timing(execution, now=None, calendar=None):
        present = clock.moment if now is None else now
        return timing | {"rebalance_due": present.astimezone(datetime.UTC) >= start}

    monkeypatch.setattr("corvex.rebalance.execution_timing", execution_timing)
    record = build((SIGNAL, NEXT), name="tw_stock", freq=freq, resample="ME")
    assert record.uses_trading_calendar() is True
    check_switch(record, clock, start)
    timing["status"] = "no_calendar"
    check_switch(record, clock, close(NEXT))


def test_the_calendar_is_asked_for_dated_daily_records_of_its_market_alone(build, monkeypatch):
    monkeypatch.setattr("corvex.rebalance.execution_timing", None)
    cases = itertools.product(("tw_stock", "us_stock"), ("D", "60min"), ("next_weight", NEXT))
    for name, freq, next_name in cases:
        record = build((SIGNAL, next_name), name=name, freq=freq)
        asked = (name, freq, next_name) == ("tw_stock", "D", NEXT)
        assert record.uses_trading_calendar() is asked
        if not asked:
            assert record.uses_next_weights() is record.is_rebalance_due() is True


def test_a_pending_stop_is_told_by_its_exact_label(build):
    for action, fired in [("hold", False), ("enter", False), ("slx", False), ("exit_sl", False)]:
        assert build(actions={"A": "hold", "B": action}).is_stop_triggered() is fired
    for action in ("sl_", "tp_", "sl", "tp"):
        assert build(actions={"A": "hold", "B": action}).is_stop_triggered() is True
    assert build().is_stop_triggered() is False
