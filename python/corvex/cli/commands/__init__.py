"""The commands, one a file; `corvex.cli.registry` lists them."""
