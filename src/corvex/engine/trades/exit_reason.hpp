#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace corvex::engine::inline v1 {

/// Why a round trip ended, or is about to.
enum class ExitReason : std::int8_t {
    kOpen,
    kRebalance,
    kStopLoss,
    kTakeProfit,
    kTrailStop,
    kPricesEnded,
    kRuin,
    kMargin
};

/// The names of the reasons, in the order of the enumeration; that of an open trip is empty.
inline constexpr std::array<std::string_view, 8> kExitReasonNames{
    "", "rebalance", "stop_loss", "take_profit", "trail_stop", "prices_ended", "ruin", "margin"};

} // namespace corvex::engine::inline v1
