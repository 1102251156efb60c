"""Documents of the cloud service's store over its public REST interface."""
