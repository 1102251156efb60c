"""Safe file writing, the temporary folder, and a light import."""

import os
import stat
import subprocess
import sys

import pytest

from corvex import utils


def test_a_failed_write_leaves_the_old_file_and_nothing_else(tmp_path):
    target = tmp_path / "report.html"
    utils.write_text(target, "old é")

    with pytest.raises(TypeError), utils.atomic_open(target, "w") as file:
        file.writelines(["half", None])

    assert target.read_bytes() == "old é".encode()
    utils.write_bytes(target, b"new")
    assert target.read_bytes() == b"new"
    assert os.listdir(tmp_path) == ["report.html"]
    umask = os.umask(0)
    os.umask(umask)
    assert stat.S_IMODE(target.stat().st_mode) == 0o666 & ~umask
    with pytest.raises(ValueError, match="mode must be"):
        utils.atomic_open(target, "a").__enter__()


def test_the_temporary_folder_is_private_even_when_its_name_is_taken(tmp_path, monkeypatch):
    monkeypatch.setattr("tempfile.tempdir", str(tmp_path))

    own = utils.get_tmp_dir()
    os.chmod(own, 0o755)
    assert utils.get_tmp_dir() == own
    assert stat.S_IMODE(os.stat(own).st_mode) == 0o700
    os.rmdir(own)
    elsewhere = tmp_path / "elsewhere"
    elsewhere.mkdir()
    os.symlink(elsewhere, own)
    other = utils.get_tmp_dir()
    assert other not in (own, str(elsewhere))
    assert utils.get_tmp_dir() == other
    assert stat.S_IMODE(os.stat(other).st_mode) == 0o700


@pytest.mark.slow
def test_importing_the_markets_loads_no_heavy_package():
    code = (
        "import pandas, requests, sys; before = set(sys.modules)\n"
        "import corvex.market, corvex.markets.tw, corvex.data.readiness, corvex.rebalance\n"
        "corvex.markets.tw.TWMarket().get_price('close')\n"
        "print({'exchange_calendars', 'pyarrow'} & (set(sys.modules) - before))"
    )
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)

    assert done.stdout.strip() == "set()"


def test_the_http_client_is_loaded_whole_before_another_thread_sees_it():
    code = """
import sys, threading, corvex.utils as utils
begun, seen = threading.Event(), []
class Slow:
    def find_spec(self, name, *_):
        if name == "requests" and not begun.is_set():
            begun.set()
            late.join(0.3)  # time enough to see a module that is half made
def look():
    begun.wait()
    seen.append(utils.requests.post)
late = threading.Thread(target=look)
late.start()
sys.meta_path.insert(0, Slow())
first = utils.requests.post
late.join()
import corvex.cloud.http_client as client
utils.requests.READ_TIMEOUT = 7.0
print(seen == [first] == [client.post], client.READ_TIMEOUT, "post" in dir(utils.requests))
"""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert done.stdout.split() == ["True", "7.0", "True"]
