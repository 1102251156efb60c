class Market:
    pass
