"""Reading: the prices of a run, on the clock of their dates, and the market they belong to."""
