"""The README's example runs as it stands."""

import re
from pathlib import Path

from corvex.cli import run

README = Path(__file__).parents[2] / "README.md"


def test_examples_simulate_sweep_and_write(tmp_path, monkeypatch, capsys):
    examples = re.findall(r"```python\n(.*?)```", README.read_text(encoding="utf-8"), re.S)
    monkeypatch.chdir(tmp_path)
    names: dict[str, object] = {}
    exec(compile("".join(examples), str(README), "exec"), names)

    assert "six-month winners" in capsys.readouterr().out
    assert (tmp_path / "winners.corvex").stat().st_size > 0
    assert len(names["report"].get_trades()) > 100
    assert len(names["found"]) == 120
    assert (tmp_path / "sweep.html").stat().st_size > 500_000


def test_links_lead_somewhere():
    targets = re.findall(r"\]\((?!http)([^)#]+)", README.read_text(encoding="utf-8"))
    missing = [target for target in targets if not (README.parent / target).exists()]
    assert not missing


def test_demonstration_prints_what_is_shown(tmp_path, monkeypatch, capsys):
    (shown,) = re.findall(r"```text\n(Momentum.*?)```", README.read_text(encoding="utf-8"), re.S)
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("COLUMNS", "80")
    assert run(["demo"]) == 0
    printed = capsys.readouterr().out
    before_times = [text.partition("Time taken")[0].splitlines() for text in (shown, printed)]
    assert [line.rstrip() for line in before_times[1]] == before_times[0]
