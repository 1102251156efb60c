"""Publishing for trial: to the reference server, run inside this program."""

from __future__ import annotations

import contextlib
import os
from collections.abc import Iterator
from typing import TYPE_CHECKING, cast

from corvex.testing.cloud import CloudServer

if TYPE_CHECKING:
    from corvex.core.report import Report, ReportExecution

__all__ = ["publish_for_trial", "trial_cloud"]


@contextlib.contextmanager
def trial_cloud() -> Iterator[CloudServer]:
    """Run the reference server and let the settings of this process point at its store.

    The legacy address is not among what changes: the report module has read it already.
    """
    with CloudServer() as server:
        before = dict(os.environ)
        os.environ.pop("CORVEX_FORCED_STRATEGY_NAME", None)
        os.environ.update(server.settings)
        try:
            yield server
        finally:
            for name in ("CORVEX_FORCED_STRATEGY_NAME", *server.settings):
                if name in before:
                    os.environ[name] = before[name]
                else:
                    os.environ.pop(name, None)


def publish_for_trial(report: Report, name: str) -> ReportExecution:
    """Upload a report to a reference server, and read its execution state back from there.

    Raises
    ------
    RuntimeError
        When the upload fails.
    OSError
        When no server can run on 127.0.0.1.
    """
    from corvex.core.report import ReportExecution

    with trial_cloud():
        result = report.upload(name)
        if result is not True:
            raise RuntimeError(f"the trial upload failed: {result}")
        # A report is read back as one record; several come of collections only.
        return cast("ReportExecution", ReportExecution.from_cloud(name))
