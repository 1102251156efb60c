"""One rule for labels, at every door through which a table comes in."""

import pickle

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.tables.asset_labels import match_labels

DATES = pd.bdate_range("2024-01-01", periods=30)
COLUMNS = ["Gold Miners", "US Stocks", "BRK B", "Gold", "2330", "US Bonds", "BRK A"]
LABELS = ["US Bonds", "US Stocks", "Gold", "Gold Miners", "BRK A", "BRK B", "2330 Chips"]
PLACES = [5, 1, 3, 0, 6, 2, 4]
CLOSE = (
    pd.DataFrame([10.0 * (n + 1) for n in range(7)], COLUMNS)
    .T.set_axis([DATES[0]])
    .reindex(DATES, method="ffill")
)


@pytest.mark.parametrize(
    ("labels", "known", "places"),
    [
        (LABELS, COLUMNS, PLACES),
        (["2330", "2330 Other", "1"], ["1 One", 2330], [1, -1, 0]),
        (["2330 Old", "2330 New"], [2330, 2454], [0, 0]),  # a renamed company
        (["Gold Miners", "Gold"], ["Gold"], [-1, 0]),  # gold's own column is not the miners'
        (["US Cash", "US Bonds", "US"], ["US Bonds", "US Stocks"], [-1, 0, -1]),
        (["A", "A x"], ["A", "A"], [0, -1]),
        ([], ["A"], []),
    ],
)
def test_whole_labels_come_first_and_ids_only_where_they_are_clear(labels, known, places):
    assert match_labels(labels, known).tolist() == places
    report = corvex.from_equity(pd.Series([1.0, 2.0], index=DATES[:2]))
    report.trades = pd.DataFrame({"symbol": labels, "entry_date": DATES[0]}, dtype=object)
    table = pd.DataFrame([np.arange(len(known), dtype=float)], index=DATES[:1], columns=known)
    report.add_trade_info("x", table, "entry_date")
    found = [value if value == value else -1 for value in report.trades["x@entry_date"]]
    # Trades are also found under the id alone, if a column has this very name.
    assert found == [
        known.index("Gold") if place < 0 and str(label).startswith("Gold") else place
        for label, place in zip(labels, places, strict=True)
    ]


def test_labels_with_blanks_keep_their_own_figures_everywhere():
    tables = {"close": CLOSE, "volume": CLOSE * 0 + 1.0, "market_value": CLOSE * 1e6}
    weights = pd.DataFrame(1 / 7, index=DATES[[0, 10]], columns=LABELS)
    weights.iloc[1, 1:] = 0.0
    report = corvex.simulate(weights, tables, market="us_stock", fee_ratio=0)
    expected = CLOSE.iloc[0].to_numpy()[PLACES]
    report.run_analysis("Liquidity", display=False)
    report.get_metrics()
    trades = report.trades.set_index("symbol").loc[LABELS]
    for column, scale in [("trade_price", 1), ("market_value", 1e6), ("turnover", 1)]:
        assert (trades[f"{column}@entry_date"] / scale).tolist() == expected.tolist()
    report = corvex.simulate(weights.iloc[:1], tables, market="us_stock", fee_ratio=0)
    for held in (report, pickle.loads(pickle.dumps(report))):
        positions = held.position_info2()["positions"]
        names = [f"{row['assetId']} {row['assetName']}".strip() for row in positions]
        assert names == LABELS
        for key in ("entryAdjPrice", "currentPrice"):
            assert [row[key] for row in positions] == expected.tolist()
    order = corvex.orders(report, 1e6, None, {"Gold Miners": 100_000, "US Stocks": 9, "2330": 7})
    told = order.set_index(order["asset_id"] + " " + order["asset_name"])
    assert told.loc["Gold Miners", ["held", "price", "side"]].tolist() == [100_000, 10.0, "sell"]
    assert told.loc["2330 Chips", ["held", "price"]].tolist() == [7, 50.0]
    assert told.loc["US Bonds", "held"] == 0


def test_a_label_that_may_mean_several_assets_is_refused_and_another_name_is_told():
    def simulate(label):
        return corvex.simulate(pd.DataFrame({label: [0.5]}, index=DATES[:1]), CLOSE)

    with pytest.raises(ValueError, match="'US Cash' has 2 price columns: 'US Stocks', 'US Bonds'"):
        simulate("US Cash")
    both = pd.DataFrame(0.5, index=DATES[:1], columns=["2330 Old", "2330 New"])
    with pytest.raises(ValueError, match="'2330 Old' and '2330 New' stand for the same asset"):
        corvex.simulate(both, CLOSE, market="us_stock")
    bonds = CLOSE[["US Bonds"]]
    with pytest.warns(UserWarning, match="'US Cash' is taken for 'US Bonds'"):
        report = corvex.simulate(both[["2330 Old"]].set_axis(["US Cash"], axis=1), bonds)
    with pytest.warns(UserWarning, match="held are found by the id.*'US Paper' is taken for"):
        corvex.orders(report, 1000, {"US Cash": 10.0}, {"US Paper": 1})
    report = corvex.simulate(both.set_axis(["US Bonds", "US Stocks"], axis=1), CLOSE)
    with pytest.raises(ValueError, match="held 'US' may be any of 'US Bonds', 'US Stocks'"):
        corvex.orders(report, 1000, None, {"US": 1})
