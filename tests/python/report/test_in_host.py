"""Runs the checks of tests/host: the module inside a host that supplies only the agreed members."""

import json
import os
import re
import subprocess
import sys
import threading
from pathlib import Path

import pandas as pd
import pytest

import corvex.core.report as report

HOST = Path(__file__).parents[2] / "host"
# Memory counts say nothing under the sanitizers.
LEFT_OUT = "pytestmark = pytest.mark.no_asan" if os.environ.get("CORVEX_SANITIZED") else None
CHECKS = [
    f"{path.name}::{name}"
    for path in sorted((HOST / "checks").glob("test_*.py"))
    if LEFT_OUT is None or LEFT_OUT not in path.read_text(encoding="utf-8")
    for name in re.findall(r"^def (test_\w+)", path.read_text(encoding="utf-8"), re.M)
]
HANGS = 600.0  # seconds for one check


class Host:
    """One process that runs check after check; another one starts where it has died."""

    def __init__(self, folders):
        self.folders, self.process = folders, None

    def run(self, check):
        if self.process is None or self.process.poll() is not None:
            self.start()
        guard = threading.Timer(HANGS, self.process.kill)
        guard.start()
        try:
            self.process.stdin.write(check + "\n")
            self.process.stdin.flush()
            answer = self.process.stdout.readline()
        except BrokenPipeError:
            answer = ""
        guard.cancel()
        if not answer:
            self.stop()
            pytest.fail(f"{check} ended the host\n{self.errors.read_text('utf-8', 'replace')}")
        return json.loads(answer)

    def start(self):
        folder = self.folders.mktemp("host")
        self.errors = folder.with_suffix(".errors")
        packages = str(Path(pd.__file__).parents[1])
        command = [sys.executable, "-S", HOST / "run.py", folder, report.__file__, packages]
        with self.errors.open("wb") as errors:
            self.process = subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors, text=True
            )

    def stop(self):
        if self.process is not None:
            self.process.communicate()


@pytest.fixture(scope="module")
def host(tmp_path_factory):
    started = Host(tmp_path_factory)
    yield started
    started.stop()


@pytest.mark.parametrize("check", CHECKS)
def test_module_works_in_a_foreign_host(host, check):
    answer = host.run(check)
    if not answer["cases"]:
        pytest.skip("left out under the sanitizers")
    assert not answer["failures"], "\n".join(answer["failures"])
