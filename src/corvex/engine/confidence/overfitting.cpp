#include "corvex/engine/confidence/overfitting.hpp"

#include "corvex/engine/core/lanes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kLowest = -std::numeric_limits<double>::infinity();

/// Sums over some of the blocks, for every trial.
struct Sums {
    std::vector<double> first;
    std::vector<double> second;
    std::size_t count = 0;

    explicit Sums(std::size_t trials) : first(trials), second(trials) {}
};

CORVEX_VECTOR_CLONES void add(std::span<const double> from, std::span<const double> what,
                              std::span<double> to) {
    for (std::size_t k = 0; k < to.size(); ++k) {
        to[k] = from[k] + what[k];
    }
}

/// What orders the trials of a half as their Sharpe ratios do: sum |sum| / squares, which needs no
/// root. 0 where nothing moves.
[[gnu::always_inline]] inline double score(double sum, double squares) {
    const double size = sum < 0.0 ? -sum : sum;
    return sum * size / (squares > 0.0 ? squares : 1.0);
}

/// A half of the blocks and the rest, trial by trial.
struct Halves {
    std::span<const double> first; ///< sums and squares of the half, then of the whole
    std::span<const double> second;
    std::span<const double> whole_first;
    std::span<const double> whole_second;
};

/// Scores both halves; the largest of each is returned.
CORVEX_VECTOR_CLONES std::array<double, 2>
score_both(const Halves& halves, std::span<double> inside, std::span<double> outside) {
    constexpr std::size_t kWide = 8;
    double best_inside[kWide];
    double best_outside[kWide];
    std::fill(std::begin(best_inside), std::end(best_inside), kLowest);
    std::fill(std::begin(best_outside), std::end(best_outside), kLowest);
    const auto one = [&](std::size_t k, std::size_t lane) __attribute__((always_inline)) {
        const double here = score(halves.first[k], halves.second[k]);
        const double there = score(halves.whole_first[k] - halves.first[k],
                                   halves.whole_second[k] - halves.second[k]);
        inside[k] = here;
        outside[k] = there;
        best_inside[lane] = here > best_inside[lane] ? here : best_inside[lane];
        best_outside[lane] = there > best_outside[lane] ? there : best_outside[lane];
    };
    std::size_t k = 0;
    for (; k + kWide <= inside.size(); k += kWide) {
        for (std::size_t lane = 0; lane < kWide; ++lane) {
            one(k + lane, lane);
        }
    }
    for (; k < inside.size(); ++k) {
        one(k, 0);
    }
    return {*std::max_element(std::begin(best_inside), std::end(best_inside)),
            *std::max_element(std::begin(best_outside), std::end(best_outside))};
}

struct Place {
    std::size_t below;
    std::size_t equal; ///< the one asked for among them
};

CORVEX_VECTOR_CLONES Place place_of(double value, std::span<const double> values) {
    std::size_t below = 0;
    std::size_t reached = 0;
    for (const double other : values) {
        below += other < value ? 1U : 0U;
        reached += other <= value ? 1U : 0U;
    }
    return {below, reached - below};
}

double sharpe(double sum, double squares, std::size_t count) {
    const double n = static_cast<double>(count);
    const double variance = (squares - sum * sum / n) / (n - 1.0);
    return variance > 0.0 ? sum / n / std::sqrt(variance) : 0.0;
}

/// Walks over all halvings that hold the first block inside; the other half of each is one, too.
class Halvings {
  public:
    Halvings(const BlockSums& blocks, Overfitting& found)
        : blocks_(blocks), found_(found), whole_(blocks.trials), inside_scores_(blocks.trials),
          outside_scores_(blocks.trials),
          chosen_(blocks.counts.size() / 2 + 1, Sums(blocks.trials)) {
        for (std::size_t block = 0; block < blocks.counts.size(); ++block) {
            include(whole_, block, whole_);
        }
    }

    void walk() {
        include(chosen_[0], 0, chosen_[1]);
        choose(1, 1);
    }

  private:
    [[nodiscard]] std::span<const double> part(const std::vector<double>& table,
                                               std::size_t block) const {
        return std::span(table).subspan(block * blocks_.trials, blocks_.trials);
    }

    void include(const Sums& from, std::size_t block, Sums& to) const {
        add(from.first, part(blocks_.sums, block), to.first);
        add(from.second, part(blocks_.squares, block), to.second);
        to.count = from.count + blocks_.counts[block];
    }

    /// `taken` blocks are inside, all before `next`.
    void choose(std::size_t taken, std::size_t next) {
        const std::size_t half = blocks_.counts.size() / 2;
        if (taken == half) {
            compare(chosen_[half]);
            return;
        }
        for (std::size_t block = next; block + (half - taken) <= blocks_.counts.size(); ++block) {
            include(chosen_[taken], block, chosen_[taken + 1]);
            choose(taken + 1, block + 1);
        }
    }

    void compare(const Sums& half) {
        const auto [inside, outside] =
            score_both({half.first, half.second, whole_.first, whole_.second}, inside_scores_,
                       outside_scores_);
        note(half, inside_scores_, inside, outside_scores_, true);
        note(half, outside_scores_, outside, inside_scores_, false);
    }

    /// The trial whose score is `best` in one half, and what became of it in the other one.
    void note(const Sums& half, std::span<const double> chosen_by, double best,
              std::span<const double> judged_by, bool half_is_inside) const {
        const auto winner = static_cast<std::size_t>(
            std::find(chosen_by.begin(), chosen_by.end(), best) - chosen_by.begin());
        const Place place = place_of(judged_by[winner], judged_by);
        const double rank =
            static_cast<double>(place.below) + (static_cast<double>(place.equal) + 1.0) / 2.0;
        const double w = rank / (static_cast<double>(blocks_.trials) + 1.0);
        found_.logits.push_back(std::log(w / (1.0 - w)));
        const double here = sharpe(half.first[winner], half.second[winner], half.count);
        const double there =
            sharpe(whole_.first[winner] - half.first[winner],
                   whole_.second[winner] - half.second[winner], whole_.count - half.count);
        found_.inside.push_back(half_is_inside ? here : there);
        found_.outside.push_back(half_is_inside ? there : here);
    }

    const BlockSums& blocks_;
    Overfitting& found_;
    Sums whole_;
    std::vector<double> inside_scores_;
    std::vector<double> outside_scores_;
    std::vector<Sums> chosen_; ///< [n]: with n blocks inside
};

double share_of(std::span<const double> values, auto&& condition) {
    return static_cast<double>(std::count_if(values.begin(), values.end(), condition)) /
           static_cast<double>(values.size());
}

double slope(std::span<const double> x, std::span<const double> y) {
    const double n = static_cast<double>(x.size());
    double mean_x = 0.0;
    double mean_y = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        mean_x += x[i] / n;
        mean_y += y[i] / n;
    }
    double both = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        both += (x[i] - mean_x) * (y[i] - mean_y);
        squares += (x[i] - mean_x) * (x[i] - mean_x);
    }
    return squares > 0.0 ? both / squares : kNaN;
}

} // namespace

BlockSums block_sums(std::span<const double> returns, std::size_t rows, std::size_t trials,
                     std::size_t blocks) {
    if (returns.size() != rows * trials) {
        throw std::invalid_argument("the returns must be rows x trials");
    }
    if (blocks == 0 || blocks > rows) {
        throw std::invalid_argument("there must be at least one row for each block");
    }
    BlockSums found;
    found.trials = trials;
    found.sums.resize(blocks * trials);
    found.squares.resize(blocks * trials);
    std::size_t row = 0;
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::size_t count = rows / blocks + (block < rows % blocks ? 1 : 0);
        found.counts.push_back(count);
        for (const std::size_t end = row + count; row < end; ++row) {
            for (std::size_t k = 0; k < trials; ++k) {
                const double value = returns[row * trials + k];
                found.sums[block * trials + k] += value;
                found.squares[block * trials + k] += value * value;
            }
        }
    }
    if (!std::all_of(found.squares.begin(), found.squares.end(),
                     [](double value) { return std::isfinite(value); })) {
        throw std::invalid_argument("the returns must be finite, none missing");
    }
    return found;
}

Overfitting backtest_overfitting(const BlockSums& blocks) {
    const std::size_t count = blocks.counts.size();
    if (count < 2 || count % 2 != 0 || count > kMostBlocks) {
        throw std::invalid_argument("the number of blocks must be even, from 2 to 20");
    }
    if (blocks.sums.size() != count * blocks.trials ||
        blocks.squares.size() != count * blocks.trials) {
        throw std::invalid_argument("the sums must be blocks x trials");
    }
    Overfitting found{kNaN, kNaN, kNaN, {}, {}, {}};
    if (blocks.trials < 2) {
        return found;
    }
    Halvings(blocks, found).walk();
    found.probability = share_of(found.logits, [](double logit) { return logit <= 0.0; });
    found.loss = share_of(found.outside, [](double ratio) { return ratio < 0.0; });
    found.slope = slope(found.inside, found.outside);
    return found;
}

} // namespace corvex::engine::inline v1
