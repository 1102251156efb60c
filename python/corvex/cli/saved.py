"""Reports in files: read with a clear error, written whole or not at all."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["load_report", "save_report", "target_file", "write_whole"]


def target_file(out: Path, default_name: str) -> Path:
    """Return the file to write, known to be writable in principle before the work begins."""
    target = (out / default_name if out.is_dir() else out).absolute()
    if not target.parent.is_dir():
        raise FileNotFoundError(f"there is no folder {target.parent} to write {target.name} to")
    return target


def write_whole(target: Path, write: Callable[[Path], object]) -> None:
    """Let `write` fill a draft, which becomes the target once it is complete."""
    draft = target.with_name(f".{target.name}.tmp")
    try:
        write(draft)
        draft.replace(target)
    finally:
        draft.unlink(missing_ok=True)


def save_report(report: Report, target: Path) -> None:
    """Write a report as a pickle."""
    write_whole(target, lambda draft: report.to_pickle(str(draft)))


def load_report(file: Path) -> Report:
    """Read a report from a pickle.

    Raises
    ------
    OSError, ValueError
        When the file cannot be read, or holds no report.
    """
    from corvex.core.report import Report

    if not file.exists():
        raise FileNotFoundError(f"there is no file {file}")
    try:
        loaded = Report.from_pickle(str(file))
    except OSError:
        raise
    except Exception as error:  # whatever unpickling runs may raise whatever it likes
        raise ValueError(
            f"{file} is not a report that this version can read: {type(error).__name__}: {error}"
        ) from error
    if not isinstance(loaded, Report):
        raise ValueError(f"{file} holds a {type(loaded).__name__}, not a report")
    return loaded
