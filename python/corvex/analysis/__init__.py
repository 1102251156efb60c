"""Analyses of a report, found by name.

``report.run_analysis("Drawdown")`` loads the module ``corvex.analysis.drawdownAnalysis`` and its
class ``DrawdownAnalysis``. An analysis of your own is one file with one class (see `Analysis`) in
a folder of your own: name the folder in the environment variable ``CORVEX_ANALYSIS_PATH`` (several
are separated as in ``PATH``) before the first analysis runs, or call `add_folder`. The analyses of
the package win over files of the same name.
"""

from __future__ import annotations

import importlib
import os
from pathlib import Path

from corvex.analysis._base import Analysis, TradeInfo

__all__ = ["Analysis", "TradeInfo", "add_folder"]


def __dir__() -> list[str]:
    return sorted(__all__)


def add_folder(folder: str | os.PathLike[str]) -> None:
    """Add a folder in which analyses are looked for; one that is there already stays.

    Parameters
    ----------
    folder : path
        Holds files such as ``momentumAnalysis.py``. It may be filled later.
    """
    path = str(Path(folder).expanduser().absolute())
    if path not in __path__:
        __path__.append(path)
        importlib.invalidate_caches()


for _folder in os.environ.get("CORVEX_ANALYSIS_PATH", "").split(os.pathsep):
    if _folder.strip():
        add_folder(_folder.strip())
