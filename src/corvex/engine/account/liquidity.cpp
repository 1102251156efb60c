#include "corvex/engine/account/liquidity.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace corvex::engine::inline v1 {

VolumeLimit::VolumeLimit(const VolumeTerms& terms, std::size_t assets)
    : terms_{terms}, taken_(terms.share > 0.0 ? assets : 0, 0.0),
      session_(terms.share > 0.0 ? assets : 0, -1) {}

double VolumeLimit::room(std::size_t asset, std::size_t session) const {
    if (!active()) {
        return std::numeric_limits<double>::infinity();
    }
    const bool today = session_[asset] == static_cast<std::int64_t>(session);
    const double volume = terms_.volume.at(session, asset);
    return is_volume(volume) ? std::max(terms_.share * volume - (today ? taken_[asset] : 0.0), 0.0)
                             : std::numeric_limits<double>::quiet_NaN();
}

void VolumeLimit::give_back(std::size_t asset, double shares) {
    if (active()) {
        taken_[asset] -= shares;
    }
}

} // namespace corvex::engine::inline v1
