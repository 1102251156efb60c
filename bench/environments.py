"""Makes an environment for each peer, so that their requirements cannot disturb each other."""

from __future__ import annotations

import subprocess
import sys
import venv
from pathlib import Path

ROOT = Path(__file__).parents[1]
FOLDER = ROOT / "build" / "bench-envs"

# Pinned: a ratio means something only beside the version it was measured with.
REQUIREMENTS = {
    "arch": ["arch==8.0.0"],
    "ffn": ["ffn==1.4.1", "requests"],
    "quantstats": ["quantstats==0.0.86", "requests"],
    "empyrical": ["empyrical-reloaded==0.7.1", "requests"],
    "bt": ["bt==1.4.1"],
    "vectorbt": ["vectorbt==1.2.0"],
    # Only in the guides, for those who come from it.
    "pyfolio": ["pyfolio-reloaded==0.10.1"],
}


def interpreter(name: str) -> Path:
    """The Python of a contestant's environment, which is made when missing or out of date."""
    if name == "corvex":
        return Path(sys.executable)
    folder = FOLDER / name
    python = folder / "bin" / "python"
    stamp = folder / "requirements.txt"
    wanted = "\n".join(REQUIREMENTS[name])
    if not (python.exists() and stamp.exists() and stamp.read_text() == wanted):
        print(f"making the environment of {name} in {folder.relative_to(ROOT)}", flush=True)
        venv.create(folder, clear=True, with_pip=True, symlinks=True)
        install = [python, "-m", "pip", "install", "-q", "--disable-pip-version-check"]
        subprocess.run([*install, *REQUIREMENTS[name]], check=True)
        stamp.write_text(wanted)
    return python
