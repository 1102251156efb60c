#pragma once

#include "corvex/engine/account/account_log.hpp"
#include "corvex/engine/account/corporate_actions.hpp"
#include "corvex/engine/account/currencies.hpp"
#include "corvex/engine/account/impact.hpp"
#include "corvex/engine/account/liquidity.hpp"
#include "corvex/engine/account/order_costs.hpp"
#include "corvex/engine/account/target_solver.hpp"
#include "corvex/engine/account/terms.hpp"
#include "corvex/engine/account/trip_money.hpp"
#include "corvex/engine/portfolio/book.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace corvex::engine::inline v1 {

/// The money around the holdings of one run, as a broker keeps it.
///
/// The simulator tells it of each session's beginning and end and of each order; it answers what
/// an order may trade and costs. Sessions come in order, each once.
class Account {
  public:
    /// The prices and the terms outlive it.
    Account(const AccountTerms& terms, const PriceSet& prices, const Costs& otherwise,
            std::size_t first_session);

    // A session's beginning and end (account_sessions.cpp).

    /// What was accrued since the close before, flows, splits and dividends.
    void begin(Book& book, std::size_t session);
    /// The splits of this session: what is counted for a share changes by them.
    [[nodiscard]] std::span<const AssetEvent> splits_today() const { return splits_today_; }
    /// The first session from here on, this one left out, that has splits.
    [[nodiscard]] std::size_t next_split() const { return due_splits_.next_session(); }
    /// What a close leaves: all of it, and the holdings alone.
    struct Close {
        double equity;
        double value;
    };
    /// Looks at the shorts and writes the session down.
    void end(Book& book, std::size_t session, const Close& close, const CostTotals& paid);
    /// Equity over gross value fell below the margin at the last close.
    [[nodiscard]] bool margin_called() const { return margin_called_; }
    [[nodiscard]] double maintenance_margin() const { return terms_.maintenance_margin; }
    [[nodiscard]] const Currencies& currencies() const { return currencies_; }
    /// Money for each unit of the curve: flows change it, results do not.
    [[nodiscard]] double units() const { return units_; }

    // Orders (account_orders.cpp).

    /// A holding that is wanted, and what comes of it.
    struct Wanted {
        std::uint32_t asset = 0;
        double weight = 0.0;
        double price = 0.0;
        double exact = 0.0; ///< shares
        double after = 0.0; ///< shares
        Cut cut = Cut::kNone;
    };
    struct LastOrder {
        std::int64_t session = -1;
        double before = 0.0;
        double after = 0.0;
        double price = 0.0;
        OrderCost cost{};

        [[nodiscard]] double value() const { return std::abs(after - before) * price; }
    };

    TargetSolver& solver() { return solver_; }
    /// The shares that lots, borrowing, price limits and volume allow to hold; notes the cuts.
    void allow(Wanted& wanted, double held, std::size_t session);
    [[nodiscard]] bool has_bands() const { return !terms_.band.width.empty(); }
    /// The weight that an order goes to: none (NaN) while the holding is within the band.
    [[nodiscard]] double banded_weight(std::size_t asset, std::size_t session, double weight,
                                       double held_weight) const;
    /// What an order costs at this moment.
    [[nodiscard]] OrderCost cost(std::size_t asset, std::size_t session, double shares,
                                 double price) {
        return costs_.of(asset, shares, price, impact_.of_one_share(asset, session),
                         currencies_.rate(asset, session));
    }
    [[nodiscard]] double impact(std::size_t asset, std::size_t session) {
        return impact_.of_one_share(asset, session);
    }
    /// Tells which assets orders are going to trade.
    void prepare_orders(const std::vector<Wanted>& wanted, std::size_t session);
    /// Writes an order down; its cost.
    OrderCost order(std::size_t asset, std::size_t session, double before, double after,
                    double price);
    /// Takes the last order of an asset in this session back; nullptr where there is none.
    const LastOrder* take_back(std::size_t asset, std::size_t session);
    /// Orders may fill in part, or not at all.
    [[nodiscard]] bool limits_orders() const {
        return volume_.active() || !terms_.price_limit.empty();
    }
    [[nodiscard]] bool keeps_rest() const { return !terms_.volume.lapse; }
    [[nodiscard]] double lot(std::size_t asset) const {
        return terms_.lot_size.empty() ? 0.0 : terms_.lot_size.at(0, asset);
    }
    [[nodiscard]] bool rounds_to_nearest() const { return terms_.round_to_nearest; }
    /// Counts a rebalance whose costs would have been more than the equity.
    void note_unpaid(std::size_t session);
    /// Counts a cut; the open round trip remembers it.
    void note_cut(std::size_t asset, std::size_t session, Cut cut, std::int64_t rebalance = -1);

    // Round trips (account_trips.cpp).

    /// The quoted price at which a position opens, slippage and impact in.
    [[nodiscard]] double executed_price(std::size_t asset, std::size_t session, double price,
                                        bool is_long) const;
    void hand_over(std::size_t asset, double shares, double price) {
        trips_.hand_over(asset, shares, price);
    }
    void open_trip(std::size_t asset, std::int64_t rebalance, std::size_t session, double shares);
    /// Ends a round trip at a quoted price; gives its record (nullptr = none is kept) the return.
    void close_trip(std::size_t asset, std::size_t session, double price, RoundTrip* trip);
    void mark_open(std::size_t asset, std::size_t session, double shares, double price,
                   RoundTrip* trip);

    AccountResult finish(const std::vector<RoundTrip>& trips);

  private:
    void accrue(Book& book, std::size_t session);
    void flow(Book& book, std::size_t session);
    void split(Book& book, std::size_t session);
    void convert(std::size_t session);
    void pay_dividends(Book& book, std::size_t session);
    double pay_borrowing(const Book& book, std::size_t session);
    void mark_foreign(Book& book, std::size_t session);
    double mark_shorts(Book& book, std::size_t session);
    [[nodiscard]] double borrow_rate(std::size_t asset, std::size_t session) const;
    [[nodiscard]] bool can_borrow(std::size_t asset, std::size_t session) const;
    [[nodiscard]] bool at_limit(std::size_t asset, std::size_t session, bool buy,
                                double price) const;
    [[nodiscard]] double close_before(std::size_t asset, std::size_t session) const;
    [[nodiscard]] const LastOrder* order_of(std::size_t asset, std::size_t session, bool buy) const;
    [[nodiscard]] double cost_rate(std::size_t asset, std::size_t session, bool buy) const;
    [[nodiscard]] double trip_return(const TripMoney& money, const RoundTrip& trip,
                                     double price_per_first_share, double rate) const;

    /// A holding in another currency, and its value at the last close.
    struct Foreign {
        std::uint32_t asset;
        double value;
    };
    /// A short at the last close, and what a year of it costs.
    struct Borrowed {
        std::uint32_t asset;
        double per_year;
    };

    const AccountTerms& terms_;
    const PriceSet& prices_; ///< quoted
    Currencies currencies_;
    std::size_t first_session_;
    OrderCosts costs_;
    SplitFactors splits_;
    VolumeLimit volume_;
    Impact impact_;
    TargetSolver solver_;
    TripLedger trips_;
    EventQueue<AssetEvent> due_splits_;
    std::span<const AssetEvent> splits_today_;
    std::span<const AssetEvent> dividends_today_;
    EventQueue<AssetEvent> due_dividends_;
    EventQueue<CashEvent> due_flows_;
    AccountLog log_;
    AccountResult result_;
    std::vector<LastOrder> orders_;
    std::vector<std::uint32_t> prepared_;

    double units_;
    double equity_;                ///< money at the last close
    double free_;                  ///< cash at the last close without the value of the shorts
    double rebate_per_year_ = 0.0; ///< of the shorts at the last close
    bool traded_ = false;          ///< since the shorts were listed
    std::vector<std::uint32_t> sold_short_;
    bool has_longs_ = false;
    std::vector<Borrowed> borrowed_;
    std::vector<Foreign> foreign_;
    bool margin_called_ = false;
};

inline OrderCost Account::order(std::size_t asset, std::size_t session, double before, double after,
                                double price) {
    const OrderCost paid = cost(asset, session, after - before, price);
    traded_ = true;
    orders_[asset] = {static_cast<std::int64_t>(session), before, after, price, paid};
    log_.add(AccountColumn::kImpact, paid.impact);
    volume_.take(asset, session, std::abs(after - before));
    trips_.traded(asset, before, after, price, paid.total());
    return paid;
}

} // namespace corvex::engine::inline v1
