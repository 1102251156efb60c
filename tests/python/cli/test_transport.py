"""Export, inspect and orders."""

import json
import os

import pandas as pd
import pytest

import corvex
from corvex.core.report import Report


@pytest.fixture(scope="module")
def saved(tmp_path_factory):
    """A saved report of two stocks, held in equal parts at the end."""
    path = tmp_path_factory.mktemp("saved") / "mine.pkl"
    days = pd.bdate_range("2024-01-02", periods=30)
    prices = pd.DataFrame({"AAA": 10.0, "BBB": 20.0, "CCC": 5.0}, days)
    weights = pd.DataFrame({"AAA": [0.5], "BBB": [0.5]}, days[:1])
    corvex.simulate(weights, prices, market="us_stock", fee_ratio=0.01).to_pickle(path)
    return path


@pytest.mark.parametrize("form", ["payload", "holdings", "execution"])
def test_exported_dictionaries_are_strict_json_and_are_found_valid(run, saved, tmp_path, form):
    status, out, _ = run("export", saved, "--format", form, "--out", ".")
    target = tmp_path / f"mine.{form}.json"
    assert (status, str(target) in out) == (0, True)
    text = target.read_text()
    value = json.loads(text, parse_constant=pytest.fail)
    assert value["schema"] == f"report.{form}.v1"
    status, out, _ = run("inspect", target)
    assert (status, out.splitlines()[-1]) == (0, "valid")
    target.write_text(text.replace('"positions"', '"places"'))
    status, out, err = run("inspect", target)
    assert (status, "'positions' is a required property" in out) == (1, True)
    assert "no valid report" in err


def test_exported_tables_hold_the_report(run, saved):
    report = Report.from_pickle(str(saved))
    assert run("export", saved, "--format", "csv", "--out", "t.csv")[0] == 0
    assert pd.read_csv("t.csv")["symbol"].tolist() == report.trades["symbol"].tolist()
    arguments = ("--format", "parquet", "--table", "equity", "--out", "e.parquet")
    assert run("export", saved, *arguments)[0] == 0
    assert pd.read_parquet("e.parquet")["equity"].tolist() == report.creturn.tolist()
    assert run("export", saved, "--xlsx", "--out", ".")[0] == 0
    trades = pd.read_excel(f"{saved.stem}.xlsx", sheet_name="Trades")
    assert trades["return"].tolist() == pytest.approx(report.trades["return"].tolist())
    assert run("export", saved, "--xlsx", "--lang", "zh-Hant", "--out", "zh.xlsx")[0] == 0
    assert "交易紀錄" in pd.read_excel("zh.xlsx", sheet_name=None)
    for wrong, told in (
        (("--xlsx", "--format", "csv"), "give one"),
        (("--lang=zh-Hant", "--format", "csv"), "has no language"),
        (("--table", "equity"), "--table is for --format csv or parquet"),
        (("--format", "csv", "--all-trades"), "--all-trades is for a payload"),
    ):
        status, _, err = run("export", saved, *wrong, "--out", "none.csv")
        assert (status, told in err, os.path.exists("none.csv")) == (1, True, False)


def test_orders_with_prices_and_holdings_from_files(run, saved, tmp_path):
    (tmp_path / "held.csv").write_text("AAA,60\nCCC,10\n")
    (tmp_path / "prices.csv").write_text(
        "date,AAA,BBB,CCC\n2024-03-04,10,20,\n2024-03-05,10,25,5\n2024-03-01,1,1,1\n"
    )
    files = ("--prices", "prices.csv", "--held", "held.csv", "--out", "o.json")
    status, out, _ = run("orders", saved, "--capital", 1000, *files)
    assert status == 0, out
    written = json.loads((tmp_path / "o.json").read_text())
    sides = [(row["asset_id"], row["side"], row["quantity"]) for row in written["orders"]]
    assert sides == [("AAA", "sell", 11.0), ("CCC", "sell", 10.0), ("BBB", "buy", 19.0)]
    assert written["costs"] == pytest.approx(0.01 * (110 + 50 + 475))
    status, out, _ = run("orders", saved, "--capital", 1000)
    assert (status, "cash left over 20.30" in out) == (0, True), out


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("{", "is not JSON"),
        ("[]", "a JSON object was expected, got list"),
        ('{"schema": "report.v9"}', "its schema is 'report.v9'; known are report.v1"),
    ],
)
def test_inspect_tells_what_is_no_payload(run, tmp_path, text, message):
    (tmp_path / "x.json").write_text(text)
    status, _, err = run("inspect", "x.json")
    assert (status, message in err) == (1, True)


def test_orders_tell_what_is_missing(run, saved, tmp_path):
    (tmp_path / "p.csv").write_text("asset,price\nAAA,10\n")
    status, _, err = run("orders", saved, "--capital", 1000, "--prices", "p.csv")
    assert (status, "no usable price of: BBB" in err) == (1, True)
    status, _, err = run("orders", saved, "--capital", 1000, "--strategy", "x")
    assert (status, "there is no strategy 'x'; there are: none" in err) == (1, True)
