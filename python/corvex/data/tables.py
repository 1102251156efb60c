"""The error of unknown tables, under the name that it first had."""

from corvex.tables.named import UnknownTableError

__all__ = ["UnknownTableError"]
