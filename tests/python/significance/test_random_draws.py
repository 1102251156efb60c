"""Random portfolios and random entries: what is kept, and whom they tell apart."""

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex import _engine
from corvex.significance.account_draws import drawn_from

DAYS = pd.bdate_range("2015-01-01", periods=600)
MOVES = np.random.default_rng(3).normal(0, 0.02, (600, 12))
PRICES = pd.DataFrame(
    100 * np.exp(MOVES.cumsum(axis=0)), DAYS, [f"{1000 + i} Asset {i}" for i in range(12)]
)
RULES = {"resample": "ME", "fee_ratio": 0.001, "market": "us_stock"}


def best_of(moves: pd.DataFrame) -> pd.DataFrame:
    return moves.rank(axis=1, ascending=False) <= 3


def test_only_the_assets_are_drawn():
    draw = np.random.default_rng(0)
    weights = draw.choice([0.0, 0.0, 0.0, 0.1, -0.2, 0.3], (40, 9))
    weights[1::2] = weights[::2]  # held for two rebalances at least
    priced = draw.random((40, 9)) < 0.9
    priced[weights != 0] = True
    drawn = _engine.random_targets(weights, priced, 0, 30, 5)
    assert np.all(priced[np.newaxis] | (drawn == 0))
    for row in range(40):
        assert np.array_equal(np.sort(drawn[:, row]), np.sort(np.tile(weights[row], (30, 1))))
    kept = (drawn[:, 1::2] == drawn[:, ::2]) | ~priced[1::2] | ~priced[::2]
    assert kept.mean() > 0.97
    assert _engine.random_targets(weights, priced, 10, 5, 5).tobytes() == drawn[10:15].tobytes()
    first = drawn[:, 0] != 0  # each asset is as likely as another
    share = first.mean(axis=0)[priced[0]]
    assert np.all(np.abs(share - share.mean()) < 0.35)
    none = _engine.random_targets(weights, np.zeros_like(priced), 0, 2, 5)
    assert not none.any()


@pytest.mark.parametrize("zone", [None, "UTC", "Asia/Taipei"])
def test_the_choice_of_assets_is_judged(zone):
    prices = PRICES if zone is None else PRICES.tz_localize(zone)
    foresight = best_of(prices.shift(-21) / prices)
    known = corvex.random_portfolios(foresight, prices, 150, **RULES)
    assert known.rank > 0.99
    assert known.p_value < 0.02
    blind = corvex.random_portfolios(best_of(prices.shift(250) / prices), prices, 150, **RULES)
    assert 0.02 < blind.rank < 0.98
    own = corvex.simulate(foresight, prices, **RULES).get_stats()
    assert known.own == pytest.approx(own["daily_sharpe"], rel=1e-9)
    assert "random portfolios" in repr(known)
    again = corvex.random_portfolios(foresight, prices, 150, **RULES)
    pd.testing.assert_frame_equal(known.draws, again.draws)


def test_weights_of_a_few_assets_draw_from_all_prices():
    some = pd.DataFrame(0.5, DAYS[::60], ["1003", "1007 Asset 7"])
    found = corvex.random_portfolios(some, PRICES, 60, figure="cagr", **RULES)
    assert found.draws["cagr"].nunique() > 30
    for wrong, text in (({"draws": 0}, "at least 1"), ({"figure": "luck"}, "luck")):
        with pytest.raises(ValueError, match=text):
            corvex.random_portfolios(some, PRICES, **RULES, **wrong)
    with pytest.raises(TypeError, match="unknown argument 'fee'"):
        corvex.random_portfolios(some, PRICES, fee=0.1)


def test_the_timing_of_trades_is_judged():
    ahead = (PRICES.shift(-6) / PRICES.shift(-1) > 1.04).astype(float)
    timed = corvex.simulate(ahead.iloc[:-10] / 12, PRICES, market="us_stock")
    found = corvex.random_entries(timed, 300)
    assert found.rank > 0.99
    closed = timed.trades.dropna(subset=["exit_date"])
    by_hand = closed["trade_price@exit_date"] / closed["trade_price@entry_date"] - 1
    size = closed["position"].abs()
    assert found.own == pytest.approx((by_hand * size).sum() / size.sum())
    random = PRICES * 0 + np.random.default_rng(1).choice([0.0, 0.08], PRICES.shape)
    assert 0.01 < corvex.random_entries(corvex.simulate(random, PRICES, **RULES), 300).rank < 0.99
    held = corvex.from_equity(PRICES.iloc[:, 0])
    assert np.isnan(corvex.random_entries(held, 10).own)


def intraday(prices):
    days = pd.bdate_range("2015-01-01", periods=100, tz="America/New_York")
    bars = [day + pd.Timedelta(hours=10 + hour) for day in days for hour in range(6)]
    return prices.set_axis(pd.DatetimeIndex(bars))


HOURS = PRICES[:500].set_axis(pd.date_range("2015-01-01", periods=500, freq="h", tz="Asia/Taipei"))
WORLDS = {
    "daily": (PRICES, {}),
    "a zone and a span": (
        PRICES.tz_localize("Asia/Taipei"), {"start": "2015-06-01", "end": "2017-01-31"},
    ),
    "intraday": (intraday(PRICES), {"resample": "W", "trail_stop": 0.05}),
    "around the clock": (HOURS, {"market": "crypto", "resample": "D", "end": HOURS.index[481]}),
    "weekly": (PRICES[::5], {"resample": None, "position_limit": 0.2, "slippage_ratio": 0.001}),
    "at the open, touched": (
        {"close": PRICES, "open": PRICES * 0.999, "high": PRICES * 1.01, "low": PRICES * 0.99},
        {"trade_at": "open", "stop_loss": 0.05, "touched_exit": True, "stop_cooldown": 1},
    ),
    "a table of fills": (PRICES, {"trade_at": PRICES * 1.001, "resample": ["2016-01-04"]}),
}  # fmt: skip


NAMES = [label.split()[0] for label in PRICES]
ACCOUNTS = {
    "no account": {},
    "money": {
        "account": corvex.Account(
            capital=5e4, cash_rate=0.03, min_fee=1, lot_size=pd.Series(1.0, NAMES[:9]),
            price_limit={"2000-01-01": 0.5},
        )
    },
    "currencies": {
        "account": corvex.Account(
            currency=dict(zip(NAMES, ["USD", "EUR", "TWD", "JPY"] * 3, strict=True)),
            fx={"USDTWD": 30.0, "EURUSD": 1.1, "JPYTWD": 0.2}, base="TWD", benchmark_currency="TWD",
            cash_rate=0.02,
        )
    },
}  # fmt: skip


@pytest.mark.parametrize("world", WORLDS)
@pytest.mark.parametrize("account", ACCOUNTS)
def test_a_report_is_set_among_random_portfolios_of_its_own_run(world, account):
    prices, more = WORLDS[world]
    close = prices["close"] if isinstance(prices, dict) else prices
    rules = {**RULES, **more, **ACCOUNTS[account]}
    weights = best_of(close.pct_change(20)).iloc[20:].astype(float) / 4
    weights.columns = NAMES
    weights[NAMES[9:] if account == "money" else []] = 0.0  # what has no lot cannot be held
    expected = corvex.random_portfolios(weights, prices, 60, seed=4, **rules)
    report = corvex.simulate(weights, prices, **rules)
    (own,) = corvex.confidence(report, draws=10, seed=4, random_portfolios=60).random
    np.testing.assert_array_equal(own.draws["daily_sharpe"], expected.draws["daily_sharpe"])
    assert own.own == expected.own == pytest.approx(report.get_stats()["daily_sharpe"], rel=1e-9)
    assert own.own == report.get_stats()["daily_sharpe"] or "account" in rules
    without = {name: value for name, value in rules.items() if name != "account"}
    plain = corvex.random_portfolios(weights, prices, 60, seed=4, **without)
    assert (own.own == plain.own) == ("account" not in rules)


def test_what_an_account_has_no_terms_of_is_not_drawn():
    terms = {"lot_size": pd.Series({"1003": 1.0, "1004": np.nan, "1005": 1.0, "1006": 1.0})}
    money = {"1003": "USD", "1004": "TWD", "1005": "EUR", "1006": None}
    account = corvex.Account(
        capital=1e6,
        **terms,
        currency=money,
        fx={"USDTWD": 30},
        base="TWD",
        benchmark_currency="USD",
    )
    labels = PRICES.columns
    assert labels[drawn_from(account, labels)].tolist() == ["1003 Asset 3"]
    assert drawn_from(corvex.Account(**terms), labels).sum() == 3
    assert not drawn_from(corvex.Account(currency={}, base="TWD"), labels).any()
    some = pd.DataFrame(0.5, DAYS[::60], ["1003"])
    alone = corvex.random_portfolios(some, PRICES, 20, account=account, **RULES)
    assert alone.draws["daily_sharpe"].nunique() == 1
    report = corvex.simulate(some, PRICES, account=account, **RULES)
    assert corvex.confidence(report, draws=10).random == ()


def test_a_rank_is_told_where_there_is_one(tmp_path, monkeypatch):
    report = corvex.simulate(best_of(PRICES.pct_change(20)), PRICES, **RULES)
    (own,) = corvex.confidence(report, draws=10).random
    assert len(own.draws) == 200
    assert corvex.confidence(report, draws=10, random_portfolios=0).random == ()
    corvex.save(report, tmp_path / "r.corvex")
    assert corvex.confidence(corvex.load(tmp_path / "r.corvex"), draws=10).random == ()
    everything = corvex.simulate(PRICES.notna(), PRICES, **RULES)
    assert corvex.confidence(everything, draws=10).random == ()
    curve = corvex.from_equity(report.creturn)
    assert corvex.confidence(curve, draws=10).random == ()
    report.random_draws = noted = corvex.random_entries(report, 20)
    assert corvex.confidence(report, draws=10).random == (noted,)
    both = corvex.confidence(report, draws=10, random_portfolios=20).random
    assert [one.test for one in both] == ["entries", "portfolios"]
    with pytest.raises(ValueError, match="at least 0"):
        corvex.confidence(report, random_portfolios=-1)
    report.random_draws = None
    for work, counts in ((10**7, {200}), (150_000, range(50, 200)), (10**4, {0})):
        monkeypatch.setattr("corvex.significance.random_draws._WORK", work)
        among = corvex.confidence(report, draws=10).random
        assert sum(len(one.draws) for one in among) in counts
