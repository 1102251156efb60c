#include "corvex/engine/portfolio/price_checks.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kBlock = 8192;

/// The whole block, without leaving at the first one: memory is the limit.
CORVEX_VECTOR_CLONES
bool holds_bad_price(std::span<const double> prices) {
    constexpr std::size_t kStep = 4 * kLanes;
    constexpr std::size_t kAhead = 128;
    constexpr double kLargest = std::numeric_limits<double>::max();
    std::array<LaneMask, 4> found{};
    std::size_t at = 0;
    for (; at + kStep <= prices.size(); at += kStep) {
        const double* const from = prices.data() + at;
        prefetch(from + kAhead);
        prefetch(from + kAhead + kStep / 2);
        for (std::size_t part = 0; part < found.size(); ++part) {
            Lanes lanes;
            load(from + part * kLanes, lanes);
            found[part] |= (lanes <= 0.0) | (lanes > kLargest);
        }
    }
    bool bad = any((found[0] | found[1]) | (found[2] | found[3]));
    for (; at < prices.size(); ++at) {
        bad |= prices[at] <= 0.0 || prices[at] > kLargest;
    }
    return bad;
}

} // namespace

std::vector<std::int64_t> last_priced_sessions(const PriceTable& prices) {
    std::vector<std::int64_t> last(prices.assets, -1);
    std::vector<std::size_t> open(prices.assets);
    std::iota(open.begin(), open.end(), std::size_t{0});
    for (std::size_t session = prices.sessions(); session-- > 0 && !open.empty();) {
        const double* row = prices.row(session);
        std::erase_if(open, [&](std::size_t asset) {
            if (is_missing(row[asset])) {
                return false;
            }
            last[asset] = static_cast<std::int64_t>(session);
            return true;
        });
    }
    return last;
}

std::optional<std::pair<std::size_t, std::size_t>> first_bad_price(const PriceTable& prices) {
    const std::span<const double> values = prices.values;
    for (std::size_t start = 0; start < values.size(); start += kBlock) {
        const auto block = values.subspan(start, std::min(kBlock, values.size() - start));
        if (!holds_bad_price(block)) {
            continue;
        }
        const auto bad = std::ranges::find_if(
            block, [](double price) { return !is_missing(price) && !is_tradable(price); });
        const std::size_t at = start + static_cast<std::size_t>(bad - block.begin());
        return std::pair{at / prices.assets, at % prices.assets};
    }
    return std::nullopt;
}

} // namespace corvex::engine::inline v1
