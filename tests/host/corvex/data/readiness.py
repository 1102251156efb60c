def snapshot_is_ready(readiness):
    return readiness is not None and readiness.get("ready", False)
