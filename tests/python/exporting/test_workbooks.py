"""Workbooks hold what the report does, and nothing in them runs or breaks."""

import datetime

import numpy as np
import openpyxl
import pandas as pd
import pytest

import corvex

# What a spreadsheet would run, take for an error, or not open.
NAMES = ["=1+1", "+AAA", "-BBB", "@CCC", "#N/A", "a\x00\x1b\ud7ffb", "<i>&"]


@pytest.fixture(scope="module", params=[None, "Asia/Taipei"])
def report(request):
    days = pd.bdate_range("2022-12-01", periods=80, tz=request.param)
    walk = np.random.default_rng(3).normal(0.001, 0.02, (80, len(NAMES))).cumsum(axis=0)
    prices = pd.DataFrame(100 * np.exp(walk), days, NAMES)
    weights = prices.gt(prices.rolling(5).mean())
    benchmark = prices["=1+1"].iloc[10:60].rename("=index")
    with pytest.warns(UserWarning, match="covers"):
        return corvex.simulate(
            weights, prices, market="us_stock", fee_ratio=0.001, benchmark=benchmark, name="=evil"
        )


def read(path) -> dict[str, list[tuple]]:
    book = openpyxl.load_workbook(path)
    for sheet in book:
        for row in sheet.iter_rows():
            for cell in row:
                assert cell.data_type not in ("f", "e"), cell.value
                if isinstance(cell.value, str):
                    assert cell.quotePrefix == cell.value.startswith(("=", "+", "-", "@"))
    return {sheet.title: list(sheet.iter_rows(values_only=True)) for sheet in book}


def test_sheets_hold_the_report(report, tmp_path):
    path = tmp_path / "r.xlsx"
    report.trades["extra"] = [np.inf, 2**60, pd.Timestamp("1850-01-01"), None] + [""] * (
        len(report.trades) - 4
    )
    try:
        corvex.save_workbook(report, path)
    finally:
        del report.trades["extra"]
    assert [one.name for one in tmp_path.iterdir()] == ["r.xlsx"]
    sheets = read(path)
    assert list(sheets) == ["Figures", "Monthly returns", "Holdings", "Trades", "Equity"]
    figures = {row[4]: row for row in sheets["Figures"]}
    stats = report.get_stats()
    assert figures["cagr"][2] == pytest.approx(stats["cagr"])
    assert figures["max_drawdown"][2] == pytest.approx(stats["max_drawdown"])
    assert figures["name"][2] == "=evil"
    assert figures["benchmark"][2] == "=index"
    assert figures["fee_ratio"][2] == 0.001

    months = {row[0]: row for row in sheets["Monthly returns"][1:]}
    assert months[2023][1] == pytest.approx(stats["return_table"][2023][1])
    assert months[2022][1] is None

    held = {row[0]: row for row in sheets["Holdings"][1:]}
    now = report.weights[report.weights != 0]
    assert {name: held[name][1] for name in now.index if name in NAMES[:5]} == pytest.approx(
        {name: weight for name, weight in now.items() if name in NAMES[:5]}
    )
    assert sum(row[1] for row in held.values()) == pytest.approx(1.0)

    header, *trades = sheets["Trades"]
    zone = report.trades["entry_date"].dt.tz
    entry = "entry_date" if zone is None else f"entry_date ({zone})"
    table = pd.DataFrame(trades, columns=header)
    expected = report.trades["entry_date"].dt.tz_localize(None)
    assert (pd.to_datetime(table[entry]).to_numpy() == expected.to_numpy()).all()
    assert table["return"].astype(float).tolist() == pytest.approx(
        report.trades["return"].tolist(), nan_ok=True
    )
    assert table["extra"].tolist()[:3] == ["inf", str(2**60), "1850-01-01T00:00:00"]
    assert "a\ufffd\ufffd\ud7ffb" in table["symbol"].tolist()

    equity = sheets["Equity"][1:]
    assert [row[1] for row in equity] == pytest.approx(report.daily_creturn.tolist())
    assert equity[0][0] == datetime.datetime.combine(report.creturn.index[0], datetime.time())
    assert equity[0][3] is None  # the benchmark starts late


def test_a_workbook_speaks_chinese_in_every_heading_and_holds_the_same(tmp_path):
    prices = corvex.data.sample("us_stocks").loc["2020":]
    held = prices.pct_change(60).rank(axis=1, ascending=False) <= 3
    report = corvex.simulate(
        held, prices, resample="ME", trail_stop=0.1,
        account=corvex.Account(capital=1e6, fee_table={0: 0.001}),
    )  # fmt: skip
    books = {}
    for language in ("en", "zh-Hant"):
        corvex.save_workbook(report, tmp_path / "r.xlsx", language=language)
        books[language] = list(read(tmp_path / "r.xlsx").items())
    for (title, english), (name, chinese) in zip(*books.values(), strict=True):
        plain = [text for text in (name, *chinese[0]) if text.isascii()]
        assert set(plain) <= {"MAE", "MFE"}, title
        for row, other in zip(english[1:], chinese[1:], strict=True):
            if row[-1] != "generated":  # a second later
                pairs = zip(row, other, strict=True)
                assert all(then == value or isinstance(then, str) for value, then in pairs)
    run = {row[4]: row[2] for row in books["zh-Hant"][0][1][1:]}
    assert (run["market"], run["fee_ratio"]) == ("美股", "依金額")
    with pytest.raises(ValueError, match="language must be one of en, zh-Hant"):
        corvex.save_workbook(report, tmp_path / "r.xlsx", language="fr")


@pytest.mark.parametrize("zone", [None, "Asia/Taipei"])
def test_the_money_of_an_account_has_a_sheet(zone, tmp_path):
    days = pd.bdate_range("2022-12-01", periods=20, tz=zone)
    prices = pd.DataFrame({"AAA": 100.0, "BBB": 50.0}, days)
    account = corvex.Account(capital=5_025, lot_size=1, fee_table={0: 0.001})
    weights = pd.DataFrame({"AAA": [0.5], "BBB": [0.2]}, days[:1])
    report = corvex.simulate(weights, prices, market="us_stock", account=account)
    corvex.save_workbook(report, tmp_path / "a.xlsx")
    sheets = read(tmp_path / "a.xlsx")
    assert {row[4]: row[2] for row in sheets["Figures"]}["fee_ratio"] == "by value"
    held = {row[0]: row[6:] for row in sheets["Holdings"]}
    cash = pytest.approx(5_025 - 3_500 - 3.5)
    assert held == {"asset": ("shares", "money"), "AAA": (25, 2500), "BBB": (20, 1000),
                    "cash": (None, cash)}  # fmt: skip
    header, *rows = sheets["Account"]
    assert header[0] == ("date" if zone is None else f"date ({zone})")
    assert header[1:] == tuple(report.account.columns)
    assert rows[-1][0] == datetime.datetime(2022, 12, 28)
    np.testing.assert_allclose([row[1:] for row in rows], report.account)


def test_refusals_leave_no_file(report, tmp_path, monkeypatch):
    with pytest.raises(ValueError, match=r"must end in \.xlsx"):
        corvex.save_workbook(report, tmp_path / "r.xls")
    monkeypatch.setattr("corvex.exporting.spreadsheet._MOST_ROWS", 3)
    with pytest.raises(ValueError, match="more than a sheet holds"):
        corvex.save_workbook(report, tmp_path / "r.xlsx")
    monkeypatch.setitem(__import__("sys").modules, "openpyxl", None)
    with pytest.raises(ImportError, match=r"pip install 'corvex\[excel\]'"):
        corvex.save_workbook(report, tmp_path / "r.xlsx")
    assert not list(tmp_path.iterdir())


def test_a_curve_alone_has_a_workbook(tmp_path):
    days = pd.bdate_range("2024-01-02", periods=5)
    curve = corvex.from_equity(pd.Series([1.0, 1.1, 1.0, 1.2, 0.0], days))
    corvex.save_workbook(curve, tmp_path / "c.xlsx")
    assert len(read(tmp_path / "c.xlsx")["Trades"]) == 1
