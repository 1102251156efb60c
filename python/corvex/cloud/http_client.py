"""The HTTP client of the package: the requests package with limits.

Whatever `requests` offers can be used through this module, which ``corvex.utils`` exports under
that name. What differs:

- A request that is given no time-out has three: 10 s to connect, 60 s between two parts of the
  answer, and 120 s for everything. ``CORVEX_HTTP_TIMEOUT`` sets the last one (the others are
  never longer). A time-out that the caller gives means what it means in requests.
- Plain http is refused except to this machine, also where a server redirects to it. Requests to
  this machine never go through a proxy.
- A redirect of a form is followed only where the form goes along (status 307 or 308) and stays
  with the same scheme, host and port. Else the answer that redirects is what comes back.
- Errors keep their class and message, but not the request they belong to, its frames or its
  causes, since those hold tokens.
"""

from __future__ import annotations

import functools
import ipaddress
import math
import os
import sys
import threading
import time
from collections.abc import Callable
from typing import Any, cast
from urllib.parse import urljoin

import requests
from requests import exceptions
from urllib3.util import parse_url

from corvex.cloud.traceless import without_traces

__all__ = [
    "Session",
    "delete",
    "exceptions",
    "get",
    "head",
    "options",
    "patch",
    "post",
    "put",
    "request",
    "session",
    "time_limit",
    "without_traces",
]

CONNECT_TIMEOUT = 10.0
READ_TIMEOUT = 60.0
TOTAL_TIMEOUT = 120.0
ANSWER_LIMIT = 64 << 20  # bytes; no service of ours sends more
_CHUNK = 1 << 16
_PORTS = {"http": 80, "https": 443}


def time_limit() -> float:
    """Return the seconds that one request may take in all.

    Raises
    ------
    ValueError
        When ``CORVEX_HTTP_TIMEOUT`` is no positive number.
    """
    text = os.environ.get("CORVEX_HTTP_TIMEOUT", "").strip()
    if not text:
        return TOTAL_TIMEOUT
    try:
        seconds = float(text)
    except ValueError:
        seconds = math.nan
    if not 0 < seconds < math.inf:
        raise ValueError(f"CORVEX_HTTP_TIMEOUT must be a number of seconds above 0, got {text!r}")
    return seconds


class Session(requests.Session):
    """A session of requests with the limits of this module.

    Parameters
    ----------
    limit : float, optional
        Seconds that one request may take in all. Default: see `time_limit`.
    """

    def __init__(self, limit: float | None = None) -> None:
        super().__init__()
        self.limit = limit

    def request(self, method: Any, url: Any, *args: Any, **kwargs: Any) -> requests.Response:
        """Send a request; see `requests.Session.request`."""
        if kwargs.get("timeout") is not None:
            return super().request(method, url, *args, **kwargs)
        limit = time_limit() if self.limit is None else self.limit
        kwargs["timeout"] = (min(CONNECT_TIMEOUT, limit), min(READ_TIMEOUT, limit))
        if kwargs.get("stream"):
            return super().request(method, url, *args, **kwargs)
        kwargs["stream"] = True
        end = time.monotonic() + limit
        send = super().request
        return _within(limit, lambda: _read(send(method, url, *args, **kwargs), end))

    def send(self, request: requests.PreparedRequest, **kwargs: Any) -> requests.Response:
        """Send a prepared request; each one of a chain of redirects comes through here."""
        address = parse_url(request.url or "")
        if address.scheme == "http" and not _is_this_machine(address.host):
            raise exceptions.InvalidSchema(
                f"plain http to {address.host} is refused, since anybody on the way could read "
                "what is sent: use https (http is for services on this machine only)"
            )
        return super().send(request, **kwargs)

    def merge_environment_settings(self, url: Any, proxies: Any, *args: Any) -> Any:
        """Take proxies from the environment, except for this machine."""
        own = dict(proxies or {})  # a copy: what is passed on gets those of the environment
        settings = super().merge_environment_settings(url, proxies, *args)
        if _is_this_machine(parse_url(url).host):
            settings["proxies"] = own
        return settings

    def get_redirect_target(self, resp: requests.Response) -> str | None:
        """Return where a response redirects to, if that may be followed."""
        target = super().get_redirect_target(resp)
        if target is None or not resp.request.body:
            return target
        # After the other codes the form would be left out, and an empty request answered.
        keeps_form = resp.status_code in (307, 308)
        return (
            target if keeps_form and _is_same_place(urljoin(resp.url, target), resp.url) else None
        )


def _is_same_place(one: str, other: str) -> bool:
    def place(url: str) -> tuple[str | None, str | None, int | None]:
        parts = parse_url(url)
        return parts.scheme, parts.host, parts.port or _PORTS.get(parts.scheme or "")

    return place(one) == place(other)


def _is_this_machine(host: str | None) -> bool:
    name = (host or "").strip("[]").lower()
    if name == "localhost":
        return True
    try:
        return ipaddress.ip_address(name).is_loopback
    except ValueError:
        return False


def _read(response: requests.Response, end: float) -> requests.Response:
    """Read the answer here, where its size and time are bounded."""
    with response:
        parts, size = [], 0
        for part in response.iter_content(_CHUNK):
            parts.append(part)
            size += len(part)
            if size > ANSWER_LIMIT:
                raise exceptions.ContentDecodingError(
                    f"the answer is larger than {ANSWER_LIMIT >> 20} MiB"
                )
            if time.monotonic() > end:
                raise exceptions.ReadTimeout("the answer did not end in time")
        response._content = b"".join(parts)
        response._content_consumed = True  # type: ignore[attr-defined]
    return response


def _within[R](limit: float, call: Callable[[], R]) -> R:
    """Run a call, and give it up after `limit` seconds.

    The time-outs of a socket count from one byte to the next, and looking up a host's name has
    none, so only another thread can bound the whole. One that is given up ends with its socket's
    time-outs, or with the process.
    """
    if sys.platform == "emscripten":
        return call()
    results: list[R] = []
    errors: list[BaseException] = []

    def work() -> None:
        try:
            results.append(call())
        except BaseException as error:
            errors.append(error)

    thread = threading.Thread(target=work, name="corvex-http", daemon=True)
    thread.start()
    thread.join(limit)
    if errors:
        raise errors[0]
    if not results:
        raise exceptions.ReadTimeout(f"no whole answer within {limit:g} s")
    return results[0]


def _verb[**P, R](function: Callable[P, R]) -> Callable[P, R]:
    """Make a function one of requests' own: a double put in its place there counts here too."""
    name = function.__name__
    plain = getattr(requests, name)

    @functools.wraps(function)
    def run(*args: P.args, **kwargs: P.kwargs) -> R:
        current = getattr(requests, name)
        return cast("R", (function if current is plain else current)(*args, **kwargs))

    return without_traces(run)


@_verb
def request(method: str, url: str, **kwargs: Any) -> requests.Response:
    """Send a request; see `requests.request`."""
    with Session() as own:
        return own.request(method, url, **kwargs)


@_verb
def get(url: str, params: Any = None, **kwargs: Any) -> requests.Response:
    """Send a GET request; see `requests.get`."""
    return request("get", url, params=params, **kwargs)


@_verb
def options(url: str, **kwargs: Any) -> requests.Response:
    """Send an OPTIONS request; see `requests.options`."""
    return request("options", url, **kwargs)


@_verb
def head(url: str, **kwargs: Any) -> requests.Response:
    """Send a HEAD request, which follows no redirect by default; see `requests.head`."""
    kwargs.setdefault("allow_redirects", False)
    return request("head", url, **kwargs)


@_verb
def post(url: str, data: Any = None, json: Any = None, **kwargs: Any) -> requests.Response:
    """Send a POST request; see `requests.post`."""
    return request("post", url, data=data, json=json, **kwargs)


@_verb
def put(url: str, data: Any = None, **kwargs: Any) -> requests.Response:
    """Send a PUT request; see `requests.put`."""
    return request("put", url, data=data, **kwargs)


@_verb
def patch(url: str, data: Any = None, **kwargs: Any) -> requests.Response:
    """Send a PATCH request; see `requests.patch`."""
    return request("patch", url, data=data, **kwargs)


@_verb
def delete(url: str, **kwargs: Any) -> requests.Response:
    """Send a DELETE request; see `requests.delete`."""
    return request("delete", url, **kwargs)


def session() -> Session:
    """Return a new session; see `requests.session`."""
    return Session()


def __getattr__(name: str) -> Any:
    return cast("Any", getattr(requests, name))


def __dir__() -> list[str]:
    return sorted({*globals(), *dir(requests)})
