#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// What a current trade is to the next rebalance, by its signal dates against the last date of the
/// curve: "entry" (signalled last), "entry_f" (signalled for a future date), "hold", "exit"
/// (signalled last or for a future date), "exit_p" (signalled in the past). An order of the past
/// that has not been filled yet still counts. nullptr for a trade without an entry signal.
const char* trade_type(nanobind::handle entry_signal, nanobind::handle exit_signal, bool entered,
                       bool left, nanobind::handle last_date);

} // namespace corvex::report
