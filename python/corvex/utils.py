"""The library logger, the HTTP client, the temporary folder and safe file writing."""

from __future__ import annotations

import contextlib
import logging
import os
import stat
import tempfile
from collections.abc import Iterator
from functools import lru_cache
from pathlib import Path
from typing import IO, Any

from corvex import http_client as requests

__all__ = ["atomic_open", "get_tmp_dir", "logger", "requests", "write_bytes", "write_text"]

# Without a handler of its own: what is logged at warning level tells the user why something was not
# done, and Python shows it on stderr unless the application configures logging.
logger = logging.getLogger("corvex")


def get_tmp_dir() -> str:
    """Return the user's own temporary folder for previews and other passing files.

    Returns
    -------
    str
        ``corvex-<user id>`` below the system's temporary folder, made with mode 0700. When that
        name is taken by somebody else (another owner, a link, a file) a fresh private folder is
        made instead, the same one for the rest of the process.
    """
    folder = os.path.join(tempfile.gettempdir(), f"corvex-{_user_id()}")
    with contextlib.suppress(FileExistsError):
        os.mkdir(folder, 0o700)
    if _is_private(folder):
        return folder
    private = _fallback_dir(folder)
    os.makedirs(private, 0o700, exist_ok=True)
    return private


def _user_id() -> str:
    return str(os.getuid()) if hasattr(os, "getuid") else os.environ.get("USERNAME", "user")


def _is_private(folder: str) -> bool:
    """Whether the folder is a real one of this user; its mode is put right when it is."""
    status = os.lstat(folder)
    if not stat.S_ISDIR(status.st_mode):
        return False
    if hasattr(os, "getuid"):
        if status.st_uid != os.getuid():
            return False
        if stat.S_IMODE(status.st_mode) != 0o700:
            os.chmod(folder, 0o700)
    return True


@lru_cache(maxsize=4)
def _fallback_dir(wanted: str) -> str:
    private = tempfile.mkdtemp(prefix="corvex-")
    logger.warning("%s belongs to somebody else; %s is used instead", wanted, private)
    return private


@contextlib.contextmanager
def atomic_open(
    path: str | os.PathLike[str], mode: str = "wb", *, encoding: str | None = None
) -> Iterator[IO[Any]]:
    """Open a file that appears under its name only when the block ends without an error.

    Parameters
    ----------
    path : str or path
        Where the file is to appear; its folder must exist. An existing file is replaced, a
        device or a pipe written to.
    mode : {"wb", "w"}, default "wb"
        Binary or text.
    encoding : str, optional
        Of text; UTF-8 when not given.

    Yields
    ------
    file
        Open for writing, under a temporary name in the same folder.

    Raises
    ------
    ValueError
        When `mode` is another one.
    OSError
        When the folder is missing or cannot be written.
    """
    if mode not in ("wb", "w"):
        raise ValueError(f"mode must be 'wb' or 'w', got {mode!r}")
    target = Path(path)
    if mode == "w":
        encoding = encoding or "utf-8"
    if target.exists() and not target.is_file():
        # A device or a pipe is written to: replacing it would break it for everybody.
        with open(target, mode, encoding=encoding) as file:
            yield file
        return
    draft = target.with_name(f".{target.name}.{os.urandom(6).hex()}.tmp")
    try:
        with open(draft, mode.replace("w", "x"), encoding=encoding) as file:
            yield file
        os.replace(draft, target)
    except BaseException:
        draft.unlink(missing_ok=True)
        raise


def write_bytes(path: str | os.PathLike[str], content: bytes) -> None:
    """Write a binary file whole or not at all."""
    with atomic_open(path) as file:
        file.write(content)


def write_text(path: str | os.PathLike[str], content: str, encoding: str = "utf-8") -> None:
    """Write a text file whole or not at all."""
    with atomic_open(path, "w", encoding=encoding) as file:
        file.write(content)
