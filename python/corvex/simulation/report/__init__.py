"""Reporting: tables with the labels and dates of the user, and the report of them."""
