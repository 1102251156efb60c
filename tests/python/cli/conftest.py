import contextlib
import io

import pytest

from corvex.cli import run as run_words


@pytest.fixture
def run(tmp_path, monkeypatch):
    """Run a command in an empty folder; returns status, stdout and stderr."""
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("COLUMNS", "100")
    monkeypatch.setenv("LC_ALL", "C.UTF-8")

    def invoke(*args):
        out, err = (io.TextIOWrapper(io.BytesIO(), encoding="utf-8") for _ in range(2))
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
            status = run_words([str(arg) for arg in args])
        for stream in (out, err):
            stream.seek(0)
        return status, out.read(), err.read()

    return invoke
