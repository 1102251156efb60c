#include "corvex/engine/portfolio/book.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kGap = std::numeric_limits<double>::quiet_NaN();

TEST(Book, CountsAMissingPriceAtTheLastKnownOne) {
    const std::vector<double> closes{kGap, 10, 11, kGap, kGap, 7};
    const PriceTable table{closes, 1};
    const Costs costs;
    Book book{table, costs};
    book.set_shares(0, 2.0, 9.0, 0); // filled at an open, the session has no close
    book.holdings_changed();
    EXPECT_EQ(book.mark(0), 18.0);
    EXPECT_EQ(book.price_before(0, 1), 9.0);
    EXPECT_EQ(book.mark(1), 20.0);
    EXPECT_EQ(book.mark(2), 22.0);
    EXPECT_EQ(book.mark(3), 22.0);
    EXPECT_EQ(book.price_after(0, 3), 11.0);
    EXPECT_EQ(book.mark(4), 22.0);
    EXPECT_EQ(book.mark(5), 14.0);
    EXPECT_EQ(book.price_before(0, 5), 11.0);
}

TEST(Book, TakesATradeBackWithAllThatItCost) {
    const std::vector<double> closes{10};
    const PriceTable table{closes, 1};
    const Costs costs{.fee = 0.01, .tax = 0.02, .slippage = 0.005};
    Book book{table, costs};
    CostTotals totals;
    book.trade(0, 0.5, 10.0, 0, totals);
    EXPECT_EQ(book.shares(0), 0.05);
    EXPECT_NEAR(book.cash(), 1 - 0.5 * 1.005 * 1.01, 1e-15);
    EXPECT_NEAR(totals.fees, 0.5 * 1.005 * 0.01, 1e-15);
    const double bought_with = book.cash();
    book.trade(0, 0.0, 8.0, 0, totals);
    EXPECT_NEAR(book.cash() - bought_with, 0.4 * 0.995 * 0.97, 1e-15);
    EXPECT_NEAR(totals.taxes, 0.4 * 0.995 * 0.02, 1e-15);
    EXPECT_TRUE(book.held().empty());
    book.untrade(0, 0.05, 8.0, totals);
    EXPECT_NEAR(book.cash(), bought_with, 1e-15);
    EXPECT_NEAR(totals.taxes, 0.0, 1e-15);
    book.untrade(0, 0.0, 10.0, totals);
    EXPECT_NEAR(book.cash(), 1.0, 1e-15);
    EXPECT_NEAR(totals.traded, 0.0, 1e-15);
}

TEST(Book, FollowsHoldingsThatComeAndGo) {
    constexpr std::size_t kAssets = 21; // full vectors, and some beyond them
    std::vector<double> closes(2 * kAssets);
    for (std::size_t k = 0; k < kAssets; ++k) {
        closes[k] = closes[kAssets + k] = static_cast<double>(k + 1);
    }
    closes[kAssets + 4] = kGap;
    const PriceTable table{closes, kAssets};
    const Costs costs;
    Book book{table, costs};
    CostTotals totals;
    for (std::size_t k = kAssets; k-- > 0;) {
        book.trade(k, closes[k], closes[k], 0, totals); // one share of each
    }
    EXPECT_EQ(book.mark(0), 231.0);
    book.trade(4, 0.0, 5.0, 0, totals);
    EXPECT_EQ(book.mark(0), 226.0);
    EXPECT_EQ(book.mark(1), 226.0); // the price that is missing is that of a sold asset
    for (const std::size_t k : {0U, 1U, 2U, 9U}) {
        book.trade(k, 0.0, closes[k], 1, totals);
        EXPECT_EQ(book.mark(1) + book.cash(), 1.0);
    }
    book.trade(1, 4.0, 2.0, 1, totals);
    EXPECT_EQ(book.mark(1), 214.0);
    EXPECT_EQ(book.held(), (std::vector<std::uint32_t>{1, 3, 5, 6, 7, 8, 10, 11, 12, 13, 14, 15, 16,
                                                       17, 18, 19, 20}));
}

TEST(Book, ForgivesNoDebtButThatOfRounding) {
    const std::vector<double> closes{1};
    const PriceTable table{closes, 1};
    const Costs costs;
    Book book{table, costs};
    for (const auto& [cash, left] : {std::pair{-1e-15, 0.0}, {-1e-12, -1e-12}, {1e-15, 1e-15}}) {
        book.set_cash(cash);
        book.forgive_rounding(1.0);
        EXPECT_EQ(book.cash(), left);
    }
}

} // namespace
} // namespace corvex::engine
