def to_wire_trades(trades):
    return trades
