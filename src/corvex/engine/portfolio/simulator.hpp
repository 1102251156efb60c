#pragma once

#include "corvex/engine/account/account.hpp"
#include "corvex/engine/portfolio/asset_set.hpp"
#include "corvex/engine/portfolio/book.hpp"
#include "corvex/engine/portfolio/cooldowns.hpp"
#include "corvex/engine/portfolio/fill_log.hpp"
#include "corvex/engine/portfolio/pending_exits.hpp"
#include "corvex/engine/portfolio/rebalance_solver.hpp"
#include "corvex/engine/portfolio/result.hpp"
#include "corvex/engine/portfolio/row_rebalance.hpp"
#include "corvex/engine/portfolio/simulation_input.hpp"
#include "corvex/engine/portfolio/stop_monitor.hpp"
#include "corvex/engine/portfolio/waiting_orders.hpp"
#include "corvex/engine/trades/excursion.hpp"
#include "corvex/engine/trades/trade_log.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// One run of a simulation of target weights, starting from an equity of 1.
///
/// A session goes through these steps:
///  0. An account, where one is kept, accrues, splits and pays dividends.
///  1. Assets whose prices ended in the session before are closed at that last price.
///  2. Touched stops fill, unless orders fill at the open.
///  3. Orders fill: exits of stops that fired on the last close, then the rebalance whose signal
///     came in the session before, or else orders that have waited for a price.
///  4. Touched stops fill, when orders fill at the open.
///  5. Holdings are marked at the close; stops on closes fire; equity at or below zero is ruin.
/// When orders fill at the close, a stop looks at the close before the orders fill, so a new
/// position is first checked one session later.
///
/// A stop and an order that fill at one price in one session are netted: both round trips are
/// there, and costs are paid on what is truly traded.
class Simulator {
  public:
    explicit Simulator(const SimulationInput& input);

    /// Goes through the sessions before `end`, from where it stands.
    void advance(std::size_t end);
    /// What came of it, once all sessions are done.
    SimulationResult finish();

  private:
    /// What one fill does to a position.
    struct Change {
        std::size_t asset;
        std::size_t session;
        double price; ///< in the currency of the account
        double weight;
        double shares_before; ///< of the round trip that is open, 0 = none
        ExitCause cause;      ///< of the exit, when the fill is one
        bool touched = false;
    };

    // Sessions in which nothing but prices moves (simulator.cpp).
    [[nodiscard]] std::size_t quiet_until(std::size_t session, std::size_t end) const;
    std::size_t hold(std::size_t session, std::size_t end);

    // The steps of a session (simulator.cpp).
    void run_session(std::size_t session);
    void follow_splits(std::size_t session);
    void close_ended(std::size_t session);
    void fill_orders(std::size_t session);
    void fire_stops(std::size_t session);
    [[nodiscard]] bool stops_before_fills() const;
    [[nodiscard]] std::size_t stop_block_end(std::size_t session) const;
    [[nodiscard]] bool rebalance_is_due(std::size_t session) const;
    void write_down(std::size_t session);
    void write_position(std::size_t session);
    void ruin(std::size_t session);
    void signal_beyond_table();
    void signal_order(std::size_t asset, std::int64_t rebalance, double weight);

    // Exits of single positions (simulator_exits.cpp).
    void fill_fired_stops(std::size_t session);
    void fill_touched_stops(std::size_t session);
    void exit_position(std::size_t asset, std::size_t session, double price, const ExitCause& cause,
                       bool touched = false);
    void leave_to_order(std::size_t asset, std::size_t session, double price,
                        const ExitCause& cause, bool touched = false);
    void sell_left_over(std::size_t session);
    void undo_order(std::size_t asset, std::size_t session, double price);

    // Orders (simulator_orders.cpp).
    void rebalance(std::int64_t row, std::size_t session);
    double collect_rebalance(std::span<const double> weights, std::size_t session);
    void apply_rebalance(std::int64_t row, std::size_t session);
    bool rebalance_row(std::int64_t row, std::span<const double> weights, std::size_t session);
    [[nodiscard]] bool can_trade_rows(std::size_t session) const;
    void fill_waiting(std::size_t session);
    /// Returns the costs paid.
    double trade_waiting(std::size_t asset, std::size_t session, double equity);
    [[nodiscard]] double waiting_change(double held, double weight, double equity) const;
    [[nodiscard]] double equity_at_fill(std::size_t session) const;
    void keep_shares_before_orders(std::size_t session);
    double round_trip_shares(std::size_t asset);

    // Runs that keep an account (simulator_account.cpp).
    void rebalance_account(std::int64_t row, std::span<const double> weights, std::size_t session);
    double collect_wanted(std::span<const double> weights, std::size_t session);
    void want_within_bands(double equity, std::size_t session);
    void fill_waiting_account(std::vector<std::uint32_t> ready, std::size_t session);
    void trade_waiting_account(std::size_t asset, std::size_t session, double equity);
    void place(std::int64_t row, std::size_t session, double equity);
    void cut_to_cash(std::size_t session, double equity);
    void round_down_to_cash(std::size_t session, double floor);
    [[nodiscard]] double outlay(const Account::Wanted& wanted, std::size_t session,
                                double share) const;
    [[nodiscard]] double affordable_share(std::size_t session, double floor, double equity) const;
    [[nodiscard]] double cash_after(std::size_t session, double share) const;
    void trade_wanted(const Account::Wanted& wanted, std::int64_t row, std::size_t session);
    void settle(std::size_t asset, double after, double price, std::size_t session);
    void exit_account(std::size_t asset, std::size_t session, double price, const ExitCause& cause,
                      bool touched);
    void cut_for_margin(std::size_t session);
    void undo_settled(std::size_t asset, std::size_t session);
    /// Whether a stop and an order of one session are netted: not where orders may not fill.
    [[nodiscard]] bool nets_orders() const {
        return account_ == nullptr || !account_->limits_orders();
    }
    /// A price of the money as the asset is quoted.
    [[nodiscard]] double quoted(std::size_t asset, std::size_t session, double price) const {
        return account_ == nullptr ? price : account_->currencies().quoted(asset, session, price);
    }
    [[nodiscard]] double rate(std::size_t asset, std::size_t session) const {
        return account_ == nullptr ? 1.0 : account_->currencies().rate(asset, session);
    }

    // Round trips (simulator_orders.cpp).
    void position_changed(const Change& change);
    void position_ended(const Change& change);
    void close_round_trip(const Change& change);
    void open_round_trip(const Change& change);

    [[nodiscard]] double fill_price(std::size_t asset, std::size_t session) const {
        const double price = prices_.fill().at(session, asset);
        const bool listed = static_cast<std::int64_t>(session) <= in_.prices.last_priced(asset);
        return listed && is_tradable(price) ? price : std::numeric_limits<double>::quiet_NaN();
    }
    [[nodiscard]] double fill_value_price(std::size_t asset, std::size_t session) const;
    [[nodiscard]] std::size_t offset(std::size_t session) const {
        return session - in_.plan.first_session;
    }
    [[nodiscard]] bool fills_at(FillAt when) const { return in_.prices.fills_at(when); }

    const SimulationInput& in_;
    std::size_t assets_;
    std::unique_ptr<Account> account_; ///< nullptr = none is kept
    const PriceSet& prices_;           ///< that money is counted by
    Book book_;
    RebalanceSolver solver_;
    RowRebalance row_solver_;
    StopMonitor stops_;
    Cooldowns cooldowns_;
    WaitingOrders waiting_;
    PendingExits pending_;
    ExcursionTracker excursions_;
    TradeLog log_;
    FillLog fills_;
    SimulationResult out_;
    CostTotals paid_; ///< in the current session

    std::size_t session_; ///< that comes next
    std::size_t next_rebalance_ = 0;
    std::size_t ends_done_ = 0; ///< assets that have been closed for want of further prices

    std::vector<std::uint32_t> tradable_; ///< assets in the order in which the solver has them
    std::vector<double> shares_before_;   ///< of the assets whose holding a row turns
    double total_weight_ = 0.0;           ///< of the last rebalance
    std::vector<Account::Wanted> wanted_; ///< of the orders that an account is to place
    std::vector<Account::Wanted> sales_;  ///< those of them that sell
    std::vector<std::int8_t> rest_side_;  ///< of what is left of an order: 1 buys, -1 sells, 0 both
    /// Assets whose round trip has ended, and whose shares an order of this session takes over.
    AssetSet leaving_;
    /// What was held before the orders of a session that fill at the open.
    std::vector<double> shares_before_orders_;
    std::int64_t orders_session_ = -1;
    std::vector<std::uint32_t> exiting_;
    std::vector<FiredStop> fired_;
    std::vector<TouchedStop> touched_;
    bool out_of_equity_ = false; ///< an order met equity at or below zero
};

/// Runs a simulation.
/// @throws std::invalid_argument as validate() does.
SimulationResult simulate(const SimulationInput& input);

} // namespace corvex::engine::inline v1
