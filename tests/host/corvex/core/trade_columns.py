def to_wire_trades(trades):
    return trades.rename(columns={"stock_id": "stockId"})
