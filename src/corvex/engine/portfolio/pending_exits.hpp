#pragma once

#include "corvex/engine/portfolio/asset_set.hpp"
#include "corvex/engine/trades/exit_reason.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvex::engine::inline v1 {

/// Stops that have fired on a close and wait for their fill.
class PendingExits {
  public:
    explicit PendingExits(std::size_t assets)
        : exits_{assets}, reason_(assets, ExitReason::kOpen), session_(assets, -1) {}

    void add(std::size_t asset, ExitReason reason, std::size_t session) {
        exits_.add(asset);
        reason_[asset] = reason;
        session_[asset] = static_cast<std::int64_t>(session);
    }
    /// The position has ended, by its stop or otherwise.
    void drop(std::size_t asset) {
        if (exits_.has(asset)) {
            exits_.remove(asset);
            reason_[asset] = ExitReason::kOpen;
            session_[asset] = -1;
        }
    }

    [[nodiscard]] bool empty() const { return exits_.empty(); }
    [[nodiscard]] bool has(std::size_t asset) const { return exits_.has(asset); }
    /// In the order in which the stops fired.
    [[nodiscard]] const std::vector<std::uint32_t>& assets() const { return exits_.list(); }
    [[nodiscard]] ExitReason reason(std::size_t asset) const { return reason_[asset]; }
    /// The session whose close set the stop off, -1 = none.
    [[nodiscard]] std::int64_t session(std::size_t asset) const { return session_[asset]; }
    [[nodiscard]] const std::vector<ExitReason>& reasons() const { return reason_; }
    [[nodiscard]] const std::vector<std::int64_t>& sessions() const { return session_; }

  private:
    AssetSet exits_;
    std::vector<ExitReason> reason_;
    std::vector<std::int64_t> session_;
};

} // namespace corvex::engine::inline v1
