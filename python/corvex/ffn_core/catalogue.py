"""What each figure is called, counted in and worth knowing: the one list, `figures.toml`."""

from __future__ import annotations

import math
import tomllib
from collections.abc import Mapping
from dataclasses import dataclass
from functools import cache
from importlib import resources
from typing import Any

import pandas as pd

__all__ = ["Catalogue", "Figure", "catalogue", "show"]

# Digits behind the point, where a figure does not say otherwise.
_DIGITS = {"fraction": 2, "ratio": 2, "days": 1, "bars": 1, "assets": 1, "count": 0, "money": 0}

_MEASURES = {"flag": "true or false", "money": "the market's currency", "count": "number"}
_LANGUAGES = {"en": "en", "zh-Hant": "zh"}
_NONE = "-"


@dataclass(frozen=True, slots=True, kw_only=True)
class Figure:
    """One figure.

    Attributes
    ----------
    name : str
        As in the statistics' record, or as the page calls it.
    group : str
        With which others it is shown.
    unit : str
        "fraction" (shown in percent), "ratio", "count", "days", "bars", "assets", "money",
        "date", "text" or "flag".
    digits : int
        How many digits behind the point are shown.
    measure : str
        The unit as the guides tell it.
    metric : str or None
        Its key in the nested metrics.
    also : tuple of str
        Other names that it has in a record.
    formula, missing : str
        Its exact definition and when there is none, for the guides; may be empty.
    texts : mapping of language to (label, definition)
        For "en" and "zh-Hant"; empty for one that readers do not see.
    """

    name: str
    group: str
    unit: str
    digits: int
    measure: str
    metric: str | None = None
    also: tuple[str, ...] = ()
    formula: str = ""
    missing: str = ""
    texts: Mapping[str, tuple[str, str]]

    def label(self, language: str = "en") -> str:
        """Return what readers call it; its name where it has no label."""
        return self.texts[language][0] if self.texts else self.name

    def show(self, value: Any) -> str:
        """Return a value as text, "-" where it is missing."""
        if value is None or value is pd.NaT or (isinstance(value, float) and math.isnan(value)):
            return _NONE
        if self.unit == "fraction":
            return _unsigned_zero(f"{float(value):.{self.digits}%}")
        if self.unit in _DIGITS:
            return _unsigned_zero(f"{float(value):,.{self.digits}f}")
        if self.unit == "date":
            return _date_text(value)
        if self.unit == "flag":
            return "yes" if value else "no"
        return str(value)


@dataclass(frozen=True, slots=True)
class Catalogue:
    """All figures.

    Attributes
    ----------
    figures : mapping of str to Figure
        By name, in the order in which they are shown.
    groups : mapping of str to mapping of language to title
        In the order in which they are shown.
    views : mapping of str to tuple of str
        The names of the figures that a table shows.
    """

    figures: Mapping[str, Figure]
    groups: Mapping[str, Mapping[str, str]]
    views: Mapping[str, tuple[str, ...]]

    def find(self, name: str) -> Figure | None:
        """Return a figure by any of its names; None for another one."""
        return self.figures.get(name) or _by_other_name().get(name)


@cache
def catalogue() -> Catalogue:
    """Read the list of figures, once."""
    text = resources.files(__package__).joinpath("figures.toml").read_text(encoding="utf-8")
    found = tomllib.loads(text)
    figures = {name: _figure(name, entry) for name, entry in found["figures"].items()}
    groups = {
        name: {language: entry["title"][key] for language, key in _LANGUAGES.items()}
        for name, entry in found["groups"].items()
    }
    views = {name: tuple(names) for name, names in found["views"].items()}
    return Catalogue(figures, groups, views)


def show(name: str, value: Any) -> str:
    """Return a figure's value as text; one that is not listed counts as a plain number."""
    figure = catalogue().find(name)
    if figure is None:
        figure = _figure(name, {"group": "", "unit": "ratio"})
    return figure.show(value)


@cache
def _by_other_name() -> dict[str, Figure]:
    return {
        name: one
        for one in catalogue().figures.values()
        for name in (one.metric, *one.also)
        if name
    }


def _figure(name: str, entry: dict[str, Any]) -> Figure:
    texts = {
        language: (entry[key][0], entry[key][1])
        for language, key in _LANGUAGES.items()
        if key in entry
    }
    rest = {key: value for key, value in entry.items() if key not in _LANGUAGES.values()}
    rest["also"] = tuple(rest.get("also", ()))
    rest.setdefault("measure", _MEASURES.get(entry["unit"], entry["unit"]))
    rest.setdefault("digits", _DIGITS.get(entry["unit"], 0))
    return Figure(name=name, texts=texts, **rest)


def _date_text(value: Any) -> str:
    """Return a date, with its time where it has one; whole numbers count seconds since 1970."""
    stamp = pd.Timestamp(value, unit="s") if isinstance(value, int) else pd.Timestamp(value)
    if pd.isna(stamp):
        return _NONE
    return str(stamp.strftime("%Y-%m-%d" if stamp == stamp.normalize() else "%Y-%m-%d %H:%M"))


def _unsigned_zero(text: str) -> str:
    """A small loss would read as a sign without a number."""
    return text[1:] if text.startswith("-") and not any(c in "123456789" for c in text) else text
