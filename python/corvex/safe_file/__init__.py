"""Reports in files that hold data alone: JSON and Parquet tables in a zip, ``.corvex``."""

from __future__ import annotations

from corvex.safe_file.container import is_safe_file
from corvex.safe_file.reports import load, save

__all__ = ["is_safe_file", "load", "save"]
