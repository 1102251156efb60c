"""``corvex serve``: the pages of a folder of saved reports."""

from __future__ import annotations

import contextlib
from pathlib import Path
from typing import TYPE_CHECKING, Annotated

from corvex.cli.console import Steps, note
from corvex.cli.declared import Argument, Option
from corvex.cli.parameters import Trust
from corvex.cli.saved import PATTERNS, labels_of, load_report, name_of, save_page, title_of

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["render_folder", "serve"]


def serve(
    folder: Annotated[Path, Argument(help="A folder with saved reports (*.corvex, *.pkl).")],
    port: Annotated[
        int, Option(min=0, max=65535, help="Port to serve on; a free one by default.")
    ] = 0,
    trust: Trust = False,
) -> None:
    """Show a folder of saved reports in the browser, until Ctrl-C.

    Their pages are made once, in a temporary folder, and served on 127.0.0.1, to every
    program of this machine but to no other machine.
    """
    if not folder.is_dir():
        raise NotADirectoryError(f"{folder} is not a folder")
    import shutil
    import signal
    import tempfile

    from corvex.cli.page_server import PageServer
    from corvex.utils import get_tmp_dir

    pages = Path(tempfile.mkdtemp(prefix="reports-", dir=get_tmp_dir()))
    try:
        with PageServer(pages, port) as server:
            count = render_folder(folder, pages, trust)
            signal.signal(signal.SIGTERM, signal.default_int_handler)
            with contextlib.suppress(KeyboardInterrupt):
                print(f"{count} reports at {server.address} (Ctrl-C ends)", flush=True)
                server.serve_forever()
    finally:
        shutil.rmtree(pages, ignore_errors=True)


def render_folder(folder: Path, pages: Path, trust: bool = False) -> int:
    """Write a page for each report of a folder, one that compares them, and an index.

    Returns the number of reports. A file that holds no report is left out with a note.

    Raises
    ------
    ValueError
        When no file holds a report.
    """
    files = sorted(file for pattern in PATTERNS for file in folder.glob(pattern))
    reports: list[tuple[Path, Report]] = []
    with Steps(2 * len(files)) as steps:
        for file in files:
            with steps.step(f"read {file.name}"):
                try:
                    reports.append((file, load_report(file, trust)))
                except (OSError, ValueError) as error:
                    note(f"{file.name} is left out: {error}")
        if not reports:
            raise ValueError(f"{folder} holds no report (*.corvex, *.pkl)")
        for number, (file, report) in enumerate(reports, start=1):
            with steps.step(f"render {file.name}"):
                save_page(report, pages / f"{number}.html", name_of(report) or title_of(file))
    from corvex.core.dashboard.page.index_page import index_html
    from corvex.utils import write_text

    compared = _compare_all(reports, pages / "comparison.html")
    labels = [name_of(report) or title_of(file) for file, report in reports]
    rows = [
        (f"{number}.html", label, file.name, report)
        for number, (label, (file, report)) in enumerate(zip(labels, reports, strict=True), 1)
    ]
    write_text(
        pages / "index.html",
        index_html(folder.absolute().name, rows, "comparison.html" if compared else None),
    )
    return len(reports)


def _compare_all(reports: list[tuple[Path, Report]], target: Path) -> bool:
    """Write the page of the comparison; False where the reports cannot be compared."""
    from corvex.comparison import compare

    files, loaded = [list(part) for part in zip(*reports, strict=True)]
    try:
        compare(dict(zip(labels_of(files, loaded), loaded, strict=True))).to_html(
            target, "All reports"
        )
    except ValueError:  # only one, or no dates in common
        return False
    return True
