#include "corvex/core/report/execution/actions.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace corvex::report {

namespace {

namespace nb = nanobind;

using Pair = std::pair<const char*, const char*>;

/// In memory on the left, in position records on the right.
constexpr std::array<Pair, 5> kWritten{{
    {"enter", "entry"},
    {"sl", "exit_sl"},
    {"tp", "exit_tp"},
    {"sl_", "exit_sl_"},
    {"tp_", "exit_tp_"},
}};

/// Read as well: an entry on a future date, and exits that lie in the past, whatever their reason.
constexpr std::array<Pair, 5> kReadOnly{{
    {"enter", "entry_f"},
    {"exit_p", "exit_p_sl"},
    {"exit_p", "exit_p_tp"},
    {"exit_p", "exit_p_sl_"},
    {"exit_p", "exit_p_tp_"},
}};

const char* in_memory(std::span<const Pair> table, nb::handle stored) {
    const auto found = std::ranges::find_if(
        table, [&](const Pair& pair) { return pyglue::is_text_equal(stored, pair.second); });
    return found == table.end() ? nullptr : found->first;
}

} // namespace

nb::object position_action(nb::handle action) {
    for (const auto& [known, stored] : kWritten) {
        if (pyglue::is_text_equal(action, known)) {
            return pyglue::text(stored);
        }
    }
    return nb::borrow<nb::object>(action);
}

nb::object parsed_action(nb::handle stored) {
    if (!pyglue::is_text(stored) || pyglue::length(stored) == 0) {
        return pyglue::text("_");
    }
    for (const std::span<const Pair> table :
         {std::span<const Pair>(kWritten), std::span<const Pair>(kReadOnly)}) {
        if (const char* const action = in_memory(table, stored); action != nullptr) {
            return pyglue::text(action);
        }
    }
    return nb::borrow<nb::object>(stored);
}

} // namespace corvex::report
