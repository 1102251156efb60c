"""Long loops of calls, successful and failing, leave memory as it was."""

import gc
import resource
import sys
import tracemalloc

import numpy as np
import pytest

pytestmark = pytest.mark.no_asan
ROUNDS = 100_000


def loops(module, report):
    table = np.zeros((4, 4))
    objects = np.full((4, 4), "x", dtype=object)
    positions = np.array([0, 1, -1])
    halves = positions.astype(np.int32)
    wrong = positions.astype(float)
    return {
        "kernel": lambda: module.query_data_int64(table, positions, positions),
        "kernel of objects": lambda: module.query_data_int32(objects, halves, halves),
        "kernel out of range": lambda: module.query_data_int64(table, positions + 4, positions + 2),
        "kernel of the wrong type": lambda: module.query_data_int64(table, wrong, positions),
        "unsupported table": lambda: module.query_data_int32(table.astype("f4"), halves, halves),
        "keywords": lambda: module.safe_division(n=1, d=2),
        "unknown keyword": lambda: module.safe_division(1, 2, x=3),
        "wrong count": lambda: report.to_text(1, 2, 3),
        "method": report.get_trades,
        "helper": lambda: module._parse_iso_datetime("2024-01-02"),
        "failing helper": lambda: module._parse_iso_datetime([]),
        "failing division": lambda: module.safe_division("a", 1),
        "new function": lambda: module.start_server.__get__(report),
    }


def test_calls_leave_memory_flat(module, make_report):
    report = make_report()
    for name, call in loops(module, report).items():

        def repeat(times, call=call):
            for _ in range(times):
                try:
                    call()
                except (TypeError, ValueError, IndexError):
                    pass

        repeat(1000)
        gc.collect()
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        repeat(ROUNDS)
        assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 2048, name
        tracemalloc.start()
        try:
            repeat(100)
            gc.collect()
            start = tracemalloc.take_snapshot()
            repeat(1000)
            gc.collect()
            grown = sum(
                d.size_diff for d in tracemalloc.take_snapshot().compare_to(start, "filename")
            )
        finally:
            tracemalloc.stop()
        assert grown < 8192, name


def test_arguments_and_defaults_keep_their_reference_counts(module, make_report):
    report, marker = make_report(), object()
    watched = [marker, module.Report.to_terminal.__defaults__, vars(module), report]

    def counts():
        return [sys.getrefcount(value) for value in watched]

    before = counts()
    for _ in range(50):
        module.safe_division(marker, None)
        with pytest.raises(TypeError):
            module.safe_division(marker, marker, marker)
        with pytest.raises(TypeError):
            report.to_text(unknown=marker)
        with pytest.raises(ValueError, match="Unsupported datetime value"):
            module._parse_iso_datetime(marker)
    gc.collect()
    assert counts() == before
