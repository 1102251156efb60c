#include "corvex/engine/portfolio/stop_monitor.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <utility>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kGap = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kNever = 99;
using Fired = std::pair<std::size_t, ExitReason>;

/// When a position of session 0 at 100 is stopped by closes, and why.
Fired first_stop(const std::vector<double>& closes, const StopRules& rules, bool is_long = true) {
    const PriceSet prices{{.close = {closes, 1}}};
    StopMonitor monitor{prices, rules};
    std::vector<FiredStop> fired;
    monitor.check_closes(0, kNever, fired);
    monitor.enter(0, is_long, 100.0, 1);
    for (std::size_t session = 1; session < closes.size(); ++session) {
        monitor.check_closes(session, kNever, fired);
        if (!fired.empty()) {
            return {session, fired.front().reason};
        }
    }
    return {kNever, ExitReason::kOpen};
}

TEST(StopMonitor, FiresOnTheFirstCloseAtALevel) {
    const Fired none{kNever, ExitReason::kOpen};
    const StopRules loss{.loss = 0.25};
    EXPECT_EQ(first_stop({100, 75.1, kGap, 75, 60}, loss), (Fired{3, ExitReason::kStopLoss}));
    EXPECT_EQ(first_stop({60, 100}, loss), none); // the session of the entry does not count
    EXPECT_EQ(first_stop({100, 124, 125}, loss, false), (Fired{2, ExitReason::kStopLoss}));
    const StopRules profit{.profit = 0.5};
    EXPECT_EQ(first_stop({100, 149, 150}, profit), (Fired{2, ExitReason::kTakeProfit}));
    EXPECT_EQ(first_stop({100, 51, 50}, profit, false), (Fired{2, ExitReason::kTakeProfit}));
    // The best price is that of the entry or a later close, missing ones aside.
    const StopRules trail{.trail = 0.25};
    EXPECT_EQ(first_stop({100, 76, 200, kGap, 151, 150}, trail),
              (Fired{5, ExitReason::kTrailStop}));
    EXPECT_EQ(first_stop({100, 75}, trail), (Fired{1, ExitReason::kTrailStop}));
    EXPECT_EQ(first_stop({100, 80, 99, 100}, trail, false), (Fired{3, ExitReason::kTrailStop}));
    EXPECT_EQ(first_stop({100, 70}, {.loss = 0.25, .trail = 0.25}),
              (Fired{1, ExitReason::kStopLoss}));
    std::vector<double> late(40, 100.0); // several blocks on
    late.push_back(75);
    EXPECT_EQ(first_stop(late, loss), (Fired{40, ExitReason::kStopLoss}));
}

TEST(StopMonitor, TellsOfEachPositionAloneAndInOrder) {
    constexpr std::size_t kAssets = 7; // a full vector, and three beyond it
    std::vector<double> closes(12 * kAssets, 100.0);
    for (std::size_t asset = 0; asset < kAssets; ++asset) {
        closes[5 * kAssets + asset] = closes[6 * kAssets + asset] = 50;
    }
    const PriceSet prices{{.close = {closes, kAssets}}};
    StopMonitor monitor{prices, {.loss = 0.25}};
    const auto fired = [&](std::size_t session) {
        std::vector<FiredStop> stops;
        monitor.check_closes(session, kNever, stops);
        std::vector<std::uint32_t> assets;
        assets.reserve(stops.size());
        for (const FiredStop& stop : stops) {
            assets.push_back(stop.asset);
        }
        return assets;
    };
    using Assets = std::vector<std::uint32_t>;
    for (const std::size_t asset : {5U, 2U, 1U, 0U}) {
        monitor.enter(asset, true, 100, 0);
    }
    monitor.enter(6, false, 100, 0);
    EXPECT_EQ(fired(0), Assets{});
    monitor.leave(1); // its stop has been found in the block already
    monitor.leave(2);
    monitor.enter(2, true, 100, 6); // misses the first fall
    monitor.enter(3, true, 100, 4);
    for (std::size_t session = 1; session < 5; ++session) {
        EXPECT_EQ(fired(session), Assets{});
    }
    EXPECT_EQ(fired(5), (Assets{0, 3, 5}));
    EXPECT_EQ(fired(6), Assets{2});
    EXPECT_FALSE(monitor.watches(1));
    EXPECT_TRUE(monitor.watches(6));
}

TEST(StopMonitor, FillsTheNearerOfTwoLevelsThatASessionTouches) {
    const std::vector<double> closes{100, 160, 100};
    const std::vector<double> highs{100, 160, 130};
    const std::vector<double> lows{100, 150, 40};
    const std::vector<double> opens{100, 155, 125};
    const PriceSet prices{
        {.close = {closes, 1}, .open = {opens, 1}, .high = {highs, 1}, .low = {lows, 1}}};
    StopMonitor monitor{prices, {.loss = 0.5, .trail = 0.25, .touched = true}};
    monitor.enter(0, true, 100, 1);
    std::vector<TouchedStop> touched;
    monitor.check_range(1, kNever, touched);
    EXPECT_TRUE(touched.empty()); // the high of a session raises the level of the next one
    monitor.check_range(2, kNever, touched);
    ASSERT_EQ(touched.size(), 1U);
    EXPECT_EQ(touched[0].price, 120.0);
    EXPECT_EQ(touched[0].reason, ExitReason::kTrailStop);
}

} // namespace
} // namespace corvex::engine
