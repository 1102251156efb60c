"""The login token of the cloud services."""

from __future__ import annotations

import os

_SOURCES = (("CORVEX_ID_TOKEN", "id_token"), ("CORVEX_API_TOKEN", "api_token"))


def get_token() -> tuple[str, str]:
    """Return the login token and its kind.

    Returns
    -------
    tuple of (str, str)
        The token and ``"id_token"`` or ``"api_token"``, from the environment variables
        ``CORVEX_ID_TOKEN`` and ``CORVEX_API_TOKEN``, in this order.

    Raises
    ------
    RuntimeError
        When neither variable is set. The message never holds a token.
    """
    for variable, kind in _SOURCES:
        token = os.environ.get(variable, "").strip()
        if token:
            return token, kind
    raise RuntimeError(
        "no login token: set CORVEX_ID_TOKEN (an id token) or CORVEX_API_TOKEN (an API token)"
    )
