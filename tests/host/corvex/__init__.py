__version__ = "9.9.host"


def get_token():
    return "host-token", "api_token"


from corvex import data, ffn_core  # noqa: E402, F401
