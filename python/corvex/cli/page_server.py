"""The server behind ``corvex serve``: one folder of finished pages, for this machine's browser."""

from __future__ import annotations

import socket
from http import HTTPStatus
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from typing import Any, override

__all__ = ["PageServer"]

_HEADERS = {
    "Cache-Control": "no-store",
    "Cross-Origin-Resource-Policy": "same-origin",
    "Referrer-Policy": "no-referrer",
    "X-Content-Type-Options": "nosniff",
    "X-Frame-Options": "DENY",
}


class PageServer(ThreadingHTTPServer):
    """Serves a folder on 127.0.0.1, each connection in a thread of its own.

    Parameters
    ----------
    folder : Path
        What it serves; its folders are not listed.
    port : int, default 0
        The port; 0 takes a free one.

    Raises
    ------
    OSError
        When the port is taken.
    """

    daemon_threads = True
    block_on_close = False
    # A port that another program listens on is refused, not shared.
    allow_reuse_address = not hasattr(socket, "SO_EXCLUSIVEADDRUSE")

    def __init__(self, folder: Path, port: int = 0) -> None:
        self.folder = folder
        try:
            super().__init__(("127.0.0.1", port), _Handler)
        except OSError as error:
            raise OSError(f"port {port} cannot be served on: {error.strerror}") from None

    @override
    def server_bind(self) -> None:
        super(ThreadingHTTPServer, self).server_bind()

    @property
    def address(self) -> str:
        """The address of the first page."""
        return f"http://127.0.0.1:{self.server_address[1]}/"

    def is_own_name(self, host: str | None) -> bool:
        """Tell whether a request was meant for this server.

        A web page elsewhere can have its name point here, and would then read the answers; the
        browser still says which name was asked for.
        """
        port = self.server_address[1]
        names = [f"{name}:{port}" for name in ("127.0.0.1", "localhost")]
        if port == 80:
            names += ["127.0.0.1", "localhost"]
        return (host or "").lower() in names

    @override
    def handle_error(self, request: Any, client_address: Any) -> None:
        """Say nothing of browsers that go away in the middle of an answer."""


class _Handler(SimpleHTTPRequestHandler):
    server: PageServer
    timeout = 15.0  # seconds: browsers open connections before they need them
    protocol_version = "HTTP/1.1"
    server_version = "corvex"
    sys_version = ""

    def __init__(self, request: Any, client_address: Any, server: PageServer) -> None:
        super().__init__(request, client_address, server, directory=str(server.folder))

    @override
    def parse_request(self) -> bool:
        if not super().parse_request():
            return False
        if len(self.headers.get_all("Host", [])) != 1 or not self.server.is_own_name(
            self.headers["Host"]
        ):
            self.close_connection = True
            self.send_error(HTTPStatus.MISDIRECTED_REQUEST, "This server has another name")
            return False
        return True

    @override
    def list_directory(self, path: Any) -> None:
        self.send_error(HTTPStatus.NOT_FOUND, "There is no such page")

    @override
    def end_headers(self) -> None:
        for name, value in _HEADERS.items():
            self.send_header(name, value)
        super().end_headers()

    @override
    def log_message(self, format: str, *args: Any) -> None:
        """Say nothing: what a request asks for is foreign text."""
