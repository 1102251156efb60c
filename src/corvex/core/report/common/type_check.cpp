#include "corvex/core/report/common/type_check.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

using pyglue::concat;
using pyglue::text;

void require_execution(nb::handle value, const nb::object& where, const char* accepted) {
    if (!pyglue::is_instance(value, global("ReportExecution"))) {
        pyglue::raise(PyExc_ValueError, concat({where, text(" should be "), text(accepted),
                                                text(", got "), pyglue::formatted(value.type())}));
    }
}

nb::object execution_item(nb::handle key) {
    return concat({text("execution["), pyglue::formatted(key), text("]")});
}

} // namespace corvex::report
