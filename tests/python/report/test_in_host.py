"""Runs the checks of tests/host: the module inside a host that supplies only the agreed members."""

import subprocess
import sys
from pathlib import Path

import pandas as pd

import corvex.core.report as report

RUN = Path(__file__).parents[2] / "host" / "run.py"


def test_module_works_in_a_foreign_host(tmp_path):
    site_packages = str(Path(pd.__file__).parents[1])
    command = [sys.executable, "-S", str(RUN), str(tmp_path), report.__file__, site_packages, "--"]
    done = subprocess.run(command, capture_output=True, text=True, timeout=600, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    assert " passed" in done.stdout
