"""Tables and dictionaries as files for other programs."""

from __future__ import annotations

import json
from pathlib import Path
from typing import TYPE_CHECKING

from corvex.files import atomic_open, write_text

if TYPE_CHECKING:
    import pandas as pd

__all__ = ["strict_json", "write_table"]


def strict_json(value: object) -> str:
    """Return JSON as every program reads it: a figure that does not exist is null."""
    from corvex.core.dashboard.serialize import plain_values

    return json.dumps(plain_values(value), ensure_ascii=False, allow_nan=False)


def write_table(table: pd.DataFrame, target: Path, form: str) -> None:
    """Write a table as ``"csv"`` or ``"parquet"``, whole or not at all."""
    if form == "csv":
        write_text(target, table.to_csv(index=False))
        return
    with atomic_open(target) as file:
        table.set_axis([str(name) for name in table.columns], axis=1).to_parquet(file)
