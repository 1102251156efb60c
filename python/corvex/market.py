"""The base class of markets, under its public name."""

from corvex.markets.base import Market

__all__ = ["Market"]


def __dir__() -> list[str]:
    return __all__
