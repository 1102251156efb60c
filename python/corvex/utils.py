"""The library logger, the HTTP client, the temporary folder and safe file writing."""

from __future__ import annotations

import contextlib
import importlib
import logging
import os
import stat
import tempfile
from functools import lru_cache
from types import ModuleType
from typing import TYPE_CHECKING, Any

from corvex.files import atomic_open, write_bytes, write_text

__all__ = ["atomic_open", "get_tmp_dir", "logger", "requests", "write_bytes", "write_text"]


class _WhenUsed(ModuleType):
    """Stands for a module, which is imported when something of it is first read, set or listed.

    Python's import lets other threads wait until the module is whole.
    """

    def __getattr__(self, name: str) -> Any:
        return getattr(importlib.import_module(self.__name__), name)

    def __setattr__(self, name: str, value: Any) -> None:
        setattr(importlib.import_module(self.__name__), name, value)

    def __delattr__(self, name: str) -> None:
        delattr(importlib.import_module(self.__name__), name)

    def __dir__(self) -> list[str]:
        return dir(importlib.import_module(self.__name__))


# Most programs publish nothing, and what sends takes longer to load than a page to show.
if TYPE_CHECKING:
    from corvex.cloud import http_client as requests
else:
    requests = _WhenUsed("corvex.cloud.http_client")

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
