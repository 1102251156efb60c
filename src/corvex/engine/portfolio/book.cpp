#include "corvex/engine/portfolio/book.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

/// Sum of shares x prices. Several partial sums run side by side: each addition would else wait
/// for the one before it.
[[gnu::always_inline]] inline double sum_products(const double* shares, const double* prices,
                                                  std::size_t count) {
    Lanes sums[4] = {};
    std::size_t k = 0;
    for (; k + 4 * kLanes <= count; k += 4 * kLanes) {
        for (std::size_t part = 0; part < 4; ++part) {
            Lanes share;
            Lanes price;
            load(shares + k + part * kLanes, share);
            load(prices + k + part * kLanes, price);
            sums[part] += share * price;
        }
    }
    double total = sum((sums[0] + sums[1]) + (sums[2] + sums[3]));
    for (; k < count; ++k) {
        total += shares[k] * prices[k];
    }
    return total;
}

/// The same for rows that follow each other.
CORVEX_VECTOR_CLONES
void sum_rows(const double* shares, const double* rows, std::size_t count, std::span<double> out) {
    for (std::size_t k = 0; k < out.size(); ++k) {
        out[k] = sum_products(shares, rows + k * count, count);
    }
}

/// The same over chosen columns of a row.
double sum_gathered(const double* shares, const std::uint32_t* columns, const double* row,
                    std::size_t count) {
    double sums[4] = {};
    std::size_t k = 0;
    for (; k + 4 <= count; k += 4) {
        sums[0] += shares[k] * row[columns[k]];
        sums[1] += shares[k + 1] * row[columns[k + 1]];
        sums[2] += shares[k + 2] * row[columns[k + 2]];
        sums[3] += shares[k + 3] * row[columns[k + 3]];
    }
    double total = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    for (; k < count; ++k) {
        total += shares[k] * row[columns[k]];
    }
    return total;
}

} // namespace

Book::Book(const PriceTable& close, const Costs& costs, double cash, const Currencies* currencies)
    : close_{close}, costs_{costs}, currencies_{currencies}, cash_{cash},
      shares_(close.assets, 0.0), known_(close.assets, std::numeric_limits<double>::quiet_NaN()),
      known_session_(close.assets, -1) {
    held_.reserve(close.assets);
    held_shares_.reserve(close.assets);
}

/// Values of the holdings in rows that follow each other; NaN where a price is missing.
void Book::dots(const double* row, std::span<double> out) const {
    if (held_.size() == close_.assets) {
        sum_rows(shares_.data(), row, close_.assets, out);
        return;
    }
    for (double& value : out) {
        value = sum_gathered(held_shares_.data(), held_.data(), row, held_.size());
        row += close_.assets;
    }
}

double Book::mark(std::size_t session) {
    if (changed_) {
        refresh_held();
    }
    double value = 0.0;
    dots(close_.row(session), {&value, 1});
    return std::isnan(value) ? mark_with_gaps(session) : value;
}

void Book::equities(std::size_t session, std::span<double> out) {
    if (changed_) {
        refresh_held();
    }
    if (held_.empty()) {
        std::ranges::fill(out, cash_);
        return;
    }
    if (held_.size() > 1) {
        dots(close_.row(session), out);
        for (std::size_t k = 0; k < out.size(); ++k) {
            out[k] = cash_ + (std::isnan(out[k]) ? mark_with_gaps(session + k) : out[k]);
        }
        return;
    }
    // One holding needs no sum, and a column of one asset can be read four closes at a time.
    const double* price = close_.row(session) + held_.front();
    const double shares = shares_[held_.front()];
    bool missing = false;
    for (std::size_t k = 0; k < out.size(); ++k) {
        out[k] = cash_ + shares * price[k * close_.assets];
        missing |= std::isnan(out[k]);
    }
    for (std::size_t k = 0; missing && k < out.size(); ++k) {
        out[k] = cash_ + mark(session + k);
    }
}

double Book::mark_with_gaps(std::size_t session) {
    if (gone_ > 0) {
        refresh_held(); // the missing price may be that of a sold asset
    }
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
        value += shares_[asset] * price;
    }
    return value;
}

double Book::price_before(std::size_t asset, std::size_t session) const {
    if (session == 0 || known_session_[asset] == static_cast<std::int64_t>(session)) {
        return known_[asset];
    }
    const double previous = close_.at(session - 1, asset);
    if (is_missing(previous)) {
        return at_rate_of(asset, known_session_[asset], session, known_[asset]);
    }
    return at_rate_of(asset, static_cast<std::int64_t>(session) - 1, session, previous);
}

/// A price that was noted in another session, at the rate of this one.
double Book::at_rate_of(std::size_t asset, std::int64_t noted, std::size_t session,
                        double price) const {
    if (currencies_ == nullptr || noted < 0) {
        return price;
    }
    return price * currencies_->moved(asset, static_cast<std::size_t>(noted), session);
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
    set_shares(asset, value == 0.0 ? 0.0 : value / price, price, session);
    if (value == 0.0) {
        drop(asset);
    } else {
        changed_ = true;
    }
}

void Book::untrade(std::size_t asset, double shares_before, double price, CostTotals& totals) {
    const double bought = (shares_[asset] - shares_before) * price;
    if (bought > 0.0) {
        cash_ += bought * (1.0 + costs_.buy_rate());
        totals.add(costs_, -bought, 0.0);
    } else {
        cash_ += bought * (1.0 - costs_.sell_rate());
        totals.add(costs_, 0.0, bought);
    }
    shares_[asset] = shares_before;
    changed_ = true;
}

void Book::set_row(std::span<const double> shares, bool same_assets) {
    std::memcpy(shares_.data(), shares.data(), shares.size_bytes());
    if (!same_assets || changed_) {
        changed_ = true;
        return;
    }
    for (std::size_t k = 0; held_.size() < close_.assets && k < held_.size(); ++k) {
        held_shares_[k] = shares_[held_[k]];
    }
}

void Book::split(std::size_t asset, std::size_t session, double ratio) {
    // What is known of the price stands in until the session's own.
    known_[asset] = price_before(asset, session) / ratio;
    known_session_[asset] = static_cast<std::int64_t>(session);
    require_countable(shares_[asset] * ratio);
    shares_[asset] *= ratio;
    changed_ = true;
}

void Book::forgive_rounding(double equity) {
    if (cash_ < 0.0 && cash_ > -1e-14 * equity) {
        cash_ = 0.0;
    }
}

const std::vector<std::uint32_t>& Book::held() {
    refresh_held();
    return held_;
}

void Book::refresh_held() {
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
    gone_ = 0;
    changed_ = false;
}

void Book::drop(std::size_t asset) {
    const auto found = std::ranges::lower_bound(held_, static_cast<std::uint32_t>(asset));
    if (changed_ || found == held_.end() || *found != asset) {
        changed_ = true;
        return;
    }
    held_shares_[static_cast<std::size_t>(found - held_.begin())] = 0.0;
    ++gone_;
    changed_ = gone_ * 8 > held_.size();
}

} // namespace corvex::engine::inline v1
