"""Named tables: the built-in samples and the data context."""
