"""The commands that write or serve pages."""

import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
from pathlib import Path
from urllib.request import urlopen

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.cli.page_server import PageServer
from corvex.cli.saved import save_report

sys.path.insert(0, str(Path(__file__).parents[1]))

from transport.reports import KINDS, report

HOSTILE = "<script>alert(1)</script> & co"


def saved(path, name, seed):
    days = pd.bdate_range("2020-01-01", periods=400)
    curve = pd.Series(np.cumprod(1 + np.random.default_rng(seed).normal(0, 0.01, 400)), days)
    save_report(corvex.from_equity(curve, name=name), path)
    return path


@pytest.fixture
def folder(tmp_path):
    saved(tmp_path / "one.pkl", "One", 1)
    saved(tmp_path / "two.corvex", HOSTILE, 2)
    (tmp_path / "broken.pkl").write_bytes(b"no pickle")
    (tmp_path / "broken.corvex").write_bytes(b"PK\x03\x04")
    return tmp_path


def test_show_report_and_compare_write_pages(run, folder):
    assert run("show", folder / "two.corvex", "--html", folder)[0] == 0
    assert "<title>&lt;script&gt;alert(1)" in (folder / "two.html").read_text(encoding="utf-8")
    csv = folder / "mine.csv"
    pd.Series([1.0, 1.1, 1.05], pd.bdate_range("2024-01-01", periods=3), name="nav").to_csv(csv)
    status, out, _ = run("report", csv, "--html", folder / "mine.html")
    assert (status, out.splitlines()[-1]) == (0, f"Page written to {folder / 'mine.html'}")
    assert "<h1>mine</h1>" in (folder / "mine.html").read_text(encoding="utf-8")

    twins = [folder / "one.pkl", saved(folder / "three.pkl", "One", 3)]
    status, out, _ = run("compare", *twins, "--html", folder)
    assert status == 0
    assert re.search(r"^ +one +three$", out, re.M)  # equal names give way to the files'
    assert (folder / "comparison.html").exists()
    assert run("compare", twins[0])[::2] == (
        1,
        "corvex: error: a comparison needs at least two reports, got 1\n",
    )


@pytest.mark.slow
def test_serve_shows_a_folder_until_it_is_interrupted(folder):
    own = tempfile.mkdtemp(dir=folder)
    server = subprocess.Popen(
        [sys.executable, "-m", "corvex", "serve", folder], env={**os.environ, "TMPDIR": own},
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        # A shell starts its background jobs deaf to interrupts; no other thread runs here.
        preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),  # noqa: PLW1509
    )  # fmt: skip
    try:
        line = server.stdout.readline()
        address = re.fullmatch(r"2 reports at (http://127\.0\.0\.1:\d+/) .*\n", line)[1]

        def fetch(name):
            with urlopen(address + name, timeout=30) as answer:
                return answer.read().decode()

        index = fetch("")
        assert re.findall('href="([^"]+html)"', index) == ["comparison.html", "1.html", "2.html"]
        assert "&lt;script&gt;alert(1)&lt;/script&gt; &amp; co" in index
        assert "<script" not in index
        assert "<h1>One</h1>" in fetch("1.html")
        assert "<h1>All reports</h1>" in fetch("comparison.html")
    finally:
        os.kill(server.pid, signal.SIGINT)
        _, err = server.communicate(timeout=30)
    assert server.returncode == 0
    assert "broken.pkl is left out" in err
    assert "broken.corvex is left out" in err
    assert list(Path(own).rglob("*.html")) == []


def test_serve_says_what_it_cannot_show(run, tmp_path):
    assert "holds no report" in run("serve", tmp_path)[2]
    assert "is not a folder" in run("serve", tmp_path / "absent")[2]


class RunsSomething:
    """Pickled, it is a call that leaves a mark."""

    def __init__(self, mark):
        self.mark = mark

    def __reduce__(self):
        return os.mkdir, (self.mark,)


def test_only_trusted_pickles_run_anything(run, tmp_path):
    marks = tmp_path / "marks"
    hostile = corvex.from_equity(pd.Series([1.0, 1.1], pd.bdate_range("2024-01-01", periods=2)))
    hostile.extra = RunsSomething(str(marks))
    file, good = tmp_path / "hostile.pkl", saved(tmp_path / "good.corvex", "Good", 1)
    hostile.to_pickle(file)
    for command in (
        ["show", file],
        ["compare", good, file],
        ["export", file, "--out", tmp_path / "out.json"],
        ["orders", file, "--capital", "1000"],
        ["upload", file, "--dry-run", tmp_path / "out.json"],
    ):
        status, _, err = run(*command)
        assert (status, marks.exists()) == (1, False)
        assert "it names posix.mkdir" in err
        assert "--trust" in err
    assert run("show", "--trust", file)[0] == 0
    assert marks.exists()
    # What the reports of all kinds are made of is on the list; doors beside it are not.
    for kind in KINDS:
        report(kind).to_pickle(file)
        assert run("show", file)[::2] == (0, ""), kind
    for module, name in (
        *(("builtins", "getattr"), ("pandas", "eval"), ("corvex.market", "data.Path")),
        *(("corvex.markets.bound", "bind"), ("pandas._libs.tslibs.offsets", "warnings")),
    ):
        file.write_bytes(f"c{module}\n{name}\n(Vos\nVpath\ntR.".encode())
        assert "--trust" in run("show", file)[2]


def asked(server, request):
    with socket.create_connection(server.server_address, timeout=10) as connection:
        connection.sendall(request.encode())
        return connection.makefile("rb").read().decode()


def test_pages_are_served_to_this_machine_while_others_idle(tmp_path):
    (tmp_path / "index.html").write_text("the index")
    (tmp_path / "inner").mkdir()
    with PageServer(tmp_path) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        port = server.server_address[1]
        with pytest.raises(OSError, match=f"port {port} cannot be served on"):
            PageServer(tmp_path, port)
        idle = [socket.create_connection(server.server_address) for _ in range(20)]
        ask = "GET {} HTTP/1.1\r\nHost: {}\r\nConnection: close\r\n\r\n".format
        answer = asked(server, ask("/", f"localhost:{port}"))
        assert answer.endswith("\r\n\r\nthe index")
        assert "X-Content-Type-Options: nosniff" in answer
        assert "Cache-Control: no-store" in answer
        assert " 404 " in asked(server, ask("/inner/", f"127.0.0.1:{port}"))
        assert " 404 " in asked(server, ask("/../../../etc/passwd", f"127.0.0.1:{port}"))
        for host in ("strange.example", f"strange.example:{port}", "127.0.0.1:1", ""):
            assert " 421 " in asked(server, ask("/", host))
        for connection in idle:
            connection.close()
        server.shutdown()
