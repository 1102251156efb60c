"""The code of the tutorials runs, with warnings as errors; `make docs` shows what it gives."""

import re
from pathlib import Path

import pytest

DOCS = Path(__file__).parents[2] / "docs"
TUTORIALS = [p for p in sorted(DOCS.rglob("*.md")) if "file_format: mystnb" in p.read_text("utf-8")]


@pytest.mark.slow
@pytest.mark.parametrize("path", TUTORIALS, ids=lambda path: path.stem)
def test_code_of_a_tutorial_runs(path, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    cells = re.findall(r"^```{code-cell} python\n(.*?)^```", path.read_text("utf-8"), re.M | re.S)
    assert cells
    names = {}
    for cell in cells:
        if "skip-execution" not in cell:
            code = re.sub(r"^:tags:.*\n", "", cell)
            exec(compile(code, str(path), "exec"), names)
