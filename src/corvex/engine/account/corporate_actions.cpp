#include "corvex/engine/account/corporate_actions.hpp"

namespace corvex::engine::inline v1 {

SplitFactors::SplitFactors(std::span<const AssetEvent> splits, std::size_t assets)
    : steps_(splits.empty() ? 0 : assets) {
    for (const AssetEvent& split : splits) {
        auto& steps = steps_[split.asset];
        const double before = steps.empty() ? 1.0 : steps.back().factor;
        steps.push_back({split.session, before * split.amount});
    }
}

double SplitFactors::step_at(std::size_t asset, std::size_t session) const {
    double factor = 1.0;
    for (const Step& step : steps_[asset]) {
        if (step.session > static_cast<std::int64_t>(session)) {
            break;
        }
        factor = step.factor;
    }
    return factor;
}

} // namespace corvex::engine::inline v1
