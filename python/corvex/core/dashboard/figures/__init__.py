"""Figures: what a page shows of a report, as plain values."""
