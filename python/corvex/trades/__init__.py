"""What is known of trades: why they end."""
