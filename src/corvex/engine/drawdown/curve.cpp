#include "corvex/engine/drawdown/curve.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

void drawdown_curve(std::span<const double> values, std::span<double> out) {
    if (values.size() != out.size()) {
        throw std::invalid_argument("drawdown_curve needs an output as long as its input");
    }
    double peak = -std::numeric_limits<double>::infinity();
    double last = std::numeric_limits<double>::quiet_NaN();
    for (std::size_t i = 0; i < values.size(); ++i) {
        last = std::isnan(values[i]) ? last : values[i];
        peak = last > peak ? last : peak;
        out[i] = last / peak - 1.0;
    }
}

} // namespace corvex::engine::inline v1
