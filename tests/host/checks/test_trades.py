"""The trade table, what is looked up for it, and which trades matter next."""

import numpy as np
import pandas as pd
import pytest

DAYS = pd.date_range("2024-01-01", periods=5)
TABLE = pd.DataFrame(np.arange(10.0).reshape(5, 2), index=DAYS, columns=["A", "B"])


@pytest.fixture(params=["ns", "s"])
def report(request, make_report):
    """Three trades: one by the table's dates, one between them, one unknown and still open."""
    report = make_report()
    entry = ["2024-01-02 00:00", "2024-01-03 15:00", "2024-02-09 00:00"]
    leave = ["2024-01-04", "2023-12-31", None]
    dates = {"entry_sig_date": entry, "entry_date": entry, "exit_date": leave}
    dates = {name: pd.to_datetime(texts).as_unit(request.param) for name, texts in dates.items()}
    report.trades = pd.DataFrame({"symbol": ["B some name", "A", "C"], **dates})
    return report


def test_values_are_looked_up_at_the_last_row_on_or_before_the_date(report):
    assert report.add_trade_info("x", TABLE) is None
    assert list(report.trades)[4:] == ["x@entry_sig_date"]
    np.testing.assert_equal(report.trades["x@entry_sig_date"].tolist(), [3.0, 4.0, np.nan])
    report.add_trade_info("y", df=TABLE, date_col=["entry_date", "exit_date"])
    assert list(report.trades)[5:] == ["y@entry_date", "y@exit_date"]
    # Before the first row, and without a date, there is nothing: never the last row.
    np.testing.assert_equal(report.trades["y@exit_date"].tolist(), [7.0, np.nan, np.nan])
    report.add_trade_info("x", TABLE * 2, "entry_sig_date")
    assert report.trades["x@entry_sig_date"].iloc[0] == 6.0
    assert len(TABLE) == 5


def test_other_dtypes_give_their_fill_values(report):
    whole = TABLE.astype("int64")
    report.trades = report.trades.iloc[[0, 2]].copy()
    report.add_trade_info("int", whole, ["entry_date", "exit_date"])
    report.add_trade_info("bool", whole > 3, ["entry_date", "exit_date"])
    report.add_trade_info("text", whole.astype(str).astype(object), "exit_date")
    assert report.trades["int@entry_date"].tolist() == [3, -1]
    assert report.trades["bool@exit_date"].tolist() == [True, False]
    assert report.trades["text@exit_date"].iloc[0] == "7"
    assert pd.isna(report.trades["text@exit_date"].iloc[1])
    with pytest.raises(ValueError, match="^Unsupported dtype$"):
        report.add_trade_info("small", TABLE.astype("float32"))


def test_a_rebound_kernel_is_asked_and_gives_the_same_columns(module, report, monkeypatch):
    kernel, asked = module.query_data_int64, []

    def rebound(table, rows, columns):
        asked.append(table.dtype)
        return kernel(table, rows, columns)

    whole = TABLE.astype("int64")
    tables = [TABLE, whole, whole > 3, whole.astype("int8"), whole.astype(object)]
    tables += [TABLE.iloc[::-1], TABLE.iloc[:, ::-1].astype(str)]
    for table in tables:
        report.add_trade_info("own", table, ["entry_date", "exit_date"])
        with monkeypatch.context() as patch:
            patch.setattr(module, "query_data_int64", rebound)
            report.add_trade_info("rebound", table, ["entry_date", "exit_date"])
        for date in ("entry_date", "exit_date"):
            own, same = (report.trades[f"{name}@{date}"] for name in ("own", "rebound"))
            pd.testing.assert_series_equal(own, same, check_names=False)
    assert len(asked) == 2 * len(tables)


def test_stock_id_serves_where_there_is_no_symbol_and_empty_trades_gain_the_column(report):
    trades = report.trades.rename(columns={"symbol": "stock_id"})
    report.trades = trades
    report.add_trade_info("x", TABLE)
    assert report.trades["x@entry_sig_date"].iloc[0] == 3.0
    for empty in (trades.iloc[:0].copy(), trades.iloc[:0].astype(object)):
        report.trades = empty
        report.add_trade_info("x", TABLE, ["entry_date", "exit_date"])
        assert list(report.trades)[-2:] == ["x@entry_date", "x@exit_date"]
    report.trades = pd.DataFrame()
    with pytest.raises(KeyError):
        report.add_trade_info("x", TABLE)


def test_a_table_with_all_the_dates_is_not_copied_and_any_order_gives_the_same(report, monkeypatch):
    report.trades = report.trades.iloc[:1].copy()
    with monkeypatch.context() as patch:
        patch.setattr(pd.DataFrame, "reindex", None)
        report.add_trade_info("x", TABLE, ["entry_date", "exit_date"])
    assert report.trades["x@exit_date"].tolist() == [7.0]
    report.trades = report.trades.assign(entry_date=DAYS[1] + pd.Timedelta("5h"))
    for order in ([0, 1, 2, 3, 4], [4, 3, 2, 1, 0], [1, 0, 2, 4, 3]):
        report.add_trade_info("x", TABLE.iloc[order], "entry_date")
        assert report.trades["x@entry_date"].tolist() == [3.0]


def test_positions_of_another_width(report, monkeypatch):
    original = pd.Index.get_indexer_for

    def answer_in(width):
        def narrowed(self, target):
            return original(self, target).astype(width)

        monkeypatch.setattr(pd.Index, "get_indexer_for", narrowed)

    answer_in(np.int16)
    with pytest.raises(ValueError, match="^Unknown dtype int16 for query_date$"):
        report.add_trade_info("y", TABLE)
    answer_in(np.int32)
    report.add_trade_info("x", TABLE)
    assert report.trades["x@entry_sig_date"].iloc[0] == 3.0


def test_removal_goes_by_the_whole_label(report):
    report.add_trade_info("x", TABLE)
    before = report.trades
    report.remove_trade_info("x")
    assert report.trades is not before
    pd.testing.assert_frame_equal(report.trades, before)
    report.remove_trade_info("x@entry_sig_date")
    assert list(report.trades) == ["symbol", "entry_sig_date", "entry_date", "exit_date"]
    report.add_trade_info("again", TABLE)
    assert "again@entry_sig_date" in report.trades


def test_return_of_the_last_rows(module):
    curve = pd.Series(np.arange(1.0, 11.0))
    look_back = module.Report.get_ndays_return
    assert look_back(curve, 5) == 10 / 5 - 1
    assert look_back(curve, 0) == 0
    assert look_back(curve.iloc[:3], 5) == look_back(curve.iloc[:3], 2) == 2
    assert look_back(creturn=curve, n=1000) == 9
    with pytest.raises(IndexError):
        look_back(curve.iloc[:0], 1)


CURRENT = "stock_id entry_sig_date exit_sig_date entry_date return trade_price@exit_date".split()
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
    table = pd.DataFrame([ROWS[row] for row in rows], columns=[asset, *CURRENT[1:]], index=rows)
    for column in CURRENT[1:4]:
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
    assert current.columns.tolist() == [*CURRENT[1:], "weight", "next_weights"]
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
