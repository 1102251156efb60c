"""Many runs of one strategy: sweeps over parameters."""

from corvex.sweeping.sweep_call import open_sweep, sweep
from corvex.sweeping.swept import Sweep
from corvex.sweeping.walking import WalkForward, walk_forward

__all__ = ["Sweep", "WalkForward", "open_sweep", "sweep", "walk_forward"]
