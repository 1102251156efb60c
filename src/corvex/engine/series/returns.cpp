#include "corvex/engine/series/returns.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace corvex::engine::inline v1 {

CORVEX_VECTOR_CLONES
std::vector<double> simple_returns(std::span<const double> values) {
    if (values.size() < 2) {
        return {};
    }
    std::vector<double> returns(values.size() - 1);
    for (std::size_t i = 0; i < returns.size(); ++i) {
        returns[i] = values[i + 1] / values[i] - 1.0;
    }
    return returns;
}

std::vector<double> period_returns(std::span<const double> values,
                                   std::span<const Period> periods) {
    std::vector<double> returns;
    returns.reserve(periods.size());
    for (std::size_t i = 1; i < periods.size(); ++i) {
        if (periods[i].number == periods[i - 1].number + 1) {
            returns.push_back(values[periods[i].last] / values[periods[i - 1].last] - 1.0);
        }
    }
    return returns;
}

double return_within(std::span<const double> values, std::span<const Period> periods,
                     std::size_t index) {
    const Period& period = periods[index];
    const bool follows = index > 0 && periods[index - 1].number + 1 == period.number;
    const std::size_t base = follows ? periods[index - 1].last : period.first;
    return values[period.last] / values[base] - 1.0;
}

CORVEX_VECTOR_CLONES
void rebase(std::span<const double> values, double base, std::span<double> out) {
    if (values.size() != out.size()) {
        throw std::invalid_argument("rebase needs an output as long as its input");
    }
    const auto present = [](double v) { return !std::isnan(v); };
    const auto first = std::find_if(values.begin(), values.end(), present);
    const double divisor = first == values.end() ? 1.0 : *first;
    for (std::size_t i = 0; i < values.size(); ++i) {
        out[i] = values[i] / divisor * base;
    }
}

} // namespace corvex::engine::inline v1
