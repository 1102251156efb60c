"""Publishing a report: names, both services, results, and a token that stays secret."""

import datetime
import json
import logging
from types import SimpleNamespace
from unittest import mock

import pandas as pd
import pytest

TOKEN = "secret.token.value"
FORCED = "CORVEX_FORCED_STRATEGY_NAME"
LEGACY_KEYS = """drawdown_details stats returns benchmark ndays_return ndays_return_benchmark
    return_table fee_ratio tax_ratio trade_at timestamp_name freq update_date next_trading_date
    position position2 execution live_performance_start stop_loss take_profit metrics trades
    next_future_expiry suggested_tradable_time is_tradable""".split()


@pytest.fixture
def cloud(module, make_report, execution, monkeypatch, capsys, caplog):
    """A report to be published, and the two services as doubles that note what they get."""
    import corvex.data as data
    from corvex.core import firestore_rest

    caplog.set_level(logging.DEBUG)
    monkeypatch.delenv(FORCED, raising=False)
    data.answers.clear()
    report = make_report()
    report.trades = pd.DataFrame({"stock_id": ["A"], "return": [0.1]})
    report.position_info = lambda: {"A": "held"}
    report.position_info2 = lambda: {"positions": []}
    report.execution = execution
    report.trade_at = "close"
    report.next_trading_date = pd.Timestamp("2024-01-11")
    firestore_rest.written.clear()
    posts = []

    def post(*arguments, **settings):
        posts.append((arguments, settings))
        return cloud.response

    cloud = SimpleNamespace(
        report=report,
        posts=posts,
        written=firestore_rest.written,
        response=SimpleNamespace(status_code=200, text=""),
        use=lambda kind: monkeypatch.setattr(module, "get_token", lambda: (TOKEN, kind)),
        said=capsys.readouterr,
    )
    monkeypatch.setattr(module, "requests", SimpleNamespace(post=post))
    cloud.use("id_token")
    yield cloud
    captured = capsys.readouterr()
    assert TOKEN not in captured.out + captured.err + caplog.text


NAMES = {
    name: name for name in ("a/b\\c-d e'f", "1中文", "Ａ全形", "é中", "🙂 カナ", "x" * 3000, "a㐀")
}
CLEANED = {"a.b(c)": "a_b_c_", "()[]+|!@#$~%^={}&*.": "_" * 19}
REFUSED = dict.fromkeys(["abc中文", "Z 龥", "|中"])


@pytest.mark.parametrize(("name", "published"), (NAMES | CLEANED | REFUSED).items())
def test_names_are_cleaned_or_refused_before_a_token_is_read(cloud, module, name, published):
    if published is None:
        module.get_token = None
        with pytest.raises(Exception) as caught:
            cloud.report.upload(name)
        assert type(caught.value) is Exception
        assert str(caught.value) == "Strategy Name Error: 名稱如包含中文，需以中文當開頭。"
        return
    assert cloud.report.upload(name=name) is True
    ((path, document, _),) = cloud.written
    assert path == f"users/user-1/reports/{published}"
    assert document["sid"] == document["name"] == published
    assert cloud.posts == []


def test_an_empty_name_has_no_first_character(cloud, module, monkeypatch):
    monkeypatch.setattr(module, "resolve_upload_name", lambda name, environ: "")
    with pytest.raises(IndexError):
        cloud.report.upload()


def test_document_holds_the_payload_in_its_order(cloud):
    before = datetime.datetime.now(datetime.UTC)
    assert cloud.report.upload("mine") is True
    ((_, document, token),) = cloud.written
    assert token == TOKEN
    assert list(document) == "schema sid name report execution holdings updated_at".split()
    payload = cloud.report.to_payload_dict()
    assert {part: document[part] for part in payload} == payload
    moment = datetime.datetime.fromisoformat(document["updated_at"])
    assert moment.utcoffset() == datetime.timedelta(0)
    assert before <= moment <= datetime.datetime.now(datetime.UTC)
    assert cloud.said() == ("", "")


@pytest.mark.parametrize("kind", ["id_token", "api_token"])
@pytest.mark.parametrize("forced", ["forced.name", ""])
def test_a_forced_name_counts_by_its_presence(cloud, monkeypatch, kind, forced):
    monkeypatch.setenv(FORCED, forced)
    cloud.use(kind)
    assert cloud.report.upload("mine") == {"status": "success"}
    name = forced.replace(".", "_") or "mine"
    if kind == "id_token":
        assert cloud.written[0][1]["sid"] == name
    else:
        assert cloud.posts[0][1]["data"]["document_id"] == name


@pytest.mark.parametrize(
    ("function", "does", "message"),
    [
        ("upsert_document", OSError("no route to host"), "no route to host"),
        ("upsert_document", ValueError(f"bad token {TOKEN}!"), "bad token ***!"),
        ("extract_uid_from_id_token", "", "cannot decode uid from id_token"),
        ("extract_uid_from_id_token", None, "cannot decode uid from id_token"),
        ("extract_uid_from_id_token", KeyError("sub"), "'sub'"),
    ],
)
def test_failures_of_the_document_service_are_returned(cloud, monkeypatch, function, does, message):
    double = mock.Mock(side_effect=[does])
    monkeypatch.setattr(f"corvex.core.firestore_rest.{function}", double)
    assert cloud.report.upload() == {"status": "error", "message": message}


def test_an_interruption_and_a_fault_of_the_report_itself_are_raised(cloud, module, monkeypatch):
    interrupted = mock.Mock(side_effect=KeyboardInterrupt)
    monkeypatch.setattr(module.firestore_rest, "extract_uid_from_id_token", interrupted)
    with pytest.raises(KeyboardInterrupt):
        cloud.report.upload()
    cloud.report.to_payload_dict = mock.Mock(side_effect=LookupError("payload"))
    with pytest.raises(LookupError, match="^payload$"):
        cloud.report.upload()


def test_form_and_document_of_the_older_service(cloud, module, monkeypatch, unpacked):
    report = cloud.report
    cloud.use("api_token")
    stats = report.get_stats()
    kept = dict(stats)
    assert report.upload("a.b") is True
    ((arguments, settings),) = cloud.posts
    assert arguments == (module.LEGACY_WRITE_DATABASE_URL,)
    assert list(settings) == ["data"]
    form = settings["data"]
    assert list(form) == ["data", "api_token", "collection", "document_id"]
    assert list(form.values())[1:] == [TOKEN, "strategies", "a_b"]
    document = json.loads(form["data"])
    assert list(document) == LEGACY_KEYS
    apart = ("drawdown_details", "return_table")
    assert list(document["stats"]) == [key for key in kept if key not in apart]
    assert document["drawdown_details"] == kept["drawdown_details"]
    assert document["return_table"]["2024"] == {"1": 0.1, "YTD": 0.2}
    assert document["returns"] == {
        "time": [f"2024-01-{day:02}" for day in range(1, 11)],
        "value": report.daily_creturn.tolist(),
    }
    assert document["benchmark"]["value"] == [100.0] * 10
    for key in ("ndays_return", "ndays_return_benchmark"):
        assert list(document[key]) == ["1", "5", "10", "20", "60"]
    assert document["ndays_return"]["5"] == report.get_ndays_return(report.daily_creturn, 5)
    assert [document[key] for key in LEGACY_KEYS[7:16]] == [
        *[0.001, 0.003, "close", "tw_stock", "1d", "2024-01-10T00:00:00", "2024-01-11T00:00:00"],
        *[{"A": "held"}, {"positions": []}],
    ]
    assert document["execution"] == report.execution.to_dict()
    assert [document[key] for key in (*LEGACY_KEYS[17:20], *LEGACY_KEYS[22:])] == [None] * 6
    older = report._to_json046()
    assert document["metrics"] == older["metrics"]
    assert unpacked(document["trades"]) == unpacked(older["trades"])

    # The statistics that were taken apart were a copy: a second upload finds them whole.
    assert report.get_stats() is stats
    assert stats == kept
    fresh = pd.Timestamp("2024-01-12", tz="UTC")
    module.data.answers.update(next_future_expiry=fresh, suggested_tradable_time=fresh)
    report.live_performance_start = pd.Timestamp("2024-01-05")
    monkeypatch.setattr(module, "_force_legacy_upload", True)
    cloud.use("id_token")
    assert report.upload("a.b") is True
    form = cloud.posts[1][1]["data"]
    assert list(form) == ["data", "id_token", "collection", "document_id"]
    second = json.loads(form["data"])
    assert second["stats"] == document["stats"]
    assert second["live_performance_start"] == "2024-01-05T00:00:00"
    assert second["next_future_expiry"] == "2024-01-12T00:00:00+00:00"
    assert second["suggested_tradable_time"] == "2024-01-12T00:00:00+00:00"
    assert cloud.written == []


def test_reports_of_older_versions_are_published_too(cloud):
    older = ("live_performance_start", "stop_loss", "take_profit", "_execution_override")
    for name in older:
        delattr(cloud.report, name)
    cloud.report.next_trading_date = None
    cloud.use("api_token")
    assert cloud.report.upload() is True
    document = json.loads(cloud.posts[0][1]["data"]["data"])
    assert [document[key] for key in (*older[:3], "next_trading_date")] == [None] * 4
    assert document["execution"]["schema"] == "report.execution.v1"


def test_answers_of_the_older_service(cloud, module, monkeypatch):
    cloud.use("api_token")
    cloud.response = SimpleNamespace(status_code=403, text="not allowed")
    refused = {"status": "error", "message": "not allowed"}
    assert cloud.report.upload() == refused
    assert cloud.said().out == "Fail to upload result to server\nerror message not allowed\n"
    cloud.response.text = f"you sent {TOKEN}"
    assert cloud.report.upload() == {"status": "error", "message": "you sent ***"}
    assert cloud.said().out.endswith("error message you sent ***\n")

    module.requests.post = mock.Mock(side_effect=ConnectionError("refused"))
    with pytest.raises(ConnectionError, match="^refused$"):
        cloud.report.upload()
    sent = []
    monkeypatch.setattr(
        module, "post_legacy_upload_pyodide_no_cors", lambda *sending: sent.append(sending) or 1
    )
    assert cloud.report.upload() is True
    monkeypatch.setenv(FORCED, "x")
    assert cloud.report.upload() == {"status": "success"}
    assert [url for url, _ in sent] == [module.LEGACY_WRITE_DATABASE_URL] * 2
    assert list(sent[0][1]) == ["data", "api_token", "collection", "document_id"]
