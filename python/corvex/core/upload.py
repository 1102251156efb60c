"""What publishing a report needs beside the report itself: names and the legacy endpoint."""

from __future__ import annotations

import importlib
import json
import sys
from collections.abc import Mapping
from typing import Any
from urllib.parse import urlencode

from corvex.cloud.credentials import redact

__all__ = [
    "interpret_legacy_upload_response",
    "post_legacy_upload_pyodide_no_cors",
    "resolve_upload_name",
]

FORCED_NAME_VARIABLE = "CORVEX_FORCED_STRATEGY_NAME"
DEFAULT_NAME = "未命名"
_MESSAGE_LIMIT = 500
_SUCCESS_WORDS = frozenset({"ok", "okay", "success", "succeeded", "done", "true"})


def resolve_upload_name(name: str | None, environ: Mapping[str, str]) -> str:
    """Settle the strategy name under which a report is published.

    Parameters
    ----------
    name : str or None
        The caller's name.
    environ : mapping of str to str
        The environment. Its ``CORVEX_FORCED_STRATEGY_NAME`` wins over the argument, so that a
        scheduled run decides the name whatever the strategy's code says.

    Returns
    -------
    str
        The forced name, else `name`, else "未命名"; blanks around it are dropped and a name of
        blanks only counts as none, so the result is never empty.

    Raises
    ------
    TypeError
        When `name` is neither text nor None.
    """
    if name is not None and not isinstance(name, str):
        raise TypeError(f"the strategy name must be text or None, got {type(name).__name__}")
    for candidate in (environ.get(FORCED_NAME_VARIABLE), name):
        if candidate and candidate.strip():
            return candidate.strip()
    return DEFAULT_NAME


def interpret_legacy_upload_response(status_code: int, text: str) -> dict[str, Any] | None:
    """Read the legacy endpoint's answer to an upload.

    Parameters
    ----------
    status_code : int
        HTTP status of the response.
    text : str
        Body of the response; may be empty, plain text, HTML or JSON.

    Returns
    -------
    dict or None
        None when the upload was accepted: a status of 200 to 299 with an empty body, a JSON
        object that reports no failure, or a plain word of success ("ok", "success"). Else
        ``{"status": "error", "message": ..., "status_code": ...}``, the message taken from the
        body (JSON keys ``message``, ``error`` or ``detail``, else the text, at most 500
        characters) or "HTTP <status>" when it says nothing. Tokens that the service sends back
        are replaced by stars.

    Notes
    -----
    A service may refuse with status 200 and a JSON object whose ``status`` is any word but one of
    success, whose ``success`` is false, or which holds a non-empty ``error``; that counts as
    refused. Any other body (a web page, a text that broke off) comes from something between here
    and the service. So does a redirect: what was sent has not arrived.
    """
    body = _parse_object(text)
    if 300 <= status_code < 400:
        return _refusal(
            f"the service redirects elsewhere (HTTP {status_code}); nothing was sent there, so "
            "nothing is published",
            status_code,
        )
    if 200 <= status_code < 300:
        if _is_web_page(text):
            return _refusal("a web page answered instead of the service", status_code)
        if body is not None:
            if not _reports_failure(body):
                return None
        elif (text or "").strip(" \t\r\n\"'.!").lower() in {"", *_SUCCESS_WORDS}:
            return None
        else:
            said = _shown(" ".join(text.split()), 100)
            return _refusal(f"something else than the service answered: {said}", status_code)
    message = _message_of(body) if body is not None else " ".join((text or "").split())
    return _refusal(_shown(message, _MESSAGE_LIMIT) or f"HTTP {status_code}", status_code)


def _shown(message: str, limit: int) -> str:
    # Redacted before it is cut, so that no half of a token stays; and shown on terminals, so that
    # nothing that controls them may be in it.
    message = "".join(c if c.isprintable() else " " for c in redact(message)).strip()
    return message if len(message) <= limit else message[: limit - 1] + "…"


def _refusal(message: str, status_code: int) -> dict[str, Any]:
    return {"status": "error", "message": message, "status_code": status_code}


def _is_web_page(text: str) -> bool:
    """Tell a page, as of a network that asks for a login first, from an answer of the service."""
    start = (text or "").lstrip("\ufeff \t\r\n")[:15].lower()
    return start.startswith(("<html", "<!doctype html"))


def _parse_object(text: str) -> dict[str, Any] | None:
    try:
        body = json.loads(text)
    except (TypeError, ValueError, RecursionError):
        return None
    return body if isinstance(body, dict) else None


def _reports_failure(body: dict[str, Any] | None) -> bool:
    if body is None:
        return False
    status = body.get("status")
    if isinstance(status, str) and status.strip().lower() not in _SUCCESS_WORDS:
        return True
    return body.get("success") is False or bool(body.get("error"))


def _message_of(body: dict[str, Any]) -> str:
    for key in ("message", "error", "detail"):
        value = body.get(key)
        if isinstance(value, dict):
            value = value.get("message")
        if isinstance(value, str) and value.strip():
            return " ".join(value.split())
    return ""


def post_legacy_upload_pyodide_no_cors(url: str, form: Mapping[str, str]) -> bool:
    """Send a form from an interpreter that runs inside a browser.

    Parameters
    ----------
    url : str
        The endpoint.
    form : mapping of str to str
        The fields, sent as ``application/x-www-form-urlencoded``.

    Returns
    -------
    bool
        True when the browser took the request. False, and nothing is sent, in an ordinary
        interpreter or where the browser's ``fetch`` cannot be reached.

    Notes
    -----
    There are no sockets in a browser, and the endpoint sends no cross-origin headers, so the
    request goes out in the mode "no-cors". Its response cannot be read: True says that the
    request was handed over, not that the service accepted it.
    """
    if sys.platform != "emscripten":
        return False
    try:
        js = importlib.import_module("js")
        to_js = importlib.import_module("pyodide.ffi").to_js
        fetch = js.fetch
    except (ImportError, AttributeError):
        return False
    options = {
        "method": "POST",
        "mode": "no-cors",
        "headers": {"Content-Type": "application/x-www-form-urlencoded"},
        "body": urlencode(form),
    }
    fetch(url, to_js(options, dict_converter=js.Object.fromEntries))
    return True
