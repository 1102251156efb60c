"""The README's example runs as it stands."""

from __future__ import annotations

import re
from pathlib import Path

README = Path(__file__).parents[2] / "README.md"


def test_example_simulates_prints_and_saves(tmp_path, monkeypatch, capsys):
    (example,) = re.findall(r"```python\n(.*?)```", README.read_text(encoding="utf-8"), re.S)
    monkeypatch.chdir(tmp_path)
    names: dict[str, object] = {}
    exec(compile(example, str(README), "exec"), names)

    assert "six-month winners" in capsys.readouterr().out
    assert (tmp_path / "winners.pkl").stat().st_size > 0
    assert len(names["report"].get_trades()) > 100


def test_links_lead_somewhere():
    targets = re.findall(r"\]\((?!http)([^)#]+)", README.read_text(encoding="utf-8"))
    missing = [target for target in targets if not (README.parent / target).exists()]
    assert not missing
