"""Performance statistics on pandas objects."""
