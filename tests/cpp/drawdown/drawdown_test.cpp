#include "corvex/engine/drawdown/episodes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <vector>

namespace corvex::engine {
namespace {

TEST(LargestEpisodes, AgreesWithSortingAllOfThem) {
    std::mt19937 generator(7);
    std::uniform_int_distribution<int> step(-3, 4); // whole steps: equal depths do occur
    std::vector<double> values{1000.0};
    for (int i = 0; i < 3000; ++i) {
        values.push_back(std::max(1.0, values.back() + step(generator)));
    }
    std::vector<Episode> sorted = drawdown_episodes(values);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Episode& a, const Episode& b) { return a.depth < b.depth; });
    ASSERT_GT(sorted.size(), 20U);
    for (const std::size_t count :
         {std::size_t{0}, std::size_t{1}, std::size_t{10}, sorted.size() + 5}) {
        const std::vector<Episode> largest = largest_episodes(values, count);
        ASSERT_EQ(largest.size(), std::min(count, sorted.size()));
        for (std::size_t i = 0; i < largest.size(); ++i) {
            EXPECT_EQ(largest[i].start, sorted[i].start) << "place " << i << " of " << count;
        }
    }
}

TEST(SummariseDrawdowns, AgreesWithTheEpisodesThemselves) {
    std::mt19937 generator(3);
    for (const int rise : {2, 3, 4}) { // short stays below a high, and some of hundreds of rows
        std::uniform_int_distribution<int> step(-3, rise);
        std::vector<double> values{1000.0};
        std::vector<Nanos> times{0};
        while (values.size() < 1501) {
            values.push_back(std::max(1.0, values.back() + step(generator)));
            times.push_back(times.back() + kNanosPerDay);
        }
        for (const std::size_t length : {std::size_t{1}, std::size_t{2}, values.size()}) {
            const std::span curve = std::span(values).first(length);
            double depths = 0.0;
            double days = 0.0;
            double deepest = 0.0;
            const std::vector<Episode> episodes = drawdown_episodes(curve);
            for (const Episode& episode : episodes) {
                depths += episode.depth;
                days += static_cast<double>(episode.end - episode.start);
                deepest = std::min(deepest, episode.depth);
            }
            const DrawdownSummary found = summarise_drawdowns(curve, times);
            EXPECT_EQ(found.max, deepest);
            if (!episodes.empty()) {
                const auto count = static_cast<double>(episodes.size());
                EXPECT_EQ(found.average, depths / count);
                EXPECT_EQ(found.avg_days, days / count);
            }
        }
    }
}

} // namespace
} // namespace corvex::engine
