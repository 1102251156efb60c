"""What is written to the document service, and read back."""

import datetime as dt
import json
import math

import numpy as np
import pandas as pd
import pytest

from corvex.cloud.document_values import decode_fields, encode_fields
from corvex.core import firestore_rest
from corvex.core.firestore_rest import (
    DocumentNotFoundError,
    DocumentStoreError,
    extract_uid_from_id_token,
    fetch_document,
    upsert_document,
)
from corvex.core.report import ReportExecution
from corvex.publishing import rehearse
from corvex.testing.cloud import trial_token

PATH = "users/trial-user/reports/a"
ZONE = dt.timezone(dt.timedelta(hours=8))
DOCUMENT = {
    "none": None,
    "yes": True,
    "whole": -(2**63),
    "ratio": 0.1 + 0.2,
    "nan": math.nan,
    "up": math.inf,
    "down": -math.inf,
    "time": dt.datetime(2024, 2, 29, 8, 30, 0, 123456, ZONE),
    "naive": dt.datetime(1965, 1, 2),
    "text": "策略 🙂 \x00\n\"'",
    "bytes": bytes(range(256)),
    "list": [1, "a", None, {"inner": [1.5]}],
    "empty": {"list": [], "record": {}, "text": ""},
    "odd.key `x` / 鍵": 1,
    7: "a number as key",
    "numpy": [np.float64(0.5), np.int64(3), np.bool_(True), np.datetime64("2024-01-01", "ns")],
    "missing": [pd.NaT, pd.NA],
}


def comparable(value):
    """Text that tells values and their types apart, whatever the order of keys."""

    def other(value):
        if value is pd.NaT or value is pd.NA:
            return None
        if isinstance(value, np.datetime64 | dt.datetime):
            return str(pd.to_datetime(value, utc=True))
        return value.item() if isinstance(value, np.generic) else repr(value)

    if isinstance(value, dict):
        value = {str(key): inner for key, inner in value.items()}
    return json.dumps(value, sort_keys=True, default=other)


def from_message(value):
    """A value of the store's own message type as a Python value."""
    kind = value._pb.WhichOneof("value_type")
    if kind == "null_value":
        return None
    if kind == "array_value":
        return [from_message(element) for element in value.array_value.values]
    if kind == "map_value":
        return {key: from_message(inner) for key, inner in value.map_value.fields.items()}
    inner = getattr(value, kind)
    return dt.datetime.fromisoformat(inner.rfc3339()) if kind == "timestamp_value" else inner


def test_the_wire_form_is_the_one_of_the_store_s_message_type(report):
    types = pytest.importorskip("google.cloud.firestore_v1.types")
    for document in (DOCUMENT, rehearse(report, "名稱")[1]):
        wire = json.dumps({"fields": encode_fields(document)})
        message = types.Document.from_json(wire)
        read = {key: from_message(value) for key, value in message.fields.items()}
        assert comparable(read) == comparable(document)
        # And what the store would send is read as it was.
        back = decode_fields(json.loads(types.Document.to_json(message))["fields"])
        assert comparable(back) == comparable(document)


DEEP = [{}]
for _ in range(30):
    DEEP.append({"in": DEEP[-1]})


@pytest.mark.parametrize(
    ("document", "error", "words"),
    [
        ({"a": {"b": [1, [2]]}}, ValueError, r"a\.b\[1\]: .*list directly within a list"),
        ({"a": 2**63}, ValueError, "a: .*64 bits"),
        ({"a": 10**9999}, ValueError, "a: .*64 bits"),
        ({"a": ["\ud800"]}, ValueError, r"a\[0\]: .*surrogate"),
        ({"a": {"": 1}}, ValueError, "a key in a must have 1 to 1500 bytes"),
        ({"__name__": 1}, ValueError, "not look like __this__"),
        ({"a": {None: 1}}, TypeError, "a key in a must be text, got None"),
        ({1: 1, "1": 2}, ValueError, "holds the key '1' twice"),
        ({"a": {"b": object()}}, TypeError, r"a\.b: the store has no type for a object"),
        (DEEP[-1], ValueError, "more than 20 levels"),
        (
            {"report": {"days": ["2024-01-01"] * 90_000, "trades": "x" * 99_999}, "name": "n"},
            ValueError,
            r"1,064 KiB, .*takes 1,024 KiB.* report\.days \(966 KiB\), report\.trades \(97 KiB\)",
        ),
    ],
)
def test_what_the_store_cannot_hold_is_refused_before_it_is_sent(
    cloud, id_token, document, error, words
):
    with pytest.raises(error, match=words):
        upsert_document(PATH, document, id_token)
    assert cloud.requests == 0


def test_a_document_of_just_the_largest_size_is_sent(cloud, id_token):
    # Counted by hand: 16 and one more than each segment, key "t", text and its end, 32.
    room = 2**20 - 16 - (6 + 11 + 8 + 2) - 2 - 1 - 32
    upsert_document(PATH, {"t": "x" * room}, id_token)
    assert len(fetch_document(PATH, id_token)["t"]) == room
    with pytest.raises(ValueError, match="Cut there"):
        upsert_document(PATH, {"t": "x" * (room + 1)}, id_token)


LEGACY_NAME = "Strategy Name Error"


@pytest.mark.parametrize(
    ("name", "stored"),
    [
        (" 🙂 50% off ", "🙂 50_ off"),
        ("..", "__"),
        ("日本 ?#;,:\\", "日本 ?_;,:\\"),
        ("", "未命名"),
        (None, "未命名"),
        ("字" * 500, "字" * 500),
        ("abc中文", LEGACY_NAME),
        ("字" * 501, "1 to 1500 bytes"),
        ("a/b", "cannot hold a slash"),
        ("__x__", "does not look like __this__"),
        ("\ud800", "valid text"),
    ],
)
def test_names(cloud, report, name, stored):
    if stored == LEGACY_NAME:
        with pytest.raises(Exception, match=stored):
            report.upload(name)
        with pytest.raises(ValueError, match="begins with it"):
            rehearse(report, name)
    elif (result := report.upload(name)) is True:
        assert list(cloud.documents) == [f"users/trial-user/reports/{stored}"]
        assert set(ReportExecution.from_cloud(stored).weights.index) == {"AAPL", "MSFT"}
        written = decode_fields(cloud.documents.popitem()[1]["fields"])
        rehearsed_name, rehearsed = rehearse(report, name)
        assert rehearsed_name == written["sid"] == written["name"] == stored
        assert [*written] == [*rehearsed]
        assert written["report"]["strategy"] == rehearsed["report"]["strategy"]
    else:
        assert result["status"] == "error"
        assert stored in result["message"]
        assert not cloud.documents


@pytest.mark.parametrize("legacy", [False, True])
def test_the_execution_comes_back_and_a_second_upload_replaces(
    cloud, report, monkeypatch, request, legacy
):
    if legacy:
        request.getfixturevalue("legacy_login")
    for _ in range(2):
        assert report.upload("p.1") is True
    stored = cloud.strategies if legacy else cloud.documents
    assert len(stored) == 1
    assert {"drawdown_details", "return_table"} <= report.get_stats().keys()
    back = ReportExecution.from_cloud("p.1")
    pd.testing.assert_series_equal(back.weights, report.execution.weights, check_freq=False)
    assert back.next_trading_date == report.execution.next_trading_date
    with pytest.raises(RuntimeError, match="there is no"):
        ReportExecution.from_cloud("other")
    monkeypatch.setenv("CORVEX_FORCED_STRATEGY_NAME", "forced")
    assert report.upload("p.1") == {"status": "success"}
    assert len(stored) == 2


def test_another_user_s_documents_stay_out_of_reach(cloud, id_token):
    with pytest.raises(DocumentStoreError, match="status 403: Missing or insufficient"):
        upsert_document("users/somebody/reports/a", {"a": 1}, id_token)
    with pytest.raises(DocumentNotFoundError, match=f"no document {PATH}"):
        fetch_document(PATH, id_token)
    cloud.documents[PATH] = {"name": "a", "fields": {"x": {"what": 1}}}
    with pytest.raises(DocumentStoreError, match="broken document: .*unknown type 'what'"):
        fetch_document(PATH, id_token)


def test_the_user_id_of_a_token():
    assert extract_uid_from_id_token(trial_token("u-1")) == "u-1"
    head, claims, signature = trial_token().split(".")
    for token in (
        *(None, 5, b"a.b.c", "", "a.b.c", "..", "é.é.é", f"{head}.{claims}"),
        *(f"{head}.{claims}.{signature}.x", f"{head}.{claims[:-3]}.{signature}"),
        *(trial_token(uid) for uid in ("", "a/b", "..", "x" * 200, "a\n", ["u"], 7, None)),
    ):
        assert extract_uid_from_id_token(token) == "", token


@pytest.mark.parametrize("url", ["ftp://host.example", "host.example", "https://", "https://h?x=1"])
def test_an_address_that_is_none_is_told(monkeypatch, id_token, url):
    monkeypatch.setenv("CORVEX_DOCUMENT_STORE_URL", url)
    with pytest.raises(ValueError, match=r"CORVEX_DOCUMENT_STORE_URL must be the address"):
        upsert_document("users/u/reports/a", {}, id_token)
    assert firestore_rest.DEFAULT_URL.startswith("https://")
