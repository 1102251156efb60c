#include "corvex/engine/account/fee_schedule.hpp"

#include <algorithm>

namespace corvex::engine::inline v1 {

namespace {

double by_table(const std::vector<FeeStep>& table, double value) {
    double fee = 0.0;
    for (std::size_t k = 0; k < table.size() && table[k].from < value; ++k) {
        const double end = k + 1 < table.size() ? std::min(table[k + 1].from, value) : value;
        fee += (end - table[k].from) * table[k].ratio;
    }
    return fee;
}

} // namespace

double commission(const FeeTerms& terms, double value, double shares, double ratio) {
    if (!(value > 0.0)) {
        return 0.0;
    }
    const double fee = (terms.table.empty() ? value * ratio : by_table(terms.table, value)) +
                       terms.per_share * shares;
    return std::min(std::max(fee, terms.minimum), terms.max_ratio * value);
}

} // namespace corvex::engine::inline v1
