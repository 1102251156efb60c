#include "corvex/engine/confidence/block_draw.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kMostRows = std::size_t{1} << 31U;
constexpr double kRange = 0x1.0p32;

} // namespace

BlockSampler::BlockSampler(std::size_t rows, double mean_block)
    : rows_(static_cast<std::uint32_t>(rows)) {
    if (rows == 0 || rows > kMostRows) {
        throw std::invalid_argument("a series to draw from must have 1 to 2^31 values");
    }
    if (!(mean_block >= 1.0 && mean_block <= static_cast<double>(rows))) {
        throw std::invalid_argument(
            "the mean length of a block must lie between 1 and the number of returns");
    }
    const double stay = 1.0 - 1.0 / mean_block;
    double longer = kRange * stay;
    // A block as long as the series holds all of it, so longer ones are cut there.
    while (longer >= 1.0 && survivors_.size() + 1 < rows) {
        survivors_.push_back(static_cast<std::uint32_t>(std::min(longer, kRange - 1.0)));
        longer *= stay;
    }
    for (std::size_t byte = 0; byte < kGuides; ++byte) {
        const auto largest = static_cast<std::uint32_t>((byte << 24U) | 0xffffffU);
        const auto end = std::partition_point(survivors_.begin(), survivors_.end(),
                                              [&](std::uint32_t s) { return s > largest; });
        guides_[byte + 1] = static_cast<std::uint32_t>(end - survivors_.begin());
    }
    guides_[0] = static_cast<std::uint32_t>(survivors_.size());
}

std::uint32_t BlockSampler::length_of(std::uint32_t bits) const {
    // guides_[b + 1] survivors are above all numbers with the upper byte b, and none beyond those
    // above all numbers with the byte before it can be above this one.
    const std::size_t byte = bits >> 24U;
    std::uint32_t low = guides_[byte + 1];
    std::uint32_t high = guides_[byte];
    while (low < high) {
        const std::uint32_t middle = low + (high - low) / 2;
        if (survivors_[middle] > bits) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low + 1;
}

std::span<const Block> BlockSampler::draw(RandomStream& stream, std::size_t length,
                                          std::vector<Block>& room) const {
    if (room.size() < length) {
        room.resize(length); // no block is empty
    }
    std::size_t count = 0;
    for (std::size_t left = length; left > 0;) {
        const std::uint64_t bits = stream.next();
        const auto start = RandomStream::below(static_cast<std::uint32_t>(bits >> 32U), rows_);
        const std::uint32_t whole = length_of(static_cast<std::uint32_t>(bits));
        const auto fitting = static_cast<std::uint32_t>(std::min<std::size_t>(whole, left));
        room[count++] = {start, fitting};
        left -= fitting;
    }
    return {room.data(), count};
}

} // namespace corvex::engine::inline v1
