#include "corvex/engine/portfolio/simulator.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace corvex::engine {
namespace {

// Whole runs are compared with a simulator of its own in Python; here stands what that one takes
// for granted: the price of a stop that was touched, and the inputs that are refused.
constexpr double kGap = std::numeric_limits<double>::quiet_NaN();

/// One asset whose tables are written out by hand, a value for each session.
struct Market {
    std::vector<double> close;
    std::vector<double> open{};
    std::vector<double> high{};
    std::vector<double> low{};
    std::vector<double> target{1.0};
    std::vector<std::int64_t> signals{0};
    FillAt fill_at = FillAt::kClose;
    Costs costs{};
    StopRules stops{};

    SimulationResult run() const {
        const PriceSet prices{{.close = {close, 1},
                               .fill_at = fill_at,
                               .fill = {open, 1},
                               .open = {open, 1},
                               .high = {high, 1},
                               .low = {low, 1}}};
        std::vector<double> position(close.size());
        return simulate({.prices = prices,
                         .plan = {target, signals},
                         .options = {costs, stops},
                         .record = {.fills = true, .position = position}});
    }
};

/// One session of a position entered at 100, by its open, high and low; the close is 100.
RoundTrip touched(double open, double high, double low, double weight = 1.0) {
    const Market market{.close = {100, 100, 100},
                        .open = {100, 100, open},
                        .high = {100, 150, high},
                        .low = {100, 50, low},
                        .target = {weight},
                        .stops = {.loss = 0.1, .profit = 0.2, .touched = true}};
    return market.run().round_trips.front();
}

TEST(TouchedStops, FillAtTheStopPriceOrAtTheOpenBehindIt) {
    const auto trip = touched(99, 101, 89);
    EXPECT_NEAR(trip.exit_price, 90, 1e-12);
    EXPECT_EQ(trip.exit_session, 2);
    EXPECT_EQ(touched(85, 101, 80).exit_price, 85);
    EXPECT_NEAR(touched(99, 125, 98).exit_price, 120, 1e-12);
    EXPECT_EQ(touched(123, 125, 98).exit_price, 123);
    EXPECT_EQ(touched(99, 125, 80).reason, ExitReason::kStopLoss); // both: the loss first
    EXPECT_EQ(touched(99, 119, 91).exit_session, -1);
    EXPECT_NEAR(touched(kGap, 88, 80).exit_price, 88, 1e-12); // never outside the range
    EXPECT_NEAR(touched(99, 112, 95, -0.5).exit_price, 110, 1e-12);
    EXPECT_EQ(touched(115, 119, 95, -0.5).exit_price, 115);
}

double sum_of(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

TEST(Netting, PaysForWhatAStopAndAnOrderTrulyTrade) {
    Market market{.close = {100, 100, 80, 80},
                  .open = {100, 100, 80, 80},
                  .high = {100, 100, 80, 80},
                  .low = {100, 100, 80, 80},
                  .target = {1.0, 0.5},
                  .signals = {0, 1},
                  .fill_at = FillAt::kOpen,
                  .costs = {.fee = 0.01},
                  .stops = {.loss = 0.1, .touched = true}};
    // The open lies behind the stop: half is sold by the order and half by the stop, once each.
    const double bought = 1.0 / 1.01;
    const SimulationResult at_open = market.run();
    EXPECT_EQ(at_open.shares.front(), 0.0);
    EXPECT_NEAR(sum_of(at_open.traded), bought * 1.8, 1e-12);
    EXPECT_NEAR(sum_of(at_open.fees), bought * 0.018, 1e-12);
    EXPECT_EQ(at_open.fills.shares, (std::vector<double>{bought / 100, 0.0}));

    market.fill_at = FillAt::kClose;
    market.stops.touched = false; // it fires on the close of session 2, the order fills with it
    market.signals = {0, 2};
    const SimulationResult at_close = market.run();
    EXPECT_NEAR(at_close.shares.front() * 80, at_close.equity.back() / 2, 1e-12);
    EXPECT_NEAR(sum_of(at_close.traded), bought + bought * 0.8 - at_close.equity.back() / 2, 1e-12);
    EXPECT_EQ(at_close.round_trips.size(), 2U);

    market.stops.cooldown = 1;
    EXPECT_EQ(market.run().shares.front(), 0.0);
}

TEST(Simulate, RefusesInputsThatDoNotFit) {
    const auto refuses = [](const Market& market) {
        EXPECT_THROW(market.run(), std::invalid_argument);
    };
    refuses({.close = {1, 2}, .target = {1, 1}});
    refuses({.close = {1, 2}, .signals = {2}});
    refuses({.close = {1, 2}, .target = {1, 1}, .signals = {1, 0}});
    refuses({.close = {1, 2}, .target = {kGap}});
    refuses({.close = {1, 2}, .costs = {.fee = 1.0}});
    refuses({.close = {1, 2}, .costs = {.fee = -0.1}});
    refuses({.close = {1, 2}, .stops = {.loss = 0.0}});
    refuses({.close = {1, 2}, .stops = {.cooldown = -1}});
    refuses({.close = {1, 2}, .fill_at = FillAt::kOpen});
    refuses({.close = {1, 5e-324}});
    refuses({.close = {1, kGap, 5e-324}}); // waits for its price
    refuses({.close = {1, 2}, .stops = {.loss = 0.1, .touched = true}});
}

} // namespace
} // namespace corvex::engine
