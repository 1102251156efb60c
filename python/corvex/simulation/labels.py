"""Asset labels: their form, and the price columns that they stand for."""

from __future__ import annotations

from collections.abc import Iterable

import numpy as np
import pandas as pd

from corvex.markets.tables import asset_id

__all__ = ["check_labels", "match_columns"]


def check_labels(columns: pd.Index) -> None:
    """Refuse labels that are not text, occur twice or stand for one asset twice.

    Raises
    ------
    ValueError
        Naming the label.
    """
    if isinstance(columns, pd.MultiIndex):
        raise ValueError("weights must have one level of columns, the asset labels")
    seen: dict[str, str] = {}
    for label in columns:
        if not isinstance(label, str):
            raise ValueError(
                f"asset labels must be text, got {label!r} ({type(label).__name__}); "
                "weights.columns.astype(str) makes them so"
            )
        other = seen.get(asset_id(label))
        seen[asset_id(label)] = label
        if other is not None:
            raise ValueError(
                f"asset label {label!r} occurs twice in weights"
                if other == label
                else f"asset labels {other!r} and {label!r} stand for the same asset"
            )


def match_columns(labels: pd.Index, columns: pd.Index) -> np.ndarray | None:
    """Find the price column of each asset label.

    Parameters
    ----------
    labels : Index
        Asset labels, such as "2330" or "2330 some name".
    columns : Index
        Columns of a price table; labels or ids, text or whole numbers.

    Returns
    -------
    int64 array of shape (labels,) or None
        Positions in `columns`, -1 where there is none: the same label first, else the same id.
        None when the columns are the labels, in the same order.

    Raises
    ------
    ValueError
        When a column that is needed occurs twice.
    """
    if columns.equals(labels):
        return None
    if isinstance(columns, pd.MultiIndex):
        raise ValueError(
            "prices must have one level of columns, the assets; give several fields as a mapping "
            "such as {'close': ..., 'open': ...}"
        )
    exact = _positions(str(column) for column in columns)
    by_id = _positions(asset_id(column) for column in columns)
    found = np.full(len(labels), -1, dtype=np.int64)
    for at, label in enumerate(labels):
        candidates = exact.get(label) or by_id.get(asset_id(label)) or []
        if len(candidates) > 1:
            raise ValueError(f"asset {label!r} has {len(candidates)} price columns")
        if candidates:
            found[at] = candidates[0]
    return found


def _positions(names: Iterable[str]) -> dict[str, list[int]]:
    positions: dict[str, list[int]] = {}
    for at, name in enumerate(names):
        positions.setdefault(name, []).append(at)
    return positions
