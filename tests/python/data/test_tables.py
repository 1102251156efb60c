"""The built-in samples and named tables of a folder."""

import os

import pandas as pd
import pytest

from corvex import data
from corvex.data.context import _default_context


def test_stock_and_index_samples_are_whole():
    stocks, index = data.sample("us_stocks"), data.get("sp500")

    assert stocks.shape == (8313, 20)
    assert index.index.equals(stocks.index)
    assert stocks.index.is_monotonic_increasing
    for table in (stocks, index.to_frame()):
        assert table.gt(0).all(axis=None)
    stocks.iloc[0, 0] = -1.0
    assert data.sample("us_stocks").iloc[0, 0] == 0.264  # a caller's change stays the caller's


def test_splits_are_scaled_out_of_the_ohlcv_sample():
    adjusted, quoted = data.sample("us_stocks_ohlcv"), data.sample("us_stocks_ohlcv", adj=False)

    assert list(adjusted) == ["open", "high", "low", "close", "volume"]
    for symbol, split in (("AAPL", "2000-06-21"), ("AAPL", "2005-02-28"), ("MSFT", "2003-02-18")):
        raw, scaled = (t["close"][symbol].pct_change()[split] for t in (quoted, adjusted))
        assert raw < -0.4
        assert abs(scaled) < 0.12
    assert adjusted["close"]["AAPL"].pct_change()["2000-09-29"] < -0.5  # a real fall stays
    for inner in (adjusted["open"], adjusted["close"]):
        assert not (inner > adjusted["high"] * (1 + 1e-12)).any(axis=None)
        assert not (inner * (1 + 1e-12) < adjusted["low"]).any(axis=None)
    traded = [fields["close"] * fields["volume"] for fields in (adjusted, quoted)]
    pd.testing.assert_frame_equal(*traded)


@pytest.fixture
def folder(tmp_path):
    with _default_context.override(data_dir=tmp_path, _loaded_datasets=set()):
        yield tmp_path


@pytest.mark.parametrize(
    ("text", "first"),
    [
        ("date,0050\n2024-01-03,2\n2024-01-02,1\n", "2024-01-02"),
        ("\ufeffdate,0050\n2024/1/2,1\n2024/1/3,2\n", "2024-01-02"),
        ("d,0050\n20240102,1\n20240103,2\n", "2024-01-02"),
        ("d,0050\n2024-01-02 09:00:00,1\n2024-01-02 09:05:00,2\n", "2024-01-02 09:00"),
        ("d,0050\n2024-01-02T09:00:00+08:00,1\n2024-01-02T09:05:00+08:00,2\n", "2024-01-02 01:00Z"),
        ("d,0050\n2024-03-08T16:00-05:00,1\n2024-03-11T16:00-04:00,2\n", "2024-03-08 21:00Z"),
    ],
    ids=["unsorted", "slashes-and-bom", "compact", "intraday", "offset", "two-offsets"],
)
def test_csv_dates_are_read_in_the_usual_forms(folder, text, first):
    (folder / "mine.csv").write_text(text, encoding="utf-8")

    table = data.get("mine")

    assert table.index[0] == pd.Timestamp(first)
    assert table["0050"].tolist() == [1, 2]


def test_parquet_and_csv_give_the_same_table_and_a_changed_file_is_read_again(folder):
    wide = data.sample("us_stocks").iloc[:50, :3]
    wide.to_csv(folder / "plain.csv.gz")
    wide.to_parquet(folder / "indexed.parquet")
    wide.reset_index().to_parquet(folder / "column.parquet")

    for name in ("plain", "indexed", "column"):
        pd.testing.assert_frame_equal(
            data.get(name), wide, check_freq=False, check_index_type=False
        )
    assert _default_context._loaded_datasets == {"plain", "indexed", "column"}
    assert data.available()[:3] == ["column", "indexed", "plain"]
    wide.iloc[:7].to_csv(folder / "plain.csv.gz")
    assert len(data.get("plain")) == 7


def test_the_folder_comes_from_the_environment_and_goes_before_the_samples(tmp_path, monkeypatch):
    (tmp_path / "sp500.csv").write_text("date,mine\n2024-01-02,1\n")
    monkeypatch.setenv("CORVEX_DATA_DIR", str(tmp_path))
    assert list(data.get_frame("sp500").columns) == ["mine"]
    monkeypatch.setenv("CORVEX_DATA_DIR", str(tmp_path / "gone"))
    with pytest.raises(ValueError, match=r"data folder does not exist: .*gone"):
        data.get("sp500")


def test_wrong_names_and_files_are_explained(folder):
    (folder / "us_stock_close.csv").write_text("date,A\n2024-01-02,1\n2024-01-02,2\n")
    (folder / "broken.parquet").write_bytes(b"no table")

    with pytest.raises(data.UnknownTableError, match=r"'us_stock_clsoe'; near: us_stock_close"):
        data.get("us_stock_clsoe")
    with pytest.raises(data.UnknownTableError, match="no sample named 'us_stock_close'"):
        data.sample("us_stock_close")
    with pytest.raises(ValueError, match="the date 2024-01-02 00:00:00 twice"):
        data.get("us_stock_close")
    with pytest.raises(ValueError, match=r"broken\.parquet is not a readable table"):
        data.get("broken")
    outside = f"..{os.sep}{folder.name}{os.sep}us_stock_close"
    assert not data.exists(outside)
    assert not data.exists("")
