"""Attributes of a report that are made when first read."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Mapping
from typing import Any

__all__ = ["Deferred"]


class Deferred:
    """What a report asks for attributes that are not made yet.

    Most users of a run read its curve or its figures; tables of trades, the benchmark and the
    freshness of the data wait until they are asked for. What makes them has to know the run's
    state by itself: nothing that a user can change between the run and the first reading. Several
    attributes that are made by one call come together, so that a change to one of them cannot
    enter another.

    Parameters
    ----------
    order : iterable of str
        All attributes of the report, in their order.
    """

    def __init__(self, order: Iterable[str]) -> None:
        self._order = tuple(order)
        self._makers: dict[str, Callable[[], Mapping[str, Any]]] = {}
        self._facts: dict[str, tuple[str, Callable[[], Any]]] = {}

    def add(self, names: Iterable[str], make: Callable[[], Mapping[str, Any]]) -> None:
        """Defer some attributes; `make` gives all of them by name."""
        self._makers.update(dict.fromkeys(names, make))

    def add_fact(self, name: str, attribute: str, tell: Callable[[], Any]) -> None:
        """Tell something about a deferred attribute without making it."""
        self._facts[name] = attribute, tell

    def fact(self, attributes: dict[str, Any], name: str) -> Any:
        """Return a fact; None where its attribute is there already, as made or as assigned."""
        attribute, tell = self._facts.get(name, ("", None))
        if tell is None or attribute in attributes or attribute not in self._makers:
            return None
        return tell()

    def makes(self, name: str) -> bool:
        """Whether an attribute is still to be made."""
        return name in self._makers

    def __call__(self, attributes: dict[str, Any], name: str | None) -> dict[str, Any] | None:
        """Put an attribute into the report's dictionary if it is a deferred one.

        None for a name puts in all, and returns the dictionary that the report is to have then.
        """
        if name is not None:
            self._make(attributes, name)
            return None
        for each in list(self._makers):
            self._make(attributes, each)
        known = dict(attributes)
        known.pop("_deferred", None)
        ordered = {name: known.pop(name) for name in self._order if name in known}
        return {**ordered, **known}

    def _make(self, attributes: dict[str, Any], name: str) -> None:
        make = self._makers.get(name)
        if make is None:
            return
        for key, value in make().items():
            if key in self._makers:
                attributes.setdefault(key, value)  # a user may have assigned it meanwhile
                self._makers.pop(key, None)  # not before: other threads ask whether it is made
