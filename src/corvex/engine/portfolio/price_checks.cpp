#include "corvex/engine/portfolio/price_checks.hpp"

#include <limits>
#include <numeric>

namespace corvex::engine::inline v1 {

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
    constexpr double kLargest = std::numeric_limits<double>::max();
    for (std::size_t session = 0; session < prices.sessions(); ++session) {
        const double* row = prices.row(session);
        // Counting instead of leaving at the first one lets the compiler use vector instructions.
        std::int64_t bad = 0;
        for (std::size_t asset = 0; asset < prices.assets; ++asset) {
            bad += static_cast<std::int64_t>((row[asset] <= 0.0) | (row[asset] > kLargest));
        }
        for (std::size_t asset = 0; bad > 0 && asset < prices.assets; ++asset) {
            if (!is_missing(row[asset]) && !is_tradable(row[asset])) {
                return std::pair{session, asset};
            }
        }
    }
    return std::nullopt;
}

} // namespace corvex::engine::inline v1
