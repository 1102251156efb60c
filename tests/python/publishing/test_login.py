"""Where the login token comes from, and the commands around it."""

import contextlib
import io
import json
import os
import pickle
import stat
import subprocess
import sys
from unittest import mock

import pandas as pd
import pytest

import corvex
from corvex.cli import run as run_words
from corvex.cloud.credentials import credentials_file, get_token, redact, save_token
from corvex.publishing import PublishWarning
from corvex.testing.cloud import trial_token

SECRET = "SecretSignature0123456789"


def run(*args, text=None):
    out, err = io.StringIO(), io.StringIO()
    with (
        mock.patch("sys.stdin", io.StringIO(text or "")),
        contextlib.redirect_stdout(out),
        contextlib.redirect_stderr(err),
    ):
        status = run_words([str(arg) for arg in args])
    assert SECRET not in out.getvalue() + err.getvalue()
    return status, out.getvalue(), err.getvalue()


@pytest.fixture
def file(tmp_path, report):
    path = tmp_path / "trial.pkl"
    report.to_pickle(str(path))
    return path


def test_the_environment_wins_over_the_file(monkeypatch):
    with pytest.raises(RuntimeError, match="no login token: run `corvex login`"):
        get_token()
    file = save_token(f" {SECRET}\n", "api_token")
    assert file == credentials_file()
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert stat.S_IMODE(file.parent.stat().st_mode) == 0o700
    assert [entry.name for entry in file.parent.iterdir()] == ["credentials.json"]
    assert get_token() == (SECRET, "api_token")
    monkeypatch.setenv("CORVEX_API_TOKEN", "from-the-environment")
    assert get_token() == ("from-the-environment", "api_token")
    monkeypatch.setenv("CORVEX_ID_TOKEN", "i.d.t")
    assert get_token() == ("i.d.t", "id_token")
    for bad in (f"{SECRET} and more", f"{SECRET}鍵", f"{SECRET}\x7f"):
        monkeypatch.setenv("CORVEX_ID_TOKEN", bad)
        with pytest.raises(RuntimeError, match="CORVEX_ID_TOKEN holds no token") as caught:
            get_token()
        assert SECRET not in str(caught.value)


def test_a_file_that_others_can_reach_is_refused():
    for mode in (0o640, 0o604, 0o610, 0o602):
        save_token(SECRET, "api_token").chmod(mode)
        with pytest.raises(PermissionError, match="chmod 600"):
            get_token()


@pytest.mark.parametrize(
    "content",
    [
        *("", "\x00", "[" * 9999, SECRET, f'{{"token": "{SECRET}"', f'{{"token": "{SECRET}"}}'),
        json.dumps({"token": SECRET, "token_type": "other"}),
        '{"token": 7, "token_type": "api_token"}',
    ],
)
def test_a_broken_file_is_told_without_its_content(leaks, content):
    save_token("x", "api_token").write_text(content)
    with pytest.raises(RuntimeError, match="is not a credentials file: run `corvex login`") as told:
        get_token()
    assert not [place for place in leaks(told.value) if place == "error"]


def test_what_cannot_be_kept_leaves_the_old_login(monkeypatch):
    file = save_token("old", "api_token")
    for token, kind in (("a b", "api_token"), ("", "api_token"), (SECRET, "password")):
        with pytest.raises((RuntimeError, ValueError)):
            save_token(token, kind)
    monkeypatch.setattr(os, "replace", mock.Mock(side_effect=OSError("full")))
    with pytest.raises(OSError, match="full"):
        save_token(SECRET, "api_token")
    assert get_token() == ("old", "api_token")
    assert os.listdir(file.parent) == [file.name]


def test_tokens_are_hidden_in_texts(monkeypatch):
    monkeypatch.setenv("CORVEX_API_TOKEN", 'a"b/c')
    text = redact('1 a"b/c 2 a%22b%2Fc 3 a\\"b/c 4 other', "other")
    assert text == "1 *** 2 *** 3 *** 4 ***"


def test_login_and_logout(cloud, file, monkeypatch):
    monkeypatch.delenv("CORVEX_ID_TOKEN")
    status, out, err = run("upload", file)
    assert (status, out) == (1, "")
    assert "no login token" in err
    for token, kind in ((SECRET, "api_token"), (trial_token() + SECRET, "id_token")):
        assert run("login", text=token + "\n")[1].endswith(f"({kind}), readable by you alone\n")
        assert get_token() == (token, kind)
        assert run("upload", file) == (0, "Published as trial\n", "")
    assert len(cloud.strategies) == len(cloud.documents) == 1
    assert run("login", "--kind", "id_token", text=SECRET)[0] == 1
    assert run("login", text="")[0] == 1
    assert run("logout")[1] == "Login removed\n"
    assert run("logout")[1] == "There was no login to remove\n"


def test_login_asks_without_echo(monkeypatch):
    from corvex.cli.commands import login

    prompt = mock.Mock(return_value=f" {SECRET} ")
    monkeypatch.setattr("getpass.getpass", prompt)
    monkeypatch.setattr(login.sys, "stdin", mock.Mock(isatty=lambda: True))
    assert login._ask_for_token() == SECRET


def test_upload_command(cloud, file, tmp_path):
    assert run("upload", file, "--name", "a.b") == (0, "Published as a_b\n", "")
    cloud.fail("403")
    status, out, err = run("--traceback", "upload", file, "--name", "c")
    assert (status, out) == (1, "")
    assert "corvex: error: the report was not published: the document service" in err
    before = cloud.requests
    status, out, _ = run("upload", file, "--name", "d", "--dry-run", "out.json")
    assert status == 0
    assert out.startswith("Nothing sent. Document of d written to out.json: ")
    document = json.loads((tmp_path / "out.json").read_text(encoding="utf-8"))
    assert (document["sid"], document["schema"]) == ("d", "report.payload.v1")
    assert run("upload", file, "--name", "a中", "--dry-run", "out.json")[0] == 1
    assert run("upload", "absent.pkl")[0] == 1
    (tmp_path / "other.pkl").write_bytes(pickle.dumps([1]))
    assert "not a report" in run("upload", "other.pkl")[2]
    assert cloud.requests == before


def test_the_legacy_address_is_read_at_import(cloud, file, legacy_login):
    command = [sys.executable, "-m", "corvex", "upload", str(file), "--name", "far"]
    done = subprocess.run(command, capture_output=True, check=False, text=True, timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (0, "Published as far\n", "")
    assert [name for *_, name in cloud.strategies] == ["far"]
    assert SECRET not in repr(cloud.strategies)


def test_the_reference_server_runs_alone():
    command = [sys.executable, "-m", "corvex.testing.cloud", "--fail", "404"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
        lines = [server.stdout.readline() for _ in range(4)]
        settings = dict(line.split(" ", 1)[1].strip().split("=", 1) for line in lines[1:])
        url = settings["CORVEX_LEGACY_URL"].strip("'")
        assert [corvex.utils.requests.get(url + "/v1/x").status_code for _ in "12"] == [404, 404]
        server.terminate()


def test_simulate_publishes_and_keeps_the_report(cloud, monkeypatch):
    index = pd.bdate_range("2020-01-01", periods=40)
    prices = pd.DataFrame({"AAPL": range(100, 140)}, index=index, dtype=float)
    options = {"market": "us_stock", "upload": True, "name": "s.1"}
    assert corvex.simulate(prices > 0, prices, **options).name == "s.1"
    assert list(cloud.documents) == ["users/trial-user/reports/s_1"]
    for words in ("status 403", "no login token"):
        cloud.fail("403")
        with pytest.warns(
            PublishWarning, match=f"not published: .*{words}.* tries again"
        ) as caught:
            report = corvex.simulate(prices > 0, prices, **options)
        assert caught[0].filename == __file__
        assert len(report.creturn) > 30
        monkeypatch.delenv("CORVEX_ID_TOKEN", raising=False)
