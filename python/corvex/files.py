"""Files that are written whole, or not at all."""

from __future__ import annotations

import contextlib
import errno
import os
from collections.abc import Iterator
from pathlib import PurePath
from stat import S_IMODE, S_ISREG
from typing import IO, TYPE_CHECKING, Any

if TYPE_CHECKING:
    import pandas as pd

__all__ = ["atomic_open", "write_bytes", "write_csv", "write_text"]

# What the system says of a disk, without a name of a file.
_DISK = (errno.ENOSPC, errno.EFBIG, errno.EIO, getattr(errno, "EDQUOT", errno.ENOSPC))
_BINARY = getattr(os, "O_BINARY", 0)

_PACKED = {".gz", ".bz2", ".zip", ".xz", ".zst", ".tar"}


@contextlib.contextmanager
def atomic_open(
    path: str | os.PathLike[str],
    mode: str = "wb",
    *,
    encoding: str | None = None,
    private: bool = False,
) -> Iterator[IO[Any]]:
    """Open a file that appears under its name only when the block ends without an error.

    Parameters
    ----------
    path : str or path
        Where the file is to appear; its folder must exist. An existing file is replaced, and
        keeps its mode; a link goes on leading where it led; a device or a pipe is written to.
    mode : {"wb", "w"}, default "wb"
        Binary or text.
    encoding : str, optional
        Of text; UTF-8 when not given.
    private : bool, default False
        Make the file readable by the user alone, whatever the mode of an older one.

    Yields
    ------
    file
        Open for writing, under a temporary name in the same folder. It is flushed to disk before
        it takes its name.

    Raises
    ------
    ValueError
        When `mode` is another one.
    OSError
        When the file cannot be written; it names `path`.

    Notes
    -----
    Where the folder takes no new file but the file itself can be written, that is done.
    """
    if mode not in ("wb", "w"):
        raise ValueError(f"mode must be 'wb' or 'w', got {mode!r}")
    if mode == "w":
        encoding = encoding or "utf-8"
    name = os.fsdecode(path)
    old = _status_of(name)
    if not os.path.basename(name) or _is_open_already(name) or (old and not S_ISREG(old.st_mode)):
        with open(name, mode, encoding=encoding) as file:
            yield file
        return
    target = os.path.realpath(name)
    draft = os.path.join(os.path.dirname(target), f".corvex-{os.urandom(6).hex()}.tmp")
    try:
        with _open_draft(draft, target, old, mode, encoding, private) as file:
            yield file
            file.flush()
            os.fsync(file.fileno())
        if file.name == draft:
            os.replace(draft, target)
            _flush_folder(target)
    except BaseException as error:
        with contextlib.suppress(OSError):
            os.unlink(draft)
        if isinstance(error, OSError) and (
            error.filename in (draft, target) or (error.filename is None and error.errno in _DISK)
        ):
            error.filename, error.filename2 = path, None
        raise


def _status_of(name: str) -> os.stat_result | None:
    try:
        return os.stat(name)
    except OSError:
        return None


def _is_open_already(name: str) -> bool:
    """Tell names of what a process has open: somebody goes on writing to that very file."""
    whole = os.path.abspath(name)
    return whole.startswith(("/dev/", "/proc/")) and not whole.startswith("/dev/shm/")


def _open_draft(
    draft: str,
    target: str,
    old: os.stat_result | None,
    mode: str,
    encoding: str | None,
    private: bool,
) -> IO[Any]:
    """Open the draft; the target itself where it alone can be written."""
    rights = 0o600 if private else 0o666
    if old is None or os.access(target, os.W_OK):
        try:
            # A new file, so that nothing planted under its name is followed, and with its mode
            # from the first moment.
            handle = os.open(draft, os.O_WRONLY | os.O_CREAT | os.O_EXCL | _BINARY, rights)
        except OSError as error:
            if old is None or error.errno not in (errno.EACCES, errno.EPERM, errno.EROFS):
                raise
        else:
            if old is not None and not private:
                os.chmod(draft, S_IMODE(old.st_mode))
            return open(draft, mode, encoding=encoding, opener=lambda *_: handle)
    return open(target, mode, encoding=encoding)


def _flush_folder(target: str) -> None:
    """Bring a rename to disk too, where the system can be asked for that."""
    with contextlib.suppress(OSError):
        folder = os.open(os.path.dirname(target), os.O_RDONLY)
        try:
            os.fsync(folder)
        finally:
            os.close(folder)


def write_bytes(path: str | os.PathLike[str], content: bytes) -> None:
    """Write a binary file whole or not at all."""
    with atomic_open(path) as file:
        file.write(content)


def write_text(path: str | os.PathLike[str], content: str, encoding: str = "utf-8") -> None:
    """Write a text file whole or not at all."""
    with atomic_open(path, "w", encoding=encoding) as file:
        file.write(content)


def write_csv(
    table: pd.Series | pd.DataFrame, path: str | os.PathLike[str] | None, **options: Any
) -> str | None:
    """Write a table as pandas does, but whole or not at all; return the text without a path.

    What only pandas can write to (a buffer, an address, a packed file) is left to it.
    """
    plain = isinstance(path, str | os.PathLike) and "://" not in os.fsdecode(path)
    if not plain or PurePath(os.fsdecode(path)).suffix.lower() in _PACKED:  # type: ignore[arg-type]
        result: str | None = table.to_csv(path, **options)
        return result
    with atomic_open(path, "w") as file:  # type: ignore[arg-type]
        table.to_csv(file, **options)
    return None
