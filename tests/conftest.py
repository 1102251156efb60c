"""Settings for every Python test."""

import os

from hypothesis import HealthCheck, settings

# Derandomised everywhere: a run that fails must fail again, here and on another machine. Look for
# new counterexamples with HYPOTHESIS_PROFILE=search.
settings.register_profile(
    "ci",
    derandomize=True,
    deadline=None,
    max_examples=100,
    database=None,
    suppress_health_check=[HealthCheck.too_slow],
)
settings.register_profile("fast", settings.get_profile("ci"), max_examples=10)
settings.register_profile(
    "search", settings.get_profile("ci"), derandomize=False, max_examples=2000, print_blob=True
)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "ci"))
