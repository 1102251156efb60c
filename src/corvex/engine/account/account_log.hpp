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

/// What one asset paid or cost beside trades, in money; paid is negative.
struct Booking {
    std::int32_t session;
    std::int32_t asset;
    BookingKind kind;
    double money;
    double shares; ///< held by then
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
    std::vector<Booking> bookings;
    std::vector<TripMoney> trips;        ///< one for each round trip
    std::array<CutCount, 5> cuts;        ///< in the order of the bits of Cut
    CutCount unknown_volume;             ///< orders that waited for a volume
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
