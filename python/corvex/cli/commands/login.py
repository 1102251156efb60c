"""``corvex login``: keep a login token."""

from __future__ import annotations

import enum
import sys
from typing import Annotated

from corvex.cli.declared import Option

__all__ = ["login"]


class Kind(enum.StrEnum):
    """The kinds of tokens."""

    id_token = "id_token"
    api_token = "api_token"


def login(
    kind: Annotated[
        Kind | None, Option(help="What the token is; told by its form by default.")
    ] = None,
) -> None:
    """Keep a login token for uploads.

    The token is asked for without being shown, or read from a pipe; it is never given as an
    argument, which other users of the machine could see.
    """
    from corvex.cloud.credentials import save_token
    from corvex.core.firestore_rest import extract_uid_from_id_token

    token = _ask_for_token()
    if kind is None:
        kind = Kind.id_token if extract_uid_from_id_token(token) else Kind.api_token
    elif kind is Kind.id_token and not extract_uid_from_id_token(token):
        raise ValueError("this is no ID token: no user id can be read from it")
    try:
        file = save_token(token, kind.value)
    except RuntimeError as error:  # what was given is no token
        raise ValueError(str(error)) from None
    print(f"Login kept in {file} ({kind.value}), readable by you alone")


def _ask_for_token() -> str:
    if not sys.stdin.isatty():
        return sys.stdin.readline().strip()
    import getpass

    return getpass.getpass("Token (is not shown): ").strip()
