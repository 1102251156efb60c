#include <gtest/gtest.h>

#include "market.hpp"

namespace corvex::engine::portfolio {
namespace {

TEST(Stops, FireOnClosesAndFillInTheNextSession) {
    Market market{.close = {100, 100, 90, 80, 200, 200},
                  .target = {1.0, 1.0},
                  .signals = {0, 4},
                  .stops = {.loss = 0.1}};
    const auto result = market.run();
    EXPECT_EQ(result.equity, (std::vector<double>{1, 1, 0.9, 0.8, 0.8, 0.8}));
    EXPECT_EQ(market.position, (std::vector<double>{0, 1, 1, 0, 0, 1}));
    ASSERT_EQ(result.round_trips.size(), 2U);
    EXPECT_EQ(result.round_trips[0].reason, ExitReason::kStopLoss);
    EXPECT_EQ(result.round_trips[0].exit_signal_session, 2);
    EXPECT_EQ(result.round_trips[0].exit_session, 3);
    EXPECT_EQ(result.round_trips[1].entry_session, 5); // out until the next rebalance
}

TEST(Stops, TakeProfitOfAShortIsMirrored) {
    Market market{.close = {100, 100, 80, 80}, .target = {-0.5}, .stops = {.profit = 0.2}};
    const auto trip = market.run().round_trips.front();
    EXPECT_EQ(trip.reason, ExitReason::kTakeProfit);
    EXPECT_NEAR(trip.net_return, 0.2, 1e-15);
}

TEST(Stops, CountFromTheFillPriceWithSlippage) {
    // Bought at 101: 91 lies above 90.9, 90 below it.
    Market market{
        .close = {100, 100, 91, 90, 90}, .costs = {.slippage = 0.01}, .stops = {.loss = 0.1}};
    EXPECT_EQ(market.run().round_trips.front().exit_signal_session, 3);
}

TEST(Stops, TrailingStopCountsFromTheBestCloseUpToTheSessionBefore) {
    Market market{.close = {100, 100, 150, 136, 135, 135}, .stops = {.trail = 0.1}};
    const auto trip = market.run().round_trips.front();
    EXPECT_EQ(trip.reason, ExitReason::kTrailStop);
    EXPECT_EQ(trip.exit_signal_session, 4);
}

TEST(Stops, AStopOnTheSessionOfASignalExitsWithThatRebalance) {
    Market market{.close = {100, 100, 80, 80, 80},
                  .target = {1.0, 1.0},
                  .signals = {0, 2},
                  .stops = {.loss = 0.1}};
    const auto trips = market.run().round_trips;
    ASSERT_EQ(trips.size(), 2U);
    EXPECT_EQ(trips[0].exit_session, 3);
    EXPECT_EQ(trips[1].entry_session, 3);
    EXPECT_EQ(trips[1].entry_rebalance, 1);
}

/// One session of a position entered at 100, by its open, high and low; the close is 100.
trades::RoundTrip touched(double open, double high, double low, StopRules rules,
                          double weight = 1.0) {
    rules.touched = true;
    Market market{.close = {100, 100, 100},
                  .open = {100, 100, open},
                  .high = {100, 150, high},
                  .low = {100, 50, low},
                  .target = {weight},
                  .stops = rules};
    return market.run().round_trips.front();
}

TEST(TouchedStops, FillAtTheStopPriceOrAtTheOpenBehindIt) {
    const StopRules rules{.loss = 0.1, .profit = 0.2};
    const auto trip = touched(99, 101, 89, rules);
    EXPECT_NEAR(trip.exit_price, 90, 1e-12);
    EXPECT_EQ(trip.exit_signal_session, 2);
    EXPECT_EQ(trip.exit_session, 2);
    EXPECT_EQ(touched(85, 101, 80, rules).exit_price, 85);
    EXPECT_NEAR(touched(99, 125, 98, rules).exit_price, 120, 1e-12);
    EXPECT_EQ(touched(123, 125, 98, rules).exit_price, 123);
    EXPECT_EQ(touched(99, 125, 80, rules).reason, ExitReason::kStopLoss); // both: the loss first
    EXPECT_EQ(touched(99, 119, 91, rules).exit_session, -1);
    EXPECT_NEAR(touched(kGap, 88, 80, rules).exit_price, 88, 1e-12); // never outside the range
    EXPECT_NEAR(touched(99, 112, 95, rules, -0.5).exit_price, 110, 1e-12);
    EXPECT_EQ(touched(115, 119, 95, rules, -0.5).exit_price, 115);
}

TEST(TouchedStops, CountFromTheFillBarForOpenFillsOnly) {
    Market market{.close = {100, 100, 100},
                  .fill = {100, 100, 100},
                  .open = {100, 100, 100},
                  .high = {100, 100, 100},
                  .low = {100, 80, 100},
                  .fill_at = FillAt::kOpen,
                  .stops = {.loss = 0.1, .touched = true}};
    EXPECT_EQ(market.run().round_trips.front().exit_session, 1);
    market.fill_at = FillAt::kOther;
    EXPECT_EQ(market.run().round_trips.front().exit_session, -1);
}

} // namespace
} // namespace corvex::engine::portfolio
