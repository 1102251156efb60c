"""Publishing from a program that must not fail for it, and rehearsing an upload."""

from __future__ import annotations

import os
import warnings
from pathlib import Path
from typing import TYPE_CHECKING, Any

from corvex.cloud.credentials import redact
from corvex.core.upload import resolve_upload_name

if TYPE_CHECKING:
    from corvex.core.report import Report

__all__ = ["PublishWarning", "clean_name", "failure_of", "publish", "rehearse"]

_PACKAGE = str(Path(__file__).parent)  # unresolved, as frames name their files


class PublishWarning(UserWarning):
    """A report could not be published."""


def publish(report: Report, name: str | None = None) -> bool:
    """Upload a report; where that fails, warn instead of raising.

    Parameters
    ----------
    report : Report
        The report; it stays as it is.
    name : str, optional
        The strategy's name; see `Report.upload`.

    Returns
    -------
    bool
        Whether the service has it.

    Warns
    -----
    PublishWarning
        When it does not, with the reason. ``report.upload(name)`` tries again.
    """
    try:
        reason = failure_of(report.upload(name))
    except Exception as error:  # the report in memory is worth more than any error here
        reason = redact(f"{error}" if str(error) else type(error).__name__)
    if reason is None:
        return True
    warnings.warn(
        f"the report was not published: {reason} (it is whole; report.upload(name) tries again)",
        PublishWarning,
        stacklevel=2,
        skip_file_prefixes=(_PACKAGE,),  # at the user's line, also when `simulate` calls
    )
    return False


def failure_of(result: object) -> str | None:
    """Return why `Report.upload` failed by what it returned; None when it did not fail."""
    if result is True or (isinstance(result, dict) and result.get("status") == "success"):
        return None
    message = result.get("message") if isinstance(result, dict) else None
    return str(message or "the service did not say why")


def clean_name(name: str | None) -> str:
    """Return the name under which an upload stands: what the services refuse becomes "_".

    The report module knows the rule; this says in English what is wrong with a name.

    Parameters
    ----------
    name : str or None
        As for `Report.upload`.

    Raises
    ------
    ValueError
        When a name holds Chinese but begins with a Latin letter.
    """
    from corvex.core.report import Report

    try:
        return Report._upload_name(name)
    except TypeError:
        raise
    except Exception:
        wrong = resolve_upload_name(name, os.environ)
        raise ValueError(
            f"{wrong!r} cannot name a strategy: a name that holds Chinese begins with it"
        ) from None


def rehearse(report: Report, name: str | None = None) -> tuple[str, dict[str, Any]]:
    """Build what an upload to the document service would write, without login or network.

    Parameters
    ----------
    report : Report
        The report.
    name : str, optional
        The strategy's name; see `Report.upload`.

    Returns
    -------
    tuple of (str, dict)
        The cleaned name, and the document.

    Raises
    ------
    ValueError
        When the name cannot be used.
    """
    clean_name(name)
    return report._rehearse_upload(name)
