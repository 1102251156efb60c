"""Tables of other libraries, arrays and long form give what the same table of pandas gives."""

import datetime
import decimal

import numpy as np
import pandas as pd
import pyarrow as pa
import pytest

import corvex
from corvex.tables.frames import as_table

OPTIONS = {"resample": "W", "fee_ratio": 0.001, "tax_ratio": 0.0, "market": "us_stock"}


@pytest.fixture(scope="module")
def prices():
    walk = np.random.default_rng(5).normal(0.0005, 0.02, (60, 3)).cumsum(axis=0)
    days = pd.bdate_range("2024-01-02", periods=60)
    table = pd.DataFrame(100 * np.exp(walk), days, ["AAA", "BBB", "CCC"])
    table.iloc[:20, 2] = np.nan
    return table


@pytest.fixture(scope="module")
def weights(prices):
    return prices.gt(prices.mean()).iloc[5:]


def columns(table: pd.DataFrame, name="date") -> pd.DataFrame:
    return table.rename_axis(name).reset_index()


def rows(table: pd.DataFrame) -> pd.DataFrame:
    """Return long form in no order."""
    long = columns(table).melt(id_vars="date", var_name="symbol", value_name="value")
    return long.dropna().sample(frac=1.0, random_state=1)


def rare_types(table: pd.DataFrame) -> pa.Table:
    """Types that other libraries use: dates without time, decimals, small floats, nothing."""
    days = pa.array(table.index.date, pa.date32())
    cells = {}
    for name, values in table.items():
        texts = [None if np.isnan(one) else decimal.Decimal(f"{one:.6f}") for one in values]
        cells[name] = pa.array(texts, pa.decimal128(20, 6))
    cells["EMPTY"] = pa.nulls(len(table))
    return pa.table({**cells, "day": days})


def packed_rows(table: pd.DataFrame) -> pa.Table:
    long = rows(table)
    names = pa.array(long["symbol"]).cast(pa.string()).dictionary_encode()
    codes = names.indices.cast(pa.uint32())
    names = pa.DictionaryArray.from_arrays(codes, names.dictionary.cast(pa.string_view()))
    return pa.table({"date": long["date"].dt.date, "asset": names, "v": long["value"]})


def duck(table: pd.DataFrame):
    duckdb = pytest.importorskip("duckdb")
    source = columns(table)  # found by name
    assert len(source)
    return duckdb.sql("select * from source order by date")


def polars(table: pd.DataFrame):
    pl = pytest.importorskip("polars")
    return pl.from_arrow(pa.table(columns(table))).with_columns(pl.col("date").dt.date())


FORMS = {
    "arrow": pa.Table.from_pandas,
    "batches": lambda table: pa.Table.from_pandas(table).to_reader(),
    "column": columns,
    "text dates": lambda table: columns(table).astype({"date": str}),
    "number dates": lambda table: columns(table).assign(
        date=table.index.strftime("%Y%m%d").astype(int)
    ),
    "duckdb": duck,
    "polars": polars,
    "rows": rows,
    "repeated index": lambda table: rows(table).set_index("date"),
    "levels": lambda table: rows(table).set_index(["symbol", "date"])["value"],
    "ids": lambda table: rows(table.set_axis([11, 22, 33], axis=1)),
    "packed rows": packed_rows,
    "arrow rows": lambda table: pa.Table.from_pandas(rows(table)),
}


@pytest.mark.parametrize("form", FORMS)
@pytest.mark.filterwarnings("ignore:.*read as long form")
def test_forms_give_what_pandas_gives(form, prices, weights):
    make = FORMS[form]
    expected = corvex.simulate(weights, prices, benchmark=prices["AAA"], **OPTIONS)
    found = corvex.simulate(make(weights), make(prices), benchmark=make(prices[["AAA"]]) if
                            form != "ids" else prices["AAA"], **OPTIONS)  # fmt: skip
    assert found.creturn.to_numpy().tolist() == expected.creturn.to_numpy().tolist()
    assert (found.creturn.index == expected.creturn.index).all()
    assert found.trades["return"].tolist() == expected.trades["return"].tolist()
    assert found.benchmark.to_numpy().tolist() == expected.benchmark.to_numpy().tolist()


def test_rare_types_and_zones(prices, weights):
    found = as_table(rare_types(prices), "prices")
    assert found.columns.tolist() == ["AAA", "BBB", "CCC", "EMPTY"]
    assert (found.index == prices.index).all()
    np.testing.assert_allclose(found.iloc[:, :3], prices, atol=1e-6)
    assert found["EMPTY"].isna().all()
    corvex.simulate(weights, rare_types(prices), **OPTIONS)
    for zone in ("Asia/Taipei", "UTC", "America/New_York"):
        zoned = as_table(pa.Table.from_pandas(prices.tz_localize(zone)), "prices")
        assert str(zoned.index.tz) == zone
        assert (zoned.index == prices.index.tz_localize(zone)).all()


def test_a_table_of_pandas_is_no_copy(prices):
    assert as_table(prices, "prices") is prices


def test_rows_of_several_fields_are_tables_of_prices(prices, weights):
    fields = {"Open": prices * 1.01, "Close": prices, "Adj Close": prices * 0.5}
    long = pd.concat({name: table.stack() for name, table in fields.items()}, axis=1)
    long = long.rename_axis(["Date", "Ticker"]).reset_index()
    expected = corvex.simulate(
        weights, {"open": fields["Open"], "close": prices, "adj_close": fields["Adj Close"]},
        trade_at="open", **OPTIONS,
    )  # fmt: skip
    with pytest.warns(UserWarning, match=r"assets of 'Ticker' and values of 'Open', 'Close', 'Adj"):
        found = corvex.simulate(weights, pa.Table.from_pandas(long), trade_at="open", **OPTIONS)
    assert found.creturn.equals(expected.creturn)


def test_arrays(prices, weights):
    axes = {"dates": list(prices.index.date), "assets": list(prices.columns)}
    expected = corvex.simulate(weights, prices, **OPTIONS).creturn
    cells = prices.to_numpy()
    early = weights.reindex(prices.index, fill_value=False)
    given = cells.copy()
    report = corvex.simulate(early.to_numpy(), {"close": given}, **axes, **OPTIONS)
    given[:] = 1.0  # the report keeps its own
    assert report.creturn.to_numpy().tolist() == expected.to_numpy().tolist()
    assert report.market.get_price("close").to_numpy()[-1].tolist() == cells[-1].tolist()
    at = corvex.simulate(weights, prices, trade_at=cells * 1.5, **axes, **OPTIONS).creturn
    assert at.equals(corvex.simulate(weights, prices, trade_at=prices * 1.5, **OPTIONS).creturn)
    # What is masked is missing: no signal, and no price.
    marks = np.ma.masked_array(np.ones(early.shape, bool), mask=~early.to_numpy())
    for other in (marks, marks.astype(np.int64) / 3):
        table = pd.DataFrame(other.filled(0), prices.index, prices.columns)
        expected = corvex.simulate(table, prices, **OPTIONS).creturn
        assert corvex.simulate(other, prices, **axes, **OPTIONS).creturn.equals(expected)
    for refused, text in (
        ((cells, prices, {}), "give dates= and assets="),
        ((cells, prices, {"dates": prices.index}), "give assets="),
        ((cells[1:], prices, axes), r"shape \(59, 3\), but there are 60 dates and 3 assets"),
        ((weights, prices, axes), "no array was given"),
    ):
        with pytest.raises(ValueError, match=text):
            corvex.simulate(refused[0], refused[1], **refused[2], **OPTIONS)


DAYS = [datetime.date(2024, 1, 2), datetime.date(2024, 1, 3)]
AMBIGUOUS = {
    "two dates": ({"date": DAYS, "known_at": DAYS, "A": [1.0, 1.0]}, "'date', 'known_at'"),
    "two named dates": ({"date": ["20240102"], "time": ["0900"], "A": [1.0]}, "'date', 'time'"),
    "no dates": ({"A": [1.0], "B": [1.0]}, "no column of dates among 'A', 'B'"),
    "two texts": ({"date": DAYS, "s": ["A", "B"], "x": ["N", "N"], "v": [1.0, 1]}, "'s', 'x'"),
    "two values": (
        {"date": DAYS[:1] * 2, "s": ["A", "B"], "v": [1.0, 1], "w": [1.0, 1]},
        "'v', 'w'",
    ),
    "no values": ({"date": DAYS, "symbol": ["A", "B"]}, "no column of values"),
    "twice": (
        {"date": DAYS[:1] * 2, "symbol": ["A", "A"], "v": [1.0, 2.0]},
        "'A' on 2024-01-02 more than once",
    ),
    "no names": ({"date": DAYS[:1] * 2, "v": [1.0, 2.0], "w": [1.0, 2.0]}, "names the assets"),
    "notes": ({"date": DAYS, "A": [1.0, 1.0], "note": ["x", "y"]}, "drop the column"),
    "no asset": (
        {"date": DAYS, "symbol": ["A", None], "v": [1.0, 1]},
        "no asset in 'symbol' at row 1",
    ),
    "no date": ({"date": [DAYS[0], None], "A": [1.0, 1.0]}, "no date in 'date' at row 1"),
    "lists": ({"date": DAYS, "A": [[1.0], [1.0]]}, "'A' of type list"),
}


@pytest.mark.parametrize("case", AMBIGUOUS)
def test_what_is_not_clear_is_refused_by_name(case):
    table, text = AMBIGUOUS[case]
    with pytest.raises(ValueError, match=text):
        as_table(pa.table(table), "weights")


def test_one_column_wants_dates_and_a_plan_wants_its_rows(prices):
    column = pa.array(prices["AAA"])
    with pytest.raises(ValueError, match="one column needs dates="):
        corvex.from_equity(column)
    lazy = type("LazyFrame", (), {"collect": None})()
    with pytest.raises(ValueError, match=r"weights is a LazyFrame, not yet computed; collect\(\)"):
        corvex.simulate(lazy, prices)


def test_curves(prices):
    curve = prices["AAA"]
    expected = corvex.from_equity(curve, prices["BBB"])
    days = pa.array(curve.index)
    table = pa.table({"day": days, "v": curve.to_numpy()})
    for found in (
        corvex.from_equity(table, pa.table({"t": days, "b": prices["BBB"]})),
        corvex.from_equity(curve.to_numpy(), prices["BBB"].to_numpy(), dates=days),
        corvex.from_equity(pa.chunked_array([table["v"].combine_chunks()]), prices["BBB"],
                           dates=curve.index.strftime("%Y-%m-%d")),
    ):  # fmt: skip
        assert found.creturn.to_numpy().tolist() == expected.creturn.to_numpy().tolist()
        assert found.daily_benchmark.tolist() == expected.daily_benchmark.tolist()
    changes = corvex.from_returns(curve.pct_change().to_numpy(), dates=curve.index)
    assert changes.creturn.equals(corvex.from_returns(curve.pct_change()).creturn)
    stats = corvex.ffn_core.calc_stats(pa.Table.from_pandas(prices))
    assert stats["BBB"].cagr == prices["BBB"].dropna().calc_stats().cagr


def test_other_doors(prices, weights):
    table = pa.Table.from_pandas(prices)
    assert corvex.markets.get_market_by_name("us_stock").bound_to(table).get_price("close").equals(
        prices
    )  # fmt: skip
    report = corvex.simulate(weights, prices, **OPTIONS)
    assert corvex.orders(report, 1e6, table).equals(corvex.orders(report, 1e6, prices))


def by_label(values: pd.Series) -> pd.DataFrame:
    return values.rename_axis("symbol").rename("v").reset_index()


def flat(table: pd.DataFrame | pd.Series) -> pd.DataFrame:
    is_dated = isinstance(table.index, pd.DatetimeIndex)
    return columns(table) if is_dated else by_label(table)


@pytest.mark.parametrize("kind", ["columns", "arrow", "batches", "polars"])
def test_terms_of_an_account(kind, prices, weights):
    days = prices.index
    terms = {
        "cash_rate": pd.Series([0.01, 0.05], days[[0, 20]], name="r"),
        "borrow_rate": pd.Series([0.02, 0.03], days[[0, 9]], name="rate"),
        "dividends": pd.DataFrame({"AAA": [1.0, np.nan], "BBB": [0.5, 2.0]}, days[[9, 30]]),
        "splits": pd.DataFrame({"BBB": [2.0]}, days[[20]]),
        "lot_size": pd.Series({"AAA": 1.0, "BBB": 10.0, "CCC": 1.0}),
        "band": pd.Series({"AAA": 0.01, "BBB": 0.02, "CCC": 0.0}),
        "flows": pd.Series([100.0, -50.0], days[[11, 12]], name="money"),
        "currency": pd.Series({"AAA": "USD", "BBB": "TWD", "CCC": "EUR"}),
        "fx": pd.DataFrame({"USDTWD": np.linspace(30, 33, 60), "EURTWD": 35.0}, days),
    }

    def other(table):
        if kind == "columns":
            return flat(table)
        if kind == "polars":
            return pytest.importorskip("polars").from_arrow(pa.Table.from_pandas(flat(table)))
        made = pa.Table.from_pandas(flat(table), preserve_index=False)
        return made if kind == "arrow" else made.to_reader()

    def money(given):
        account = corvex.Account(capital=1e5, base="TWD", **given)
        options = {**OPTIONS, "benchmark": prices["AAA"], "account": account}
        return corvex.simulate(weights.astype(float) / 3 - 0.1, prices, **options)

    found = money({name: other(table) for name, table in terms.items()})
    expected = money(terms)
    pd.testing.assert_frame_equal(found.account, expected.account, check_freq=False)
    assert found.settings["account"] == expected.settings["account"]
    assert found.account[["dividends", "borrow", "interest"]].any().all()
    pairs = {"USDTWD": other(terms["fx"][["USDTWD"]]), "EURTWD": 35.0}
    again = money({**terms, "fx": pairs})
    pd.testing.assert_frame_equal(again.account, expected.account, check_freq=False)


@pytest.mark.parametrize(
    ("terms", "told"),
    [
        ({"flows": pa.table({"date": ["2024-01-02"], "a": [1.0], "b": [1.0]})}, "flows must have"),
        ({"cash_rate": pa.table({"a": [0.1]})}, "cash_rate has no column of dates among 'a'"),
        ({"lot_size": pa.table({"a": ["x"], "b": [1], "c": [2]})}, "of asset labels and one of"),
        ({"currency": pa.table({"a": [None, "x"], "b": ["x", "y"]})}, "has no label in 'a' at row"),
        ({"dividends": np.ones((2, 2))}, "dividends must be a table, dates x labels, got ndarray"),
    ],
)
def test_terms_that_are_no_tables_of_an_account(terms, told):
    with pytest.raises(ValueError, match=told):
        corvex.Account(**terms)


@pytest.mark.parametrize(
    "make", [pa.Table.from_pandas, columns, polars], ids=lambda one: one.__name__
)
def test_lookahead_of_other_tables(make, prices):
    given = make(prices) if make is not columns else pa.Table.from_pandas(columns(prices))

    def strategy(table, ahead):
        assert type(table) is type(given)
        frame = as_table(table, "prices")
        assert pa.table(table).schema.types == pa.table(given).schema.types
        return frame.shift(-1) > frame if ahead else frame > frame.rolling(5).mean()

    assert corvex.check_lookahead(strategy, given, ahead=False)
    assert corvex.check_lookahead(strategy, given, ahead=True).kind == "look-ahead"
    with (
        pytest.raises(ValueError, match="give a table with a column for each asset"),
        pytest.warns(UserWarning, match="long form"),
    ):
        corvex.check_lookahead(strategy, pa.Table.from_pandas(rows(prices)), ahead=False)


def test_sweeps_of_other_tables(prices, weights, tmp_path):
    def strategy(given, share):  # an array of pyarrow's
        close = np.column_stack([given[name] for name in ("AAA", "BBB", "CCC")])
        return np.where(np.isfinite(close), share, 0.0)

    table = pa.Table.from_pandas(prices)
    axes = {"dates": prices.index, "assets": prices.columns}
    arguments = {"signal": {"share": [0.1, 0.3]}, "keep": "curves", **axes, **OPTIONS}
    found = corvex.sweep(strategy, table.to_reader(), store=tmp_path / "s", **arguments)
    assert not found.figures["error"].notna().any()
    expected = corvex.simulate(prices.notna() * 0.3, prices, **OPTIONS).creturn
    assert found.report(share=0.3).creturn.to_numpy().tolist() == expected.to_numpy().tolist()
    walk = corvex.walk_forward(found, train="20D", test="20D")
    changed = table.set_column(0, "AAA", pa.array(prices["AAA"] * 2))
    with pytest.raises(ValueError, match="prices differ"):
        corvex.sweep(strategy, changed, store=tmp_path / "s", **arguments)

    back = pa.table(found)
    with pytest.raises(ValueError, match="'cagr' is the name of a column and of a level"):
        pa.table(corvex.sweep(lambda prices, cagr: prices > cagr, prices, signal={"cagr": [1]}))
    assert back["share"].to_pylist() == [0.1, 0.3]
    assert back["cagr"].to_pylist() == found.figures["cagr"].tolist()
    assert str(back["error"].type) == "string"
    assert pa.table(walk).num_rows == len(walk.choices)
    mixed = corvex.sweep(weights, prices, options={"stop_loss": [None, 0.1]}, **OPTIONS)
    assert pa.table(mixed).num_rows == 2
    beside = corvex.compare({"a": found.report(share=0.3), "b": found.report(share=0.1)})
    assert pa.table(beside)["report"].to_pylist() == ["a", "b"]
    drawn = corvex.random_portfolios(table, table, 2, **OPTIONS, leverage=False, position_limit=0.3)
    assert pa.table(drawn).num_rows == 2
