"""Writes the guides' tables of figures from the catalogue, with examples worked out anew.

Run by `make docs-tables`. The first block of each guide makes the curve and the report of its
examples.
"""

from __future__ import annotations

import doctest
import re
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pandas as pd

from corvex import _engine
from corvex.ffn_core.catalogue import catalogue

DOCS = Path(__file__).parents[1] / "docs"


def first_block(guide: str) -> dict[str, Any]:
    """Return the names that a guide's first block of examples makes."""
    names: dict[str, Any] = {}
    for example in doctest.DocTestParser().get_examples(guide.split("```")[1]):
        if not example.want:
            exec(example.source, names)
    return names


def statistics_rows(names: dict[str, Any]) -> Iterator[tuple[str, ...]]:
    """Yield the head and a row for each figure of the statistics' record."""
    yield ("figure", "definition", "unit", "example")
    for name, value in names["stats"].stats.items():
        figure = catalogue().figures[name]
        yield (f"`{name}`", figure.formula, figure.measure, shown(value))


def metrics_rows(names: dict[str, Any]) -> Iterator[tuple[str, ...]]:
    """Yield the head and a row for each figure of the nested metrics."""
    yield ("figure", "method", "definition", "unit", "without ground", "example")
    for section in names["figures"].values():
        for key, value in section.items():
            figure = catalogue().find(key)
            assert figure is not None, f"{key} is not in the catalogue"
            definition = figure.formula
            if figure.name in _engine.FIGURE_NAMES:
                definition += f" (`{figure.name}`)"
            cells = (f"`{method(key)}`", definition, figure.measure, figure.missing, shown(value))
            yield (f"`{key}`", *cells)


def method(key: str) -> str:
    """Return the method of `Metrics` for a key: its words joined by underscores."""
    return re.sub("[A-Z]", lambda found: f"_{found[0].lower()}", key)


def shown(value: Any) -> str:
    """Return the example of a figure as the guides write it."""
    if isinstance(value, pd.Timestamp):
        return f"{value:%Y-%m-%d}"
    return f"{value:.6g}" if isinstance(value, float) else str(value)


def with_table(guide: str, rows: Iterator[tuple[str, ...]]) -> str:
    """Put the rows in the place of the guide's table that has the same head."""
    head, *body = ("| " + " | ".join(row) + " |" for row in rows)
    line = "| " + " | ".join("---" for _ in range(head.count("|") - 1)) + " |"
    before, _, after = guide.partition(f"{head}\n")
    assert after, f"no table with the head {head}"
    rest = re.sub(r"\A(\|.*\n)+", "", after)
    return "\n".join([f"{before}{head}", line, *body, rest])


def tables() -> dict[Path, str]:
    """Return each guide with its table as the catalogue has it."""
    made = {}
    for name, rows in (("statistics", statistics_rows), ("metrics", metrics_rows)):
        path = DOCS / f"{name}.md"
        guide = path.read_text(encoding="utf-8")
        made[path] = with_table(guide, rows(first_block(guide)))
    return made


if __name__ == "__main__":
    for path, text in tables().items():
        if path.read_text(encoding="utf-8") != text:
            path.write_text(text, encoding="utf-8")
            print(f"wrote {path.relative_to(Path.cwd())}", file=sys.stderr)
