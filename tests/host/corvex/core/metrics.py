"""Figures that tell which of them was asked for, and with what."""

NAMES = """
    start_date end_date version fee_ratio tax_ratio trade_at market freq expired update_date
    next_trading_date current_rebalance_date next_rebalance_date live_performance_start stop_loss
    take_profit trail_stop annual_return alpha beta avg_n_stock max_n_stock max_drawdown
    avg_drawdown avg_drawdown_days value_at_risk cvalue_at_risk sharpe_ratio sortino_ratio
    calmar_ratio volatility profit_factor tail_ratio win_rate m12_win_rate expectancy mae mfe
    capacity disposal_stock_ratio warning_stock_ratio full_delivery_stock_ratio buy_high sell_low
""".split()


class Metrics:
    def __init__(self, report):
        self.report = report


def _figure(name):
    def figure(self, *rate):
        return [name, *rate]

    return figure


for _name in NAMES:
    setattr(Metrics, _name, _figure(_name))
