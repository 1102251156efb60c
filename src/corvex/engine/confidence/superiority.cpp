#include "corvex/engine/confidence/superiority.hpp"

#include "corvex/engine/confidence/intervals.hpp"
#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/core/parallel.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kLowest = -std::numeric_limits<double>::infinity();
/// Models whose running sums are kept at once: their table fits the second cache.
constexpr std::size_t kTile = 32;
constexpr std::size_t kDrawsAtOnce = 64;

void check(const Advantages& advantages) {
    if (advantages.rows < 2 || advantages.models == 0) {
        throw std::invalid_argument("a test needs at least two rows and one model");
    }
    if (advantages.values.size() != advantages.rows * advantages.models) {
        throw std::invalid_argument("the values must be rows x models");
    }
    if (!std::all_of(advantages.values.begin(), advantages.values.end(),
                     [](double value) { return std::isfinite(value); })) {
        throw std::invalid_argument("the values must be finite, none missing");
    }
}

std::vector<double> means_of(const Advantages& advantages) {
    std::vector<double> means(advantages.models);
    for (std::size_t row = 0; row < advantages.rows; ++row) {
        const auto values = advantages.values.subspan(row * advantages.models, advantages.models);
        for (std::size_t k = 0; k < values.size(); ++k) {
            means[k] += values[k];
        }
    }
    for (double& mean : means) {
        mean /= static_cast<double>(advantages.rows);
    }
    return means;
}

/// Rows [begin, end) of a draw.
struct Piece {
    std::uint32_t begin;
    std::uint32_t end;
};

/// The blocks of every draw, cut where they turn round at the end of the series.
class Draws {
  public:
    Draws(std::size_t rows, const Resampling& how) : first_{0} {
        const BlockSampler sampler(rows, how.block);
        const auto length = static_cast<std::uint32_t>(rows);
        std::vector<Block> room;
        for (std::size_t draw = 0; draw < how.draws; ++draw) {
            RandomStream stream(how.seed, draw);
            for (const Block& block : sampler.draw(stream, rows, room)) {
                const std::uint32_t fitting = std::min(block.length, length - block.start);
                pieces_.push_back({block.start, block.start + fitting});
                if (fitting < block.length) {
                    pieces_.push_back({0, block.length - fitting});
                }
            }
            first_.push_back(pieces_.size());
        }
    }
    [[nodiscard]] std::size_t size() const { return first_.size() - 1; }
    [[nodiscard]] std::span<const Piece> operator[](std::size_t draw) const {
        return std::span(pieces_).subspan(first_[draw], first_[draw + 1] - first_[draw]);
    }

  private:
    std::vector<Piece> pieces_;
    std::vector<std::size_t> first_;
};

/// What a drawn sum of distances to the mean becomes: (sum + shift) * scale, for each model.
struct Treatment {
    std::vector<double> shift;
    std::vector<double> scale;
};

/// A number for each model of a tile. It begins a line of the cache: where the allocator put it
/// otherwise, every other load would touch two lines.
struct alignas(64) Tile : std::array<double, kTile> {};

/// Adds `to - from` to the sums of a tile for each piece. The sums stay in registers.
CORVEX_VECTOR_CLONES void add_pieces(const Tile* sums, std::span<const Piece> pieces, Tile& total) {
    constexpr std::size_t kVectors = kTile / kLanes;
    Lanes held[kVectors] = {};
    for (const Piece& piece : pieces) {
        const double* to = sums[piece.end].data();
        const double* from = sums[piece.begin].data();
#pragma GCC unroll 8
        for (std::size_t i = 0; i < kVectors; ++i) {
            Lanes high;
            Lanes low;
            load(to + i * kLanes, high);
            load(from + i * kLanes, low);
            held[i] += high - low;
        }
    }
#pragma GCC unroll 8
    for (std::size_t i = 0; i < kVectors; ++i) {
        store(held[i], total.data() + i * kLanes);
    }
}

/// The largest of (sum + shift) * scale and `most`.
CORVEX_VECTOR_CLONES double largest_treated(const Tile& sums, const Tile& shift, const Tile& scale,
                                            double most) {
    Lanes best = {most, most, most, most};
    for (std::size_t i = 0; i < kTile; i += kLanes) {
        Lanes value;
        Lanes add;
        Lanes times;
        load(sums.data() + i, value);
        load(shift.data() + i, add);
        load(scale.data() + i, times);
        value = (value + add) * times;
        best = value > best ? value : best;
    }
    return std::max(std::max(best[0], best[1]), std::max(best[2], best[3]));
}

/// Running sums of the distances to the mean of up to kTile models: [row] sums the rows before it.
class RunningSums {
  public:
    RunningSums(const Advantages& advantages, std::span<const double> means,
                std::span<const std::size_t> columns)
        : sums_(advantages.rows + 1) {
        for (std::size_t row = 0; row < advantages.rows; ++row) {
            sums_[row + 1] = sums_[row];
            for (std::size_t i = 0; i < columns.size(); ++i) {
                const std::size_t k = columns[i];
                sums_[row + 1][i] += advantages.values[row * advantages.models + k] - means[k];
            }
        }
    }
    [[nodiscard]] Tile of(std::span<const Piece> pieces) const {
        Tile total;
        add_pieces(sums_.data(), pieces, total);
        return total;
    }

  private:
    std::vector<Tile> sums_;
};

/// For each treatment the largest treated value of each draw over `columns`, at least 0.
std::vector<std::vector<double>> largest(const Advantages& advantages,
                                         std::span<const double> means,
                                         std::span<const std::size_t> columns, const Draws& draws,
                                         std::span<const Treatment> treatments, unsigned threads) {
    std::vector found(treatments.size(), std::vector<double>(draws.size(), 0.0));
    for (std::size_t first = 0; first < columns.size(); first += kTile) {
        const auto tile = columns.subspan(first, std::min(kTile, columns.size() - first));
        const RunningSums sums(advantages, means, tile);
        std::vector<std::array<Tile, 2>> treated(treatments.size());
        for (std::size_t kind = 0; kind < treatments.size(); ++kind) {
            for (std::size_t i = 0; i < tile.size(); ++i) {
                treated[kind][0][i] = treatments[kind].shift[tile[i]];
                treated[kind][1][i] = treatments[kind].scale[tile[i]];
            }
        }
        in_parallel(draws.size(), kDrawsAtOnce, threads, [&](std::size_t begin, std::size_t end) {
            for (std::size_t draw = begin; draw < end; ++draw) {
                const Tile drawn = sums.of(draws[draw]);
                for (std::size_t kind = 0; kind < treatments.size(); ++kind) {
                    const auto& [shift, scale] = treated[kind];
                    found[kind][draw] = largest_treated(drawn, shift, scale, found[kind][draw]);
                }
            }
        });
    }
    return found;
}

double share_above(std::span<const double> values, double limit) {
    const auto above =
        std::count_if(values.begin(), values.end(), [&](double value) { return value > limit; });
    return static_cast<double>(above) / static_cast<double>(values.size());
}

/// Everything about the models that no draw changes.
struct Models {
    std::vector<double> means;
    std::vector<double> deviations;   ///< of sqrt(T) * mean
    std::vector<std::size_t> columns; ///< those with dispersion
    double rows;

    Models(const Advantages& advantages, double block)
        : means(means_of(advantages)), deviations(bootstrap_deviations(advantages, block)),
          rows(static_cast<double>(advantages.rows)) {
        for (std::size_t k = 0; k < deviations.size(); ++k) {
            if (deviations[k] > 1e-15 * std::abs(means[k])) {
                columns.push_back(k);
            }
        }
    }
    [[nodiscard]] double statistic(std::size_t k) const {
        return std::sqrt(rows) * means[k] / deviations[k];
    }
    /// Worse than luck alone explains: -sqrt(2 ln ln T) deviations.
    [[nodiscard]] bool clearly_worse(std::size_t k) const {
        return statistic(k) < -std::sqrt(2.0 * std::log(std::log(std::max(rows, 3.0))));
    }
    /// Sums become sqrt(T) times means over deviations; models without dispersion nothing.
    [[nodiscard]] Treatment studentised() const {
        Treatment treatment{std::vector<double>(means.size()), std::vector<double>(means.size())};
        for (const std::size_t k : columns) {
            treatment.scale[k] = 1.0 / (std::sqrt(rows) * deviations[k]);
        }
        return treatment;
    }
    [[nodiscard]] Treatment consistent() const {
        Treatment treatment = studentised();
        for (const std::size_t k : columns) {
            treatment.shift[k] = clearly_worse(k) ? rows * means[k] : 0.0;
        }
        return treatment;
    }
    [[nodiscard]] Treatment lower() const {
        Treatment treatment = studentised();
        for (const std::size_t k : columns) {
            treatment.shift[k] = rows * std::min(means[k], 0.0);
        }
        return treatment;
    }
    [[nodiscard]] Treatment plain() const {
        return {std::vector<double>(means.size()),
                std::vector<double>(means.size(), 1.0 / std::sqrt(rows))};
    }
};

} // namespace

std::vector<double> bootstrap_deviations(const Advantages& advantages, double mean_block) {
    check(advantages);
    const std::size_t rows = advantages.rows;
    const std::size_t models = advantages.models;
    const double n = static_cast<double>(rows);
    if (!(mean_block >= 1.0 && mean_block <= n)) {
        throw std::invalid_argument(
            "the mean length of a block must lie between 1 and the number of returns");
    }
    const std::vector<double> means = means_of(advantages);
    const double stay = 1.0 - 1.0 / mean_block;
    const double around = std::pow(stay, n);
    // The weights (1 - i/T) q^i on the circular products of lag i are two recursions: Y sums
    // q^i x(t - i), Z sums i q^i x(t - i), both over endless repetitions of the series. The first
    // round finds the state that a round leaves unchanged, the second sums x (Y - x - Z / T).
    std::vector<double> decayed(models);
    std::vector<double> delayed(models);
    std::vector<double> products(models);
    std::vector<double> squares(models);
    for (const bool second : {false, true}) {
        for (std::size_t row = 0; row < rows; ++row) {
            const auto values = advantages.values.subspan(row * models, models);
            for (std::size_t k = 0; k < models; ++k) {
                const double x = values[k] - means[k];
                delayed[k] = stay * (delayed[k] + decayed[k]);
                decayed[k] = x + stay * decayed[k];
                squares[k] += x * x;
                products[k] +=
                    x * ((1.0 - around) * (decayed[k] - delayed[k] / n) + around * decayed[k] - x);
            }
        }
        if (!second) {
            for (std::size_t k = 0; k < models; ++k) {
                decayed[k] /= 1.0 - around;
                delayed[k] = (delayed[k] + n * around * decayed[k]) / (1.0 - around);
                squares[k] = products[k] = 0.0;
            }
        }
    }
    std::vector<double> deviations(models);
    for (std::size_t k = 0; k < models; ++k) {
        deviations[k] = std::sqrt(std::max(0.0, (squares[k] + 2.0 * products[k]) / n));
    }
    return deviations;
}

SuperiorityTest superiority_test(const Advantages& advantages, const Resampling& how) {
    check(advantages);
    const Models models(advantages, how.block);
    SuperiorityTest test{kNaN, kNaN, kNaN, kNaN, kNaN};
    if (models.columns.empty() || how.draws == 0) {
        return test;
    }
    test.statistic = 0.0;
    double plain = kLowest;
    for (const std::size_t k : models.columns) {
        test.statistic = std::max(test.statistic, models.statistic(k));
        plain = std::max(plain, std::sqrt(models.rows) * models.means[k]);
    }
    const std::array treatments{models.lower(), models.consistent(), models.studentised(),
                                models.plain()};
    const Draws draws(advantages.rows, how);
    const auto found =
        largest(advantages, models.means, models.columns, draws, treatments, how.threads);
    test.lower = share_above(found[0], test.statistic);
    test.consistent = share_above(found[1], test.statistic);
    test.upper = share_above(found[2], test.statistic);
    test.reality = share_above(found[3], std::max(plain, 0.0));
    return test;
}

std::vector<std::size_t> superior_models(const Advantages& advantages, double size,
                                         const Resampling& how) {
    if (!(size > 0.0 && size < 1.0)) {
        throw std::invalid_argument("the size of a test must lie between 0 and 1");
    }
    check(advantages);
    const Models models(advantages, how.block);
    const std::array treatment{models.consistent()};
    const Draws draws(advantages.rows, how);
    std::vector<std::size_t> left = models.columns;
    std::vector<std::size_t> better;
    while (!left.empty() && draws.size() > 0) {
        auto found = largest(advantages, models.means, left, draws, treatment, how.threads).front();
        std::sort(found.begin(), found.end());
        const double critical = sorted_quantile(found, 1.0 - size);
        const auto rest = std::stable_partition(left.begin(), left.end(), [&](std::size_t k) {
            return models.statistic(k) <= critical;
        });
        if (rest == left.end()) {
            break;
        }
        better.insert(better.end(), rest, left.end());
        left.erase(rest, left.end());
    }
    std::sort(better.begin(), better.end());
    return better;
}

} // namespace corvex::engine::inline v1
