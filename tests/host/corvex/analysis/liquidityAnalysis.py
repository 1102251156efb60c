class Unrelated:
    """The class that the file's name promises is missing."""
