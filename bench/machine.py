"""Describes the machine that a run was made on."""

from __future__ import annotations

import os
import platform
from pathlib import Path


def describe() -> dict[str, str]:
    return {
        "processor": _first("/proc/cpuinfo", "model name") or platform.processor(),
        "cores": str(len(os.sched_getaffinity(0))),
        "memory": f"{int((_first('/proc/meminfo', 'MemTotal') or '0 kB').split()[0]) >> 20} GiB",
        "system": f"{platform.system()} {platform.release()}",
        "python": platform.python_version(),
        "load": f"{os.getloadavg()[0]:.2f}",
    }


def _first(path: str, key: str) -> str | None:
    try:
        lines = Path(path).read_text().splitlines()
    except OSError:
        return None
    return next((line.split(":", 1)[1].strip() for line in lines if line.startswith(key)), None)
