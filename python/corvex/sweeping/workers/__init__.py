"""Running the parts of a sweep on an executor: pools of threads or processes, and clusters."""
