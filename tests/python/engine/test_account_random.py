"""The engine's account against the slow one, on random inputs with every term and flaw."""

import numpy as np
import pytest
from hypothesis import assume, given
from hypothesis import strategies as st

from corvex import _engine
from corvex.accounts.fees import Fees
from corvex.simulation.account.account_currencies import Currencies
from corvex.simulation.account.account_terms import AccountTerms
from corvex.simulation.options import Options

from .account_reference import SlowAccount
from .test_simulator_random import RANDOM, cases, run_engine

NOTHING = np.empty(0, np.int64), np.empty(0, np.int64), np.empty(0)
NAMES = (
    *("cash", "long", "short", "equity", "interest", "financing", "borrow", "dividends", "fees"),
    *("tax", "slippage", "impact", "flows", "currency", "units"),
)


def terms(sessions: int, **given) -> AccountTerms:
    usual = dict.fromkeys(AccountTerms._fields) | dict.fromkeys(
        ("volume_share", "impact", "maintenance_margin"), 0.0
    )
    usual |= dict.fromkeys(
        ("round_to_nearest", "band_relative", "band_to_edge", "unfilled_lapses"), False
    )
    return AccountTerms(**usual | {
        "capital": 1000.0, "years": np.full((sessions, 1), 1 / 365), "fees": Fees(),
        "dividends": NOTHING, "splits": NOTHING, "flows": [], "impact_window": 5,
        "price_ticks": (),
    } | given)  # fmt: skip


def currencies(rng, sessions, assets):
    """Two foreign currencies beside the account's own."""
    rates = np.exp(np.cumsum(rng.normal(0, 0.02, (sessions, 3)), axis=0)) * [1.0, 0.1, 30.0]
    rates[:, 0] = 1.0
    return {"currencies": Currencies(("TWD", "JPY", "USD"), rates, rng.integers(0, 3, assets))}


def events(rng, shape, share, low, high):
    rows, columns = np.nonzero(rng.random(shape) < share)
    later = rows > 0
    amounts = rng.uniform(low, high, int(later.sum()))
    return rows[later].astype(np.int64), columns[later].astype(np.int64), amounts


@st.composite
def accounts(draw):
    rng = np.random.default_rng(draw(st.integers(0, 2**32 - 1)))
    shape = sessions, assets = draw(st.integers(3, 30)), draw(st.integers(1, 5))
    close = 20 * np.exp(np.cumsum(rng.normal(0, 0.03, shape), axis=0))
    if draw(st.booleans()):
        close[1:][rng.random((sessions - 1, assets)) < 0.1] = np.nan

    def some(value, otherwise=None):
        return value if rng.random() < 0.5 else otherwise

    def values(low, high):
        return some(rng.uniform(low, high, (rng.choice([1, sessions]), rng.choice([1, assets]))))

    def ratios(high):
        found = values(0, high)
        if found is not None:
            found[: rng.integers(len(found))] = np.nan
        return found

    splits = events(rng, shape, some(0.02, 0.0), 0.4, 3.0)
    for row, column, ratio in zip(*splits, strict=True):
        close[row:, column] /= ratio
    volume = rng.uniform(0, 60, shape)
    volume[rng.random(shape) < 0.1] = np.nan
    borrow = rng.uniform(0, 0.5, shape)
    borrow[rng.random(shape) < 0.3] = np.nan
    opens = close * np.exp(rng.normal(0, 0.03, shape))
    account = terms(
        sessions,
        years=rng.integers(0, 5, (sessions, 1)) / 365.0,
        cash_rate=some(rng.uniform(0, 0.2, (sessions, 1))),
        financing_rate=some(np.array([[0.3]])),
        short_rebate=values(0, 0.2),
        borrow_rate=some(borrow),
        fee_ratio=ratios(0.01), tax_ratio=ratios(0.01), slippage_ratio=ratios(0.01),
        fees=Fees(
            some(0.3, 0.0), some(0.01, 0.0), some(0.02, np.inf),
            some(((0.0, 0.01), (50.0, 0.002), (200.0, 0.001)), ()),
        ),
        min_fee=some(rng.uniform(0, 1, (1, assets))),
        fee_per_share=some(rng.uniform(0, 0.05, (1, assets))),
        lot_size=some(rng.choice([0.0, 1.0, 3.0], (1, assets))),
        round_to_nearest=bool(rng.random() < 0.4),
        dividends=events(rng, shape, some(0.05, 0.0), 0.01, 1.0), splits=splits,
        withholding_tax=values(0, 1),
        band=some(rng.uniform(0, 0.1, (1, assets))), band_relative=bool(rng.random() < 0.5),
        band_to_edge=bool(rng.random() < 0.5),
        volume=volume, volume_share=some(0.5, 0.0), unfilled_lapses=bool(rng.random() < 0.3),
        impact=some(0.5, 0.0), price_limit=values(0.02, 0.04), opens=some(opens),
        price_ticks=some(((0.0, 0.25), (20.0, 1.0)), ()),
        maintenance_margin=some(0.6, 0.0),
        flows=some([(sessions // 2, 200.0), (sessions - 1, -100.0)], []),
        **some(currencies(rng, sessions, assets), {}),
    )  # fmt: skip
    signal = np.sort(rng.choice(sessions, draw(st.integers(1, 6))))
    target = rng.normal(0.3, 1, (len(signal), assets))
    if draw(st.booleans()):
        target = np.abs(target)
    target[rng.random(target.shape) < 0.3] = 0.0
    gross = np.abs(target).sum(axis=1, keepdims=True)
    target *= draw(st.sampled_from([0.6, 1.0, 1.5])) / np.where(gross == 0, 1, gross)
    return close, target, signal, account


@RANDOM
@given(accounts())
def test_the_account_agrees_with_the_slow_one(case):
    close, target, signal, account = case
    ratios = 0.001425, 0.003, 0.001
    result = _engine.simulate(
        _engine.PriceSet(close=close), target, signal, options=Options(*ratios),
        record_fills=True, account=account,
    )  # fmt: skip
    slow = SlowAccount(close.tolist(), target.tolist(), signal.tolist(), account, ratios).run()
    assume(min(row["equity"] for row in slow.rows) > 0)
    found = result["account"]["sessions"]
    for name in NAMES:
        np.testing.assert_allclose(
            found[name], [row[name] for row in slow.rows], rtol=1e-9, atol=1e-7, err_msg=name
        )
    np.testing.assert_allclose(result["shares"], slow.shares, rtol=1e-9, atol=1e-8)
    np.testing.assert_allclose(result["equity"] * found["units"], found["equity"], rtol=1e-13)
    assert_identity(result, close, account)


def assert_identity(result, close, account):
    """Equity moves by prices, and by what the columns tell, and by nothing else."""
    found, trips = result["account"]["sessions"], result["account"]["trips"]
    together = found["cash"] + found["long"] + found["short"]
    np.testing.assert_allclose(together, found["equity"], rtol=1e-10)
    moves = found["interest"] - found["financing"] - found["flows"] * -1.0
    profit = found["equity"][-1] - account.capital - moves.sum()
    assert trips["money"].sum() == pytest.approx(profit, abs=1e-8)
    bought = np.zeros(len(close))
    held = dict.fromkeys(range(close.shape[1]), 0.0)
    splits = {(t, j): r for t, j, r in zip(*account.splits, strict=True)}
    fills = result["fills"]
    rates = np.ones_like(close) if account.fx is None else account.fx[:, account.fx_column]
    for t in range(len(close)):
        for j in held:
            held[j] *= splits.get((t, j), 1.0)
        for at in np.flatnonzero(fills["session"] == t):
            j, after = fills["asset"][at], fills["shares"][at]
            bought[t] += (after - held[j]) * fills["price"][at] * rates[t, j]
            held[j] = after
    paid = sum(found[name] for name in ("fees", "tax", "slippage", "impact", "borrow"))
    change = np.diff(found["cash"], prepend=account.capital)
    told = moves + found["dividends"] - paid - bought
    np.testing.assert_allclose(change, told, atol=1e-10 * account.capital)


@RANDOM
@given(cases())
def test_an_account_without_terms_changes_nothing(case):
    plain = run_engine(case, record_fills=True)
    kept = run_engine(case, record_fills=True, account=terms(len(case.close)))
    for name in ("equity", "cash", "fees", "taxes", "slippage", "traded"):
        np.testing.assert_allclose(kept[name], plain[name], rtol=1e-9, atol=1e-10, err_msg=name)
    for name in ("position", "pending_session", "waiting_rebalance", "out_reason", "ruin_session"):
        np.testing.assert_array_equal(kept[name], plain[name])
    for name, values in plain["trades"].items():
        np.testing.assert_allclose(kept["trades"][name], values, rtol=1e-9, atol=1e-10)


@RANDOM
@given(cases(), st.integers(0, 2**32 - 1))
def test_stops_and_trades_see_through_splits(case, seed):
    rng = np.random.default_rng(seed)
    splits = events(rng, case.close.shape, 0.05, 0.25, 4.0)
    factor = np.ones(case.close.shape)
    for row, column, ratio in zip(*splits, strict=True):
        factor[row:, column] *= ratio
    powers = 2.0 ** np.round(np.log2(factor))  # a power of two takes nothing from a price
    steps = np.vstack([np.ones(factor.shape[1]), powers[1:] / powers[:-1]])
    rows, columns = np.nonzero(steps != 1.0)
    splits = rows.astype(np.int64), columns.astype(np.int64), steps[rows, columns]
    tables = {
        name: None if getattr(case, name) is None else getattr(case, name) / powers
        for name in ("close", "fill", "open", "high", "low")
    }
    adjusted = run_engine(case, account=terms(len(case.close)))
    quoted = run_engine(
        type(case)(**{**vars(case), **tables}), account=terms(len(case.close), splits=splits)
    )
    np.testing.assert_allclose(quoted["equity"], adjusted["equity"], rtol=1e-9, atol=1e-10)
    for name, values in adjusted["trades"].items():
        if name not in ("entry_price", "exit_price"):
            np.testing.assert_allclose(
                quoted["trades"][name], values, rtol=1e-9, atol=1e-10, err_msg=name
            )


@RANDOM
@given(cases(), st.integers(0, 2**32 - 1))
def test_stops_and_trades_are_in_the_assets_own_currency(case, seed):
    """Rates move the money and nothing else of a trade: not its stops, prices and return."""
    fx = currencies(np.random.default_rng(seed), *case.close.shape)
    alone, abroad = (run_engine(case, account=terms(len(case.close), **more)) for more in ({}, fx))
    assume(alone["ruin_session"] == abroad["ruin_session"] == -1)
    for name, values in alone["trades"].items():
        np.testing.assert_allclose(
            abroad["trades"][name], values, rtol=1e-9, atol=1e-10, err_msg=name
        )
