"""Which trades matter for the next decision."""

import numpy as np
import pandas as pd

COLUMNS = "stock_id entry_sig_date exit_sig_date entry_date return trade_price@exit_date".split()
ROWS = {
    "long over": ("A", "2024-01-02", "2024-01-10", "2024-01-03", 0.1, 11.0),
    "left with the latest entry": ("A", "2024-01-02", "2024-02-01", "2024-01-03", 0.2, 12.0),
    "left after it": ("B", "2024-01-02", "2024-02-05", "2024-01-03", 0.3, 13.0),
    "open": ("C", "2024-01-02", None, "2024-01-03", 0.4, 14.0),
    "entered with it, left since": ("D", "2024-02-01", "2024-02-05", "2024-02-02", 0.5, 15.0),
    "signalled last, not filled": ("A", "2024-03-01", None, None, np.nan, 16.0),
    "leaves on the latest signal": ("E", "2024-01-02", "2024-03-01", "2024-01-03", np.nan, 17.0),
}


def trades_of(rows=tuple(ROWS), asset="stock_id"):
    table = pd.DataFrame([ROWS[row] for row in rows], columns=[asset, *COLUMNS[1:]], index=rows)
    for column in COLUMNS[1:4]:
        table[column] = pd.to_datetime(table[column])
    return table


def test_selection_weights_and_hidden_exit_prices(make_report):
    report = make_report()
    report.trades = trades_of()
    report.weights = pd.Series({"A": 0.5, "unheld": 0.5})
    report.next_weights = pd.Series({"C": 1.0})
    before = report.trades.copy()
    assert report.calculate_current_trades() is None
    current = report.current_trades
    assert current.index.tolist() == ["A", "B", "C", "D", "A", "E"]
    assert current.index.name == "stock_id"
    assert current.columns.tolist() == [*COLUMNS[1:], "weight", "next_weights"]
    assert current["return"].tolist()[:4] == [0.2, 0.3, 0.4, 0.5]
    np.testing.assert_array_equal(
        current["trade_price@exit_date"], [12.0, 13.0, 14.0, 15.0, np.nan, np.nan]
    )
    assert current["weight"].tolist() == [0.5, 0, 0, 0, 0.5, 0]
    assert current["next_weights"].tolist() == [0, 0, 1, 0, 0, 0]
    pd.testing.assert_frame_equal(report.trades, before)


def test_symbol_is_preferred_and_own_weight_columns_are_replaced(make_report):
    report = make_report()
    report.trades = trades_of(asset="symbol").assign(stock_id="x", weight=9.0, next_weights=9.0)
    report.weights = report.next_weights = pd.Series(dtype="float64")
    report.calculate_current_trades()
    current = report.current_trades
    assert current.index.name == "symbol"
    assert (current[["weight", "next_weights"]] == 0.0).all(axis=None)
    assert current["weight"].dtype == np.float64


def test_a_trade_that_is_not_filled_does_not_move_the_latest_entry(make_report):
    report = make_report()
    report.weights = report.next_weights = pd.Series(dtype="float64")
    report.trades = trades_of(["long over", "signalled last, not filled"])
    report.calculate_current_trades()
    # The latest filled entry is that of the trade long over, which counts as the latest.
    assert report.current_trades.index.tolist() == ["A", "A"]
    report.trades = trades_of(["left after it", "long over"])
    report.calculate_current_trades()
    assert report.current_trades.index.tolist() == ["B", "A"]
