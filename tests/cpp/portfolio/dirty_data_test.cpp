#include "corvex/engine/portfolio/price_checks.hpp"

#include <gtest/gtest.h>

#include "market.hpp"

namespace corvex::engine::portfolio {
namespace {

TEST(MissingPrices, HoldTheLastValue) {
    Market market{.close = {10, 16, 20, kGap, kGap, 24}};
    EXPECT_EQ(market.run().equity, (std::vector<double>{1, 1, 1.25, 1.25, 1.25, 1.5}));
}

TEST(MissingPrices, AnOrderWaitsAndThenTradesAloneToItsShareOfTheLaterEquity) {
    // Asset 0 doubles before asset 1 can be bought: half of 1.5, with the 0.5 that is in cash.
    Market market{.assets = 2, .close = {10, 10, 10, kGap, 20, 10, 20, 20}, .target = {0.5, 0.5}};
    auto result = market.run();
    EXPECT_EQ(result.equity, (std::vector<double>{1, 1, 1.5, 2.0}));
    EXPECT_EQ(result.cash[2], 0.0); // 0.75 was wanted, 0.5 was there
    EXPECT_EQ(market.position, (std::vector<double>{0, 0, 0.5, 0, 0.5, 0.5, 0.5, 0.5}));
    EXPECT_EQ(result.round_trips[1].entry_session, 2);
    // The next rebalance cancels it.
    market.target = {0.5, 0.5, 0.5, 0.0};
    market.signals = {0, 1};
    EXPECT_EQ(market.run().round_trips.size(), 1U);
}

TEST(MissingPrices, AHoldingThatCannotBeSoldLimitsTheBuys) {
    Market market{.assets = 2,
                  .close = {10, 10, 10, 10, 10, kGap, 10, 10},
                  .target = {0.25, 0.75, 1.0, 0.0},
                  .signals = {0, 1}};
    const auto result = market.run();
    EXPECT_NEAR(result.cash[2], 0.0, 1e-15);
    EXPECT_NEAR(result.shares[0] * 10, 0.25, 1e-15);
    EXPECT_NEAR(result.cash[3], 0.75, 1e-15); // sold as soon as it has a price
}

TEST(MissingPrices, AnOrderStillWaitingAtTheEndIsATradeWithoutFill) {
    Market market{.assets = 2, .close = {10, 10, 10, kGap}, .target = {0.0, 1.0}};
    const auto result = market.run();
    EXPECT_EQ(result.waiting_rebalance[1], 0);
    ASSERT_EQ(result.round_trips.size(), 1U);
    EXPECT_EQ(result.round_trips[0].entry_session, -1);
}

TEST(EndedPrices, CloseOnTheSessionAfterTheLastPriceWithCosts) {
    Market market{.close = {10, 10, 12, kGap, kGap}, .costs = {.fee = 0.01}};
    const auto result = market.run();
    const double shares = 1.0 / 1.01 / 10;
    EXPECT_NEAR(result.equity[2], shares * 12, 1e-15);
    EXPECT_NEAR(result.equity[3], shares * 12 * 0.99, 1e-15);
    EXPECT_EQ(result.round_trips[0].reason, ExitReason::kPricesEnded);
    EXPECT_EQ(result.round_trips[0].exit_session, 3);
    EXPECT_EQ(result.round_trips[0].exit_price, 12.0);
    EXPECT_EQ(market.position, (std::vector<double>{0, 1, 1, 0, 0}));
}

TEST(PriceChecks, FindTheLastPricesAndTheFirstBadOne) {
    const std::vector<double> values{1, kGap, kGap, 2, kGap, 3, kGap, kGap, 0};
    const PriceTable table{values, 3};
    EXPECT_EQ(last_priced_sessions(table), (std::vector<std::int64_t>{1, -1, 2}));
    EXPECT_EQ(first_bad_price(table), (std::pair<std::size_t, std::size_t>{2, 2}));
    EXPECT_FALSE(first_bad_price({std::span{values}.first(6), 3}));
}

} // namespace
} // namespace corvex::engine::portfolio
