#include "corvex/engine/portfolio/rebalance_solver.hpp"
#include "corvex/engine/portfolio/row_rebalance.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace corvex::engine {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kFee = 0.01;
constexpr double kTax = 0.05;

struct Asset {
    double held; ///< value
    double weight;
    double price = 1.0;
};

struct Solved {
    double equity;
    RebalanceSolver::Trades trades;
    std::vector<double> shares;
};

/// Solves from an equity of 1; what is stuck is left out of the shares.
Solved solve(const Costs& costs, const std::vector<Asset>& assets,
             const std::vector<Asset>& stuck = {}) {
    RebalanceSolver solver{costs, assets.size()};
    solver.clear();
    for (const Asset& asset : assets) {
        solver.add(asset.held, asset.price, asset.weight);
    }
    for (const Asset& asset : stuck) {
        solver.add_stuck(asset.held, asset.weight);
    }
    Solved solved{solver.solve(1.0), solver.trade(), {}};
    for (std::size_t k = 0; k < assets.size(); ++k) {
        solved.shares.push_back(solver.shares(k));
    }
    return solved;
}

TEST(RebalanceSolver, PaysTheCostsOutOfWhatItInvests) {
    const Costs costs{.fee = kFee, .tax = kTax};
    const Solved bought = solve(costs, {{.held = 0, .weight = 1, .price = 50}});
    EXPECT_NEAR(bought.equity, 1 / 1.01, 1e-15);
    EXPECT_NEAR(bought.shares[0], 1 / 1.01 / 50, 1e-15);
    EXPECT_EQ(bought.trades.sold, 0.0);
    EXPECT_EQ(bought.trades.cash, 0.0);

    const Solved sold = solve(costs, {{.held = 1, .weight = 0}});
    EXPECT_NEAR(sold.equity, 1 - kFee - kTax, 1e-15);
    EXPECT_EQ(sold.shares[0], 0.0);
    EXPECT_NEAR(sold.trades.cash, sold.equity, 1e-15);

    const Solved shorted = solve(costs, {{.held = 0, .weight = -0.5, .price = 2}});
    EXPECT_NEAR(shorted.equity, 1 / (1 + 0.5 * (kFee + kTax)), 1e-15);
    EXPECT_NEAR(shorted.shares[0], -shorted.equity / 4, 1e-15);
    EXPECT_NEAR(shorted.trades.cash, 1.5 * shorted.equity, 1e-15);
}

TEST(RebalanceSolver, SellsWhatTheCostsOfTheOthersMakeTooLarge) {
    // At the equity before costs the first asset is as it should be; after them it is too large.
    const Solved solved = solve({.fee = kFee, .tax = kTax}, {{0.5, 0.5}, {0.0, 0.5}});
    const double sell = kFee + kTax;
    EXPECT_NEAR(solved.equity, (1 - 0.5 * sell) / (1 + 0.5 * kFee - 0.5 * sell), 1e-15);
    EXPECT_NEAR(solved.trades.sold, 0.5 - 0.5 * solved.equity, 1e-15);
    EXPECT_NEAR(solved.trades.bought, 0.5 * solved.equity, 1e-15);
}

TEST(RebalanceSolver, KeepsCashAboveZeroBesideWhatCannotBeSold) {
    const Solved part = solve({}, {{0, 0.75}, {0, 0.25}}, {{.held = 0.8, .weight = 0}});
    EXPECT_NEAR(part.shares[0], 0.15, 1e-15);
    EXPECT_NEAR(part.shares[1], 0.05, 1e-15);
    EXPECT_NEAR(part.trades.cash, 0, 1e-15);
    EXPECT_EQ(solve({}, {{0, 1}}, {{.held = 1, .weight = 0}}).shares[0], 0.0);
    // Of what a short brings in, nothing is lost; a debt that the weights plan is no shortage.
    EXPECT_NEAR(solve({}, {{0, 1}, {0, -0.5}}, {{1, 0}}).shares[0], 0.5, 1e-15);
    EXPECT_EQ(solve({}, {{0, 1}}, {{.held = 0.5, .weight = 0.5}}).shares[0], 1.0);
    const Solved paid = solve({.fee = kFee}, {{0, 1}}, {{.held = 0.5, .weight = 0}});
    EXPECT_NEAR(paid.shares[0], 0.5 / (1 + kFee), 1e-15);
    EXPECT_NEAR(paid.trades.cash, 0, 1e-15);
}

TEST(RebalanceSolver, LeavesNothingWhereTheCostsTakeAll) {
    EXPECT_EQ(solve({.fee = 0.5}, {{.held = -3, .weight = -0.9}}).equity, 0.0);
    EXPECT_EQ(solve({.fee = 0.9, .slippage = 0.9}, {{-3, -0.9}, {4, 0}}).equity, 0.0);
}

/// A row in which most assets are held, wanted, both, or neither, on either side.
struct RandomRow {
    explicit RandomRow(std::size_t assets, std::mt19937_64& draw)
        : shares(assets), prices(assets), weights(assets) {
        std::uniform_real_distribution<double> from{0.0, 1.0};
        const bool shorts = from(draw) < 0.5;
        for (std::size_t k = 0; k < assets; ++k) {
            prices[k] = 1 + 99 * from(draw);
            const double side = shorts && from(draw) < 0.3 ? -1.0 : 1.0;
            const double kept = shorts && from(draw) < 0.3 ? -1.0 : 1.0;
            const auto count = static_cast<double>(assets);
            weights[k] = from(draw) < 0.3 ? 0.0 : side * from(draw) / count;
            shares[k] = from(draw) < 0.3 ? 0.0 : kept * from(draw) / count / prices[k];
        }
    }
    [[nodiscard]] RowRebalance::Row row() const { return {shares, prices, weights}; }

    std::vector<double> shares;
    std::vector<double> prices;
    std::vector<double> weights;
};

void expect_same(const RandomRow& random, RowRebalance& quick, RebalanceSolver& solver) {
    solver.clear();
    double value = 0.0;
    for (std::size_t k = 0; k < random.shares.size(); ++k) {
        solver.add(random.shares[k] * random.prices[k], random.prices[k], random.weights[k]);
        value += random.shares[k] * random.prices[k];
    }
    EXPECT_NEAR(quick.read(random.row()).value, value, 1e-14);
    const double before = 0.5 + value;
    const double equity = solver.solve(before);
    const RebalanceSolver::Trades trades = solver.trade();
    const RowRebalance::Solution solution = quick.solve(random.row(), before);
    EXPECT_NEAR(solution.equity, equity, 1e-14);
    if (equity == 0.0) {
        return;
    }
    EXPECT_NEAR(solution.trades.bought, trades.bought, 1e-14);
    EXPECT_NEAR(solution.trades.sold, trades.sold, 1e-14);
    EXPECT_NEAR(solution.trades.cash, trades.cash, 1e-14);
    std::vector<std::uint32_t> turned;
    for (std::size_t k = 0; k < random.shares.size(); ++k) {
        EXPECT_NEAR(quick.shares()[k], solver.shares(k), 1e-15);
        const auto sign = [](double held) { return (held > 0.0) - (held < 0.0); };
        if (sign(random.shares[k]) != sign(solver.shares(k))) {
            turned.push_back(static_cast<std::uint32_t>(k));
        }
    }
    EXPECT_EQ(quick.turned(), turned);
}

TEST(RowRebalance, IsTheSolverWhereAllCanBeTraded) {
    std::mt19937_64 draw{5};
    for (std::size_t assets = 1; assets < 14; ++assets) {
        for (const Costs& costs : {Costs{}, Costs{.fee = 0.001, .tax = 0.003, .slippage = 0.002},
                                   Costs{.fee = 0.2, .tax = 0.3}}) {
            RowRebalance quick{costs, assets}; // remembers the costs of the rebalance before
            RebalanceSolver solver{costs, assets};
            for (int repeat = 0; repeat < 20; ++repeat) {
                expect_same(RandomRow{assets, draw}, quick, solver);
            }
        }
    }
}

TEST(RowRebalance, MissesPricesOfWhatIsHeldOrWantedAlone) {
    const std::vector<double> shares{0, 2, 0, 0, 0};
    const std::vector<double> weights{1, 0, 0, 0, 0};
    for (const double bad : {kNaN, 0.0, -1.0, std::numeric_limits<double>::infinity()}) {
        for (std::size_t place = 0; place < shares.size(); ++place) {
            std::vector<double> prices{3, 4, 5, 6, 7};
            prices[place] = bad;
            RowRebalance quick{{}, shares.size()};
            const RowRebalance::Sums sums = quick.read({shares, prices, weights});
            EXPECT_EQ(std::isnan(sums.value), place < 2) << place;
            EXPECT_EQ(sums.weight, 1.0);
        }
    }
}

TEST(RowRebalance, KeepsToSharesThatANumberHolds) {
    const auto turned = [](double shares, double price, double weight) {
        const std::vector<double> held{shares};
        const std::vector<double> prices{price};
        const std::vector<double> weights{weight};
        RowRebalance quick{{}, 1};
        quick.solve({held, prices, weights}, 1.0 + quick.read({held, prices, weights}).value);
        return quick.turned().size();
    };
    constexpr double kSmallest = std::numeric_limits<double>::denorm_min();
    EXPECT_THROW(turned(0.0, kSmallest, 1.0), std::invalid_argument);
    EXPECT_THROW(turned(0.1, kSmallest, -1.0), std::invalid_argument);
    EXPECT_EQ(turned(1e160, 1e-160, 1.0), 0U);  // though the product of the shares is infinite
    EXPECT_EQ(turned(1e-170, 1.0, 1e-170), 0U); // or zero
    EXPECT_EQ(turned(1e-170, 1.0, -1e-170), 1U);
}

} // namespace
} // namespace corvex::engine
