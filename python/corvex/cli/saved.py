"""Reports in files: read with a clear error, written whole or not at all."""

from __future__ import annotations

import os
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = [
    "PATTERNS",
    "is_special",
    "labels_of",
    "load_report",
    "name_of",
    "save_page",
    "save_report",
    "target_file",
    "title_of",
]

#: What saved reports are called in a folder.
PATTERNS = ("*.corvex", "*.pkl")


def target_file(out: Path, default_name: str) -> Path:
    """Return the file to write, known to be writable in principle before the work begins."""
    target = (out / default_name.replace("/", "-") if out.is_dir() else out).absolute()
    if not target.parent.is_dir():
        raise FileNotFoundError(f"there is no folder {target.parent} to write {target.name} to")
    return target


def title_of(file: Path) -> str:
    """Return a file's name without its ending, as text: a name need not be any."""
    bare = file.stem if file.suffix.lower() in (".gz", ".bz2", ".xz") else file.name
    return os.fsencode(Path(bare).stem).decode("utf-8", "replace")


def is_special(target: Path) -> bool:
    """Tell whether a path leads to a device, a pipe or the like."""
    return target.exists() and not target.is_file()


def save_report(report: Report, target: Path) -> None:
    """Write a report: as data to a name that ends in .corvex, to any other as a pickle."""
    if target.suffix.lower() == ".corvex":
        from corvex.safe_file import save

        save(report, target)
    else:
        report.to_pickle(target)


def save_page(
    report: Report, target: Path, name: str | None = None, confidence: bool | None = None
) -> None:
    """Write a report's page, with its name on the browser's tab.

    It has the section on confidence as asked for, else as the report itself says.
    """
    if confidence is not None:
        report.show_confidence = confidence
    report.to_html(target, title=name or name_of(report))


def name_of(report: Report) -> str | None:
    """Return a report's name; None where it has none."""
    name = getattr(report, "name", None)
    return str(name) if name else None


def labels_of(files: list[Path], reports: list[Report]) -> list[str]:
    """Name the reports apart: by their names, else by their files'."""
    stems = [title_of(file) for file in files]
    names = [name_of(report) or stem for stem, report in zip(stems, reports, strict=True)]
    for labels in (names, stems):
        if len(set(labels)) == len(labels):
            return labels
    whole = [os.fsencode(file).decode("utf-8", "replace") for file in files]
    return [f"{file} ({number})" for number, file in enumerate(whole, start=1)]


def load_report(file: Path, trust: bool = False) -> Report:
    """Read a report that `save_report` or `Report.to_pickle` has written.

    Parameters
    ----------
    file : Path
        The file.
    trust : bool, default False
        Let a pickle name anything, and so run any program.

    Raises
    ------
    OSError, ValueError
        When the file cannot be read, holds no report, or names what a report does not need.
    """
    from corvex.safe_file import is_safe_file, load

    if not file.exists():
        raise FileNotFoundError(f"there is no file {file}")
    if not is_special(file) and is_safe_file(file):
        return load(file)
    from corvex.core.careful_pickle import UntrustedNameError, read_carefully
    from corvex.core.report import Report

    try:
        loaded = Report.from_pickle(file) if trust else read_carefully(file)
    except OSError:
        raise
    except UntrustedNameError as error:
        raise ValueError(
            f"{file} is not opened: {error}. Reading it could run a program; if you know who made "
            "it, --trust opens it all the same"
        ) from error
    except Exception as error:  # whatever unpickling runs may raise whatever it likes
        raise ValueError(
            f"{file} is not a report that this version can read: {type(error).__name__}: {error}"
        ) from error
    if not isinstance(loaded, Report):
        raise ValueError(f"{file} holds a {type(loaded).__name__}, not a report")
    return loaded
