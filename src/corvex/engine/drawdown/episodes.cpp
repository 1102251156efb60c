#include "corvex/engine/drawdown/episodes.hpp"

#include <algorithm>
#include <limits>

namespace corvex::engine::inline v1 {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Walks the curve once and hands each episode to `take` when it ends.
template <typename Take>
void for_each_episode(std::span<const double> values, Take&& take) {
    std::size_t peak = 0;
    std::size_t row = 1;
    while (row < values.size()) {
        if (values[row] >= values[peak]) {
            peak = row++;
            continue;
        }
        const double high = values[peak];
        const std::size_t start = row;
        std::size_t valley = row;
        for (++row; row < values.size() && values[row] < high; ++row) {
            valley = values[row] < values[valley] ? row : valley;
        }
        const bool recovered = row < values.size();
        take(Episode{peak, start, valley, recovered ? row : row - 1, values[valley] / high - 1.0,
                     recovered});
    }
}

bool deeper(const Episode& a, const Episode& b) {
    return a.depth < b.depth || (a.depth == b.depth && a.start < b.start);
}

} // namespace

std::vector<Episode> drawdown_episodes(std::span<const double> values) {
    std::vector<Episode> episodes;
    for_each_episode(values, [&](const Episode& episode) { episodes.push_back(episode); });
    return episodes;
}

std::vector<Episode> largest_episodes(std::span<const double> values, std::size_t count) {
    std::vector<Episode> heap; // the shallowest of the kept ones on top
    for_each_episode(values, [&](const Episode& episode) {
        if (heap.size() < count) {
            heap.push_back(episode);
            std::push_heap(heap.begin(), heap.end(), deeper);
        } else if (count > 0 && deeper(episode, heap.front())) {
            std::pop_heap(heap.begin(), heap.end(), deeper);
            heap.back() = episode;
            std::push_heap(heap.begin(), heap.end(), deeper);
        }
    });
    std::sort_heap(heap.begin(), heap.end(), deeper);
    return heap;
}

DrawdownSummary summarise_drawdowns(std::span<const double> values, std::span<const Nanos> times) {
    if (values.empty()) {
        return {kNaN, kNaN, kNaN};
    }
    double deepest = 0.0;
    double depths = 0.0;
    double days = 0.0;
    double count = 0.0;
    for_each_episode(values, [&](const Episode& episode) {
        deepest = std::min(deepest, episode.depth);
        depths += episode.depth;
        days += static_cast<double>(nanos_between(times[episode.start], times[episode.end])) /
                static_cast<double>(kNanosPerDay);
        count += 1.0;
    });
    return {deepest, count > 0.0 ? depths / count : kNaN, count > 0.0 ? days / count : kNaN};
}

} // namespace corvex::engine::inline v1
