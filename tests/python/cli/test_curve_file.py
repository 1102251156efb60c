import gzip
import sys

import pandas as pd
import pytest

from corvex.cli.readers.curve_file import read_table

JAN = ["2024-01-30", "2024-01-31"]


@pytest.mark.parametrize(
    ("dates", "expected"),
    [
        (["2024-01-30", "2024-01-31"], JAN),
        (["20240130", "20240131"], JAN),
        (["2024/1/30", "2024/1/31"], JAN),
        (["30.01.2024", "31.01.2024"], JAN),
        (["1/30/2024", "1/31/2024"], JAN),
        (["30/01/2024", "31/01/2024"], JAN),
        (["30-Jan-24", "31-Jan-24"], JAN),
        (['"Jan 30, 2024"', '"Jan 31, 2024"'], JAN),
        (["2024年1月30日", "2024年1月31日"], JAN),
        (["113/01/30", "113/01/31"], JAN),
        (["1706572800", "1706659200"], JAN),
        (["1706572800000", "1706659200000"], JAN),
        (["01/30/2024 09:30", "01/30/2024 10:00"], ["2024-01-30 09:30", "2024-01-30 10:00"]),
        # The clock went forward in between, so the local times count.
        (
            ["2024-03-08T16:00:00-05:00", "2024-03-11T16:00:00-04:00"],
            ["2024-03-08 16:00", "2024-03-11 16:00"],
        ),
        # Only day first brings them into an order.
        (["11/01/2024", "12/01/2024", "01/02/2024"], ["2024-01-11", "2024-01-12", "2024-02-01"]),
    ],
    ids=lambda case: case[0],
)
def test_dates_are_read_in_any_usual_form(tmp_path, dates, expected):
    path = tmp_path / "a.csv"
    path.write_text("nav,Date\n" + "".join(f"{i + 1},{date}\n" for i, date in enumerate(dates)))
    file = read_table(path)
    assert list(file.dates) == [pd.Timestamp(date) for date in expected]
    assert file.values(file.column(None)).tolist() == [i + 1.0 for i in range(len(dates))]


def test_what_cannot_be_told_is_assumed_and_said(tmp_path):
    path = tmp_path / "a.csv"
    path.write_text("date,nav\n01/02/2024,1\n01/03/2024,2\n,3\n")
    file = read_table(path)
    assert file.dates[0] == pd.Timestamp("2024-01-02")
    assert file.notes == [
        "1 rows without a date were left out",
        "day and month cannot be told apart; month/day/year is assumed",
    ]


@pytest.mark.parametrize(
    ("text", "expected"),
    [
        ("date,x\n2024-01-30,1e3\n2024-01-31,\n", [1000.0, None]),
        ("date;x\n2024-01-30;1.234,5\n2024-01-31;-7,25\n", [1234.5, -7.25]),
        ('date,x\n2024-01-30,"1,234"\n2024-01-31,"$2,000.5"\n', [1234.0, 2000.5]),
        ("date\tx\n2024-01-30\t1.5%\n2024-01-31\t(2%)\n", [0.015, -0.02]),
        ("2024-01-30|NT$ 5\n2024-01-31|\u22126\n", [5.0, -6.0]),
        ("\ufeffx,date,word\nn/a,2024-01-30,a\n-,2024-01-31,b\n", [None, None]),
    ],
)
def test_numbers_are_read_in_any_usual_form(tmp_path, text, expected):
    path = tmp_path / "a.csv.gz"
    path.write_bytes(gzip.compress(text.encode()))
    file = read_table(path)
    column = "x" if file.has_column("x") else file.column(None)
    assert [None if pd.isna(v) else v for v in file.values(column)] == expected


def test_the_column_is_found_by_name_before_content(tmp_path):
    path = tmp_path / "a.csv"
    path.write_text("volume,Adj Close,date,Close\n1,2,2024-01-30,oops\n3,4,2024-01-31,5\n")
    file = read_table(path)
    assert file.column(None) == "Adj Close"
    assert file.notes == ["column 'Adj Close' of a.csv is used"]
    path.write_text("volume,date,Close\n1,2024-01-30,oops\n3,2024-01-31,5\n")
    file = read_table(path)
    with pytest.raises(ValueError, match=r"holds 'oops' on 2024-01-30 \(data row 1\)"):
        file.values(file.column(None))


def test_a_parquet_file_may_keep_its_dates_in_the_index(tmp_path):
    index = pd.DatetimeIndex(JAN, tz="Asia/Taipei", name="when")
    pd.DataFrame({"nav": [1.0, 2.0]}, index=index).to_parquet(tmp_path / "a.parquet")
    file = read_table(tmp_path / "a.parquet")
    assert file.dates.equals(index)
    (tmp_path / "b.parquet").write_bytes(b"PAR1")
    with pytest.raises(ValueError, match=r"b\.parquet cannot be read"):
        read_table(tmp_path / "b.parquet")


TABLE = "My fund;;\nas of 2024-02-01;;\n;;\nDate;Return (%);note\n{}"
ROWS = "30.01.2024;1,5;\n31.01.2024;-2;b\n"


@pytest.mark.parametrize(
    ("text", "expected", "notes"),
    [
        (
            TABLE.format(ROWS + ";;\nTotal;-0,5;\nSource: the bank;;\n"),
            [0.015, -0.02],
            ["2 lines above the table were left out: 'My fund' ...",
             "2 lines below the table were left out: 'Total, -0,5' ...",
             "column 'Return (%)' of a.csv is used", "column 'Return (%)' is read as percent"],
        ),
        ("Date,Return %\n2024-01-30,1.5%\n2024-01-31,-2\n", [0.015, -0.02],
         ["column 'Return %' is read as percent"]),
        ("Date,nav\n45321,1\n45322,2\n", [1.0, 2.0],
         ["column 'Date' is read as a spreadsheet's serial days"]),
        ("nav,trade date,Date\n1,20240130,45321\n2,20240131,45322\n", [1.0, 2.0],
         ["column 'nav' of a.csv is used"]),
        ("fund\n2024-01-30,7\n2024-01-31,8\n", [7.0, 8.0],
         ["1 line above the table were left out: 'fund'"]),
    ],
)  # fmt: skip
def test_what_stands_around_a_table_is_left_out_and_units_are_read(tmp_path, text, expected, notes):
    (tmp_path / "a.csv").write_text(text)
    file = read_table(tmp_path / "a.csv")
    values = file.values(file.column(None))
    assert values.tolist() == expected
    assert [f"{date:%Y-%m-%d}" for date in values.index] == JAN
    assert file.notes == notes


def test_a_workbook_is_read_as_it_is_shown(tmp_path, monkeypatch):
    openpyxl = pytest.importorskip("openpyxl")
    book = openpyxl.Workbook()
    book.active.append(["only a title"])
    sheet = book.create_sheet("curve")
    for row in (
        ["My fund"],
        [],
        ["Date", "Return (%)", "nav"],
        *zip(pd.to_datetime(JAN), [0.015, -0.02], [1, 2.5], strict=True),
        ["Total", 9],
    ):
        sheet.append(list(row))
    sheet["B4"].number_format = "0.00%"
    book.save(tmp_path / "a.xlsx")
    file = read_table(tmp_path / "a.xlsx")
    assert file.values("nav").to_dict() == dict(zip(pd.to_datetime(JAN), [1.0, 2.5], strict=True))
    # The first cell is shown in percent, the second holds the percent itself.
    assert file.values("Return (%)").tolist() == pytest.approx([0.015, -0.0002])
    assert "of a.xlsx the sheet 'curve' is read" in file.notes
    (tmp_path / "b.xlsx").write_bytes(bytes(2 << 20))
    with pytest.raises(ValueError, match="holds more than 1 MB"):
        read_table(tmp_path / "b.xlsx", 1)
    monkeypatch.setitem(sys.modules, "openpyxl", None)
    with pytest.raises(ValueError, match=r"pip install 'corvex\[excel\]'"):
        read_table(tmp_path / "a.xlsx")


def test_what_is_read_of_a_file_is_bounded(tmp_path):
    path = tmp_path / "a.csv.gz"
    names = ",".join(f"c{i}" for i in range(20_000))
    rows = [f"2024-01-{day},{'1.5,' * 20_000}2" for day in range(10, 30)] * 5
    path.write_bytes(gzip.compress("\n".join([f"date,{names},nav", *rows]).encode()))
    assert read_table(path).values("nav").tolist() == [2.0] * 100
    with pytest.raises(ValueError, match=r"no column 'absent'; it has c0, .* and 19,981 more$"):
        read_table(path).column("absent")
    pd.DataFrame(1.5, range(500_000), ["a", "b", "c"]).to_parquet(tmp_path / "b.parquet")
    for packed in (path, tmp_path / "b.parquet"):
        with pytest.raises(ValueError, match="more than 5 MB .* --max-size N allows"):
            read_table(packed, 5)
