"""Warnings that point at the user's line, and dates in messages."""

from corvex.tables.telling import date_text, warn

__all__ = ["date_text", "warn"]
