#include "corvex/engine/drawdown/curve.hpp"
#include "corvex/engine/drawdown/episodes.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// Three stays below a high: 5 of 10 (recovered), 9 of 12 (a tie with the high ends it), 6 of 12
// (still open).
const std::vector<double> kValues{8, 10, 6, 5, 5, 7, 10, 12, 9, 12, 8, 6, 7};

TEST(DrawdownCurve, CarriesTheLastValueOverAHole) {
    std::vector<double> out(6);
    drawdown_curve(std::vector<double>{kNaN, 4.0, kNaN, 2.0, kNaN, 8.0}, out);
    EXPECT_TRUE(std::isnan(out[0]));
    EXPECT_EQ(out[2], 0.0);
    EXPECT_EQ(out[3], -0.5);
    EXPECT_EQ(out[4], -0.5);
    EXPECT_EQ(out[5], 0.0);
    EXPECT_THROW(drawdown_curve(kValues, out), std::invalid_argument);
}

TEST(DrawdownEpisodes, RunFromTheFirstRowBelowTheHighToItsRecovery) {
    const std::vector<Episode> episodes = drawdown_episodes(kValues);
    ASSERT_EQ(episodes.size(), 3U);
    const Episode& first = episodes[0];
    EXPECT_EQ(first.peak, 1U);
    EXPECT_EQ(first.start, 2U);
    EXPECT_EQ(first.valley, 3U); // the first of two equal lows
    EXPECT_EQ(first.end, 6U);
    EXPECT_TRUE(first.recovered);
    EXPECT_EQ(first.depth, -0.5);
    const Episode& last = episodes[2];
    EXPECT_EQ(last.peak, 9U); // the latest row at the high
    EXPECT_EQ(last.end, 12U);
    EXPECT_FALSE(last.recovered);
    EXPECT_TRUE(drawdown_episodes(std::vector<double>{1.0, 1.0, 2.0}).empty());
    EXPECT_TRUE(drawdown_episodes({}).empty());
}

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

TEST(SummariseDrawdowns, AveragesDepthAndDays) {
    std::vector<Nanos> times;
    for (std::size_t day = 0; day < kValues.size(); ++day) {
        times.push_back(static_cast<Nanos>(day) * kNanosPerDay);
    }
    const DrawdownSummary summary = summarise_drawdowns(kValues, times);
    EXPECT_EQ(summary.max, -0.5);
    EXPECT_NEAR(summary.average, (-0.5 - 0.25 - 0.5) / 3, 1e-15);
    EXPECT_NEAR(summary.avg_days, (4 + 1 + 2) / 3.0, 1e-15);
    const DrawdownSummary rising =
        summarise_drawdowns(std::vector<double>{1, 2}, std::vector<Nanos>{0, 1});
    EXPECT_EQ(rising.max, 0.0);
    EXPECT_TRUE(std::isnan(rising.average) && std::isnan(rising.avg_days));
    EXPECT_TRUE(std::isnan(summarise_drawdowns({}, {}).max));
}

} // namespace
} // namespace corvex::engine
