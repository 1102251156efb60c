"""What every contestant's script shares: loading the input, timing a call, reporting.

Runs in the peers' environments too, so it needs nothing beyond the standard library until a
case asks for its input.
"""

from __future__ import annotations

import gc
import importlib.metadata
import json
import resource
import statistics
import subprocess
import sys
import time
import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

Entry = dict[str, Any]
Cases = dict[str, Callable[[Path], list[Entry]]]


def time_call(
    label: str,
    call: Callable[[], object],
    *,
    repeats: int = 9,
    least: float = 0.02,
    budget: float = 20.0,
    warm: bool = True,
    memory: bool = False,
    cpu: bool = False,
) -> Entry:
    """Time `call`: best and median seconds of one call over several repeats.

    Short calls are looped until a repeat lasts `least` seconds. A repeat is not begun once
    `budget` seconds are spent, so that a slow peer is timed once or twice only. With `memory` the
    entry also tells how far resident memory rose, in mebibytes, from before the timed calls. With
    `cpu` the processor's time counts, which a busy machine disturbs less; for one thread alone.
    """
    clock = time.process_time if cpu else time.perf_counter
    if warm:
        call()
    gc.collect()
    resident = reset_peak() if memory else 0
    loops = 1
    start = clock()
    call()
    first = clock() - start
    if first < least:
        loops = max(1, round(least / max(first, 1e-9)))
    samples = [first] if loops == 1 else []
    begun = clock() - first
    gc.disable()
    try:
        while len(samples) < repeats and clock() - begun < budget:
            start = clock()
            for _ in range(loops):
                call()
            samples.append((clock() - start) / loops)
    finally:
        gc.enable()
    entry = summary(label, samples)
    if memory:
        entry["peak"] = (_status("VmHWM") - resident) / 1024
    return entry


def summary(label: str, samples: list[float]) -> Entry:
    """The entry of a contestant's call that took `samples` seconds."""
    return {
        "label": label,
        "best": min(samples),
        "median": statistics.median(samples),
        "repeats": len(samples),
    }


def reset_peak() -> int:
    """Set the kernel's high-water mark to what is resident now, and return that in kibibytes."""
    Path("/proc/self/clear_refs").write_text("5")
    return _status("VmRSS")


def _status(field: str) -> int:
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1])
    raise RuntimeError(f"the kernel does not tell {field}")


def time_import(label: str, module: str, *, repeats: int = 7) -> Entry:
    """Time `import module` after pandas and requests are there, each time in a new process.

    By the processor's time, as what takes few of it waits longest for it on a busy machine.
    """
    code = (
        "import time, warnings; warnings.simplefilter('ignore')\n"
        "import pandas\n"
        "try: import requests\n"
        "except ImportError: pass\n"
        f"t = time.process_time(); import {module}\n"
        "print(time.process_time() - t)"
    )
    samples = []
    for _ in range(repeats + 1):
        out = subprocess.run(
            [sys.executable, "-c", code], check=True, capture_output=True, text=True
        )
        samples.append(float(out.stdout.split()[-1]))
    # The first run may have written byte code and filled the page cache.
    return summary(label, samples[1:])


def time_over(label: str, command: list[str], base: list[str], *, repeats: int = 7) -> Entry:
    """Time how much longer the processor works for one process than for another, in turns."""
    samples: list[list[float]] = [[], []]
    for _ in range(repeats + 1):
        for sample, words in zip(samples, (command, base), strict=True):
            start = _children_time()
            subprocess.run(words, check=True, capture_output=True)
            sample.append(_children_time() - start)
    # The first run may have written byte code and filled the page cache.
    least = min(samples[1][1:])
    return summary(label, [seconds - least for seconds in samples[0][1:]])


def _children_time() -> float:
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def time_processes(labels: list[str], code: str, *, runs: int = 3) -> list[Entry]:
    """Time calls in new processes: `code` prints the seconds of each label's call."""
    samples: list[list[float]] = [[] for _ in labels]
    for _ in range(runs):
        out = subprocess.run(
            [sys.executable, "-W", "ignore", "-c", code], check=True, capture_output=True, text=True
        )
        times = [float(word) for word in out.stdout.split()[-len(labels) :]]
        for sample, seconds in zip(samples, times, strict=True):
            sample.append(seconds)
    return [summary(label, sample) for label, sample in zip(labels, samples, strict=True)]


def load(data: Path) -> dict[str, Any]:
    """The arrays of an .npz file by name."""
    import numpy as np

    with np.load(data) as arrays:
        return dict(arrays)


def price_series(data: Path) -> Any:
    """The input of the statistics cases as a pandas Series over dates."""
    import pandas as pd

    arrays = load(data)
    return pd.Series(arrays["values"], _dates(arrays), name="strategy")


def benchmark_series(data: Path) -> Any:
    """The benchmark of the page case, over the same dates."""
    import pandas as pd

    arrays = load(data)
    return pd.Series(arrays["benchmark"], _dates(arrays), name="benchmark")


def price_table(arrays: dict[str, Any]) -> Any:
    """The prices of the simulation case: a DataFrame dates x assets."""
    import pandas as pd

    assets = [f"A{i:04d}" for i in range(arrays["prices"].shape[1])]
    return pd.DataFrame(arrays["prices"], _dates(arrays), assets, copy=False)


def signal_rows(arrays: dict[str, Any]) -> Any:
    """The target weights of the simulation case, a row for each signal."""
    table = price_table(arrays)
    dates = table.index[arrays["signals"]]
    return type(table)(arrays["weights"], dates, table.columns, copy=False)


def target_rows(arrays: dict[str, Any]) -> Any:
    """The same target weights on the day of their fill, the row after the signal, NaN elsewhere."""
    import numpy as np

    table = price_table(arrays)
    targets = np.full(table.shape, np.nan)
    targets[arrays["signals"] + 1] = arrays["weights"]
    return type(table)(targets, table.index, table.columns, copy=False)


def _dates(arrays: dict[str, Any]) -> Any:
    import pandas as pd

    return pd.DatetimeIndex(arrays["dates"].view("M8[ns]"))


def main(distribution: str, cases: Cases) -> None:
    """Run the case that the command line names on its input file and print the timings."""
    case, data = sys.argv[1], Path(sys.argv[2])
    warnings.simplefilter("ignore")
    entries = cases[case](data)
    version = importlib.metadata.version(distribution)
    print(json.dumps({"name": distribution, "version": version, "entries": entries}))
