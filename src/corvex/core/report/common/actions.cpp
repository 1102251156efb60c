#include "corvex/core/report/common/actions.hpp"

#include <algorithm>
#include <array>
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

} // namespace

bool is_stop(nb::handle action) {
    return std::ranges::any_of(
        kStops, [&](const char* label) { return pyglue::is_text_equal(action, label); });
}

bool is_past_exit(nb::handle action) {
    return pyglue::is_text(action) &&
           pyglue::is_true(action.attr("startswith")(pyglue::text("exit_p")));
}

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
    for (const auto& [action, written] : kWritten) {
        if (pyglue::is_text_equal(stored, written)) {
            return pyglue::text(action);
        }
    }
    return nb::borrow<nb::object>(stored);
}

} // namespace corvex::report
