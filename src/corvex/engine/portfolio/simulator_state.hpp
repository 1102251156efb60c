#pragma once

#include "corvex/engine/portfolio/book.hpp"
#include "corvex/engine/portfolio/fill_log.hpp"
#include "corvex/engine/portfolio/rebalance_solver.hpp"
#include "corvex/engine/portfolio/result.hpp"
#include "corvex/engine/portfolio/settings.hpp"
#include "corvex/engine/portfolio/stop_monitor.hpp"
#include "corvex/engine/trades/excursion.hpp"
#include "corvex/engine/trades/trade_log.hpp"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvex::engine::portfolio {

/// Whether two holdings are on the same side of the market.
inline bool same_side(double a, double b) { return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0); }

/// One run of a simulation; see simulate() for the order of its steps.
class Simulator {
  public:
    explicit Simulator(const SimulationInput& input);

    SimulationResult run();

  private:
    /// What one fill does to a position.
    struct Change {
        std::size_t asset;
        std::size_t session;
        double price; ///< quoted
        double weight;
        double shares_before;
        trades::ExitCause cause; ///< of the exit, when the fill is one
        bool touched = false;
    };

    // The steps of a session (simulator.cpp).
    void run_session(std::size_t session);
    void close_ended(std::size_t session);
    void fill_orders(std::size_t session);
    void fill_touched_stops(std::size_t session);
    void fire_stops(std::size_t session);
    [[nodiscard]] bool stops_before_fills() const;
    [[nodiscard]] std::size_t stop_block_end(std::size_t session) const;
    void write_down(std::size_t session);
    void ruin(std::size_t session);
    void finish();
    void signal_beyond_table();
    void signal_order(std::size_t asset, std::int64_t rebalance);

    // Orders (simulator_orders.cpp).
    void fill_fired_stops(std::size_t session);
    void rebalance(std::int64_t row, std::size_t session);
    double collect_rebalance(const double* weights, std::size_t session);
    void apply_rebalance(std::int64_t row, std::size_t session);
    void exit_position(std::size_t asset, std::size_t session, double price,
                       const trades::ExitCause& cause, bool touched = false);
    void position_changed(const Change& change);
    void close_round_trip(const Change& change);
    void open_round_trip(const Change& change);

    // Orders that wait for a price (simulator_waiting.cpp).
    void cancel_all_waiting();
    void cancel_waiting(std::size_t asset);
    void fill_waiting(std::size_t session);
    /// Returns the costs paid.
    double trade_waiting(std::size_t asset, std::size_t session, double equity);
    [[nodiscard]] double waiting_change(double held, double weight, double equity) const;
    [[nodiscard]] double equity_at_fill(std::size_t session) const;

    [[nodiscard]] double fill_price(std::size_t asset, std::size_t session) const;
    [[nodiscard]] double fill_value_price(std::size_t asset, std::size_t session) const;
    [[nodiscard]] std::size_t offset(std::size_t session) const {
        return session - in_.first_session;
    }
    [[nodiscard]] bool fills_at(FillAt when) const { return in_.fill_at == when; }

    const SimulationInput& in_;
    std::size_t assets_;
    Book book_;
    RebalanceSolver solver_;
    StopMonitor stops_;
    trades::ExcursionTracker excursions_;
    trades::TradeLog log_;
    FillLog fills_;
    SimulationResult out_;
    CostTotals paid_; ///< in the current session

    std::size_t next_rebalance_ = 0;
    std::vector<std::int64_t> last_priced_;
    /// Sessions that close an ended asset, ascending, and how many of them are done.
    std::vector<std::pair<std::int64_t, std::uint32_t>> ends_;
    std::size_t ends_done_ = 0;

    std::vector<std::uint32_t> tradable_; ///< assets in the order in which the solver has them
    std::vector<std::uint32_t> waiting_;  ///< assets whose order waits for a price
    double total_weight_ = 0.0;           ///< of the rebalance that they belong to
    std::vector<std::uint32_t> pending_;  ///< assets whose stop exit waits for its fill
    std::vector<FiredStop> fired_;
    std::vector<TouchedStop> touched_;
    bool out_of_equity_ = false; ///< an order met equity at or below zero
};

} // namespace corvex::engine::portfolio
