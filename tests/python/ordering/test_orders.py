"""From target weights to orders."""

import json
import pickle

import pandas as pd
import pytest
from hypothesis import assume, given
from hypothesis import strategies as st

import corvex
from corvex.markets import get_market_by_name
from corvex.ordering import ORDER_COLUMNS, orders

MARKETS = ["tw_stock", "us_stock", "crypto"]


def execution(weights, market="us_stock", next_weights=None, **changes):
    weights = pd.Series(weights, dtype="float64", name=pd.Timestamp("2024-01-31"))
    following = weights if next_weights is None else pd.Series(next_weights, dtype="float64")
    following = following.rename(pd.Timestamp("2024-02-29"))
    record = corvex.ReportExecution(
        weights, following, "ME", {}, None, "close", get_market_by_name(market), None, None, None,
        **changes,
    )  # fmt: skip
    record.weights.name, record.next_weights.name = weights.name, following.name
    return record


def test_a_hand_computed_rebalance():
    # 1,000,000 dollars: 3000 A at 100 are held, 700,000 are cash; half is to be in B, none in A.
    table = orders(
        execution({"2330 Chips": 0.0, "1101 Cement": 0.5}, "tw_stock"),
        1_000_000,
        {"2330": 100.0, "1101": 40.0},
        {"2330": 3000},
    )
    sale, purchase = table.to_dict(orient="records")
    json.dumps(table.to_dict(orient="records"), allow_nan=False)
    assert list(sale) == list(ORDER_COLUMNS)
    # The sale costs 427.5 + 900, so that some 998,000 are to be halved: 12,474 shares.
    assert (sale["asset_id"], sale["asset_name"], sale["side"]) == ("2330", "Chips", "sell")
    assert (sale["quantity"], sale["lots"], sale["odd_quantity"]) == (3000, 3, 0)
    assert (sale["fee"], sale["tax"]) == (pytest.approx(427.5), pytest.approx(900.0))
    assert sale["cash_after"] == pytest.approx(1_000_000 - 1327.5)
    assert (sale["lowest_price"], sale["highest_price"]) == (90.0, 110.0)
    assert (purchase["side"], purchase["lots"], purchase["odd_quantity"]) == ("buy", 12, 474.0)
    assert purchase["cash_after"] == table.attrs["cash"]
    assert table.attrs["cash"] == pytest.approx(998672.5 - 12474 * 40 * 1.001425)
    assert table.attrs["costs"] == pytest.approx(1327.5 + 12474 * 40 * 0.001425)

    lots = orders(execution({"1101": 0.5}, "tw_stock"), 1_000_000, {"1101": 40.0}, odd_lots=False)
    assert lots["quantity"].tolist() == [12000.0]
    tiny = orders(execution({"1101": 0.5}, "tw_stock"), 1000, {"1101": 40.0})
    assert (tiny["quantity"][0], tiny["fee"][0]) == (12.0, 20.0)


def test_orders_follow_the_account_that_the_report_was_simulated_with(tmp_path):
    days = pd.bdate_range("2024-01-02", periods=30)
    prices = pd.DataFrame({"2330 Chips": 37.0, "1101": 53.0}, days)
    account = corvex.Account(
        capital=100_000, lot_size=pd.Series({"2330": 100, "1101": 10}), rounding="nearest",
        fee_table={0: 0.002, 20_000: 0.001}, min_fee=30,
        tax_ratio=pd.DataFrame({"2330": [0.02, 0.01], "1101": 0.0}, ["2023-01-02", "2024-01-02"]),
    )  # fmt: skip
    report = corvex.simulate(
        pd.DataFrame({"2330 Chips": 0.5, "1101": 0.5}, days[:1]), prices, market="tw_stock",
        account=account,
    )  # fmt: skip
    corvex.save(report, tmp_path / "a.corvex")
    for known in (report, pickle.loads(pickle.dumps(report)), corvex.load(tmp_path / "a.corvex")):
        table = orders(known, 100_000, prices.iloc[-1]).set_index("asset_id")
        # 13.48 and 94.21 lots of what the fees leave; what the simulation bought is bought.
        assert table["quantity"].to_dict() == {"2330": 1300.0, "1101": 940.0}
        fills = report.fills.set_index("symbol")["shares"]
        assert table["quantity"].tolist() == fills[["1101", "2330 Chips"]].tolist()
        assert table.loc["1101", "fee"] == pytest.approx(20_000 * 0.002 + 29_820 * 0.001)
        assert table.attrs["costs"] == pytest.approx(report.account[["fees", "tax"]].sum().sum())
    sold = orders(report, 50_000, prices.iloc[-1], {"2330": 1000, "1101": 250}, fee_ratio=0.0005)
    # 6.73 and 47.0 lots: 7 and 47 would overdraw the cash, so the 7 go down to 6.
    assert sold["quantity"].tolist() == [400.0, 220.0]
    assert sold["fee"].tolist() == [30.0, 30.0]
    assert sold["tax"].tolist() == [pytest.approx(148.0), 0.0]
    board = orders(report, 50_000, prices.iloc[-1], odd_lots=False)
    assert board["quantity"].tolist() == [1000.0]  # 0.67 and 0.47 of a board lot, to the nearest
    with pytest.raises(ValueError, match="account should be a corvex.Account"):
        orders(report, 50_000, prices.iloc[-1], account=0.1)


@pytest.mark.parametrize(("least", "fee"), [(2, 8.33), ({"USD": 2, "twd": 20}, 20.0)])
def test_orders_over_several_currencies_are_those_of_the_simulation(least, fee, tmp_path):
    days = pd.bdate_range("2024-01-02", periods=5)
    prices = pd.DataFrame({"2330 Chips": 600.0, "AAPL": 180.0}, days)
    account = corvex.Account(
        capital=1_000_000, lot_size=1, min_fee=least, fee_per_share=0.01, base="TWD",
        currency={"2330": "TWD", "AAPL": "USD"}, fx=pd.Series(32.0, days, name="USDTWD"),
    )  # fmt: skip
    weights = pd.DataFrame({"2330 Chips": 0.5, "AAPL": 0.5}, days[:1])
    report = corvex.simulate(weights, prices, market="us_stock", account=account)
    corvex.save(report, tmp_path / "a.corvex")
    table = orders(corvex.load(tmp_path / "a.corvex"), 1_000_000, prices.iloc[-1])
    assert table.attrs["currency"] == "TWD"
    found = table.set_index("asset_id")
    assert found["quantity"].to_dict() == {"2330": 833.0, "AAPL": 86.0}  # of 500,000 less the fees
    assert found["quantity"].tolist() == report.fills.set_index("symbol")["shares"].tolist()
    assert found.loc["AAPL", ["value", "fee"]].tolist() == [86 * 180 * 32, 2 * 32]
    assert found.loc["2330", "fee"] == fee
    assert report.fills["cost"].tolist() == [fee, 2 * 32]
    dearer = orders(report, 1_000_000, prices.iloc[-1], fx={"USD": 40}).set_index("asset_id")
    assert dearer["quantity"].to_dict() == {"2330": 833.0, "AAPL": 69.0}
    with pytest.raises(ValueError, match="no rate of USD, the currency of 'AAPL'; .* fx={'USD'"):
        orders(report.execution, 1_000_000, prices.iloc[-1], account=account)


def test_which_weights_count_and_how_much_of_them():
    both = execution({"A": 1.0}, next_weights={"B": 1.0}, total_weight=0.5)
    before = pd.Timestamp("2024-02-15", tz="UTC")
    prices = {"A": 10.0, "B": 10.0}
    assert orders(both, 1000, prices, now=before)["asset_id"].tolist() == ["A"]
    late = orders(both, 1000, prices)
    assert late[["asset_id", "quantity"]].to_numpy().tolist() == [["B", 50.0]]
    assert late.attrs["cash"] == 500.0
    table = pd.DataFrame(
        {"A": [9.0, 10.0], "B": [1.0, 10.0]}, pd.bdate_range("2024-03-01", periods=2)
    )
    pd.testing.assert_frame_equal(orders(both, 1000, table), late)


def test_holdings_without_a_weight_are_sold_and_short_weights_sell_short():
    table = orders(execution({"A": -0.5}), 1000, {"A": 10.0, "B": 4.0}, {"B": 7, "A": 20})
    assert table[["asset_id", "side", "quantity", "target"]].to_numpy().tolist() == [
        ["A", "sell", 70.0, -50.0],
        ["B", "sell", 7.0, 0.0],
    ]
    assert table.attrs["cash"] == 1500.0
    rest = orders(execution({}, "tw_stock"), 1e6, {"A": 10.0}, {"A": 1500}, odd_lots=False)
    assert rest["target"].tolist() == [500.0]


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        ((1000, {"A": 1.0}), "no usable price of: B"),
        ((1000, {"A": 1.0, "B": float("nan")}), "no usable price of: B"),
        ((1000, pd.DataFrame({"A": [], "B": []})), "table of prices is empty"),
        ((1000, {"A x": 1.0, "A y": 1.0, "B": 1.0}), "more than one entry of asset 'A'"),
        ((1000, [1.0]), "prices should be a Series or a mapping or a DataFrame"),
        ((0, {"A": 1.0, "B": 1.0}), "capital should be a positive number, got 0"),
        ((1000, {"A": 1.0, "B": 1.0}, {"A": float("inf")}), "held should be finite quantities"),
        ((1000, {"A": 1.0, "B": 1.0}, {"A": "some"}), "held should be numbers by asset"),
    ],
)
def test_what_cannot_be_used_is_told(arguments, message):
    with pytest.raises(ValueError, match=message):
        orders(execution({"A": 0.5, "B": 0.5}), *arguments)
    with pytest.raises(ValueError, match="choose one with execution\\[name\\], of: 'mine'"):
        orders({"mine": execution({})}, 1000, {})


@st.composite
def accounts(draw):
    """A market, an account of a few assets, and weights that sum to at most 1."""
    names = draw(st.lists(st.sampled_from("ABCDEFGH"), min_size=1, max_size=6, unique=True))
    number = st.floats(-1, 1) if draw(st.booleans()) else st.floats(0, 1)
    weights = {name: draw(number) for name in names}
    scale = max(1.0, sum(map(abs, weights.values())))
    weights = {name: round(weight / scale, 4) for name, weight in weights.items()}
    assume(sum(weights.values()) <= 1)
    prices = {name: draw(st.floats(0.5, 5000).map(lambda p: round(p, 2))) for name in names}
    market = draw(st.sampled_from(MARKETS))
    step = get_market_by_name(market).quantity_step
    cash = draw(st.floats(1_000, 1e7))
    shares = st.integers(0, 2000).map(lambda n: n * step * (1e6 if step < 1 else 1))
    held = {name: draw(shares) for name in names if draw(st.booleans())}
    return market, weights, prices, held, cash


BROKERS = (
    None,
    corvex.Account(min_fee=3, fee_per_share=0.01, max_fee_ratio=0.02, rounding="nearest"),
    corvex.Account(fee_table={0: 0.002, 5_000: 0.0005}, fee_per_share=0.005),
)


@given(accounts(), st.booleans(), st.sampled_from(BROKERS))
def test_cash_adds_up_lots_are_whole_and_nothing_is_left_to_do(account, odd_lots, broker):
    market, weights, prices, held, cash = account
    capital = cash + sum(quantity * prices[name] for name, quantity in held.items())
    state = execution(weights, market)
    table = orders(state, capital, prices, held, odd_lots=odd_lots, account=broker)
    rows = table.to_dict(orient="records")
    json.dumps(rows, allow_nan=False)
    reached, left = dict(held), cash
    for row in rows:
        sign = 1 if row["side"] == "buy" else -1
        reached[row["asset_id"]] = row["target"]
        left -= sign * row["value"] + row["fee"] + row["tax"]
        assert row["value"] == pytest.approx(row["quantity"] * prices[row["asset_id"]])
        assert row["cash_after"] == pytest.approx(left, abs=1e-6 * capital)
        size = state.market.quantity_step if odd_lots else state.market.lot_size
        steps = row["quantity"] / size
        assert steps == pytest.approx(round(steps), rel=1e-12)
    assert [row["side"] for row in rows] == sorted((row["side"] for row in rows), reverse=True)
    assert table.attrs["cash"] == pytest.approx(left, abs=1e-6 * capital)
    if not odd_lots:
        return  # odd rests that cannot be sold may tie up the cash
    assert table.attrs["cash"] >= -1e-9 * capital
    after = table.attrs["capital"]
    worth = left + sum(quantity * prices[name] for name, quantity in reached.items())
    assert after == pytest.approx(worth, rel=1e-9, abs=1e-6)
    again = orders(state, after, prices, reached, account=broker)
    assert len(again) == 0, again
    for name, weight in weights.items():
        # Rounded towards zero; what was left alone is off by what one step of everything costs.
        spare = 0.02 * after + 100 * len(weights)
        assert abs(reached.get(name, 0.0)) * prices[name] <= abs(weight) * after + spare
