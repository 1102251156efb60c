"""A report in a notebook that a real kernel runs, and where there is no IPython."""

import importlib.util
import json
import subprocess
import sys

import pytest

SETUP = """
import warnings
import pandas as pd
import corvex
days = pd.bdate_range("2020-01-01", periods=300)
curve = pd.Series([1.0 + 0.001 * i - 0.05 * (i % 7 == 0) for i in range(300)], days)
report = corvex.from_equity(curve, benchmark=curve ** 0.5, name="In a cell")
"""

# None of the notebook's packages may be found, wherever they are installed.
WITHOUT_IPYTHON = """
import logging, sys
logging.basicConfig()  # the library is silent unless the application wants its log
class Absent:
    def find_spec(self, name, path=None, target=None):
        if name.partition(".")[0] in {"IPython", "ipykernel", "ipywidgets", "nbformat"}:
            raise ModuleNotFoundError(f"No module named {name!r}", name=name)
sys.meta_path.insert(0, Absent())
"""


# Runs in a process of its own: the kernel's client leaves sockets to the collector.
RUN_CELLS = """
import json, sys
import nbclient, nbformat
from jupyter_client import AsyncKernelManager

cells = [nbformat.v4.new_code_cell(source) for source in json.load(sys.stdin)]
manager = AsyncKernelManager()
manager.kernel_spec.argv[0] = sys.executable  # whatever kernels the machine has
book = nbformat.v4.new_notebook(cells=cells)
nbclient.NotebookClient(book, km=manager, timeout=120).execute()
json.dump([cell.outputs for cell in book.cells], sys.stdout)
"""


def run_python(code, text=""):
    command = [sys.executable, "-c", code]
    done = subprocess.run(
        command, check=False, input=text, capture_output=True, text=True, timeout=300
    )
    assert done.returncode == 0, done.stderr
    return done


@pytest.mark.slow
def test_cells_show_the_page_and_the_older_view():
    for package in ("nbclient", "ipykernel"):
        if importlib.util.find_spec(package) is None:
            pytest.skip(f"{package} is not installed, so no notebook was run")
    cells = [
        SETUP,
        "report",
        "report.display()",
        "report.display(lagacy=True)",
        "corvex.compare([report, report])",
    ]
    _, last, shown, older, compared = json.loads(run_python(RUN_CELLS, json.dumps(cells)).stdout)

    # One output each: nothing beside the page, such as a warning of IPython's.
    (result,), (display,), (comparison,) = last, shown, compared
    assert (result["output_type"], display["output_type"]) == ("execute_result", "display_data")
    for output in (result, display, comparison):
        page = output["data"]["text/html"]
        assert page.startswith('<iframe title="')
        assert 'width="100%"' in page
        assert "In a cell" in page
        assert "http-equiv=&quot;Content-Security-Policy&quot;" in page
        # The first output carries the charts' library for all.
        assert (len(page) > 500_000) == (output is result) == ("window.corvexCharts" in page)
    kinds = [kind for output in older if "data" in output for kind in output["data"]]
    assert kinds.count("application/vnd.plotly.v1+json") >= 3


@pytest.mark.parametrize("lagacy", [False, True])
def test_without_ipython_the_text_and_a_warning(lagacy):
    code = f"{WITHOUT_IPYTHON}{SETUP}report.display(lagacy={lagacy})\nprint(report.to_text())"
    done = run_python(code)
    shown = done.stdout.strip()
    half = len(shown) // 2
    assert shown[:half].strip() == shown[half:].strip()  # the text alone, as to_text gives it
    assert "2020-01-01 ~ 2021-02-23" in shown
    assert "IPython is not installed" in done.stderr
    assert ("lagacy mode will be deprecated" in done.stderr) == lagacy
