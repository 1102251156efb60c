"""Many runs of one strategy: sweeps over parameters."""

from corvex.sweeping.sweep_call import open_sweep, sweep
from corvex.sweeping.swept import Sweep

__all__ = ["Sweep", "open_sweep", "sweep"]
