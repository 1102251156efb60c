"""Runs the checks inside the foreign host: python -S run.py FOLDER MODULE_FILE PATH... -- ARGS.

FOLDER receives the host package with the built module in it; the paths hold pandas and pytest.
Without the site module no import hook of an editable install can bring the real package in.
"""

import os
import shutil
import sys
from pathlib import Path

HERE = Path(__file__).parent


def main():
    end = sys.argv.index("--")
    folder, module_file, *paths = sys.argv[1:end]
    shutil.copytree(HERE / "corvex", Path(folder) / "corvex")
    shutil.copy2(module_file, Path(folder) / "corvex" / "core")
    sys.path[:0] = [folder, *paths]
    os.environ["CORVEX_TEST_HOST"] = folder

    import pytest

    # Memory counts say nothing under the sanitizers.
    chosen = ["-m", "not no_asan"] if os.environ.get("CORVEX_SANITIZED") else []
    checks = str(HERE / "checks")
    return pytest.main([checks, "-p", "no:cacheprovider", *chosen, *sys.argv[end + 1 :]])


if __name__ == "__main__":
    sys.exit(main())
