#pragma once

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

/// A numpy number as Python's own, which json can write; anything else as it is.
inline nb::object plain_number(nb::handle value) {
    return pyglue::is_instance(value, global("np").attr("generic")) ? value.attr("item")()
                                                                    : nb::borrow<nb::object>(value);
}

} // namespace corvex::report
