"""``corvex inspect``: what is in a payload."""

from __future__ import annotations

from pathlib import Path
from typing import Annotated

from corvex.cli.declared import Argument
from corvex.cli.parameters import MaxSize

__all__ = ["inspect"]


def inspect(
    file: Annotated[Path, Argument(help="A JSON file that corvex export has written.")],
    max_size: MaxSize = 200,
) -> None:
    """Tell what is in a payload, and whether it is complete.

    A report, execution or holdings dictionary alone is read as well. Exit status 1 when something
    is wrong with it.
    """
    import json

    from corvex.cli.payload_lines import described, name_of_schema
    from corvex.cli.readers.table_source import check_size
    from corvex.schemas import problems

    check_size(file, file.stat().st_size, max_size)
    try:
        value = json.loads(file.read_text(encoding="utf-8-sig"))
    except (ValueError, RecursionError) as error:
        raise ValueError(f"{file.name} is not JSON: {error}") from None
    name, part = name_of_schema(value)
    print(f"{file.name}: {name}, {file.stat().st_size:,} bytes")
    found = problems(part, name)
    if not found:
        found += described(part, name)
    if found:
        print("\n".join(f"  {line}" for line in found[:20]))
        if len(found) > 20:
            print(f"  and {len(found) - 20} more")
        raise ValueError(f"{file.name} is no valid {name}: {len(found)} faults")
    print("valid")
