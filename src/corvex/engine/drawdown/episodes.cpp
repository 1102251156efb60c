#include "corvex/engine/drawdown/episodes.hpp"

#include "corvex/engine/core/lanes.hpp"

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

/// A stay below a high, for those who only count and measure it.
struct Stay {
    double low;
    std::size_t end; ///< row that reaches the high again, or that of the end of the curve
};

/// From a row below `high` on. Long stays are what takes time: they are walked eight rows at once.
CORVEX_VECTOR_CLONES
Stay stay_below(double high, std::span<const double> values, std::size_t row) {
    Lanes low = Lanes{} + values[row];
    Lanes other_low = low;
    for (; row + 2 * kLanes <= values.size(); row += 2 * kLanes) {
        Lanes value;
        Lanes other;
        load(values.data() + row, value);
        load(values.data() + row + kLanes, other);
        if (any(~(value < high) | ~(other < high))) {
            break;
        }
        low = value < low ? value : low;
        other_low = other < other_low ? other : other_low;
    }
    low = other_low < low ? other_low : low;
    double lowest = std::min(std::min(low[0], low[1]), std::min(low[2], low[3]));
    for (; row < values.size() && values[row] < high; ++row) {
        lowest = std::min(lowest, values[row]);
    }
    return {lowest, row};
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
    double high = values.front();
    for (std::size_t row = 1; row < values.size(); ++row) {
        if (values[row] >= high) {
            high = values[row];
            continue;
        }
        const std::size_t start = row;
        const Stay stay = stay_below(high, values, start);
        row = stay.end;
        const double depth = stay.low / high - 1.0;
        deepest = std::min(deepest, depth);
        depths += depth;
        days += static_cast<double>(
                    nanos_between(times[start], times[std::min(row, values.size() - 1)])) /
                static_cast<double>(kNanosPerDay);
        count += 1.0;
        high = row < values.size() ? values[row] : high;
    }
    return {deepest, count > 0.0 ? depths / count : kNaN, count > 0.0 ? days / count : kNaN};
}

} // namespace corvex::engine::inline v1
