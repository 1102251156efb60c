"""Reports as data alone: whole, small, and harmless whatever is in the file."""

import contextlib
import dataclasses
import io
import json
import os
import pickle
import random
import re
import subprocess
import sys
import zipfile

import numpy as np
import pandas as pd
import pyarrow as pa
import pyarrow.parquet as pq
import pytest

import corvex
from corvex.core.careful_pickle import read_carefully
from corvex.market import Market
from corvex.markets import _registered, register_market
from corvex.significance.random_draws import RandomDraws

from .reports import KINDS, report

PASSING = ("metrics", "stamps", "_aligned")  # worked out again when asked for


def alike(one, other, path=""):
    """Whether two values are the same, to the type and to the last bit."""
    assert type(one) is type(other), path
    if isinstance(one, pd.DataFrame):
        pd.testing.assert_frame_equal(one, other, check_exact=True, check_column_type="exact")
        alike(one.attrs, other.attrs, path)
    elif isinstance(one, pd.Series):
        pd.testing.assert_series_equal(one, other, check_exact=True)
        alike(one.name, other.name, path)
    elif isinstance(one, pd.Index):
        pd.testing.assert_index_equal(one, other, exact=True)
    elif isinstance(one, dict):
        assert list(one) == list(other), path
        for key in one:
            alike(one[key], other[key], f"{path}.{key}")
    elif isinstance(one, list | tuple):
        for a, b in zip(one, other, strict=True):
            alike(a, b, path)
    elif isinstance(one, frozenset | set):
        assert one == other, path
    elif type(one).__module__.startswith("corvex"):
        states = [{k: v for k, v in vars(x).items() if k not in PASSING} for x in (one, other)]
        alike(*states, path)
    else:
        assert str(one) == str(other), path


def curve(**options):
    days = pd.bdate_range("2020-01-01", periods=300, tz=options.pop("tz", None))
    return corvex.from_equity(pd.Series(np.linspace(1, 2, 300), days), **options)


@pytest.mark.parametrize("kind", [*KINDS, "Asia/Taipei", "UTC"])
def test_what_is_opened_is_what_was_saved(kind, tmp_path):
    saved = report(kind) if kind in KINDS else curve(tz=kind, name="曲線 \ud800")
    saved.to_pickle(tmp_path / "a.pkl")
    corvex.save(saved, tmp_path / "a.corvex")
    opened = corvex.load(tmp_path / "a.corvex")
    alike(corvex.Report.from_pickle(tmp_path / "a.pkl"), opened)
    assert opened.to_text("x") == saved.to_text("x")
    assert str(opened.get_metrics()) == str(saved.get_metrics())
    assert (tmp_path / "a.corvex").stat().st_size < (tmp_path / "a.pkl").stat().st_size * 0.6
    corvex.save(opened, tmp_path / "b.corvex")
    assert (tmp_path / "a.corvex").read_bytes() == (tmp_path / "b.corvex").read_bytes()


def test_odd_values_come_back(tmp_path):
    saved = curve()
    dates = pd.DatetimeIndex(["2024-01-01", None], tz="America/New_York").as_unit("ms")
    saved.odd = {
        "numbers": [float("nan"), float("-inf"), 10**30, np.float32(0.1), np.bool_(True), -0.0],
        ("a", 1): ({1, 2}, frozenset("x"), pd.NaT, pd.NA, None),
        "~": [pd.Timestamp("2024-01-02 03:04:05.000000006"), pd.Timedelta("1us")],
        "dates": [pd.Timestamp.now("Asia/Taipei").to_pydatetime(), pd.Timestamp("1999").date()],
        "offset": [pd.offsets.BMonthEnd(2), pd.Timedelta("3h").to_pytimedelta()],
        "table": pd.DataFrame(
            {
                "o": ["text", 1], "f": pd.array([1.5, None], "Float64"), "t": dates,
                "n": np.array([1, 2], "int16"), "c": pd.Categorical(["b", "a"], ["a", "b"], True),
                3: [None, "x"], "d": pd.to_timedelta([1, 2], "h"), "u": np.array([1, 2], "uint8"),
            },
            index=pd.Index([1.5, "x"], name="i"),
        ),
        "matrix": np.arange(6.0).reshape(2, 3), "empty": pd.Series(dtype="int64"),
        "decimals": pd.Series([0.1, 12.34, np.nan, 1e9, -0.29] * 9), "negative zero": -np.zeros(9),
    }  # fmt: skip
    saved.odd["table"].attrs["note"] = "kept"
    corvex.save(saved, tmp_path / "a.corvex")
    opened = corvex.load(tmp_path / "a.corvex").odd
    for key in ("matrix", "negative zero"):
        assert saved.odd[key].tobytes() == opened[key].tobytes()
        del saved.odd[key], opened[key]
    alike(saved.odd, opened)


def test_what_is_known_of_the_search_stays_with_a_report(tmp_path):
    saved = curve()
    trials = np.random.default_rng(1).normal(0, 0.01, (200, 5))
    saved.trials_statistics = corvex.trial_statistics(trials)
    drawn = pd.DataFrame({"daily_sharpe": [0.1, 0.2, 3.0]})
    saved.random_draws = [RandomDraws("portfolios", "daily_sharpe", 1, drawn)]
    saved.to_pickle(tmp_path / "a.pkl")
    corvex.save(saved, tmp_path / "a.corvex")
    told = repr(corvex.confidence(saved))
    assert "Probability of overfitting" in told
    assert "above 66.7% of 3" in told
    for opened in (read_carefully(tmp_path / "a.pkl"), corvex.load(tmp_path / "a.corvex")):
        assert repr(corvex.confidence(opened)) == told
    vars(saved.trials_statistics).pop("superiority")  # as a file of an older version has them
    vars(saved.trials_statistics)["more"] = 1.0  # as one of a newer version may
    corvex.save(saved, tmp_path / "b.corvex")
    assert np.isnan(corvex.confidence(corvex.load(tmp_path / "b.corvex")).figures["spa_p"])
    saved.random_draws = RandomDraws("portfolios", "daily_sharpe", 1, "no table")
    corvex.save(saved, tmp_path / "b.corvex")
    with pytest.raises(ValueError, match="no state of a RandomDraws"):
        corvex.load(tmp_path / "b.corvex")


class OwnMarket(Market):
    def get_name(self):
        return "own"


def test_what_is_no_data_is_refused_and_a_market_of_ones_own_is_named(tmp_path):
    saved = curve()
    saved.hook = {"deep": [print]}
    with pytest.raises(TypeError, match=r"hook\.deep\[0\] is a builtins.builtin_function"):
        corvex.save(saved, tmp_path / "a.corvex")
    assert os.listdir(tmp_path) == []
    saved = curve(market=OwnMarket())
    corvex.save(saved, tmp_path / "a.corvex")
    with pytest.raises(ValueError, match="market 'own' is not known here; register it"):
        corvex.load(tmp_path / "a.corvex")
    try:
        register_market(OwnMarket)
        assert type(corvex.load(tmp_path / "a.corvex").market).__name__ == "OwnMarket"
    finally:
        _registered.pop("own", None)


@pytest.mark.slow
def test_a_large_report_is_a_small_file_and_its_page_the_same(tmp_path):
    days = pd.bdate_range("2004-01-01", periods=2500)
    walk = np.random.default_rng(0).normal(0.0002, 0.02, (2500, 1000)).cumsum(axis=0)
    prices = pd.DataFrame(100 * np.exp(walk), days, [f"A{i}" for i in range(1000)])
    best = prices.pct_change(126).rank(axis=1, ascending=False) <= 40
    saved = corvex.simulate(best, prices, resample="ME", market="us_stock", name="x")
    file = tmp_path / "a.corvex"
    corvex.save(saved, file, random_portfolios=None)  # files hold no prices to draw them from
    assert not hasattr(saved, "random_draws")  # it stays as it was
    assert file.stat().st_size < 4e6  # the prices alone are 20 MB
    opened = corvex.load(file)
    pages = []
    for one in (saved, opened):
        one.to_html(tmp_path / "page.html")
        page = (tmp_path / "page.html").read_text(encoding="utf-8")
        page = re.sub(r"\d\.\d{12,}", lambda number: number[0][:13], page)  # sums in any order
        pages.append(re.sub('"generated":"[^"]*"', "", page))
    assert pages[0] == pages[1]


@dataclasses.dataclass
class Parts:
    """A saved file taken apart."""

    entries: dict[str, bytes]

    def written(self, path, **changes):
        entries = self.entries | {name.replace("_", "."): c for name, c in changes.items()}
        with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as file:
            for name, content in entries.items():
                file.writestr(name, content)
        return path

    def with_record(self, path, change):
        record = json.loads(self.entries["report.json"])
        change(record)
        return self.written(path, report_json=json.dumps(record))


@pytest.fixture
def parts(tmp_path):
    corvex.save(curve(), tmp_path / "good.corvex")
    with zipfile.ZipFile(tmp_path / "good.corvex") as file:
        return Parts({name: file.read(name) for name in file.namelist()})


def table_of(**columns):
    sink = io.BytesIO()
    pq.write_table(pa.table(columns), sink)
    return sink.getvalue()


def test_files_that_were_forged_give_one_error(parts, tmp_path):
    file = tmp_path / "forged.corvex"
    rows, huge = "rows-300.parquet", {"type": "int8", "rows": 10**12, "all": 1}
    names = pq.ParquetFile(io.BytesIO(parts.entries[rows])).schema_arrow.names

    def refused(words, path=file):
        with pytest.raises(ValueError, match=words) as caught:
            corvex.load(path)
        assert str(caught.value).startswith(f"{path} cannot be opened: ")

    file.write_bytes(pickle.dumps({}))
    refused("it is a pickle; Report.from_pickle")
    parts.written(file, manifest_json='{"format": "corvex.report", "version": 2, "corvex": "9.1"}')
    refused(r"of version 2 of the format.*written by corvex 9\.1, this is")
    parts.written(file, report_json="[" * 100_000)
    refused("is not JSON")
    parts.written(file, **{f"x{i}": b"" for i in range(2000)})
    refused("more parts than")
    parts.written(file, report_json=b" " * (40 << 20))
    refused("larger than that of any report")
    for column in (["text"] * 300, [[1.0]] * 300):
        parts.entries["rows-300.parquet"] = table_of(**dict.fromkeys(names, column))
        parts.written(file)
        refused("something else than columns of numbers")
    for change, words in (
        (lambda r: r.update(to_text="x"), "no state of a Report"),
        (lambda r: r.update(__class__="x"), "no state of a Report"),
        (lambda r: r.update(creturn=5), "creturn is missing|is damaged"),
        (lambda r: r.pop("market"), "market is missing"),
        (lambda r: r.update(x={"~": "range"}), "no kind of value"),
        (lambda r: r.update(x={"~": "index", "range": [0, 10**15, 1], "name": None}), "max_size"),
        (lambda r: r.update(x={"~": "array", "v": {"numbers": huge}, "shape": [1]}), "max_size"),
        (lambda r: r.update(x={"~": "time", "v": 1, "unit": "ns", "zone": "../../etc/passwd"}),
         "is damaged"),
    ):  # fmt: skip
        fresh = Parts(dict(parts.entries))
        corvex.save(curve(), tmp_path / "good.corvex")
        with zipfile.ZipFile(tmp_path / "good.corvex") as good:
            fresh.entries = {name: good.read(name) for name in good.namelist()}
        refused(words, fresh.with_record(file, change))


BOMB = """
import re, sys, corvex
corvex.Report
before = int(re.search(r"VmHWM:\\s+(\\d+)", open("/proc/self/status").read())[1])
try:
    corvex.load(sys.argv[1], max_size=100)
except ValueError as error:
    now = int(re.search(r"VmHWM:\\s+(\\d+)", open("/proc/self/status").read())[1])
    print(error, (now - before) >> 10, sep="|")
"""


@pytest.mark.slow
@pytest.mark.no_asan
def test_bombs_are_refused_within_bounded_memory(parts, tmp_path):
    million = [f"c{i}" for i in range(300_000)]
    wide = pa.Table.from_arrays([pa.array([1.0])] * len(million), names=million)
    sink = io.BytesIO()
    pq.write_table(wide, sink, write_statistics=False, compression=None)
    bombs = {
        "zip": {"rows-1.parquet": bytes(300 << 20)},
        "rows": {"rows-1.parquet": table_of(a=pa.array(np.zeros(20_000_000)))},
        "columns": {"rows-1.parquet": sink.getvalue()},
    }
    for name, entries in bombs.items():
        file = tmp_path / name
        Parts(parts.entries | entries).written(file)
        command = [sys.executable, "-c", BOMB, file]
        done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
        message, _, memory = done.stdout.rpartition("|")
        assert "cannot be opened" in message, (name, done.stderr[-500:])
        assert int(memory) < 300, name


def test_damaged_files_give_one_error_or_what_was_saved(parts, tmp_path):
    whole = parts.written(tmp_path / "whole").read_bytes()
    expected, choose, file = curve(), random.Random(3), tmp_path / "damaged"
    for number in range(300):
        damaged = bytearray(whole)
        at = choose.randrange(len(damaged))
        if number % 3 == 0:
            del damaged[at:]
        elif number % 3 == 1:
            damaged[at] ^= 1 << choose.randrange(8)
        else:
            damaged[at : at + 500] = choose.randbytes(len(damaged[at : at + 500]))
        file.write_bytes(damaged)
        with contextlib.suppress(ValueError):
            assert corvex.load(file).creturn.equals(expected.creturn)
