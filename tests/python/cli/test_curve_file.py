import gzip

import pandas as pd
import pytest

from corvex.cli.curve_file import read_table

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
    assert list(file.table.index) == [pd.Timestamp(date) for date in expected]
    assert file.values(file.column(None)).tolist() == [i + 1.0 for i in range(len(dates))]


def test_what_cannot_be_told_is_assumed_and_said(tmp_path):
    path = tmp_path / "a.csv"
    path.write_text("date,nav\n01/02/2024,1\n01/03/2024,2\n,3\n")
    file = read_table(path)
    assert file.table.index[0] == pd.Timestamp("2024-01-02")
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
    assert file.table.index.equals(index)
    (tmp_path / "b.parquet").write_bytes(b"PAR1")
    with pytest.raises(ValueError, match=r"b\.parquet cannot be read"):
        read_table(tmp_path / "b.parquet")
