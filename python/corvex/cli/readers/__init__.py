"""Reading a user's own files: tables, curves and numbers, however they are written."""
