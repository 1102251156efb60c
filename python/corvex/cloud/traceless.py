"""Errors that leave a function without what it was called with."""

from __future__ import annotations

import functools
import json
import sys
from collections.abc import Callable

from corvex.cloud.credentials import redact

__all__ = ["without_traces"]


def without_traces[**P, R](function: Callable[P, R]) -> Callable[P, R]:
    """Let errors leave a function without what it was called with.

    The frames, causes and attributes of an error hold tokens, and whoever logs errors may log
    those. So only the error itself is passed on, with its message redacted.
    """

    @functools.wraps(function)
    def run(*args: P.args, **kwargs: P.kwargs) -> R:
        try:
            return function(*args, **kwargs)
        except Exception as error:
            cleaned = _cleaned(error)
        del args, kwargs
        raise cleaned

    return run


def _cleaned(error: Exception) -> Exception:
    message = redact(str(error))
    if isinstance(error, UnicodeError | json.JSONDecodeError):
        return ValueError(message)  # these hold the text that they failed on
    # Where the package is not loaded yet, the error cannot be one of its own.
    loaded = sys.modules.get("requests.exceptions")
    if loaded is not None and isinstance(error, loaded.RequestException):
        error.args = (message,)
        error.request = error.response = None
    else:
        error.args = tuple(redact(a) if isinstance(a, str) else a for a in error.args)
    error.__cause__ = error.__context__ = None
    return error.with_traceback(None)
