"""The commands that write or serve pages."""

import os
import re
import signal
import stat
import subprocess
import sys
import tempfile
from pathlib import Path
from urllib.request import urlopen

import numpy as np
import pandas as pd
import pytest

import corvex
from corvex.utils import write_text

HOSTILE = "<script>alert(1)</script> & co"


def saved(path, name, seed):
    days = pd.bdate_range("2020-01-01", periods=400)
    curve = pd.Series(np.cumprod(1 + np.random.default_rng(seed).normal(0, 0.01, 400)), days)
    corvex.from_equity(curve, name=name).to_pickle(str(path))
    return path


@pytest.fixture
def folder(tmp_path):
    saved(tmp_path / "one.pkl", "One", 1)
    saved(tmp_path / "two.pkl", HOSTILE, 2)
    (tmp_path / "broken.pkl").write_bytes(b"no pickle")
    return tmp_path


def test_show_report_and_compare_write_pages(run, folder):
    assert run("show", folder / "two.pkl", "--html", folder)[0] == 0
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
    for name in ("show", "compare", "serve"):
        assert "a pickle can run any program" in " ".join(run(name, "--help")[1].split())


def test_a_pipe_is_written_to_and_not_replaced(run, folder):
    pipe = folder / "pipe"
    os.mkfifo(pipe)
    reader = subprocess.Popen([sys.executable, "-c", f"print(len(open({str(pipe)!r}).read()))"])
    assert run("show", folder / "one.pkl", "--html", pipe)[0] == 0
    assert reader.wait(30) == 0
    assert stat.S_ISFIFO(pipe.stat().st_mode)
    with pytest.raises(IsADirectoryError):
        write_text(folder, "text")


@pytest.mark.slow
def test_serve_shows_a_folder_until_it_is_interrupted(folder):
    own = tempfile.mkdtemp(dir=folder)
    server = subprocess.Popen(
        [sys.executable, "-m", "corvex", "serve", folder], env={**os.environ, "TMPDIR": own},
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
    )  # fmt: skip
    try:
        line = server.stdout.readline()
        address = re.fullmatch(r"2 reports at (http://127\.0\.0\.1:\d+/[^ ]+/) .*\n", line)[1]

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
    assert list(Path(own).rglob("*.html")) == []


def test_serve_says_what_it_cannot_show(run, tmp_path):
    assert "holds no report" in run("serve", tmp_path)[2]
    assert "is not a folder" in run("serve", tmp_path / "absent")[2]
