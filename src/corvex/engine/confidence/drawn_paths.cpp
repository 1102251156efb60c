#include "corvex/engine/confidence/drawn_paths.hpp"

#include "corvex/engine/core/parallel.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace corvex::engine::inline v1 {

namespace {

constexpr std::size_t kDrawsAtOnce = 16;

/// One path as it grows: its deepest fall and its longest stay below a high.
class Path {
  public:
    void grow(double gross) {
        ++bar_;
        value_ *= gross;
        if (value_ >= peak_) {
            peak_ = value_;
            peak_bar_ = bar_;
        } else {
            deepest_ = std::min(deepest_, value_ / peak_);
            longest_ = std::max(longest_, bar_ - peak_bar_);
        }
    }
    [[nodiscard]] std::size_t bar() const { return bar_; }
    [[nodiscard]] double value() const { return value_; }
    [[nodiscard]] double deepest() const { return deepest_ - 1.0; }
    [[nodiscard]] double longest() const { return static_cast<double>(longest_); }

  private:
    double value_ = 1.0;
    double peak_ = 1.0;
    double deepest_ = 1.0;
    std::size_t bar_ = 0;
    std::size_t peak_bar_ = 0;
    std::size_t longest_ = 0;
};

void check(std::span<const double> returns, std::span<const std::size_t> points,
           std::span<const std::size_t> horizons) {
    if (returns.empty() || !std::all_of(returns.begin(), returns.end(), [](double value) {
            return value >= -1.0 && std::isfinite(value);
        })) {
        throw std::invalid_argument("returns must be finite and not below -1, at least one");
    }
    if (!std::is_sorted(points.begin(), points.end()) ||
        !std::is_sorted(horizons.begin(), horizons.end())) {
        throw std::invalid_argument("the points and the horizons must ascend");
    }
}

std::size_t last_of(std::span<const std::size_t> bars) { return bars.empty() ? 0 : bars.back(); }

/// Writes down what is asked of one path, at the bars at which it is asked.
class Notes {
  public:
    Notes(std::span<const std::size_t> points, std::span<const std::size_t> horizons,
          DrawnPaths& paths, std::size_t draw)
        : points_{points}, horizons_{horizons},
          wealth_{std::span(paths.wealth).subspan(draw * points.size(), points.size())},
          deepest_{std::span(paths.deepest).subspan(draw * horizons.size(), horizons.size())},
          longest_{std::span(paths.longest).subspan(draw * horizons.size(), horizons.size())} {}

    /// The next bar at which something is asked; beyond every path where nothing is.
    [[nodiscard]] std::size_t next() const {
        const std::size_t point = point_ < points_.size() ? points_[point_] : kNever;
        const std::size_t horizon = horizon_ < horizons_.size() ? horizons_[horizon_] : kNever;
        return std::min(point, horizon);
    }

    void take(const Path& path) {
        for (; point_ < points_.size() && points_[point_] == path.bar(); ++point_) {
            wealth_[point_] = path.value();
        }
        for (; horizon_ < horizons_.size() && horizons_[horizon_] == path.bar(); ++horizon_) {
            deepest_[horizon_] = path.deepest();
            longest_[horizon_] = path.longest();
        }
    }

  private:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    std::span<const std::size_t> points_;
    std::span<const std::size_t> horizons_;
    std::span<double> wealth_;
    std::span<double> deepest_;
    std::span<double> longest_;
    std::size_t point_ = 0;
    std::size_t horizon_ = 0;
};

} // namespace

DrawnPaths draw_paths(std::span<const double> returns, std::span<const std::size_t> points,
                      std::span<const std::size_t> horizons, const Resampling& how) {
    check(returns, points, horizons);
    const std::size_t bars = std::max(last_of(points), last_of(horizons));
    const BlockSampler sampler(returns.size(), how.block);
    // Written twice, so that no block turns round at the end.
    std::vector<double> gross(2 * returns.size());
    for (std::size_t i = 0; i < gross.size(); ++i) {
        gross[i] = 1.0 + returns[i % returns.size()];
    }
    DrawnPaths paths{std::vector<double>(how.draws * points.size()),
                     std::vector<double>(how.draws * horizons.size()),
                     std::vector<double>(how.draws * horizons.size())};
    in_parallel(how.draws, kDrawsAtOnce, how.threads, [&](std::size_t begin, std::size_t end) {
        std::vector<Block> room;
        for (std::size_t draw = begin; draw < end; ++draw) {
            RandomStream stream(how.seed, draw);
            const auto blocks = sampler.draw(stream, bars, room);
            Path path;
            Notes notes(points, horizons, paths, draw);
            notes.take(path);
            std::size_t next = notes.next();
            for (const Block& block : blocks) {
                for (const double growth : std::span(gross).subspan(block.start, block.length)) {
                    path.grow(growth);
                    if (path.bar() == next) {
                        notes.take(path);
                        next = notes.next();
                    }
                }
            }
        }
    });
    return paths;
}

} // namespace corvex::engine::inline v1
