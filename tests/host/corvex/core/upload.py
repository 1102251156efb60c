def interpret_legacy_upload_response(status_code, text):
    return None if status_code == 200 else {"status": "error", "message": text}


def post_legacy_upload_pyodide_no_cors(url, form):
    return False


def resolve_upload_name(name, environ):
    return environ.get("CORVEX_FORCED_STRATEGY_NAME") or name or "unnamed"
