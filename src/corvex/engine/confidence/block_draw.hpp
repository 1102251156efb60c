#pragma once

#include "corvex/engine/confidence/random_stream.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// Rows `start`, `start + 1`, ... of a series, `length` of them. It may run over the end of the
/// series, where it goes on at the beginning; no block is longer than the series.
struct Block {
    std::uint32_t start;
    std::uint32_t length;
};

/// How often and in which blocks a series is drawn anew.
struct Resampling {
    std::size_t draws = 1000;
    double block = 1.0; ///< mean length of a block, 1 to the rows of the series
    std::uint64_t seed = 0;
    unsigned threads = 0; ///< 0 = one for each core
};

/// Draws blocks for the stationary bootstrap: starts are uniform, lengths geometric.
///
/// The lengths come from a table of the distribution in whole numbers: no logarithm that another
/// machine would round otherwise.
/// Source: D. N. Politis and J. P. Romano, "The stationary bootstrap", JASA 89 (1994).
class BlockSampler {
  public:
    /// @param rows  of the series, 1 to 2^31
    /// @throws std::invalid_argument for other rows or a mean block outside 1 to `rows`
    BlockSampler(std::size_t rows, double mean_block);

    /// The blocks that make up `length` rows, the last one cut to fit. `room` holds them; it grows
    /// where it must and is best used again for the next draw.
    std::span<const Block> draw(RandomStream& stream, std::size_t length,
                                std::vector<Block>& room) const;

  private:
    [[nodiscard]] std::uint32_t length_of(std::uint32_t bits) const;

    static constexpr std::size_t kGuides = 256;

    std::uint32_t rows_;
    /// [k]: a length is above k + 1 when the bits are below it; descending.
    std::vector<std::uint32_t> survivors_;
    /// [h]: how many of the survivors are above every number whose upper byte is h.
    std::array<std::uint32_t, kGuides + 1> guides_{};
};

} // namespace corvex::engine::inline v1
