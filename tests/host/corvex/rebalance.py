def execution_timing(execution, now=None, calendar=None):
    return {"execution": execution, "now": now, "calendar": calendar}
