#include "corvex/engine/account/fee_schedule.hpp"

namespace corvex::engine::inline v1 {

double fee_by_table(std::span<const FeeStep> table, double value) {
    double fee = 0.0;
    for (std::size_t k = 0; k < table.size() && table[k].from < value; ++k) {
        const double end = k + 1 < table.size() ? std::min(table[k + 1].from, value) : value;
        fee += (end - table[k].from) * table[k].ratio;
    }
    return fee;
}

} // namespace corvex::engine::inline v1
