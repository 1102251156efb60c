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
    const double most = terms_.share * terms_.volume.at(session, asset);
    return std::isnan(most) ? most : std::max(most - (today ? taken_[asset] : 0.0), 0.0);
}

void VolumeLimit::take(std::size_t asset, std::size_t session, double shares) {
    if (!active()) {
        return;
    }
    if (session_[asset] != static_cast<std::int64_t>(session)) {
        session_[asset] = static_cast<std::int64_t>(session);
        taken_[asset] = 0.0;
    }
    taken_[asset] += shares;
}

void VolumeLimit::give_back(std::size_t asset, double shares) {
    if (active()) {
        taken_[asset] -= shares;
    }
}

Impact::Impact(const AccountTerms& terms, const SplitPrices& prices)
    : terms_{terms}, prices_{prices} {}

double Impact::from_window(std::size_t asset, std::size_t session) const {
    const std::size_t begin = session - std::min(session, terms_.impact.window);
    const double volume = mean_volume(asset, begin, session);
    const double moves = volatility(asset, begin, session);
    return volume > 0.0 && moves > 0.0 ? terms_.impact.coefficient * moves / std::sqrt(volume)
                                       : 0.0;
}

/// Sample deviation of the returns from close to close in [begin, end); NaN for fewer than two.
double Impact::volatility(std::size_t asset, std::size_t begin, std::size_t end) const {
    const PriceTable& close = prices_.prices().close();
    double count = 0.0;
    double mean = 0.0;
    double squares = 0.0;
    for (std::size_t session = std::max<std::size_t>(begin, 1); session < end; ++session) {
        const double change = close.at(session, asset) / close.at(session - 1, asset) - 1.0;
        if (std::isnan(change)) {
            continue;
        }
        count += 1.0;
        const double apart = change - mean;
        mean += apart / count;
        squares += apart * (change - mean);
    }
    return count < 2.0 ? std::numeric_limits<double>::quiet_NaN()
                       : std::sqrt(squares / (count - 1.0));
}

/// Mean of the volumes that are there, in shares of the session `end`; NaN without any.
double Impact::mean_volume(std::size_t asset, std::size_t begin, std::size_t end) const {
    double count = 0.0;
    double total = 0.0;
    const double now = prices_.factor(asset, end);
    for (std::size_t session = begin; session < end; ++session) {
        const double volume = terms_.volume.volume.at(session, asset);
        if (!std::isnan(volume)) {
            count += 1.0;
            total += volume * now / prices_.factor(asset, session);
        }
    }
    return total / count;
}

} // namespace corvex::engine::inline v1
