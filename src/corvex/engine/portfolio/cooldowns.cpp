#include "corvex/engine/portfolio/cooldowns.hpp"

namespace corvex::engine::inline v1 {

std::span<const double> Cooldowns::apply(std::span<const double> weights) {
    if (!active()) {
        return weights;
    }
    weights_.assign(weights.begin(), weights.end());
    for (std::size_t asset = 0; asset < weights_.size(); ++asset) {
        if (left_[asset] > 0) {
            weights_[asset] = 0.0;
            --left_[asset];
        }
    }
    return weights_;
}

} // namespace corvex::engine::inline v1
