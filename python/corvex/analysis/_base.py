"""What every analysis has."""

from __future__ import annotations

import abc
import importlib
import sys
from collections.abc import Iterable, Mapping
from typing import TYPE_CHECKING, Any, ClassVar

import pandas as pd

if TYPE_CHECKING:
    from plotly.graph_objs import Figure

    from corvex.core.report import Report

__all__ = ["Analysis", "TradeInfo"]

#: Name, table of dates x asset ids, and the date column or columns of the trades to read it on.
type TradeInfo = tuple[str, pd.DataFrame, str | list[str]]


class Analysis(abc.ABC):
    """One analysis of a report.

    ``report.run_analysis("Name", **settings)`` makes one of these with the settings as keyword
    arguments, attaches what `calculate_trade_info` gives to the report's trades, calls `analyze`,
    and then `display` unless told otherwise. To write your own, put this into a file
    ``holdingAnalysis.py`` (a module name starts in lower case, holds no "_" and ends with
    "Analysis"; the class name starts with a capital)::

        from corvex.analysis import Analysis

        class HoldingAnalysis(Analysis):
            title = "Holding time"

            def __init__(self, at_least=0):
                self.at_least = at_least

            def analyze(self, report):
                bars = report.trades["period"]
                self.result = {"bars": bars[bars >= self.at_least].describe().to_dict()}
                return self.result

            def tables(self):
                return {"Bars held": pd.DataFrame([self.result["bars"]])}

    Attributes
    ----------
    title : str
        Heading of the display.
    result : object
        What `analyze` found; None before.
    """

    title: ClassVar[str] = ""
    result: Any = None

    def calculate_trade_info(self, report: Report) -> Iterable[TradeInfo]:
        """Return what to attach to the trades: arguments of ``report.add_trade_info``.

        Each entry adds one column per date column, named "<name>@<date column>". Leave an entry
        out where a closed trade would get no value: statistics such as the win ratio drop every
        row with a missing value. By default nothing is attached.
        """
        del report
        return ()

    @abc.abstractmethod
    def analyze(self, report: Report) -> Any:
        """Analyse the report, keep the result in ``self.result`` and return it."""

    def tables(self) -> Mapping[str, pd.DataFrame]:
        """Return the tables to display, by caption; by default none."""
        return {}

    def figures(self) -> Mapping[str, Figure]:
        """Return plotly figures to show in a notebook, by caption; by default none.

        Import plotly inside this method, so that an analysis without a notebook never pays for
        it.
        """
        return {}

    def notes(self) -> Iterable[str]:
        """Return sentences to display below the tables, such as what is missing and why."""
        return ()

    def display(self) -> None:
        """Show title, tables and notes: rendered in a notebook, as plain text elsewhere.

        The figures are shown in a notebook only.

        Raises
        ------
        RuntimeError
            When `analyze` has not run.
        """
        if self.result is None:
            raise RuntimeError(f"call {type(self).__name__}.analyze(report) before display()")
        show = _notebook_display()
        print(self.title or type(self).__name__)
        for caption, table in self.tables().items():
            if show is not None:
                print(caption)
                show(table)
            else:
                print(f"\n{caption}\n{_as_text(table)}")
        if show is not None:
            for caption, figure in self.figures().items():
                print(caption)
                show(figure)
        for note in self.notes():
            print(note)


def _notebook_display() -> Any:
    """Return IPython's ``display`` inside a notebook's kernel, else None.

    Whoever runs in a kernel has loaded IPython, so a plain program never pays for its import.
    """
    ipython = sys.modules.get("IPython")
    shell = ipython.get_ipython() if ipython is not None else None
    if getattr(shell, "kernel", None) is None:
        return None
    return importlib.import_module("IPython.display").display


def _as_text(table: pd.DataFrame) -> str:
    return "(none)" if table.empty else str(table.to_string(index=False, na_rep="-"))
