"""Runs checks inside the foreign host: python -S run.py FOLDER MODULE_FILE PATH...

FOLDER receives the host package with the built module in it; the paths hold pandas and pytest.
Without the site module no import hook of an editable install can bring the real package in.

Each line of the input names a check, as "test_trades.py::test_a_name"; the answer is a line of
JSON with the failures of all its cases and how many there were. The end of the input is the end.
"""

import json
import os
import shutil
import sys
from pathlib import Path

HERE = Path(__file__).parent


class Server:
    """A pytest plugin that runs the collected checks in the order in which they are asked for."""

    def __init__(self, requests, answers):
        self.requests, self.answers, self.failures = requests, answers, []

    def pytest_collectreport(self, report):
        if report.failed:
            print(report.longreprtext, file=sys.stderr)

    def pytest_runtest_logreport(self, report):
        if report.failed:
            self.failures.append(f"{report.nodeid} ({report.when})\n{report.longreprtext}")

    def pytest_runtestloop(self, session):
        for line in self.requests:
            name = line.strip()
            cases = [i for i in session.items if f"{i.path.name}::{i.originalname}" == name]
            for item, following in zip(cases, [*cases[1:], None], strict=True):
                item.ihook.pytest_runtest_protocol(item=item, nextitem=following)
            self.answers.write(json.dumps({"cases": len(cases), "failures": self.failures}) + "\n")
            self.answers.flush()
            self.failures = []
        return True


def main():
    folder, module_file, *paths = sys.argv[1:]
    shutil.copytree(HERE / "corvex", Path(folder) / "corvex")
    shutil.copy2(module_file, Path(folder) / "corvex" / "core")
    sys.path[:0] = [folder, *paths]
    os.environ["CORVEX_TEST_HOST"] = folder
    # pytest turns the standard streams elsewhere while a check runs; what else is printed goes
    # to the error stream.
    requests, answers = os.fdopen(os.dup(0)), os.fdopen(os.dup(1), "w")
    os.dup2(2, 1)

    import pytest

    # Memory counts say nothing under the sanitizers.
    chosen = ["-m", "not no_asan"] if os.environ.get("CORVEX_SANITIZED") else []
    arguments = [str(HERE / "checks"), "-p", "no:cacheprovider", *chosen]
    return pytest.main(arguments, plugins=[Server(requests, answers)])


if __name__ == "__main__":
    sys.exit(main())
