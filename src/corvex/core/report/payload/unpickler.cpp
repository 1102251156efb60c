#include "corvex/core/report/payload/unpickler.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/class_builder.hpp"

#include <array>
#include <span>
#include <utility>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

using Rename = std::pair<const char*, const char*>;

constexpr std::array<Rename, 1> kModules{{{"corvex.market_info", "corvex.markets.tw"}}};
constexpr std::array<Rename, 1> kClasses{{{"TWMarketInfo", "TWMarket"}}};

nb::object renamed(nb::handle name, std::span<const Rename> table) {
    for (const auto& [old_name, current] : table) {
        if (pyglue::is_text_equal(name, old_name)) {
            return pyglue::text(current);
        }
    }
    return nb::borrow<nb::object>(name);
}

void print_pair(const char* first_label, nb::handle first, const char* second_label,
                nb::handle second) {
    global("print")(pyglue::concat({pyglue::text(first_label), pyglue::to_text(first),
                                    pyglue::text(second_label), pyglue::to_text(second)}));
}

nb::object find_class(const Call& call) {
    const nb::handle module = call[1];
    const nb::handle name = call[2];
    const nb::object mapped_module = renamed(module, kModules);
    const nb::object mapped_name = renamed(name, kClasses);
    try {
        return call.super().attr("find_class")(mapped_module, mapped_name);
    } catch (nb::python_error& error) {
        if (error.matches(PyExc_Exception)) {
            print_pair("Error finding class: module=", module, ", name=", name);
            print_pair("Mapped module: ", mapped_module, ", Mapped name: ", mapped_name);
        }
        throw;
    }
}

constexpr Parameter kFindClass[] = {{"self"}, {"module"}, {"name"}};

const FunctionSpec kMethods[] = {
    {"find_class", kFindClass, find_class,
     "The class or function a file names, at its present place. Prints what was looked for when "
     "it\n"
     "cannot be found, and lets the error through."},
};

} // namespace

nb::object make_unpickler_class(const nb::dict& globals) {
    return pyglue::ClassBuilder("CustomUnpickler",
                                "Reads reports saved by this and older versions.", globals)
        .base(global("pickle").attr("Unpickler"))
        .methods(kMethods)
        .build();
}

} // namespace corvex::report
