"""The data context, under its public name."""

from corvex.tables.context import DataContext, _default_context, in_utc, now

__all__ = ["DataContext", "_default_context", "in_utc", "now"]
