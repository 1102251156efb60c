#include "corvex/engine/portfolio/book.hpp"

#include <array>
#include <cmath>
#include <limits>

namespace corvex::engine::portfolio {

namespace {

/// Independent partial sums, so that additions overlap.
constexpr std::size_t kLanes = 8;

template <typename Product>
double sum_products(std::size_t count, Product product) {
    std::array<double, kLanes> sums{};
    std::size_t index = 0;
    for (; index + kLanes <= count; index += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += product(index + lane);
        }
    }
    for (; index < count; ++index) {
        sums[0] += product(index);
    }
    return ((sums[0] + sums[1]) + (sums[2] + sums[3])) +
           ((sums[4] + sums[5]) + (sums[6] + sums[7]));
}

} // namespace

Book::Book(const PriceTable& close, const Costs& costs)
    : close_{close}, costs_{costs}, shares_(close.assets, 0.0),
      known_(close.assets, std::numeric_limits<double>::quiet_NaN()),
      known_session_(close.assets, -1) {
    held_.reserve(close.assets);
    held_shares_.reserve(close.assets);
}

double Book::dot(const double* row) const {
    const double* shares = held_shares_.data();
    if (held_.size() == close_.assets) {
        return sum_products(held_.size(), [=](std::size_t k) { return shares[k] * row[k]; });
    }
    const std::uint32_t* held = held_.data();
    return sum_products(held_.size(), [=](std::size_t k) { return shares[k] * row[held[k]]; });
}

double Book::mark(std::size_t session) {
    const double value = dot(close_.row(session));
    return std::isnan(value) ? mark_with_gaps(session) : value;
}

double Book::mark_with_gaps(std::size_t session) {
    const double* row = close_.row(session);
    double value = 0.0;
    for (std::size_t k = 0; k < held_.size(); ++k) {
        const std::size_t asset = held_[k];
        double price = row[asset];
        if (is_missing(price)) {
            price = price_before(asset, session);
            known_[asset] = price;
            known_session_[asset] = static_cast<std::int64_t>(session);
        }
        value += held_shares_[k] * price;
    }
    return value;
}

double Book::price_before(std::size_t asset, std::size_t session) const {
    if (session == 0 || known_session_[asset] == static_cast<std::int64_t>(session)) {
        return known_[asset];
    }
    const double previous = close_.at(session - 1, asset);
    return is_missing(previous) ? known_[asset] : previous;
}

double Book::price_after(std::size_t asset, std::size_t session) const {
    const double price = close_.at(session, asset);
    return is_missing(price) ? price_before(asset, session) : price;
}

void Book::set_holding(std::size_t asset, double value, double price, std::size_t session) {
    shares_[asset] = value == 0.0 ? 0.0 : value / price;
    known_[asset] = price;
    known_session_[asset] = static_cast<std::int64_t>(session);
}

void Book::trade(std::size_t asset, double value, double price, std::size_t session,
                 CostTotals& totals) {
    const double bought = value - shares_[asset] * price;
    if (bought > 0.0) {
        cash_ -= bought * (1.0 + costs_.buy_rate());
        totals.add(costs_, bought, 0.0);
    } else {
        cash_ -= bought * (1.0 - costs_.sell_rate());
        totals.add(costs_, 0.0, -bought);
    }
    set_holding(asset, value, price, session);
}

void Book::forgive_rounding(double equity) {
    if (cash_ < 0.0 && cash_ > -1e-14 * equity) {
        cash_ = 0.0;
    }
}

void Book::holdings_changed() {
    held_.resize(close_.assets);
    std::size_t count = 0;
    for (std::size_t asset = 0; asset < close_.assets; ++asset) {
        held_[count] = static_cast<std::uint32_t>(asset);
        count += static_cast<std::size_t>(shares_[asset] != 0.0);
    }
    held_.resize(count);
    held_shares_.resize(count);
    for (std::size_t k = 0; k < count; ++k) {
        held_shares_[k] = shares_[held_[k]];
    }
}

} // namespace corvex::engine::portfolio
