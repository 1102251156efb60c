"""What helps to test programs that use this package."""
