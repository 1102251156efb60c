"""``corvex logout``: remove the login token."""

from __future__ import annotations

__all__ = ["logout"]


def logout() -> None:
    """Remove the login token that `login` keeps."""
    from corvex.cloud.credentials import forget_token

    print("Login removed" if forget_token() else "There was no login to remove")
