#include "corvex/engine/confidence/drawn_paths.hpp"

#include "corvex/engine/core/parallel.hpp"

#include <algorithm>
#include <cmath>
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

void check(std::span<const double> returns, std::size_t bars, std::span<const std::size_t> points) {
    if (returns.empty() || !std::all_of(returns.begin(), returns.end(), [](double value) {
            return value >= -1.0 && std::isfinite(value);
        })) {
        throw std::invalid_argument("returns must be finite and not below -1, at least one");
    }
    if (!std::is_sorted(points.begin(), points.end()) ||
        (!points.empty() && points.back() > bars)) {
        throw std::invalid_argument("the points must ascend and lie within the path");
    }
}

} // namespace

DrawnPaths draw_paths(std::span<const double> returns, std::size_t bars,
                      std::span<const std::size_t> points, const Resampling& how) {
    check(returns, bars, points);
    const BlockSampler sampler(returns.size(), how.block);
    // Written twice, so that no block turns round at the end.
    std::vector<double> gross(2 * returns.size());
    for (std::size_t i = 0; i < gross.size(); ++i) {
        gross[i] = 1.0 + returns[i % returns.size()];
    }
    DrawnPaths paths{std::vector<double>(how.draws * points.size()), std::vector<double>(how.draws),
                     std::vector<double>(how.draws)};
    in_parallel(how.draws, kDrawsAtOnce, how.threads, [&](std::size_t begin, std::size_t end) {
        std::vector<Block> room;
        for (std::size_t draw = begin; draw < end; ++draw) {
            RandomStream stream(how.seed, draw);
            const auto blocks = sampler.draw(stream, bars, room);
            Path path;
            std::size_t point = 0;
            const auto note = [&] {
                while (point < points.size() && points[point] == path.bar()) {
                    paths.wealth[draw * points.size() + point++] = path.value();
                }
            };
            note();
            for (const Block& block : blocks) {
                for (const double growth : std::span(gross).subspan(block.start, block.length)) {
                    path.grow(growth);
                    note();
                }
            }
            paths.deepest[draw] = path.deepest();
            paths.longest[draw] = path.longest();
        }
    });
    return paths;
}

} // namespace corvex::engine::inline v1
