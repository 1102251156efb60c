#include "corvex/engine/confidence/random_targets.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

} // namespace

RandomTargets::RandomTargets(const TargetTable& table)
    : table_{table}, stand_in_(table.assets, kNone), held_(table.assets, 0) {
    if (table.assets == 0 || table.weights.size() % table.assets != 0 ||
        table.priced.size() != table.weights.size()) {
        throw std::invalid_argument("weights and prices must have one column for each asset");
    }
}

void RandomTargets::draw(RandomStream& stream, std::span<double> out) {
    if (out.size() != table_.weights.size()) {
        throw std::invalid_argument("the drawn weights need the shape of the given ones");
    }
    std::ranges::fill(stand_in_, kNone);
    std::ranges::fill(held_, std::uint8_t{0});
    std::ranges::fill(out, 0.0);
    for (std::size_t row = 0; row < table_.rebalances(); ++row) {
        const auto weights = table_.weights.subspan(row * table_.assets, table_.assets);
        const auto priced = table_.priced.subspan(row * table_.assets, table_.assets);
        const auto drawn = out.subspan(row * table_.assets, table_.assets);
        // What ends makes room first.
        for (std::size_t asset = 0; asset < table_.assets; ++asset) {
            std::uint32_t& other = stand_in_[asset];
            if (other != kNone && (weights[asset] == 0.0 || priced[other] == 0)) {
                held_[other] = 0;
                other = kNone;
            }
        }
        for (std::size_t asset = 0; asset < table_.assets; ++asset) {
            if (weights[asset] == 0.0) {
                continue;
            }
            std::uint32_t& other = stand_in_[asset];
            other = other == kNone ? pick(stream, priced) : other;
            if (other != kNone) {
                held_[other] = 1;
                drawn[other] = weights[asset];
            }
        }
    }
}

/// An asset that has a price and is not held, each as likely as another.
std::uint32_t RandomTargets::pick(RandomStream& stream, std::span<const std::uint8_t> priced) {
    constexpr int kTries = 16;
    const auto count = static_cast<std::uint32_t>(table_.assets);
    for (int tries = 0; tries < kTries; ++tries) {
        const auto bits = static_cast<std::uint32_t>(stream.next() >> 32U);
        const std::uint32_t asset = RandomStream::below(bits, count);
        if (priced[asset] != 0 && held_[asset] == 0) {
            return asset;
        }
    }
    // Few are left: one of them, counted.
    std::vector<std::uint32_t> left;
    for (std::uint32_t asset = 0; asset < count; ++asset) {
        if (priced[asset] != 0 && held_[asset] == 0) {
            left.push_back(asset);
        }
    }
    if (left.empty()) {
        return kNone;
    }
    const auto bits = static_cast<std::uint32_t>(stream.next() >> 32U);
    return left[RandomStream::below(bits, static_cast<std::uint32_t>(left.size()))];
}

} // namespace corvex::engine::inline v1
