"""The account of a run: its terms, as a user gives them."""

from corvex.accounts.account import Account

__all__ = ["Account"]
