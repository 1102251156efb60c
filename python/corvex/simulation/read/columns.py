"""Columns of tables: asset labels, the price columns that they stand for, and their type."""

from __future__ import annotations

from typing import Any

import numpy as np
import pandas as pd

from corvex.tables.asset_labels import label_candidates

__all__ = ["check_labels", "match_columns", "only_type"]


def only_type(table: pd.DataFrame) -> Any:
    """Return the type of a table's columns; None where they have several."""
    types = table.dtypes.to_numpy()
    first = types[0]
    return first if all(kind is first or kind == first for kind in types) else None


def check_labels(columns: pd.Index) -> None:
    """Refuse labels that are not text or occur twice.

    Raises
    ------
    ValueError
        Naming the label.
    """
    if isinstance(columns, pd.MultiIndex):
        raise ValueError("weights must have one level of columns, the asset labels")
    labels = columns.tolist()
    for label in labels:
        if not isinstance(label, str):
            raise ValueError(
                f"asset labels must be text, got {label!r} ({type(label).__name__}); "
                "weights.columns.astype(str) makes them so"
            )
    if not "".join(labels).isascii():
        for label in labels:
            if any("\ud800" <= letter <= "\udfff" for letter in label):
                raise ValueError(f"asset label {label!r} holds half of a character")
    if columns.is_unique:
        return
    repeated = columns[columns.duplicated()][0]
    raise ValueError(f"asset label {repeated!r} occurs twice in weights")


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
        Positions in `columns`, -1 where there is none: the same label first, else the same id
        (see `corvex.tables.asset_labels`). None when the columns are the labels, in the same order.

    Raises
    ------
    ValueError
        When a label has several columns, or several labels have one.
    """
    if columns.equals(labels):
        return None
    if isinstance(columns, pd.MultiIndex):
        raise ValueError(
            "prices must have one level of columns, the assets; give several fields as a mapping "
            "such as {'close': ..., 'open': ...}"
        )
    found = np.full(len(labels), -1, dtype=np.int64)
    taken: dict[int, str] = {}
    for at, (label, places) in enumerate(
        zip(labels.tolist(), label_candidates(labels, columns), strict=True)
    ):
        if not places:
            continue
        if len(places) > 1:
            names = ", ".join(dict.fromkeys(repr(str(columns[place])) for place in places[:5]))
            raise ValueError(f"asset {label!r} has {len(places)} price columns: {names}")
        other = taken.setdefault(places[0], label)
        if other != label:
            raise ValueError(
                f"asset labels {other!r} and {label!r} stand for the same asset: the prices have "
                f"one column for both, {columns[places[0]]!r}"
            )
        found[at] = places[0]
    return found
