"""``python -m corvex`` is the command ``corvex``."""

from __future__ import annotations

from corvex.cli import main

if __name__ == "__main__":
    main()
