#pragma once

#include "corvex/engine/account/terms.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Goes through events that are ascending by session, once.
template <typename Event>
class EventQueue {
  public:
    explicit EventQueue(std::span<const Event> events) : events_{events} {}

    /// The events of a session; those of earlier ones are passed over.
    std::span<const Event> of(std::size_t session) {
        const auto now = static_cast<std::int64_t>(session);
        while (next_ < events_.size() && events_[next_].session < now) {
            ++next_;
        }
        const std::size_t begin = next_;
        while (next_ < events_.size() && events_[next_].session == now) {
            ++next_;
        }
        return events_.subspan(begin, next_ - begin);
    }
    /// The session of the next event; the largest number after the last one.
    [[nodiscard]] std::size_t next_session() const {
        return next_ < events_.size() ? static_cast<std::size_t>(events_[next_].session)
                                      : std::numeric_limits<std::size_t>::max();
    }

  private:
    std::span<const Event> events_;
    std::size_t next_ = 0;
};

/// The shares that one share of the beginning has become.
class SplitFactors {
  public:
    SplitFactors(std::span<const AssetEvent> splits, std::size_t assets);

    [[nodiscard]] bool any() const { return !steps_.empty(); }
    [[nodiscard]] bool splits(std::size_t asset) const { return any() && !steps_[asset].empty(); }
    [[nodiscard]] double at(std::size_t asset, std::size_t session) const {
        return splits(asset) ? step_at(asset, session) : 1.0;
    }

  private:
    struct Step {
        std::int64_t session;
        double factor; ///< from this session on
    };

    [[nodiscard]] double step_at(std::size_t asset, std::size_t session) const;

    std::vector<std::vector<Step>> steps_; ///< of each asset; empty without any split
};

} // namespace corvex::engine::inline v1
