import pytest
from typer.testing import CliRunner

from corvex.cli import app


@pytest.fixture
def run(tmp_path, monkeypatch):
    """Run a command in an empty folder; returns status, stdout and stderr."""
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("COLUMNS", "100")
    monkeypatch.setenv("LC_ALL", "C.UTF-8")

    def invoke(*args):
        result = CliRunner().invoke(app, [str(arg) for arg in args])
        return result.exit_code, result.stdout, result.stderr

    return invoke
