def get_market_by_name(name):
    raise ValueError(name)
