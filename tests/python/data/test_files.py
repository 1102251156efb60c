"""Files are written whole or not at all, by every writer; damage to a saved report is noticed."""

import os
import pickle
import random
import resource
import signal
import stat
import subprocess
import sys
import time

import pandas as pd
import pytest

import corvex
from corvex import files
from corvex.core.report import Report

CURVE = pd.Series(range(1, 400), pd.bdate_range("2020-01-01", periods=399), dtype=float)
WRITERS = {
    "bytes": lambda report, path: files.write_bytes(path, b"x" * 9999),
    "text": lambda report, path: files.write_text(path, "x" * 9999),
    "csv": lambda report, path: files.write_csv(CURVE, path),
    "pickle": lambda report, path: report.to_pickle(path),
    "page": lambda report, path: report.to_html(path),
}


@pytest.fixture(scope="module")
def report():
    return corvex.from_equity(CURVE, name="curve")


@pytest.fixture
def small_disk():
    """Files end at two thousand bytes."""
    kept = signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (2000, limits[1]))
    yield
    resource.setrlimit(resource.RLIMIT_FSIZE, limits)
    signal.signal(signal.SIGXFSZ, kept)


@pytest.mark.parametrize("write", WRITERS.values(), ids=WRITERS)
def test_a_full_disk_leaves_the_old_file_and_names_the_new_one(write, report, tmp_path, small_disk):
    target = tmp_path / "report"
    target.write_bytes(b"old")
    with pytest.raises(OSError, match="too large") as caught:
        write(report, target)
    assert os.fspath(caught.value.filename) == str(target)
    with pytest.raises(FileNotFoundError) as caught:
        write(report, tmp_path / "absent" / "report")
    assert os.fspath(caught.value.filename) == str(tmp_path / "absent" / "report")
    assert target.read_bytes() == b"old"
    assert os.listdir(tmp_path) == ["report"]


@pytest.mark.parametrize("write", WRITERS.values(), ids=WRITERS)
def test_links_modes_pipes_and_long_names_stay_what_they_were(write, report, tmp_path):
    kept = tmp_path / ("k" * 255)
    kept.write_bytes(b"old")
    kept.chmod(0o640)
    link = tmp_path / "link"
    link.symlink_to(kept.name)
    write(report, link)
    assert link.is_symlink()
    assert stat.S_IMODE(kept.stat().st_mode) == 0o640
    content = kept.read_bytes()
    assert len(content) > 3
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    reader = subprocess.Popen(["sh", "-c", f"cat {pipe} | wc -c"], stdout=subprocess.PIPE)
    write(report, pipe)
    assert int(reader.communicate(timeout=30)[0]) > 3
    assert stat.S_ISFIFO(pipe.stat().st_mode)
    with open(tmp_path / "shared", "wb") as shared:  # what a shell has opened is not replaced
        write(report, f"/dev/fd/{shared.fileno()}")
        assert os.fstat(shared.fileno()).st_size > 3
    with pytest.raises(IsADirectoryError):
        write(report, tmp_path)
    assert sorted(os.listdir(tmp_path)) == sorted([kept.name, "link", "pipe", "shared"])


SAVE = """
import sys, pandas as pd, corvex
days = pd.bdate_range("2000-01-03", periods=5000)
report = corvex.from_equity(pd.Series(1.0, days), name=sys.argv[2])
print("ready", flush=True)
while True:
    report.to_pickle(sys.argv[1])
"""


@pytest.mark.slow
@pytest.mark.no_asan
def test_writers_that_compete_and_are_killed_leave_a_whole_file(report, tmp_path):
    target = tmp_path / "report.pkl"
    report.to_pickle(target)
    choose = random.Random(1)
    for _ in range(3):
        savers = [
            subprocess.Popen([sys.executable, "-c", SAVE, target, name], stdout=subprocess.PIPE)
            for name in "ab"
        ]
        for saver in savers:
            saver.stdout.readline()
        for _ in range(30):
            assert Report.from_pickle(target).name in ("a", "b", "curve")
        for saver in savers:
            time.sleep(choose.random() / 50)
            saver.kill()
            saver.communicate()
        assert Report.from_pickle(target).name in ("a", "b")


def test_damage_to_a_saved_report_is_one_error_before_anything_is_run(report, tmp_path):
    target = tmp_path / "report.pkl"
    report.to_pickle(target)
    whole = target.read_bytes()
    plain = pickle.dumps(report)
    assert pickle.loads(whole).creturn.equals(report.creturn)
    for content in (plain, pickle.dumps(report, protocol=0)):  # as other programs write them
        target.write_bytes(content)
        assert Report.from_pickle(target).creturn.equals(report.creturn)
    pipe = tmp_path / "pipe"
    os.mkfifo(pipe)
    feeder = subprocess.Popen(["sh", "-c", f"cat {target} > {pipe}"])
    assert Report.from_pickle(pipe).name == "curve"
    feeder.wait(30)

    choose = random.Random(2)
    silent = 0
    for number in range(600):
        damaged = bytearray(whole)
        at = choose.randrange(len(damaged))
        if number % 3 == 0:
            del damaged[at:]
        elif number % 3 == 1:
            damaged[at] ^= 1 << choose.randrange(8)
        else:
            damaged[at : at + 4096] = bytes(len(damaged[at : at + 4096]))
        target.write_bytes(damaged)
        try:
            Report.from_pickle(target)
        except (pickle.UnpicklingError, EOFError, ValueError):
            continue
        silent += not whole.startswith(plain[:1] + bytes(damaged[1 : len(plain)]))
    assert silent == 0
