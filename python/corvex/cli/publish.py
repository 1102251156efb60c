"""The commands that reach the cloud services: login, logout and upload."""

from __future__ import annotations

import enum
import json
import os
import sys
from pathlib import Path
from typing import TYPE_CHECKING, Annotated

import typer

from corvex.cli.console import Steps, plain_errors
from corvex.cli.saved import Trust, load_report

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["add_commands"]


class Kind(enum.StrEnum):
    """The kinds of tokens."""

    id_token = "id_token"
    api_token = "api_token"


def add_commands(app: typer.Typer) -> None:
    """Add the commands to the command line."""

    @app.command()
    @plain_errors
    def login(
        kind: Annotated[
            Kind | None, typer.Option(help="What the token is; told by its form by default.")
        ] = None,
    ) -> None:
        """Keep a login token for uploads.

        The token is asked for without being shown, or read from a pipe; it is never given as an
        argument, which other users of the machine could see.
        """
        from corvex.cloud.credentials import save_token
        from corvex.core.firestore_rest import extract_uid_from_id_token

        token = _ask_for_token()
        if kind is None:
            kind = Kind.id_token if extract_uid_from_id_token(token) else Kind.api_token
        elif kind is Kind.id_token and not extract_uid_from_id_token(token):
            raise ValueError("this is no ID token: no user id can be read from it")
        file = save_token(token, kind.value)
        print(f"Login kept in {file} ({kind.value}), readable by you alone")

    @app.command()
    @plain_errors
    def logout() -> None:
        """Remove the login token that `login` keeps."""
        from corvex.cloud.credentials import forget_token

        print("Login removed" if forget_token() else "There was no login to remove")

    @app.command()
    @plain_errors
    def upload(
        file: Annotated[Path, typer.Argument(help="A saved report (.corvex or a pickle).")],
        name: Annotated[
            str | None, typer.Option(help="The strategy's name; the report's by default.")
        ] = None,
        dry_run: Annotated[
            Path | None,
            typer.Option(
                help="Send nothing: write the document to this file, and check name and size."
            ),
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


def _ask_for_token() -> str:
    if not sys.stdin.isatty():
        return sys.stdin.readline().strip()
    return str(typer.prompt("Token (is not shown)", hide_input=True)).strip()


def _upload(report: Report, name: str | None) -> str:
    from corvex.cloud.credentials import redact
    from corvex.core.upload import resolve_upload_name
    from corvex.publishing import clean_name, failure_of

    final = clean_name(resolve_upload_name(name, os.environ))
    try:
        reason = failure_of(report.upload(name))
    except (RuntimeError, OSError) as error:  # no token, or no connection
        reason = redact(str(error))
    if reason is not None:
        raise ValueError(f"the report was not published: {reason}")
    return f"Published as {final}"


def _write_document(report: Report, name: str | None, target: Path) -> str:
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
