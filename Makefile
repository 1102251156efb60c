.DEFAULT_GOAL := help
