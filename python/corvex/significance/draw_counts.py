"""How many draws are asked for, and by which seed."""

from __future__ import annotations

import numbers
from typing import Any

__all__ = ["check_draws"]


def check_draws(draws: Any, seed: Any, *, least: int = 1) -> None:
    """Refuse numbers of draws and seeds that are none.

    Raises
    ------
    ValueError
        When one is no whole number, or too small.
    """
    for name, value, low in (("draws", draws, least), ("seed", seed, 0)):
        whole = isinstance(value, numbers.Integral) and not isinstance(value, bool)
        if not whole or value < low:
            raise ValueError(f"{name} must be a whole number, at least {low}, not {value!r}")
