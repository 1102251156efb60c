"""What is known of trades: rows, prices of a market at their dates, and why they end."""
