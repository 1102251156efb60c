"""Readers give a whole result or a ValueError, whatever they are given."""

import base64
import gzip
import importlib.util
import json
import sys
from pathlib import Path

import pandas as pd
import pytest
from hypothesis import given
from hypothesis import strategies as st

from corvex.core.trade_columns import decode_trades, from_wire_trades, to_wire_trades

FUZZ = Path(__file__).parents[2] / "fuzz" / "readers.py"


def packed(content):
    content = content if isinstance(content, bytes) else json.dumps(content).encode()
    return base64.b64encode(gzip.compress(content, mtime=0)).decode()


def test_a_short_run_of_the_fuzz_target():
    module_spec = importlib.util.spec_from_file_location("fuzz_readers", FUZZ)
    readers = importlib.util.module_from_spec(module_spec)
    path = list(sys.path)
    try:
        module_spec.loader.exec_module(readers)
    finally:
        sys.path[:] = path
    fuzzer = readers.Fuzzer(seed=5)
    fuzzer.run(1500)
    fuzzer.folder.cleanup()
    # Each reader read some inputs and refused some.
    assert len(fuzzer.counts) == 2 * len(fuzzer.targets)
    assert min(fuzzer.counts.values()) > 10


@pytest.mark.parametrize(
    ("text", "message"),
    [
        (None, "should be a text, got <class 'NoneType'>"),
        ("%", "are not base64"),
        ("\u00e9", "are not base64"),
        (base64.b64encode(b"some bytes").decode(), "are not a gzip stream"),
        (packed([])[:12], "are cut off"),
        (base64.b64encode(gzip.compress(b"[]", mtime=0) * 2).decode(), "something follows them"),
        (packed(b"\xff"), "are not JSON"),
        (packed(b"[" * 200_000), "are nested too deeply"),
        (packed({}), "should be an array of objects"),
        (packed([[]]), "should be an array of objects"),
        (packed(b" " * (64 * 2**20 + 1)), "unpack to more than 67108864 bytes"),
        (packed([{str(row): 1} for row in range(3000)]), "hardly a column in common"),
        (packed([{"entryDate": "2024-01-02"}]), "'entry_date' should hold numbers, got str"),
        (packed([{"entryDate": True}]), "'entry_date' should hold numbers, got bool"),
        (packed([{"exitDate": 1e16}]), "between the years 1677 and 2262"),
        (packed([{"return": [1]}]), "'return' should hold numbers, got list"),
    ],
)
def test_what_is_no_trades_text_is_refused(text, message):
    with pytest.raises(ValueError, match=message):
        decode_trades(text)


def test_dates_in_a_zone_and_columns_of_ones_own():
    when = pd.DatetimeIndex(["2024-03-10T01:30:00", None]).as_unit("ns").tz_localize("Asia/Taipei")
    trades = pd.DataFrame({"entry_date": when, "my_date": when, "pe_ratio@entry_date": [1, None]})
    text = packed(to_wire_trades(trades).to_json(orient="records").encode())
    back = decode_trades(text, tz="Asia/Taipei", dates=["my_date"])
    pd.testing.assert_frame_equal(back, trades, check_dtype=False, check_index_type=False)
    assert decode_trades(text)["entry_date"][0] == pd.Timestamp("2024-03-09T17:30:00")
    with pytest.raises(ValueError, match="'Asia/Nowhere' is not a time zone"):
        decode_trades(text, tz="Asia/Nowhere")


words = st.from_regex(r"[a-z][a-z0-9]{0,3}(_[a-z][a-z0-9]{0,3}){0,2}", fullmatch=True)
labels = st.one_of(
    words,
    st.builds("{}@{}".format, words, words),
    st.from_regex(r"[A-Z_][A-Z0-9_]{0,5}", fullmatch=True),
)


@given(st.lists(labels, unique=True, max_size=8))
def test_names_come_back(columns):
    trades = pd.DataFrame([range(len(columns))], columns=columns)
    wire = to_wire_trades(trades)
    assert wire.columns.is_unique
    assert list(from_wire_trades(wire).columns) == columns
