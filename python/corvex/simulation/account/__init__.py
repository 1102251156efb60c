"""The account of a run: its terms as the engine takes them, and its money as a report shows it."""
