#include "corvex/engine/confidence/path_figures.hpp"

#include "corvex/engine/core/lanes.hpp"
#include "corvex/engine/core/parallel.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kDrawsAtOnce = 16;

using Figures = std::array<double, kPathFigures>;

double& at(Figures& figures, PathFigure which) { return figures[static_cast<std::size_t>(which)]; }

/// Sharpe ratio and volatility from the sums of `count` distances to `centre` and their squares.
void add_moments(Figures& figures, const Annual& annual, double centre, double sum, double squares,
                 std::size_t count) {
    if (count < 2) {
        return;
    }
    const double n = static_cast<double>(count);
    const double mean = centre + sum / n;
    const double variance = std::max(0.0, squares - sum * sum / n) / (n - 1.0);
    // As in the statistics: dispersion that rounding alone explains counts as none.
    const double noise = 4.0 * std::numeric_limits<double>::epsilon() * (1.0 + std::abs(mean));
    const double deviation = variance <= noise * noise ? 0.0 : std::sqrt(variance);
    const double root = std::sqrt(annual.periods_per_year);
    at(figures, PathFigure::kVolatility) = deviation * root;
    if (deviation > 0.0) {
        at(figures, PathFigure::kSharpe) = (mean - annual.riskfree) / deviation * root;
    }
}

/// What became of 1: its last value, and its lowest one over the highest before it.
struct Wealth {
    double value = 1.0;
    double deepest = 1.0;
};

/// Four paths at once. `gross` has the growth of each of them side by side, bar by bar.
CORVEX_VECTOR_CLONES void grow(std::span<const double> gross, std::span<Wealth, kLanes> wealth) {
    Lanes value = {1.0, 1.0, 1.0, 1.0};
    Lanes peak = value;
    Lanes deepest = value;
    for (std::size_t i = 0; i + kLanes <= gross.size(); i += kLanes) {
        Lanes growth;
        load(gross.data() + i, growth);
        value *= growth;
        peak = value > peak ? value : peak;
        const Lanes ratio = value / peak;
        deepest = ratio < deepest ? ratio : deepest;
    }
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        wealth[lane] = {value[lane], deepest[lane]};
    }
}

void add_wealth(Figures& figures, const Annual& annual, const Wealth& wealth, std::size_t count) {
    const double years = static_cast<double>(count) / annual.periods_per_year;
    const double cagr = std::pow(wealth.value, 1.0 / years) - 1.0;
    const double drawdown = wealth.deepest - 1.0;
    at(figures, PathFigure::kCagr) = cagr;
    at(figures, PathFigure::kMaxDrawdown) = drawdown;
    at(figures, PathFigure::kCalmar) = cagr / std::abs(drawdown);
    at(figures, PathFigure::kFinalValue) = wealth.value;
}

/// A series written twice in a row, so that a block never has to turn round at its end, with the
/// sums that make the moments of a block two subtractions.
class DrawnSeries {
  public:
    explicit DrawnSeries(std::span<const double> returns) {
        const std::size_t rows = returns.size();
        for (const double value : returns) {
            centre_ += value / static_cast<double>(rows);
        }
        gross_.reserve(2 * rows);
        sums_.reserve(2 * rows + 1);
        sums_.push_back({0.0, 0.0});
        for (std::size_t i = 0; i < 2 * rows; ++i) {
            const double value = returns[i < rows ? i : i - rows];
            const double distance = value - centre_;
            gross_.push_back(1.0 + value);
            sums_.push_back(
                {sums_.back().first + distance, sums_.back().second + distance * distance});
        }
    }

    /// Sharpe ratio and volatility of a path; the rest is NaN.
    [[nodiscard]] Figures moments(std::span<const Block> blocks, std::size_t length,
                                  const Annual& annual) const {
        Figures found;
        found.fill(kNaN);
        double sum = 0.0;
        double squares = 0.0;
        for (const Block& block : blocks) {
            const Sums& from = sums_[block.start];
            const Sums& to = sums_[block.start + block.length];
            sum += to.first - from.first;
            squares += to.second - from.second;
        }
        add_moments(found, annual, centre_, sum, squares, length);
        return found;
    }

    /// Writes the growth of a path into its lane of `gross`.
    void lay_out(std::span<const Block> blocks, std::size_t lane, std::span<double> gross) const {
        std::size_t place = lane;
        for (const Block& block : blocks) {
            for (std::size_t row = block.start; row < block.start + block.length; ++row) {
                gross[place] = gross_[row];
                place += kLanes;
            }
        }
    }

  private:
    struct Sums {
        double first;
        double second;
    };
    double centre_ = 0.0;
    std::vector<double> gross_;
    std::vector<Sums> sums_;
};

struct Range {
    std::size_t begin;
    std::size_t end;
};

/// The figures of the paths in `range`, four at a time, written one after the other.
/// @param blocks_of  blocks of a path, given its number and room to keep them
template <typename BlocksOf>
void figures_of_paths(const DrawnSeries& series, const Annual& annual, std::size_t length,
                      Range range, bool moments_only, const BlocksOf& blocks_of, double* out) {
    std::vector<Block> room;
    std::vector<double> gross(moments_only ? 0 : length * kLanes, 1.0);
    for (std::size_t first = range.begin; first < range.end; first += kLanes) {
        const std::size_t count = std::min(kLanes, range.end - first);
        std::array<Figures, kLanes> found;
        for (std::size_t lane = 0; lane < count; ++lane) {
            const std::span<const Block> blocks = blocks_of(first + lane, room);
            found[lane] = series.moments(blocks, length, annual);
            if (!moments_only) {
                series.lay_out(blocks, lane, gross);
            }
        }
        std::array<Wealth, kLanes> wealth;
        grow(gross, wealth);
        for (std::size_t lane = 0; lane < count; ++lane) {
            if (!moments_only) {
                add_wealth(found[lane], annual, wealth[lane], length);
            }
            out = std::copy(found[lane].begin(), found[lane].end(), out);
        }
    }
}

void check_returns(std::span<const double> returns, const Annual& annual) {
    if (returns.empty()) {
        throw std::invalid_argument("there are no returns to draw from");
    }
    if (!std::all_of(returns.begin(), returns.end(),
                     [](double value) { return value >= -1.0 && std::isfinite(value); })) {
        throw std::invalid_argument("returns must be finite and not below -1, none missing");
    }
    if (!(annual.periods_per_year > 0.0) || std::isinf(annual.periods_per_year)) {
        throw std::invalid_argument("the periods per year must be a positive number");
    }
}

} // namespace

std::array<std::string_view, kPathFigures> path_figure_names() {
    return {"sharpe", "volatility", "cagr", "max_drawdown", "calmar", "final_value"};
}

Figures path_figures(std::span<const double> returns, const Annual& annual) {
    check_returns(returns, annual);
    std::vector<Figures> found(1);
    const Block whole{0, static_cast<std::uint32_t>(returns.size())};
    figures_of_paths(
        DrawnSeries(returns), annual, returns.size(), {0, 1}, false,
        [&](std::size_t, std::vector<Block>&) { return std::span(&whole, 1); },
        found.front().data());
    return found.front();
}

std::vector<double> bootstrap_figures(std::span<const double> returns, const Annual& annual,
                                      const Resampling& how, bool moments_only) {
    check_returns(returns, annual);
    const BlockSampler sampler(returns.size(), how.block);
    const DrawnSeries series(returns);
    std::vector<double> table(how.draws * kPathFigures);
    in_parallel(how.draws, kDrawsAtOnce, how.threads, [&](std::size_t begin, std::size_t end) {
        figures_of_paths(
            series, annual, returns.size(), {begin, end}, moments_only,
            [&](std::size_t draw, std::vector<Block>& room) {
                RandomStream stream(how.seed, draw);
                return sampler.draw(stream, returns.size(), room);
            },
            &table[begin * kPathFigures]);
    });
    return table;
}

std::vector<double> figures_without_each(std::span<const double> returns, const Annual& annual,
                                         unsigned threads) {
    check_returns(returns, annual);
    const std::size_t rows = returns.size();
    const DrawnSeries series(returns);
    std::vector<double> table(rows * kPathFigures);
    in_parallel(rows, kDrawsAtOnce, threads, [&](std::size_t begin, std::size_t end) {
        figures_of_paths(
            series, annual, rows - 1, {begin, end}, false,
            [&](std::size_t left, std::vector<Block>& room) {
                const auto before = static_cast<std::uint32_t>(left);
                room = {{0, before}, {before + 1, static_cast<std::uint32_t>(rows - left - 1)}};
                return std::span<const Block>(room);
            },
            &table[begin * kPathFigures]);
    });
    return table;
}

} // namespace corvex::engine::inline v1
