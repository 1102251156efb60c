#include "corvex/engine/drawdown/episodes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
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

} // namespace
} // namespace corvex::engine
