"""Named tables and the settings under which they are read; `corvex.data` is their face."""
