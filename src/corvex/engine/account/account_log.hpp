#pragma once

#include "corvex/engine/account/trip_money.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace corvex::engine::inline v1 {

/// What an account writes down of each session, in money.
enum class AccountColumn : std::uint8_t {
    kCash,
    kLong,
    kShort,
    kEquity,
    kInterest,
    kFinancing,
    kBorrow,
    kDividends,
    kFees,
    kTax,
    kSlippage,
    kImpact,
    kFlows,
    kCurrency, ///< gained by the moves of exchange rates; part of what long and short moved by
    kUnits     ///< money for each unit of the curve
};

inline constexpr std::array<std::string_view, 15> kAccountColumnNames{
    "cash", "long", "short",    "equity", "interest", "financing", "borrow", "dividends",
    "fees", "tax",  "slippage", "impact", "flows",    "currency",  "units"};

enum class BookingKind : std::uint8_t { kBorrow, kDividend, kSplit };

/// What single assets paid or cost beside trades, one entry of each column for each booking.
struct Bookings {
    std::vector<std::int32_t> session;
    std::vector<std::int32_t> asset;
    std::vector<BookingKind> kind;
    std::vector<double> money;  ///< paid is negative
    std::vector<double> shares; ///< held by then

    [[nodiscard]] bool empty() const { return session.empty(); }
    void reserve(std::size_t count) {
        session.reserve(count);
        asset.reserve(count);
        kind.reserve(count);
        money.reserve(count);
        shares.reserve(count);
    }
    /// Makes room for entries that `put` fills in; returns the place of the first.
    std::size_t extend(std::size_t count) {
        const std::size_t first = session.size();
        session.resize(first + count);
        asset.resize(first + count);
        kind.resize(first + count);
        money.resize(first + count);
        shares.resize(first + count);
        return first;
    }
    void put(std::size_t place, std::size_t when, std::size_t whose, BookingKind what,
             double how_much, double held) {
        session[place] = static_cast<std::int32_t>(when);
        asset[place] = static_cast<std::int32_t>(whose);
        kind[place] = what;
        money[place] = how_much;
        shares[place] = held;
    }
    void add(std::size_t when, std::size_t whose, BookingKind what, double how_much, double held) {
        put(extend(1), when, whose, what, how_much, held);
    }
};

/// How often orders were cut for one reason, and where first.
struct CutCount {
    std::int64_t count = 0;
    std::int64_t session = -1;
    std::int64_t asset = -1;
};

/// What an account run hands over beside the simulation's own results.
struct AccountResult {
    std::array<std::vector<double>, kAccountColumnNames.size()> columns; ///< by session
    Bookings bookings;
    std::vector<TripMoney> trips;        ///< one for each round trip
    std::array<CutCount, 5> cuts;        ///< in the order of the bits of Cut
    CutCount unknown_volume;             ///< orders that waited for a volume
    CutCount unpaid;                     ///< rebalances that cost more than the equity
    std::int64_t overdrawn_session = -1; ///< whose withdrawal left nothing
};

/// The figures of the session that is under way.
class AccountLog {
  public:
    void add(AccountColumn column, double money) {
        today_[static_cast<std::size_t>(column)] += money;
    }
    [[nodiscard]] double get(AccountColumn column) const {
        return today_[static_cast<std::size_t>(column)];
    }
    /// Writes the session down and begins another.
    void end_session(AccountResult& result) {
        for (std::size_t k = 0; k < today_.size(); ++k) {
            result.columns[k].push_back(today_[k]);
        }
        today_ = {};
    }

  private:
    std::array<double, kAccountColumnNames.size()> today_{};
};

} // namespace corvex::engine::inline v1
