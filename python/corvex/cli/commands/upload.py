"""``corvex upload``: publish a saved report."""

from __future__ import annotations

from pathlib import Path
from typing import TYPE_CHECKING, Annotated

from corvex.cli.console import Steps
from corvex.cli.declared import Option
from corvex.cli.parameters import Saved, Trust
from corvex.cli.saved import load_report

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["upload"]


def upload(
    file: Saved,
    name: Annotated[
        str | None, Option(help="The strategy's name; the report's by default.")
    ] = None,
    dry_run: Annotated[
        Path | None,
        Option(help="Send nothing: write the document to this file, and check name and size."),
    ] = None,
    trust: Trust = False,
) -> None:
    """Publish a saved report to the cloud account."""
    with Steps(2) as steps:
        with steps.step("read the report"):
            report = load_report(file, trust)
        name = name or getattr(report, "name", None) or None
        if dry_run is not None:
            with steps.step("build the document"):
                line = _write_document(report, name, dry_run)
        else:
            with steps.step("upload"):
                line = _upload(report, name)
    print(line)


def _upload(report: Report, name: str | None) -> str:
    from corvex.cloud.credentials import redact
    from corvex.publishing import clean_name, failure_of

    final = clean_name(name)
    try:
        reason = failure_of(report.upload(name))
    except (RuntimeError, OSError) as error:  # no token, or no connection
        reason = redact(str(error))
    if reason is not None:
        raise ValueError(f"the report was not published: {reason}")
    return f"Published as {final}"


def _write_document(report: Report, name: str | None, target: Path) -> str:
    import json

    from corvex.core.dashboard import default_serialize
    from corvex.core.firestore_rest import MAX_DOCUMENT_BYTES, check_document, document_size
    from corvex.publishing import rehearse
    from corvex.utils import write_text

    cleaned, document = rehearse(report, name)
    write_text(
        target, json.dumps(document, default=default_serialize, ensure_ascii=False, indent=1)
    )
    path = f"users/(you)/reports/{cleaned}"
    size = document_size(path, check_document(path, document))
    return (
        f"Nothing sent. Document of {cleaned} written to {target}: {size >> 10:,} KiB of "
        f"{MAX_DOCUMENT_BYTES >> 10:,} KiB"
    )
