#include <gtest/gtest.h>

#include <stdexcept>

#include "market.hpp"

namespace corvex::engine::portfolio {
namespace {

TEST(Rebalance, FillsOneSessionAfterTheSignalAtItsClose) {
    Market market{.close = {100, 128, 160, 64}};
    const auto result = market.run();
    EXPECT_EQ(result.equity, (std::vector<double>{1.0, 1.0, 1.25, 0.5}));
    EXPECT_EQ(market.position, (std::vector<double>{0, 1, 1, 1}));
}

TEST(Rebalance, FillAtTheOpenEarnsTheMoveToTheClose) {
    Market market{.close = {100, 110, 121}, .fill = {100, 100, 110}, .fill_at = FillAt::kOpen};
    EXPECT_EQ(market.run().equity, (std::vector<double>{1.0, 1.1, 1.21}));
}

TEST(Rebalance, EachHoldingIsItsShareOfTheEquityAfterCosts) {
    // All in: x (1 + fee) = 1. Then half is sold: x / 2 (1 - fee - tax) stays as cash.
    Market market{.close = {10, 10, 10, 10},
                  .target = {1.0, 0.5},
                  .signals = {0, 1},
                  .costs = {.fee = 0.01, .tax = 0.003}};
    const auto result = market.run();
    const double bought = 1.0 / 1.01;
    EXPECT_NEAR(result.equity[1], bought, 1e-15);
    EXPECT_EQ(result.cash[1], 0.0);
    // cash + holding = E and holding = E / 2, with cash = (bought - E / 2) (1 - 0.013).
    const double after = bought * 0.987 / (0.5 + 0.5 * 0.987);
    EXPECT_NEAR(result.equity[2], after, 1e-15);
    EXPECT_NEAR(result.cash[2], after / 2, 1e-15);
    EXPECT_NEAR(result.taxes[2], 0.003 * (bought - after / 2), 1e-15);
}

TEST(Rebalance, ShortEntryIsASaleAndPaysTaxTheCoverDoesNot) {
    Market market{.close = {10, 10, 8, 8},
                  .target = {-0.5, 0.0},
                  .signals = {0, 2},
                  .costs = {.fee = 0.01, .tax = 0.02, .slippage = 0.1}};
    const auto result = market.run();
    // Sold x at 0.9: costs x (1 - 0.9 x 0.97) = 0.127 x, and x = E / 2.
    const double equity = 1.0 / (1.0 + 0.5 * 0.127);
    EXPECT_NEAR(result.equity[1], equity, 1e-15);
    EXPECT_NEAR(result.equity[2], equity + equity / 2 * 0.2, 1e-15);
    EXPECT_NEAR(result.taxes[1], 0.02 * 0.9 * equity / 2, 1e-15);
    EXPECT_EQ(result.taxes[3], 0.0);
    const auto& trip = result.round_trips.front();
    EXPECT_NEAR(trip.net_return, 1.0 - (8 * 1.1 * 1.01) / (10 * 0.9 * 0.97), 1e-15);
    EXPECT_EQ(trip.entry_price, 10.0);
    EXPECT_EQ(trip.exit_price, 8.0);
}

TEST(Rebalance, KeepsARoundTripUntilZeroOrAChangeOfSign) {
    Market market{.close = {10, 10, 10, 10, 10, 10},
                  .target = {0.5, 0.8, -0.3, 0.0},
                  .signals = {0, 1, 2, 5}};
    const auto trips = market.run().round_trips;
    ASSERT_EQ(trips.size(), 2U);
    EXPECT_EQ(trips[0].exit_rebalance, 2);
    EXPECT_EQ(trips[0].exit_session, 3);
    EXPECT_EQ(trips[0].weight, 0.5);
    EXPECT_EQ(trips[1].entry_session, 3);
    // The exit is signalled on the last session and has no fill yet.
    EXPECT_EQ(trips[1].exit_signal_session, 5);
    EXPECT_EQ(trips[1].exit_session, -1);
    EXPECT_EQ(trips[1].net_return, 0.0);
}

TEST(Rebalance, RuinClosesEverythingAtThatCloseAndEndsAtZero) {
    Market market{.close = {10, 10, 15, 21, 5}, .target = {-1.0, -1.0}, .signals = {0, 4}};
    const auto result = market.run();
    EXPECT_EQ(result.equity, (std::vector<double>{1, 1, 0.5, 0, 0}));
    EXPECT_EQ(result.ruin_session, 3);
    EXPECT_EQ(market.position, (std::vector<double>{0, -1, -1, 0, 0}));
    ASSERT_EQ(result.round_trips.size(), 1U);
    EXPECT_EQ(result.round_trips[0].reason, ExitReason::kRuin);
}

TEST(Rebalance, RecordsExcursionsFromTheEntryFill) {
    Market market{.close = {10, 10, 12, 9, 8, 11, 10}, .target = {1.0, 0.0}, .signals = {0, 5}};
    const auto figures = market.run().round_trips.front();
    EXPECT_NEAR(figures.mae, -0.2, 1e-15);
    EXPECT_NEAR(figures.mfe, 0.2, 1e-15);
    EXPECT_NEAR(figures.mfe_before_mae, 0.2, 1e-15);
    EXPECT_NEAR(figures.max_drawdown, 8.0 / 12.0 - 1.0, 1e-15);
    EXPECT_EQ(figures.days_in_profit, 2.0);
    Market rising{.close = {10, 10, 12}, .target = {1.0}};
    EXPECT_EQ(rising.run().round_trips.front().mae, 0.0);
}

TEST(Rebalance, RefusesInputsThatDoNotFit) {
    const auto refuses = [](Market market) { EXPECT_THROW(market.run(), std::invalid_argument); };
    refuses({.close = {1, 2}, .target = {1, 1}});
    refuses({.close = {1, 2}, .signals = {2}});
    refuses({.close = {1, 2}, .target = {1, 1}, .signals = {1, 0}});
    refuses({.close = {1, 2}, .target = {kGap}});
    refuses({.close = {1, 2}, .costs = {.fee = 1.0}});
    refuses({.close = {1, 2}, .costs = {.fee = -0.1}});
    refuses({.close = {1, 2}, .stops = {.loss = 0.0}});
    refuses({.close = {1, 2}, .fill_at = FillAt::kOpen});
    refuses({.close = {1, 2}, .stops = {.loss = 0.1, .touched = true}});
}

} // namespace
} // namespace corvex::engine::portfolio
