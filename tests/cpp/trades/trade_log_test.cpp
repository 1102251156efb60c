#include "corvex/engine/trades/excursion.hpp"
#include "corvex/engine/trades/trade_log.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kGap = std::numeric_limits<double>::quiet_NaN();

TEST(TradeLog, WritesRoundTripsWithTheirNetReturns) {
    const Costs costs{.fee = 0.1, .tax = 0.1};
    TradeLog log{costs, 4, 3, KeepTrips::kAll};
    log.signal_entry(3, 2, 0.5);
    log.open(2, 1, 5, 100.0, 1.0);
    log.open(0, 1, 5, 100.0, -1.0);
    log.open(1, 0, 4, 50.0, 1.0);
    log.close(2, 8, 132.0, {ExitReason::kStopLoss, 7, -1}, {.mae = -0.5, .days_in_profit = 3});
    log.close(0, 9, 40.0, {ExitReason::kRebalance, 8, 2}, {});
    log.mark_open(1, 66.0, {.mfe = 0.25});
    log.signal_exit(1, {ExitReason::kRebalance, 9, 2});
    log.open(2, 2, 9, 10.0, 1.0);
    const std::vector<RoundTrip> trips = log.take_sorted();
    ASSERT_EQ(trips.size(), 5U);
    EXPECT_EQ(log.counts().closed, 2);
    EXPECT_EQ(log.counts().won, 1);
    EXPECT_TRUE(log.take_sorted().empty());

    const RoundTrip& marked = trips[0];
    EXPECT_EQ(marked.asset, 1);
    EXPECT_NEAR(marked.net_return, 66 / 55.0 - 1, 1e-15);
    EXPECT_EQ(marked.mfe, 0.25);
    EXPECT_EQ(marked.exit_session, -1);
    EXPECT_EQ(marked.exit_signal_session, 9);
    EXPECT_EQ(marked.reason, ExitReason::kRebalance);

    const RoundTrip& covered = trips[1];
    EXPECT_EQ(covered.asset, 0);
    EXPECT_NEAR(covered.net_return, 1 - 44 / 80.0, 1e-15);
    EXPECT_EQ(covered.exit_rebalance, 2);

    const RoundTrip& stopped = trips[2];
    EXPECT_EQ(stopped.asset, 2);
    EXPECT_NEAR(stopped.net_return, 132 * 0.8 / 110 - 1, 1e-15);
    EXPECT_EQ(stopped.exit_session, 8);
    EXPECT_EQ(stopped.exit_rebalance, -1);
    EXPECT_EQ(stopped.mae, -0.5);
    EXPECT_EQ(stopped.days_in_profit, 3);

    EXPECT_EQ(trips[3].asset, 2); // a second trip of the same asset
    EXPECT_TRUE(std::isnan(trips[3].exit_price));
    EXPECT_EQ(trips[4].asset, 3);
    EXPECT_FALSE(trips[4].filled());
}

TEST(TradeLog, ThatIsOffIgnoresAll) {
    const Costs costs;
    TradeLog log{costs, 1, 1, KeepTrips::kNone};
    log.open(0, 0, 0, 1.0, 1.0);
    log.mark_open(0, 1.0, {});
    log.signal_exit(0, {});
    log.close(0, 0, 1.0, {}, {});
    log.signal_entry(0, 0, 1.0);
    EXPECT_TRUE(log.take_sorted().empty());
}

TEST(Excursion, FollowsClosesAndTheExit) {
    // One asset rises, falls and rises; the next mirrors its moves and is held short.
    const std::vector<double> rows{100, 100, 125, 75, 50, 150, kGap, kGap, 110, 90};
    const PriceTable close{rows, 2};
    ExcursionTracker tracker{close, 0, true};
    tracker.observe_before(1);
    tracker.open(0, true, 100);
    tracker.open(1, false, 100);
    for (const auto& [asset, exit] : {std::pair{0U, 120.0}, {1U, 80.0}}) {
        const ExcursionFigures figures = tracker.close(asset, 5, exit, true);
        EXPECT_EQ(figures.mae, -0.5);
        EXPECT_EQ(figures.mfe, 0.25);
        EXPECT_EQ(figures.mfe_before_mae, 0.25);
        EXPECT_EQ(figures.max_drawdown, 50 / 125.0 - 1);
        EXPECT_EQ(figures.days_in_profit, 3.0);
    }
}

} // namespace
} // namespace corvex::engine
