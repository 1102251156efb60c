"""A small reference server of the cloud services, for tests and local trials.

``python -m corvex.testing.cloud`` runs it on 127.0.0.1 and prints the settings that point at it.
It keeps documents in memory, checks what it is sent, and can be told to fail. It does not check
the signature of tokens.
"""

from __future__ import annotations

import argparse
import base64
import contextlib
import datetime as dt
import hashlib
import json
import threading
from collections import deque
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import Any, Self
from urllib.parse import parse_qs, unquote

from corvex.cloud.credentials import TOKEN_KINDS
from corvex.cloud.document_values import decode_fields, size_of_value
from corvex.core.firestore_rest import MAX_DOCUMENT_BYTES, extract_uid_from_id_token
from corvex.testing.faults import KINDS, Fault, parse_faults

__all__ = ["CloudServer", "main", "trial_token"]

_ROOT = "/v1/projects/trial/databases/(default)/documents"
_CODES = {400: "INVALID_ARGUMENT", 401: "UNAUTHENTICATED", 403: "PERMISSION_DENIED"}
_BODY_LIMIT = 64 << 20


def trial_token(uid: str = "trial-user") -> str:
    """Return an ID token of the trial user: no secret, and worth nothing elsewhere."""
    parts = ({"alg": "none", "typ": "JWT"}, {"user_id": uid, "sub": uid})
    encoded = (base64.urlsafe_b64encode(json.dumps(part).encode()).rstrip(b"=") for part in parts)
    return b".".join([*encoded, b"unsigned"]).decode()


class CloudServer:
    """Both services on a free port of 127.0.0.1, from entering the block to leaving it.

    Parameters
    ----------
    port : int, default 0
        Port to listen on; 0 takes a free one.

    Attributes
    ----------
    documents : dict of str to dict
        The document service's documents by path, in the form of its REST interface.
    strategies : dict of tuple to dict
        The legacy service's documents by account, collection and name.
    faults : deque of Fault
        What goes wrong with the next requests, one each.
    requests : int
        How many requests came in.

    Examples
    --------
    >>> with CloudServer() as server:
    ...     server.fail("503*2,cut")
    ...     sorted(server.settings)
    ['CORVEX_DOCUMENT_STORE_URL', 'CORVEX_ID_TOKEN', 'CORVEX_LEGACY_URL']
    """

    def __init__(self, port: int = 0) -> None:
        self.documents: dict[str, dict[str, Any]] = {}
        self.strategies: dict[tuple[str, str, str], dict[str, Any]] = {}
        self.faults: deque[Fault] = deque()
        self.requests = 0
        self.lock = threading.Lock()
        self.stopping = threading.Event()
        self._http = _Server(("127.0.0.1", port), _Handler)
        self._http.cloud = self
        self._thread = threading.Thread(
            target=self._http.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True
        )

    @property
    def url(self) -> str:
        """Address of the server."""
        return f"http://127.0.0.1:{self._http.server_address[1]}"

    @property
    def settings(self) -> dict[str, str]:
        """Environment variables that point at this server, with a token of the trial user."""
        return {
            "CORVEX_DOCUMENT_STORE_URL": self.url + _ROOT,
            "CORVEX_LEGACY_URL": self.url,
            "CORVEX_ID_TOKEN": trial_token(),
        }

    def fail(self, faults: str) -> None:
        """Let the next requests fail; see `corvex.testing.faults.parse_faults`."""
        self.faults.extend(parse_faults(faults))

    def __enter__(self) -> Self:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stopping.set()
        self._http.shutdown()
        self._http.server_close()


class _Server(ThreadingHTTPServer):
    daemon_threads = True
    cloud: CloudServer

    def handle_error(self, request: Any, client_address: Any) -> None:
        """Say nothing: connections break here on purpose."""


class _Refused(Exception):
    def __init__(self, status: int, message: str) -> None:
        super().__init__(message)
        self.status = status


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server: _Server

    def log_message(self, *_: Any) -> None:
        """Keep no log: it would have to be kept clean of tokens."""

    def do_PATCH(self) -> None:
        self._serve()

    def do_GET(self) -> None:
        self._serve()

    def do_DELETE(self) -> None:
        self._serve()

    def do_POST(self) -> None:
        self._serve()

    def _serve(self) -> None:
        cloud = self.server.cloud
        length = self.headers.get("Content-Length", "0")
        if not length.isdecimal() or int(length) > _BODY_LIMIT:
            self.close_connection = True
            return self._answer(413, b'{"error": {"message": "too large"}}')
        body = self.rfile.read(int(length))
        with cloud.lock:
            cloud.requests += 1
            fault = cloud.faults.popleft() if cloud.faults else None
        if fault is not None and self._fails_early(fault, body):
            return None
        status, answer = self._result(body)
        if fault is None or fault.kind == "slow":
            self._answer(status, answer)
        elif fault.kind == "drip":
            self._drip(answer, fault.number)
        else:
            self._break_off(fault, answer)
        return None

    def _fails_early(self, fault: Fault, body: bytes) -> bool:
        """Make a fault that comes before anything is kept; tell whether that was all."""
        if fault.kind == "slow":
            self.server.cloud.stopping.wait(fault.number)
            return False
        if fault.kind in ("status", "busy"):
            status, headers = int(fault.number), {}
            if fault.kind == "busy":
                status, headers = 429, {"Retry-After": str(int(fault.number))}
            error = {"code": status, "message": f"fault {status} on request", "status": "FAULT"}
            self._answer(status, json.dumps({"error": error}).encode(), headers)
        elif fault.kind == "nonsense":
            self._answer(200, b"<html><body>Welcome to the hotel's network</body></html>")
        elif fault.kind == "echo":
            said = (
                f"cannot read {self.headers.as_string()} {unquote(body.decode('utf-8', 'replace'))}"
            )
            self._answer(400, json.dumps({"error": {"message": said}}).encode())
        elif fault.kind in ("redirect", "moved"):
            status = 307 if fault.kind == "redirect" else 302
            self._answer(status, b"", {"Location": fault.value})
        elif fault.kind in ("cut", "garbage"):
            if fault.kind == "garbage":
                self.wfile.write(b"\x00\xff\x1b[31mno http\r\n\r\n" * 20)
            self.close_connection = True
        else:
            return False
        return True

    def _break_off(self, fault: Fault, answer: bytes) -> None:
        self.close_connection = True
        if fault.kind == "cut-body":
            head = f"HTTP/1.1 200 OK\r\nContent-Length: {len(answer)}\r\n\r\n"
            self.wfile.write(head.encode() + answer[: len(answer) // 2])

    def _drip(self, answer: bytes, pause: float) -> None:
        self.close_connection = True
        head = f"HTTP/1.1 200 OK\r\nContent-Length: {len(answer)}\r\n\r\n"
        with contextlib.suppress(OSError):
            for byte in head.encode() + answer:
                self.wfile.write(bytes([byte]))
                if self.server.cloud.stopping.wait(pause):
                    return

    def _answer(self, status: int, content: bytes, headers: dict[str, str] | None = None) -> None:
        with contextlib.suppress(OSError):
            self.send_response(status)
            self.send_header("Content-Type", "application/json; charset=utf-8")
            self.send_header("Content-Length", str(len(content)))
            for name, value in (headers or {}).items():
                self.send_header(name, value)
            self.end_headers()
            self.wfile.write(content)

    def _result(self, body: bytes) -> tuple[int, bytes]:
        legacy = not self.path.startswith("/v1/")
        try:
            answer = self._legacy(body) if legacy else self._document(body)
            return 200, json.dumps(answer).encode()
        except _Refused as refused:
            status, message = refused.status, str(refused)
        error: Any = {"code": status, "message": message, "status": _CODES.get(status, "NOT_FOUND")}
        record = {"status": "error", "message": message} if legacy else {"error": error}
        return status, json.dumps(record).encode()

    # ---- the document service --------------------------------------------------------------

    def _document(self, body: bytes) -> dict[str, Any]:
        cloud, path = self.server.cloud, self._document_path()
        if self.command == "PATCH":
            return self._write(path, body)
        with cloud.lock:
            if self.command == "DELETE":
                cloud.documents.pop(path, None)
                return {}
            if self.command == "GET" and path in cloud.documents:
                return cloud.documents[path]
        raise _Refused(404, f'Document "{path}" not found.')

    def _document_path(self) -> str:
        """Return the path of the document, known to be the user's own."""
        if not self.path.startswith(_ROOT + "/"):
            raise _Refused(404, "no such service")
        scheme, _, token = self.headers.get("Authorization", "").partition(" ")
        uid = extract_uid_from_id_token(token.strip()) if scheme == "Bearer" else ""
        if not uid:
            raise _Refused(401, "Missing or invalid authentication.")
        segments = [unquote(segment) for segment in self.path[len(_ROOT) + 1 :].split("/")]
        if len(segments) % 2 or not all(segments) or any("/" in segment for segment in segments):
            raise _Refused(400, "The path is not that of a document.")
        if segments[:2] != ["users", uid]:
            raise _Refused(403, "Missing or insufficient permissions.")
        return "/".join(segments)

    def _write(self, path: str, body: bytes) -> dict[str, Any]:
        cloud = self.server.cloud
        try:
            fields = json.loads(body)["fields"]
            decode_fields(fields)
        except (ValueError, KeyError, TypeError, RecursionError):
            raise _Refused(400, "Invalid JSON payload received.") from None
        whole = {"mapValue": {"fields": fields}}
        if _holds_nested_list(whole):
            raise _Refused(400, "Nested arrays are not allowed.")
        if size_of_value(whole) > MAX_DOCUMENT_BYTES:
            raise _Refused(400, "The document exceeds the maximum allowed size of 1048576 bytes.")
        now = dt.datetime.now(dt.UTC).isoformat().replace("+00:00", "Z")
        with cloud.lock:
            created = cloud.documents.get(path, {}).get("createTime", now)
            document = {
                "name": f"{_ROOT[4:]}/{path}",
                "fields": fields,
                "createTime": created,
                "updateTime": now,
            }
            cloud.documents[path] = document
        return document

    # ---- the legacy service ----------------------------------------------------------------

    def _legacy(self, body: bytes) -> dict[str, Any]:
        if self.command != "POST" or self.path not in ("/write_database", "/auth_get_strategy"):
            raise _Refused(404, "no such service")
        try:
            pairs = parse_qs(body.decode(), keep_blank_values=True, errors="strict")
        except ValueError:
            raise _Refused(400, "the form cannot be read") from None
        form = {name: values[-1] for name, values in pairs.items()}
        key = (_account(form), form.get("collection", ""), form.get("document_id", ""))
        if not all(key):
            raise _Refused(400, "the form needs collection and document_id")
        cloud = self.server.cloud
        if self.path == "/auth_get_strategy":
            with cloud.lock:
                if key in cloud.strategies:
                    return {"status": "success", "data": cloud.strategies[key]}
            raise _Refused(404, f"there is no strategy {key[2]}")
        try:
            document = json.loads(form.get("data", ""))
        except ValueError:
            document = None
        if not isinstance(document, dict):
            raise _Refused(400, "data must be a JSON object")
        with cloud.lock:
            cloud.strategies[key] = document
        return {"status": "success"}


def _holds_nested_list(wire: dict[str, Any]) -> bool:
    """Tell whether a value holds a list directly within a list, which the store refuses."""
    elements = wire.get("arrayValue", {}).get("values", [])
    inner = wire.get("mapValue", {}).get("fields", {}).values()
    return any("arrayValue" in element for element in elements) or any(
        _holds_nested_list(value) for value in (*elements, *inner)
    )


def _account(form: dict[str, str]) -> str:
    uid = extract_uid_from_id_token(form.get("id_token"))
    if uid:
        return f"user {uid}"
    token = "" if "id_token" in form else form.get("api_token", "")
    if not token:
        raise _Refused(401, f"the form needs a token: {' or '.join(TOKEN_KINDS)}")
    return f"key {hashlib.sha256(token.encode()).hexdigest()[:16]}"


def main(arguments: list[str] | None = None) -> None:
    """Run the server until it is interrupted."""
    parser = argparse.ArgumentParser(
        prog="python -m corvex.testing.cloud",
        description="Both cloud services on 127.0.0.1, for tests and local trials.",
        epilog="Faults: " + "; ".join(f"{kind}: {effect}" for kind, effect in KINDS.items()),
    )
    parser.add_argument("--port", type=int, default=0, help="port; a free one by default")
    parser.add_argument("--fail", default="", help="faults, as in 503*2,slow:5,cut")
    options = parser.parse_args(arguments)
    try:
        faults = parse_faults(options.fail)
        server = CloudServer(options.port)
    except (ValueError, OSError, OverflowError) as error:
        parser.error(str(error))
    server.faults.extend(faults)
    with server, contextlib.suppress(KeyboardInterrupt):
        print("# These settings point at the server; it runs until Ctrl-C.")
        for name, value in server.settings.items():
            print(f"export {name}='{value}'", flush=True)
        threading.Event().wait()


if __name__ == "__main__":
    main()
