#pragma once

#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/portfolio/price_set.hpp"

#include <cstddef>
#include <memory>
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

  private:
    std::span<const Event> events_;
    std::size_t next_ = 0;
};

/// Prices that splits do not interrupt: each times the shares that one share of the beginning has
/// become. Stops, excursions and returns look at these.
class SplitPrices {
  public:
    SplitPrices(const PriceSet& quoted, std::span<const AssetEvent> splits);

    [[nodiscard]] bool any() const { return adjusted_ != nullptr; }
    [[nodiscard]] const PriceSet& prices() const { return any() ? *adjusted_ : quoted_; }
    [[nodiscard]] bool splits(std::size_t asset) const { return any() && !steps_[asset].empty(); }
    /// The shares that one share of the beginning has become in a session.
    [[nodiscard]] double factor(std::size_t asset, std::size_t session) const {
        return splits(asset) ? factor_of(asset, session) : 1.0;
    }

  private:
    struct Step {
        std::int64_t session;
        double factor; ///< from this session on
    };

    [[nodiscard]] double factor_of(std::size_t asset, std::size_t session) const;
    PriceTable adjust(const PriceTable& quoted);

    const PriceSet& quoted_;
    std::vector<std::vector<Step>> steps_; ///< of each asset
    std::vector<std::vector<double>> tables_;
    std::unique_ptr<PriceSet> adjusted_;
};

} // namespace corvex::engine::inline v1
