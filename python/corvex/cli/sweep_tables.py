"""What the commands print of a sweep and of a walk forward."""

from __future__ import annotations

import math
from typing import TYPE_CHECKING, Any

from corvex.cli.report_tables import print_table
from corvex.cli.table_words import told
from corvex.ffn_core.catalogue import catalogue, show
from corvex.plaintext import printable

if TYPE_CHECKING:
    from corvex.sweeping import Sweep
    from corvex.sweeping.walking import WalkForward

__all__ = ["check_figure", "print_sweep", "print_walk"]

_SHOWN = ("cagr", "daily_sharpe", "max_drawdown", "turnover", "trades")
_MOST_ERRORS = 5


def check_figure(figure: str, *, on_page: bool) -> None:
    """Refuse what ranks no runs, before there are any.

    Raises
    ------
    ValueError
        Naming the near ones.
    """
    from corvex.sweeping.grid import near
    from corvex.sweeping.run_results import EXTRAS, FIGURES

    known = (*FIGURES, *EXTRAS, *(() if on_page else ("seconds",)))
    if figure not in known:
        raise ValueError(f"no figure {figure!r} ranks runs; {near(figure, known)}")


def print_sweep(sweep: Sweep, figure: str, count: int, lang: str = "en") -> None:
    """Print the best runs of a sweep, how far they can be trusted, and what went wrong."""
    from corvex.sweeping.run_results import INTERRUPTED

    best = sweep.best(figure, count)
    columns = list(dict.fromkeys([figure, *_SHOWN]))
    names = sweep.parameters
    rows = [
        [*_labels(names, index), *(_value(name, row[name]) for name in columns)]
        for index, row in best.iterrows()
    ]
    print_table(
        told(
            "{title}: the best {best} of {all} runs by {figure}",
            lang,
            title=printable(sweep.title or told("a strategy", lang)),
            best=len(best),
            all=f"{len(sweep):,}",
            figure=figure,
        ),
        [*names, *(_heading(name, lang) for name in columns)],
        rows,
        right=range(len(names), len(names) + len(columns)),
    )
    if len(best):
        print(_caution(sweep, lang))
    errors = sweep.errors
    errors = errors[errors != INTERRUPTED]  # of which a note has told
    for place, error in list(errors.items())[:_MOST_ERRORS]:
        run = ", ".join(f"{n}={v}" for n, v in zip(names, _labels(names, place), strict=True))
        print(told("failed: {run}: {error}", lang, run=printable(run), error=printable(error)))
    if len(errors) > _MOST_ERRORS:
        more = f"{len(errors) - _MOST_ERRORS:,}"
        print(told("and {count} more runs without figures", lang, count=more))


def print_walk(walk: WalkForward, choose: str, lang: str = "en") -> None:
    """Print what a walk forward chose in each window, and how the choices held."""
    choices = walk.choices
    names = list(choices.columns[4:-2])
    rows = [
        [
            f"{row['train_start']:%Y-%m-%d}/{row['train_end']:%Y-%m-%d}",
            f"{row['test_start']:%Y-%m-%d}/{row['test_end']:%Y-%m-%d}",
            *(_label(row[name]) for name in names),
            *(show(choose, float(row[name])) for name in ("inside", "outside")),
        ]
        for _, row in choices.iterrows()
    ]
    width = 2 + len(names)
    print_table(
        told("chosen by {figure}", lang, figure=choose),
        [
            told("chosen in", lang),
            told("used in", lang),
            *names,
            told("inside", lang),
            told("outside", lang),
        ],
        rows,
        right=range(width, width + 2),
    )
    text = "Outside over inside {efficiency}; the share of windows that choose as the one before "
    held = {"efficiency": _ratio(walk.efficiency), "stability": _ratio(walk.stability)}
    print(told(text + "{stability}", lang, **held) + "\n")


def _labels(names: list[str], index: Any) -> list[str]:
    if not names:
        return []
    return [_label(one) for one in (index if isinstance(index, tuple) else (index,))]


def _label(value: Any) -> str:
    missing = value is None or (isinstance(value, float) and math.isnan(value))
    return "none" if missing else f"{value:g}" if isinstance(value, float) else str(value)


def _heading(name: str, lang: str) -> str:
    known = catalogue().find(name)
    return name if known is None else known.label(lang)


def _value(name: str, value: Any) -> str:
    return show(name, None if value is None or _is_missing(value) else float(value))


def _is_missing(value: Any) -> bool:
    import pandas as pd

    return bool(pd.isna(value))


def _caution(sweep: Sweep, lang: str) -> str:
    """Say what the number of runs takes from the best of them."""
    known = sweep.trials_statistics
    count = f"{known.trials:,.0f}"
    text = told("The best of {count} is partly the luckiest", lang, count=count)
    if math.isfinite(known.overfitting):
        share = f"{known.overfitting:.1%}"
        text = told("{text}: probability of overfitting {share}", lang, text=text, share=share)
    return told("{text}.", lang, text=text)


def _ratio(value: float) -> str:
    return "-" if math.isnan(value) else f"{value:.2f}"
