#include "corvex/engine/account/impact.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <cmath>

namespace corvex::engine::inline v1 {

namespace {

/// The values of some assets in a row of a table, side by side: the row itself where that is all.
const double* chosen(const double* row, std::size_t columns, std::span<const std::uint32_t> assets,
                     double* room) {
    if (assets.size() == columns) {
        return row;
    }
    for (std::size_t k = 0; k < assets.size(); ++k) {
        room[k] = row[assets[k]];
    }
    return room;
}

/// Adds what is there to counts and totals.
CORVEX_VECTOR_CLONES
void add_present(const double* values, std::span<double> count, double* total) {
    for (std::size_t k = 0; k < count.size(); ++k) {
        const bool there = values[k] == values[k];
        count[k] += there ? 1.0 : 0.0;
        total[k] += there ? values[k] : 0.0;
    }
}

/// The same of volumes.
CORVEX_VECTOR_CLONES
void add_volumes(const double* values, std::span<double> count, double* total) {
    for (std::size_t k = 0; k < count.size(); ++k) {
        const bool there = is_volume(values[k]);
        count[k] += there ? 1.0 : 0.0;
        total[k] += there ? values[k] : 0.0;
    }
}

CORVEX_VECTOR_CLONES
void find_changes(const double* before, const double* now, std::span<double> changes) {
    for (std::size_t k = 0; k < changes.size(); ++k) {
        changes[k] = now[k] / before[k] - 1.0;
    }
}

CORVEX_VECTOR_CLONES
void add_squares(const double* changes, const double* mean, std::span<double> squares) {
    for (std::size_t k = 0; k < squares.size(); ++k) {
        const double apart = changes[k] - mean[k];
        squares[k] += changes[k] == changes[k] ? apart * apart : 0.0;
    }
}

} // namespace

Impact::Impact(const AccountTerms& terms, const PriceTable& close, const SplitFactors& splits)
    : terms_{terms}, close_{close}, splits_{splits} {
    if (active()) {
        ratio_.resize(close.assets);
        session_.assign(close.assets, -1);
    }
}

void Impact::Sums::reset(std::size_t assets) {
    count.assign(assets, 0.0);
    total.assign(assets, 0.0);
}

void Impact::look_back(std::span<const std::uint32_t> assets, std::size_t session) {
    const std::size_t begin = session - std::min(session, terms_.impact.window);
    split_.clear();
    for (std::size_t k = 0; splits_.any() && k < assets.size(); ++k) {
        if (splits_.splits(assets[k])) {
            split_.push_back(k);
        }
    }
    find_volatility(assets, begin, session);
    find_volume(assets, begin, session);
    for (std::size_t k = 0; k < assets.size(); ++k) {
        const bool known = volume_[k] > 0.0 && moves_[k] > 0.0;
        ratio_[assets[k]] =
            known ? terms_.impact.coefficient * moves_[k] / std::sqrt(volume_[k]) : 0.0;
        session_[assets[k]] = static_cast<std::int64_t>(session);
    }
}

/// Sample deviation of the returns from close to close in [begin, end); NaN for fewer than two.
void Impact::find_volatility(std::span<const std::uint32_t> assets, std::size_t begin,
                             std::size_t end) {
    const std::size_t size = assets.size();
    const std::size_t first = std::max<std::size_t>(begin, 1);
    const std::size_t rows = end > first ? end - first : 0;
    sums_.reset(size);
    changes_.resize(rows * size);
    closes_.resize(2 * size);
    const auto closes = [&](std::size_t session) {
        double* room = closes_.data() + (session % 2) * size;
        return chosen(close_.row(session), close_.assets, assets, room);
    };
    const double* before = rows > 0 ? closes(first - 1) : nullptr;
    for (std::size_t row = 0; row < rows; ++row) {
        const std::size_t session = first + row;
        const std::span changes{changes_.data() + row * size, size};
        const double* now = closes(session);
        find_changes(before, now, changes);
        for (const std::size_t k : split_) {
            const double one_became =
                splits_.at(assets[k], session) / splits_.at(assets[k], session - 1);
            changes[k] = now[k] * one_became / before[k] - 1.0;
        }
        add_present(changes.data(), sums_.count, sums_.total.data());
        before = now;
    }
    for (std::size_t k = 0; k < size; ++k) {
        sums_.total[k] /= sums_.count[k];
    }
    moves_.assign(size, 0.0);
    for (std::size_t row = 0; row < rows; ++row) {
        add_squares(changes_.data() + row * size, sums_.total.data(), moves_);
    }
    for (std::size_t k = 0; k < size; ++k) { // one alone: 0 / 0
        moves_[k] = std::sqrt(moves_[k] / (sums_.count[k] - 1.0));
    }
}

/// Mean of the volumes that are there, in shares of the session `end`; NaN without any.
void Impact::find_volume(std::span<const std::uint32_t> assets, std::size_t begin,
                         std::size_t end) {
    const Grid& volume = terms_.volume.volume;
    const std::size_t size = assets.size();
    sums_.reset(size);
    volume_.resize(size);
    for (std::size_t session = begin; session < end; ++session) {
        const double* values = chosen(volume.row(session), volume.columns, assets, volume_.data());
        if (!split_.empty() && values != volume_.data()) {
            volume_.assign(values, values + size);
            values = volume_.data();
        }
        for (const std::size_t k : split_) {
            volume_[k] *= splits_.at(assets[k], end) / splits_.at(assets[k], session);
        }
        add_volumes(values, sums_.count, sums_.total.data());
    }
    for (std::size_t k = 0; k < size; ++k) {
        volume_[k] = sums_.total[k] / sums_.count[k];
    }
}

} // namespace corvex::engine::inline v1
