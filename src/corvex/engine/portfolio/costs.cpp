#include "corvex/engine/portfolio/costs.hpp"

namespace corvex::engine::inline v1 {

void CostTotals::add(const Costs& costs, double bought, double sold) {
    const double bought_executed = costs.executed(bought, true);
    const double sold_executed = costs.executed(sold, false);
    fees += costs.fee * (bought_executed + sold_executed);
    taxes += costs.tax * sold_executed;
    slippage += costs.slippage * (bought + sold);
    traded += bought + sold;
}

double round_trip_return(const Costs& costs, bool is_long, double entry_price, double exit_price) {
    const double exit_value =
        exit_price * (is_long ? 1.0 - costs.sell_rate() : 1.0 + costs.buy_rate());
    return open_return(costs, is_long, entry_price, exit_value);
}

double open_return(const Costs& costs, bool is_long, double entry_price, double price) {
    const double entry_value =
        entry_price * (is_long ? 1.0 + costs.buy_rate() : 1.0 - costs.sell_rate());
    return is_long ? price / entry_value - 1.0 : 1.0 - price / entry_value;
}

} // namespace corvex::engine::inline v1
