"""The command line: ``corvex demo``, ``show``, ``report`` and more; ``corvex --help`` lists them.

Results go to the standard output, notes and errors to the standard error. Exit status:

- 0: done;
- 1: it could not be done (a missing file, data that cannot be used, ...), with one line that says
  why;
- 2: the command line itself is wrong;
- 130: interrupted from the keyboard.
"""

from corvex.cli.application import main, run

__all__ = ["main", "run"]
