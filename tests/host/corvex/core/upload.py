def interpret_legacy_upload_response(response):
    return response


def post_legacy_upload_pyodide_no_cors(url, data):
    return url, data


def resolve_upload_name(name):
    return name
