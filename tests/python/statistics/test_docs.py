"""The guide to the statistics holds what it says."""

from __future__ import annotations

import doctest
import re
from pathlib import Path

import pandas as pd

from corvex import ffn_core

GUIDE = Path(__file__).parents[3] / "docs" / "statistics.md"
# A row of the table of figures: name, definition, unit, example.
FIGURE = re.compile(r"^\| `(\w+)` \| [^|]+ \| [^|]+ \| ([^|]+) \|$", re.M)


def shown(value: object) -> str:
    if isinstance(value, pd.Timestamp):
        return f"{value:%Y-%m-%d}"
    return f"{value:.6g}" if isinstance(value, float) else str(value)


def test_examples_of_the_guide_and_the_module():
    failed, tried = doctest.testfile(
        str(GUIDE), module_relative=False, optionflags=doctest.ELLIPSIS
    )
    assert (failed, tried > 20) == (0, True)
    assert doctest.testmod(ffn_core).failed == 0


def test_every_figure_is_defined_with_its_example():
    namespace: dict[str, object] = {}
    first_block = GUIDE.read_text(encoding="utf-8").split("```")[1]
    for example in doctest.DocTestParser().get_examples(first_block):
        if not example.want:
            exec(example.source, namespace)  # the curve and its statistics, as the guide has them
    stats = namespace["stats"]
    assert isinstance(stats, ffn_core.PerformanceStats)
    expected = {name: shown(value) for name, value in stats.stats.items()}
    assert dict(FIGURE.findall(GUIDE.read_text(encoding="utf-8"))) == expected


def test_every_method_is_named():
    text = GUIDE.read_text(encoding="utf-8")
    assert [m.__name__ for m in ffn_core.PANDAS_METHODS if f"`{m.__name__}(" not in text] == []
