"""Whatever the services do: an end in time, nothing half-written, and no token anywhere."""

import logging
import random
import socket
import time

import pytest
import requests

import corvex
from corvex.cloud.document_values import decode_fields
from corvex.core import firestore_rest
from corvex.core import report as report_module
from corvex.core.firestore_rest import DocumentStoreError, fetch_document, upsert_document
from corvex.testing.faults import parse_faults
from corvex.utils import requests as client

SECRET = "SecretSignature0123456789"
PATH = "users/trial-user/reports/a"
LIMIT = 0.4
FAULTS = (
    "503 429 500 409 401 403 404 413 302 cut cut-late cut-body garbage nonsense echo busy:0"
    " redirect:http://192.0.2.1/ redirect:http://localhost:1/x"
).split()


def dead_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


def is_documented(result):
    if isinstance(result, dict):
        return result["status"] == "error" and bool(result["message"])
    return result is True


@pytest.mark.parametrize("count", [80, pytest.param(500, marks=pytest.mark.slow)])
def test_no_mixture_of_faults_hangs_loses_or_leaks(
    cloud, id_token, report, leaks, monkeypatch, capfd, caplog, tmp_path, count
):
    caplog.set_level(logging.DEBUG)
    monkeypatch.setenv("CORVEX_HTTP_TIMEOUT", str(LIMIT))
    choose = random.Random(14)
    payload, curve = report.to_payload_dict(trades_limit=500), report.creturn.copy()
    faults = succeeded = 0
    while faults < count:
        legacy = choose.random() < 0.4
        monkeypatch.setattr(report_module, "_force_legacy_upload", legacy)
        slow = choose.random() < 0.06
        mixture = ["slow:9" if choose.random() < 0.5 else "drip:0.1"] if slow else []
        mixture += choose.choices(FAULTS, k=choose.randint(1, 5))
        cloud.fail(",".join(mixture))
        start, error, result = time.monotonic(), None, None
        try:
            result = report.upload("mixed")
        except requests.RequestException as problem:  # the legacy path passes these on
            error = problem
        assert time.monotonic() - start < LIMIT + 6  # a busy machine takes a while to build it
        assert (legacy and not leaks(error)) if error else is_documented(result), (mixture, result)
        assert SECRET not in str(result)
        succeeded += result is True
        faults += len(mixture) - len(cloud.faults)
        cloud.faults.clear()
        # What the service has is whole, whether or not this upload got through.
        for stored in cloud.documents.values():
            document = decode_fields(stored["fields"])
            assert document["report"]["strategy"] == payload["report"]["strategy"]
            assert list(document)[-1] == "updated_at"
        for document in cloud.strategies.values():
            assert len(document["returns"]["value"]) == len(report.daily_creturn)
            assert list(document)[-1] == "is_tradable"
    assert succeeded > count / 20
    monkeypatch.setenv("CORVEX_HTTP_TIMEOUT", "20")
    for legacy in (True, False):
        monkeypatch.setattr(report_module, "_force_legacy_upload", legacy)
        assert report.upload("mixed") is True
    assert report.creturn.equals(curve)
    assert report.to_payload_dict(trades_limit=500)["report"]["metrics"] is not None
    printed = capfd.readouterr()
    assert SECRET not in printed.out + printed.err + caplog.text
    assert "Fail to upload result to server" in printed.out
    assert not [p for p in tmp_path.rglob("*") if p.is_file() and SECRET in p.read_text("latin-1")]


def test_passing_trouble_is_tried_again_and_lasting_trouble_is_not(cloud, id_token):
    cloud.fail("503,cut,cut-late,garbage")
    upsert_document(PATH, {"a": 1}, id_token)
    assert cloud.requests == 5
    assert fetch_document(PATH, id_token) == {"a": 1}
    for fault, tried, words in (
        ("503*9", 5, "status 503: fault 503"),
        ("cut*9", 5, "cannot be reached: connection refused or dropped"),
        ("cut-body*9", 5, "cannot be reached: the answer broke off"),
        ("401*9", 1, r"status 401 \(log in again: corvex login\)"),
        ("nonsense*9", 1, "something else than a document"),
        ("redirect:https://host.example/*9", 1, "status 307"),
    ):
        before = cloud.requests
        cloud.fail(fault)
        with pytest.raises(DocumentStoreError, match=words):
            upsert_document(PATH, {"a": 2}, id_token)
        assert cloud.requests - before == tried
        cloud.faults.clear()
    cloud.fail("busy:1")
    start = time.monotonic()
    upsert_document(PATH, {"a": 3}, id_token)
    assert time.monotonic() - start >= 1


def test_the_time_limit_holds_for_all_attempts_together(cloud, id_token, monkeypatch):
    monkeypatch.setenv("CORVEX_HTTP_TIMEOUT", "0.5")
    for fault in ("slow:9*9", "drip:0.1*9", "503*9"):
        monkeypatch.setattr(firestore_rest, "FIRST_PAUSE", 60 if "503" in fault else 0.01)
        cloud.fail(fault)
        start = time.monotonic()
        with pytest.raises(DocumentStoreError, match="no answer in time|status 503"):
            upsert_document(PATH, {"a": 1}, id_token)
        assert time.monotonic() - start < 8
        cloud.faults.clear()
    for fault in ("slow:9", "drip:0.1"):
        cloud.fail(fault)
        with pytest.raises(client.exceptions.ReadTimeout, match="within 0.5 s|timed out|in time"):
            client.post(cloud.url + "/write_database", data={"api_token": SECRET})
    monkeypatch.setenv("CORVEX_HTTP_TIMEOUT", "soon")
    with pytest.raises(ValueError, match="CORVEX_HTTP_TIMEOUT must be a number of seconds"):
        client.get(cloud.url)


def test_errors_carry_no_token(cloud, leaks, monkeypatch):
    form = {"api_token": SECRET, "data": "x"}
    gone = f"http://127.0.0.1:{dead_port()}/write_database"
    calls = [
        (requests.ConnectionError, lambda: client.post(gone, data=form)),
        (requests.RequestException, lambda: client.get(gone, headers={"X-A": f"{SECRET}\n"})),
        (ValueError, lambda: client.get(gone, headers={"X-A": f"{SECRET}鍵"})),
        (TypeError, lambda: client.post(gone, data=form, nothing=1)),
        (requests.RequestException, lambda: client.post("http://host.example", data=form)),
    ]
    monkeypatch.setenv("CORVEX_API_TOKEN", SECRET)
    monkeypatch.setenv("CORVEX_DOCUMENT_STORE_URL", gone)
    calls += [
        (DocumentStoreError, lambda: upsert_document(PATH, {"a": 1}, SECRET)),
        (DocumentStoreError, lambda: fetch_document(PATH, SECRET)),
        (ValueError, lambda: fetch_document(PATH, f"{SECRET}\n")),
    ]
    for kind, call in calls:
        with pytest.raises(kind) as caught:
            call()
        assert leaks(caught.value) == []
    # The search does find what the plain client leaves behind.
    with pytest.raises(requests.ConnectionError) as caught:
        requests.post(gone, data=form, timeout=5)
    assert len(leaks(caught.value)) > 2


def test_the_client_is_requests_with_limits(cloud, monkeypatch, tmp_path):
    url = cloud.url + "/auth_get_strategy"
    assert client.Response is requests.Response
    assert {"post", "Session", "codes", "ConnectionError"} <= set(dir(client))
    with client.session() as session:
        answer = session.post(url, data={"api_token": "t"})
    assert (answer.status_code, answer.json()["status"]) == (client.codes.bad_request, "error")
    assert answer.request.body == "api_token=t"
    with client.post(url, stream=True) as answer:
        assert b"token" in b"".join(answer.iter_content(3))
    for verb in ("get", "put", "patch", "delete", "options", "head"):
        assert getattr(client, verb)(url).status_code in (401, 404, 501)
    with monkeypatch.context() as double:
        double.setattr(requests, "post", lambda url, data: data)
        assert client.post(url, data=5) == 5
    cloud.fail("slow:2")
    with pytest.raises(client.ReadTimeout):
        client.get(url, timeout=0.1)
    # Neither a proxy nor a stored password comes between us and this machine.
    monkeypatch.setenv("HTTP_PROXY", f"http://127.0.0.1:{dead_port()}")
    (tmp_path / ".netrc").write_text("machine 127.0.0.1 login x password y\n")
    upsert_document(PATH, {"a": 1}, corvex.get_token()[0])


@pytest.mark.parametrize(
    "url",
    ["http://host.example/", "http://host.example\\@127.0.0.1/", "http://127.0.0.1.nip.example"],
)
def test_plain_http_is_for_this_machine_only(cloud, monkeypatch, report, url):
    monkeypatch.setattr(socket, "getaddrinfo", None)  # nobody is even looked up
    with pytest.raises(client.exceptions.InvalidSchema, match="plain http to .* is refused"):
        client.post(url, data={"a": 1})
    monkeypatch.setenv("CORVEX_DOCUMENT_STORE_URL", url)
    assert "refused" in report.upload("x")["message"]


def test_redirects_neither_carry_forms_away_nor_lose_them(cloud, id_token, report, monkeypatch):
    url, other = cloud.url + "/write_database", cloud.url.replace("127.0.0.1", "localhost")
    for fault, status, requests_made in (
        (f"redirect:{url}", 401, 2),
        ("redirect:/write_database", 401, 2),
        (f"redirect:{other}/write_database", 307, 1),
        (f"redirect:{cloud.url.rpartition(':')[0]}:1/write_database", 307, 1),
        (f"redirect:https{cloud.url[4:]}/write_database", 307, 1),
        (f"moved:{url}", 302, 1),
    ):
        before = cloud.requests
        cloud.fail(fault)
        assert client.post(url, data={"data": "{}"}).status_code == status
        assert cloud.requests - before == requests_made
    monkeypatch.setattr(report_module, "_force_legacy_upload", True)
    monkeypatch.setattr(report_module, "LEGACY_WRITE_DATABASE_URL", url)
    cloud.fail(f"moved:{url}")
    assert "nothing is published" in report.upload("x")["message"]
    assert not cloud.strategies
    cloud.fail("redirect:http://host.example/x")
    with pytest.raises(client.exceptions.InvalidSchema):
        client.get(url)


@pytest.mark.parametrize("text", ["600", "dance", "slow:x", "cut*x", "503*2;cut", "status:abc"])
def test_faults_that_are_none_are_told(text):
    with pytest.raises(ValueError, match="is no fault; there are status, "):
        parse_faults(text)
