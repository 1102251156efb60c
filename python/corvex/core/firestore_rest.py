"""Documents of the cloud service's store over its public REST interface."""

from __future__ import annotations

import base64
import contextlib
import json
import os
import random
import time
from collections.abc import Callable, Mapping
from typing import Any
from urllib.parse import quote, urlsplit

from corvex.cloud.credentials import redact
from corvex.cloud.document_values import Wire, decode_fields, encode_fields, size_of_value
from corvex.cloud.traceless import without_traces
from corvex.utils import requests as http

__all__ = [
    "DocumentNotFoundError",
    "DocumentStoreError",
    "check_document",
    "document_size",
    "extract_uid_from_id_token",
    "fetch_document",
    "upsert_document",
]

DEFAULT_URL = "https://documents.corvex.example/v1/projects/corvex/databases/(default)/documents"
URL_VARIABLE = "CORVEX_DOCUMENT_STORE_URL"
MAX_DOCUMENT_BYTES = 1 << 20
MAX_SEGMENT_BYTES = 1500
ATTEMPTS = 5
FIRST_PAUSE = 0.5  # seconds; doubles with each attempt
LONGEST_PAUSE = 8.0
# Trouble that may pass. 409 is how the store says that two writes met.
_PASSING = frozenset({408, 409, 429, 500, 502, 503, 504})
_ATTEMPT_LIMIT = 60.0
_MESSAGE_LIMIT = 500


class DocumentStoreError(RuntimeError):
    """The document service did not do what it was asked; `status` is its HTTP status, if any."""

    def __init__(self, message: str, status: int | None = None) -> None:
        super().__init__(message)
        self.status = status


class DocumentNotFoundError(DocumentStoreError, LookupError):
    """There is no such document."""


def extract_uid_from_id_token(token: object) -> str:
    """Read the user's id from an ID token, without checking its signature.

    Parameters
    ----------
    token : str
        A JSON web token.

    Returns
    -------
    str
        Its claim ``user_id``, else ``sub``. Empty when this is no such token, or when the id
        could not stand in a document's path; nothing is ever raised.
    """
    parts = token.split(".") if isinstance(token, str) else []
    if len(parts) != 3:
        return ""
    claims: object = None
    with contextlib.suppress(ValueError, RecursionError):
        middle = parts[1].encode("ascii")
        padded = middle.rstrip(b"=") + b"=" * (-len(middle.rstrip(b"=")) % 4)
        claims = json.loads(base64.b64decode(padded, altchars=b"-_", validate=True))
    if isinstance(claims, dict):
        for claim in ("user_id", "sub"):
            uid = claims.get(claim)
            if isinstance(uid, str) and uid:
                return uid if _is_user_id(uid) else ""
    return ""


def _is_user_id(uid: str) -> bool:
    return len(uid) <= 128 and uid.isprintable() and "/" not in uid and uid.strip(".") != ""


@without_traces
def upsert_document(path: str, document: Mapping[str, Any], token: str) -> None:
    """Create or replace one document.

    Parameters
    ----------
    path : str
        Collection and document by turns, divided by "/": ``users/<user id>/reports/<name>``.
    document : mapping
        The fields; see `corvex.cloud.document_values.encode_fields` for the types.
    token : str
        The user's ID token.

    Raises
    ------
    TypeError, ValueError
        When the document or the path cannot be stored, or the document is larger than 1 MiB; the
        message says what is large and what to cut. Nothing has been sent then.
    DocumentStoreError
        When the service refuses, or cannot be reached within the time limit and five attempts.

    Notes
    -----
    Writing twice is the same as writing once, so that what may have been passing trouble (a
    dropped connection, a time-out, 408, 409, 429, 5xx) is tried again after a pause that doubles.
    """
    address = _address(path)
    fields = check_document(path, document)
    body = json.dumps({"fields": fields}, ensure_ascii=False, allow_nan=False).encode()
    answer = _exchange("PATCH", address, token, body)
    if not isinstance(answer.get("name"), str):
        raise DocumentStoreError(
            f"{_service(address)} answered with something else than a document"
        )


@without_traces
def fetch_document(path: str, token: str) -> dict[str, Any]:
    """Read one document.

    Parameters
    ----------
    path : str
        As for `upsert_document`.
    token : str
        The user's ID token.

    Returns
    -------
    dict
        The fields as Python values; timestamps are `datetime` in UTC.

    Raises
    ------
    ValueError
        When the path cannot be one of a document.
    DocumentNotFoundError
        When there is no document of this path.
    DocumentStoreError
        When the service refuses, answers with something else, or cannot be reached.
    """
    address = _address(path)
    try:
        answer = _exchange("GET", address, token, None)
    except DocumentStoreError as error:
        if error.status == 404:
            raise DocumentNotFoundError(f"there is no document {path}", 404) from None
        raise
    if not isinstance(answer.get("name"), str):
        raise DocumentStoreError(
            f"{_service(address)} answered with something else than a document"
        )
    try:
        return decode_fields(answer.get("fields", {}))
    except (ValueError, RecursionError) as error:
        raise DocumentStoreError(f"{_service(address)} sent a broken document: {error}") from None


def check_document(path: str, document: Mapping[str, Any]) -> dict[str, Wire]:
    """Return a document's fields in the store's form, known to be small enough.

    Raises
    ------
    TypeError, ValueError
        As `upsert_document` does.
    """
    fields = encode_fields(document)
    size = document_size(path, fields)
    if size > MAX_DOCUMENT_BYTES:
        raise ValueError(_too_large(size, fields))
    return fields


def document_size(path: str, fields: dict[str, Wire]) -> int:
    """Return the bytes that the store counts for a document: its path, its fields and 32 more."""
    name = 16 + sum(len(segment.encode()) + 1 for segment in _segments(path))
    return name + size_of_value({"mapValue": {"fields": fields}}) + 32


def _too_large(size: int, fields: dict[str, Wire]) -> str:
    largest = sorted(_parts(fields), key=lambda part: part[1], reverse=True)[:4]
    listed = ", ".join(f"{name} ({part >> 10:,} KiB)" for name, part in largest)
    return (
        f"the document has {size >> 10:,} KiB, and the store takes 1,024 KiB at most. The largest "
        f"parts are {listed}. Cut there: start the backtest later or resample its curve for a long "
        "history, hold fewer assets for long lists of trades or positions"
    )


def _parts(fields: dict[str, Wire], prefix: str = "", depth: int = 2) -> list[tuple[str, int]]:
    """Name the parts of a document with their sizes, records taken apart down to `depth`."""
    parts = []
    for key, wire in fields.items():
        if depth > 0 and "mapValue" in wire:
            parts += _parts(wire["mapValue"]["fields"], f"{prefix}{key}.", depth - 1)
        else:
            parts.append((f"{prefix}{key}"[:80], len(key.encode()) + 1 + size_of_value(wire)))
    return parts


def _segments(path: str) -> list[str]:
    """Take a path apart; refuse what the store would refuse or take for another place."""
    segments = path.split("/")
    if len(segments) % 2 or (segments[0] == "users" and len(segments) > 4):
        raise ValueError(f"{path[:200]!r} is no path of a document: a name cannot hold a slash")
    for segment in segments:
        try:
            size = len(segment.encode())
        except UnicodeEncodeError:
            size = 0
        reserved = segment.startswith("__") and segment.endswith("__") and len(segment) >= 4
        if not 0 < size <= MAX_SEGMENT_BYTES or segment in (".", "..") or reserved:
            raise ValueError(
                f"{segment[:50]!r} cannot name a document: a name has 1 to {MAX_SEGMENT_BYTES} "
                "bytes of valid text, is not . or .., and does not look like __this__"
            )
    return segments


def _address(path: str) -> str:
    base = os.environ.get(URL_VARIABLE, "").strip() or DEFAULT_URL
    parts = urlsplit(base)
    if parts.scheme not in ("http", "https") or not parts.hostname or parts.query or parts.fragment:
        raise ValueError(f"{URL_VARIABLE} must be the address of a service, such as {DEFAULT_URL}")
    return "/".join([base.rstrip("/"), *(quote(segment, safe="") for segment in _segments(path))])


def _service(address: str) -> str:
    return f"the document service at {urlsplit(address).hostname}"


def _exchange(method: str, address: str, token: str, body: bytes | None) -> dict[str, Any]:
    """Send a request until it is answered; return the answer's JSON object."""
    end = time.monotonic() + http.time_limit()
    pause = FIRST_PAUSE
    for attempt in range(1, ATTEMPTS + 1):
        asked_for = 0.0
        left = max(end - time.monotonic(), 0.001)
        try:
            response = _send(method, address, token, body, min(left, _ATTEMPT_LIMIT))
        except (http.exceptions.InvalidSchema, http.exceptions.InvalidURL) as error:
            raise DocumentStoreError(redact(str(error), token)) from None
        except http.exceptions.RequestException as error:
            problem = DocumentStoreError(
                f"{_service(address)} cannot be reached: {redact(_reason(error), token)}"
            )
        else:
            if 200 <= response.status_code < 300:
                return _object(response.content)
            problem = _refusal(address, response.status_code, response.content, token)
            if response.status_code not in _PASSING:
                raise problem
            asked_for = _retry_after(response.headers.get("Retry-After"))
        wait = max(pause * random.uniform(0.5, 1.0), asked_for)
        if attempt == ATTEMPTS or time.monotonic() + wait >= end:
            break
        time.sleep(wait)
        pause = min(2 * pause, LONGEST_PAUSE)
    raise problem


def _send(method: str, address: str, token: str, body: bytes | None, limit: float) -> Any:
    with http.Session(limit) as session:
        return session.request(
            method,
            address,
            data=body,
            headers={"Content-Type": "application/json; charset=utf-8"} if body else None,
            auth=_bearer(token),
            allow_redirects=False,
        )


def _bearer(token: str) -> Callable[[Any], Any]:
    """Authorise by a function: given as a header, an entry of ~/.netrc would replace it."""
    if not token or not all("!" <= character <= "~" for character in token):
        raise ValueError("the token holds characters that no token has: log in again")

    def authorise(request: Any) -> Any:
        request.headers["Authorization"] = f"Bearer {token}"
        return request

    return authorise


def _reason(error: Exception) -> str:
    for kind, words in (
        (http.exceptions.ConnectTimeout, "no connection in time"),
        (http.exceptions.Timeout, "no answer in time"),
        (http.exceptions.SSLError, "no trusted connection (TLS)"),
        (http.exceptions.ProxyError, "the proxy does not answer"),
        (http.exceptions.ConnectionError, "connection refused or dropped"),
        (http.exceptions.ChunkedEncodingError, "the answer broke off"),
    ):
        if isinstance(error, kind):
            return words
    return f"{type(error).__name__}: {error}"


def _object(content: bytes) -> dict[str, Any]:
    with contextlib.suppress(ValueError, RecursionError):
        answer = json.loads(content)
        if isinstance(answer, dict):
            return answer
    return {}


def _refusal(address: str, status: int, content: bytes, token: str) -> DocumentStoreError:
    error = _object(content).get("error")
    said = error.get("message") if isinstance(error, dict) else error
    if not isinstance(said, str) or not said.strip():
        said = content.decode("utf-8", "replace")
    # Only what can be shown: an answer may hold control sequences for terminals.
    shown = "".join(c if c.isprintable() else " " for c in redact(said[: 1 << 16], token))
    shown = " ".join(shown.split())[:_MESSAGE_LIMIT]
    hint = " (log in again: corvex login)" if status == 401 else ""
    message = f"{_service(address)} refused with status {status}{hint}"
    return DocumentStoreError(f"{message}: {shown}" if shown else message, status)


def _retry_after(value: str | None) -> float:
    """Read for how many seconds the service asks to be left alone; dates are not used here."""
    return min(float(value), LONGEST_PAUSE) if value and value.isdecimal() else 0.0
