"""The guides for those who come from another package: each side prints what stands below it.

The other packages run in the environments of the benchmarks. Those that have not been made are
skipped, unless CORVEX_MAKE_PEERS is set (`make test-peers`): then they are.
"""

import importlib.util
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import corvex

ROOT = Path(__file__).parents[2]
if not (ROOT / "bench").exists():  # as in a source distribution
    pytest.skip("the benchmarks are not here", allow_module_level=True)
CARD = re.compile(
    r"^:::+\{grid-item-card\} (\w+)\n(?::.*\n)*\n?```python\n(.*?)```\n(?:\n```text\n(.*?)```)?",
    re.M | re.S,
)
PAGES = [
    *sorted((ROOT / "docs" / "coming-from").glob("[!i]*.md")),
    ROOT / "docs/help/conventions.md",
]
CARDS = {page: CARD.findall(page.read_text("utf-8")) for page in PAGES}
SIDES = [(page, name) for page in PAGES for name in dict.fromkeys(card[0] for card in CARDS[page])]
CUT = "---- the next block ----"

spec = importlib.util.spec_from_file_location("environments", ROOT / "bench" / "environments.py")
environments = importlib.util.module_from_spec(spec)
spec.loader.exec_module(environments)


def interpreter(name):
    there = environments.FOLDER / name / "requirements.txt"
    if name != "corvex" and not there.exists() and not os.environ.get("CORVEX_MAKE_PEERS"):
        pytest.skip(f"the environment of {name} has not been made: make test-peers")
    return sys.executable if name == "corvex" else environments.interpreter(name)


@pytest.mark.slow
@pytest.mark.parametrize(("page", "name"), SIDES, ids=[f"{p.stem}-{n}" for p, n in SIDES])
def test_side_prints_what_is_shown(page, name, tmp_path):
    corvex.data.sample("us_stocks").loc["2010":].to_csv(tmp_path / "prices.csv")
    corvex.data.sample("sp500").loc["2010":].to_csv(tmp_path / "index.csv")
    blocks = [(code, shown) for side, code, shown in CARDS[page] if side == name]
    script = f"\nprint({CUT!r})\n".join(code for code, _ in blocks)
    done = subprocess.run(
        [interpreter(name), "-c", script], cwd=tmp_path, capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stderr
    assert [part.strip() for part in done.stdout.split(CUT)] == [
        shown.strip() for _, shown in blocks
    ]
