"""Asset labels, and which label of one table another table means.

A label is an asset's id, then perhaps a blank and a name: "2330", "2330 some name". Tables may
name an asset either way, and some names hold blanks of their own ("US Bonds" beside "US Stocks").
So the same label counts first. Only a label that the other table does not hold is looked up by
its id, and only where a single asset there has this id, which nobody asks for by its whole label.
"""

from __future__ import annotations

from collections.abc import Collection, Iterable, Iterator
from typing import TYPE_CHECKING

import numpy as np
import numpy.typing as npt

if TYPE_CHECKING:
    import pandas as pd

__all__ = [
    "ChosenLabels",
    "asset_id",
    "asset_name",
    "label_candidates",
    "match_labels",
    "other_names",
]


class ChosenLabels(Collection[object]):
    """Some labels of an index, made when they are read.

    Parameters
    ----------
    labels : Index
        The labels.
    chosen : bool array of shape (labels,)
        Which of them.
    """

    def __init__(self, labels: pd.Index, chosen: npt.NDArray[np.bool_]) -> None:
        self._labels = labels
        self._chosen = chosen

    def __len__(self) -> int:
        return int(self._chosen.sum())

    def __iter__(self) -> Iterator[object]:
        return iter(self._labels[self._chosen].tolist())

    def __contains__(self, label: object) -> bool:
        return label in list(self)


def asset_id(label: object) -> str:
    """Return the id of an asset label: its text before the first blank."""
    return str(label).split(" ", 1)[0]


def asset_name(label: object) -> str:
    """Return what follows the id in an asset label; "" where nothing does."""
    return str(label).partition(" ")[2]


def match_labels(labels: Iterable[object], known: Iterable[object]) -> npt.NDArray[np.int64]:
    """Find labels among those of another table.

    Parameters
    ----------
    labels : iterable of labels
        What to look for, all labels at once: which ids are unique depends on them.
    known : iterable of labels
        Where to look. Of a label that is repeated the first place counts.

    Returns
    -------
    int64 array of shape (labels,)
        Positions in `known`, -1 where a label is not found, or an id stands for several assets.
    """
    names = [str(label) for label in known]
    return np.array(
        [
            places[0] if places and len({names[place] for place in places}) == 1 else -1
            for places in label_candidates(labels, names)
        ],
        dtype=np.int64,
    )


def label_candidates(labels: Iterable[object], known: Iterable[object]) -> list[list[int]]:
    """Return all places of `known` that each label may mean: none, one, or several.

    For callers who refuse what is not clear; see `match_labels`.
    """
    wanted, names = _texts(labels), _texts(known)
    whole = _places(names)
    nowhere: list[int] = []
    found = [whole.get(label, nowhere) for label in wanted]
    if all(found) or not (" " in "".join(wanted) or " " in "".join(names)):
        return found  # without a blank the id is the label
    by_id = _places(map(asset_id, names))
    asked_for = set(wanted)
    for key, places in by_id.items():
        if len({names[place] for place in places}) == 1 and names[places[0]] in asked_for:
            by_id[key] = []
    return [
        places or by_id.get(asset_id(label), nowhere)
        for places, label in zip(found, wanted, strict=True)
    ]


def other_names(pairs: Iterable[tuple[str, str]]) -> str:
    """Describe labels that were matched by the id although both have a name, and another.

    Parameters
    ----------
    pairs : iterable of (str, str)
        Labels and the labels that they were matched with.

    Returns
    -------
    str
        Such as "'2330 TSMC' is taken for '2330 Taiwan Semi'", at most five; "" without any.
    """
    odd = [(a, b) for a, b in pairs if a != b and asset_name(a) and asset_name(b)]
    told = ", ".join(f"{label!r} is taken for {other!r}" for label, other in odd[:5])
    return told if len(odd) <= 5 else f"{told}, and {len(odd) - 5} more likewise"


def _texts(labels: Iterable[object]) -> list[str]:
    tolist = getattr(labels, "tolist", None)  # an index gives its labels one by one far slower
    return list(map(str, labels if tolist is None else tolist()))


def _places(keys: Iterable[str]) -> dict[str, list[int]]:
    places: dict[str, list[int]] = {}
    for at, key in enumerate(keys):
        places.setdefault(key, []).append(at)
    return places
