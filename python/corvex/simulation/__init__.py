"""Simulate a portfolio: tables of weights and prices in, a `Report` out."""

from corvex.simulation.driver import simulate

__all__ = ["simulate"]
