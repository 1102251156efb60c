"""The zip around a saved report, read within bounds."""

from __future__ import annotations

import errno
import io
import json
import os
import struct
import zipfile
import zlib
from typing import IO, Any

from corvex.files import atomic_open
from corvex.safe_file.arrays import DamagedFileError

__all__ = ["FORMAT", "VERSION", "is_safe_file", "read_container", "write_container"]

FORMAT = "corvex.report"
VERSION = 1
MANIFEST = "manifest.json"
RECORD = "report.json"

_ENTRIES = 1000  # tables come one for each length; a report has a handful
_DIRECTORY = 1 << 20  # bytes of the list of entries
_JSON = 32 << 20  # bytes of JSON, which takes many times its size when it is read
_CHUNK = 1 << 20  # read piece by piece, a part gives no more than the size that was counted
_START = b"PK\x03\x04"
_END = struct.Struct("<4s4H2LH")
# All files of the same content are the same bytes: no time of writing in them.
_TIME = (1980, 1, 1, 0, 0, 0)


def is_safe_file(path: str | os.PathLike[str]) -> bool:
    """Tell by its first bytes whether a file is a zip, as saved reports are."""
    with open(path, "rb") as file:
        return file.read(4) == _START


def write_container(
    path: str | os.PathLike[str], manifest: dict[str, Any], record: Any, tables: dict[str, bytes]
) -> None:
    """Write a saved report's parts, whole or not at all."""
    texts = {
        MANIFEST: json.dumps(manifest, ensure_ascii=False, indent=1),
        RECORD: json.dumps(record, ensure_ascii=False, allow_nan=False, separators=(",", ":")),
    }
    if len(texts[RECORD]) > _JSON // 4:  # each character takes four bytes at most
        raise ValueError("the report has too many different labels for a .corvex file")
    content = io.BytesIO()
    with zipfile.ZipFile(content, "w") as file:
        for name, text in texts.items():
            file.writestr(_info(name, zipfile.ZIP_DEFLATED), text.encode("utf-8", "surrogatepass"))
        for name, table in tables.items():
            file.writestr(_info(name, zipfile.ZIP_STORED), table)
    with atomic_open(path) as target:
        target.write(content.getbuffer())


def _info(name: str, form: int) -> zipfile.ZipInfo:
    info = zipfile.ZipInfo(name, _TIME)
    info.compress_type = form
    info.external_attr = 0o644 << 16
    return info


def read_container(path: str | os.PathLike[str], budget: int) -> tuple[Any, Any, dict[str, bytes]]:
    """Return manifest, record and tables.

    Parameters
    ----------
    path : path
        The file.
    budget : int
        Most bytes that its parts may hold together, unpacked.

    Raises
    ------
    DamagedFileError
        When the file is no saved report, is damaged, or holds more.
    """
    with open(path, "rb") as stream:
        _check_directory(stream)
        try:
            with zipfile.ZipFile(stream) as file:
                parts = _read(file, budget)
        except (zipfile.BadZipFile, EOFError, NotImplementedError, RuntimeError, struct.error,
                UnicodeDecodeError, zlib.error) as error:  # fmt: skip
            raise DamagedFileError(f"it is damaged: {error}") from None
        except OSError as error:
            if error.errno != errno.EINVAL:
                raise
            raise DamagedFileError("it is damaged: a part begins outside the file") from None
    for name in (MANIFEST, RECORD):
        if name not in parts:
            raise DamagedFileError(f"it is no saved report: {name} is missing")
    manifest, record = (_json(name, parts.pop(name)) for name in (MANIFEST, RECORD))
    return manifest, record, parts


def _check_directory(stream: IO[bytes]) -> None:
    """Look at the size of the list of entries before it is read whole."""
    size = stream.seek(0, os.SEEK_END)
    stream.seek(max(0, size - _END.size - (1 << 16)))
    tail = stream.read()
    at = tail.rfind(b"PK\x05\x06")
    if at < 0 or len(tail) - at < _END.size:
        stream.seek(0)
        pickled = stream.read(1) == b"\x80"
        raise DamagedFileError(
            "it is a pickle; Report.from_pickle reads it, and runs whatever it names"
            if pickled
            else "it is no saved report, or it lost its end"
        )
    _, _, _, _, entries, directory, _, _ = _END.unpack_from(tail, at)
    if entries > _ENTRIES or directory > _DIRECTORY or b"PK\x06\x07" in tail[max(0, at - 20) : at]:
        raise DamagedFileError("it holds more parts than a saved report does")


def _read(file: zipfile.ZipFile, budget: int) -> dict[str, bytes]:
    infos = file.infolist()
    if len({info.filename for info in infos}) != len(infos):
        raise DamagedFileError("it holds two parts of one name")
    if sum(info.file_size for info in infos) > budget:
        raise DamagedFileError(f"it holds more than {budget >> 20:,} MB; see max_size")
    parts = {}
    for info in infos:
        if info.compress_type not in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
            raise DamagedFileError("it is packed in another way than a saved report")
        if info.filename in (MANIFEST, RECORD) and info.file_size > _JSON:
            raise DamagedFileError(f"its {info.filename} is larger than that of any report")
        with file.open(info) as part:
            parts[info.filename] = b"".join(iter(lambda part=part: part.read(_CHUNK), b""))  # type: ignore[misc]
    return parts


def _json(name: str, content: bytes) -> Any:
    try:
        return json.loads(content.decode("utf-8", "surrogatepass"))
    except (ValueError, RecursionError) as error:
        raise DamagedFileError(f"{name} is not JSON: {error}") from None
