#pragma once

#include "corvex/engine/account/terms.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// How many shares orders may still take of a session's volume.
class VolumeLimit {
  public:
    VolumeLimit(const VolumeTerms& terms, std::size_t assets);

    [[nodiscard]] bool active() const { return terms_.share > 0.0; }
    /// Infinite where there is no limit, missing where the volume is.
    [[nodiscard]] double room(std::size_t asset, std::size_t session) const;
    void take(std::size_t asset, std::size_t session, double shares);
    void give_back(std::size_t asset, double shares);

  private:
    const VolumeTerms& terms_;
    std::vector<double> taken_;
    std::vector<std::int64_t> session_; ///< in which they were taken
};

inline void VolumeLimit::take(std::size_t asset, std::size_t session, double shares) {
    if (!active()) {
        return;
    }
    if (session_[asset] != static_cast<std::int64_t>(session)) {
        session_[asset] = static_cast<std::int64_t>(session);
        taken_[asset] = 0.0;
    }
    taken_[asset] += shares;
}

} // namespace corvex::engine::inline v1
