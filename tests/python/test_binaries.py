"""The built modules are hardened, show their entry alone, and tell nothing of the machine."""

import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from corvex import _engine
from corvex.core import report

pytestmark = [
    pytest.mark.no_asan,
    pytest.mark.skipif(
        sys.platform != "linux" or not shutil.which("readelf"), reason="reads ELF files"
    ),
]


@pytest.mark.parametrize("module", [report, _engine], ids=["report", "_engine"])
def test_modules_are_hardened_and_show_their_entry_alone(module):
    def read(*options):
        command = ["readelf", "-W", *options, module.__file__]
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout

    segments = read("--program-headers")
    assert "GNU_RELRO" in segments
    assert re.search(r"GNU_STACK .* RW +0x", segments)
    dynamic = read("--dynamic")
    assert "NOW" in dynamic
    assert not re.search("RPATH|RUNPATH", dynamic)
    symbols = [line.split() for line in read("--dyn-syms").splitlines() if " UND " not in line]
    shown = [row[7] for row in symbols if len(row) > 7 and row[4] in ("GLOBAL", "WEAK")]
    assert shown == [f"PyInit_{module.__name__.rpartition('.')[2]}"]
    wanted = read("--dyn-syms")
    assert "__stack_chk_fail" in wanted
    assert re.search(r"__\w+_chk@", wanted)
    content = Path(module.__file__).read_bytes()
    root = str(Path(__file__).parents[2]).encode()
    assert root not in content
    assert b"site-packages" not in content
