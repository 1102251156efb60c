"""The login token of the cloud services: where it is kept, read and never shown."""

from __future__ import annotations

import contextlib
import json
import os
import stat
from pathlib import Path
from urllib.parse import quote

from corvex.files import atomic_open

__all__ = ["credentials_file", "forget_token", "get_token", "redact", "save_token"]

TOKEN_KINDS = ("id_token", "api_token")
_VARIABLES = (("CORVEX_ID_TOKEN", "id_token"), ("CORVEX_API_TOKEN", "api_token"))
_HIDDEN = "***"

# The tokens that this process has worked with, for `redact`.
_seen: set[str] = set()


def get_token() -> tuple[str, str]:
    """Return the login token and its kind.

    Returns
    -------
    tuple of (str, str)
        The token and ``"id_token"`` or ``"api_token"``: from the environment variables
        ``CORVEX_ID_TOKEN`` and ``CORVEX_API_TOKEN``, in this order, else from the credentials
        file that ``corvex login`` writes.

    Raises
    ------
    RuntimeError
        When there is no token, or what stands in its place cannot be one.
    PermissionError
        When others than the user can read the credentials file.

    Notes
    -----
    No message holds a token or a part of one.
    """
    for variable, kind in _VARIABLES:
        token = os.environ.get(variable, "").strip()
        if token:
            return _checked(token, variable), kind
    file = credentials_file()
    content = _read_private(file)
    if content is None:
        raise RuntimeError(
            "no login token: run `corvex login`, or set CORVEX_ID_TOKEN (an id token) or "
            "CORVEX_API_TOKEN (an API token)"
        )
    token, kind = _parse(content)
    if not token or kind not in TOKEN_KINDS:
        raise RuntimeError(f"{file} is not a credentials file: run `corvex login` again")
    return _checked(token, str(file)), kind


def credentials_file() -> Path:
    """Return where the login token is kept.

    ``corvex/credentials.json`` in ``XDG_CONFIG_HOME``, by default ``~/.config``.
    """
    folder = os.environ.get("XDG_CONFIG_HOME", "")
    base = Path(folder) if os.path.isabs(folder) else Path.home() / ".config"
    return base / "corvex" / "credentials.json"


def save_token(token: str, kind: str) -> Path:
    """Keep a token for later sessions, readable by the user alone.

    Parameters
    ----------
    token : str
        The token; blanks around it are dropped.
    kind : {"id_token", "api_token"}
        What it is.

    Returns
    -------
    Path
        The file, mode 0600, in a folder of mode 0700 where it had to be made.

    Raises
    ------
    ValueError
        When `kind` is another one.
    RuntimeError
        When the text cannot be a token.
    OSError
        When the file cannot be written.
    """
    if kind not in TOKEN_KINDS:
        raise ValueError(f"the kind of token must be one of {', '.join(TOKEN_KINDS)}, got {kind!r}")
    token = _checked(token.strip(), "the text given")
    file = credentials_file()
    file.parent.mkdir(mode=0o700, parents=True, exist_ok=True)
    with atomic_open(file, "w", encoding="ascii", private=True) as stream:
        json.dump({"token": token, "token_type": kind}, stream)
    return file


def forget_token() -> bool:
    """Remove the credentials file; tell whether there was one."""
    try:
        credentials_file().unlink()
    except FileNotFoundError:
        return False
    return True


def redact(text: str, *secrets: str) -> str:
    """Return a text in which stars stand in for tokens.

    Parameters
    ----------
    text : str
        A message on its way to a person or a log.
    *secrets : str
        Tokens to hide beside those that `get_token` has handed out and those of the environment.
    """
    known = {os.environ.get(variable, "").strip() for variable, _ in _VARIABLES}
    spellings = {
        spelling
        for secret in known | _seen | set(secrets)
        if secret
        for spelling in (secret, quote(secret, safe=""), json.dumps(secret)[1:-1])
    }
    # The longest first, so that no part of a token stays because another one lies within it.
    for spelling in sorted(spellings, key=len, reverse=True):
        text = text.replace(spelling, _HIDDEN)
    return text


def _checked(token: str, source: str) -> str:
    if not token or not all("!" <= character <= "~" for character in token):
        raise RuntimeError(
            f"{source} holds no token: a token is one word of plain characters without blanks"
        )
    _seen.add(token)
    return token


def _read_private(file: Path) -> bytes | None:
    """Return the content of a file that only the user can read; None when there is none."""
    try:
        stream = open(file, "rb")  # noqa: SIM115 - closed by the block below
    except FileNotFoundError:
        return None
    with stream:
        status = os.fstat(stream.fileno())
        if hasattr(os, "getuid"):
            if status.st_uid != os.getuid():
                raise PermissionError(f"{file} belongs to another user and is not used")
            if stat.S_IMODE(status.st_mode) & 0o077:
                raise PermissionError(
                    f"{file} can be read by others and is not used: chmod 600 it, and renew the "
                    "token if somebody may have seen it"
                )
        return stream.read(1 << 20)


def _parse(content: bytes) -> tuple[str, str]:
    # Without raising: the decoder's error would carry the whole content.
    with contextlib.suppress(ValueError, RecursionError):
        record = json.loads(content)
        if isinstance(record, dict):
            token, kind = record.get("token"), record.get("token_type")
            if isinstance(token, str) and isinstance(kind, str):
                return token.strip(), kind
    return "", ""
