"""Core of the package: the report module and what it calls."""
