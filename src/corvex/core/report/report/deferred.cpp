#include "corvex/core/report/report/deferred.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <nanobind/stl/string_view.h>

#include <string_view>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

/// The dictionary as it is, with what is deferred still missing.
nb::object own_attributes(nb::handle report) {
    auto attributes = nb::steal<nb::object>(PyObject_GenericGetDict(report.ptr(), nullptr));
    if (!attributes.is_valid()) {
        throw nb::python_error();
    }
    return attributes;
}

nb::object maker_in(nb::handle attributes) {
    return attributes.attr("get")(pyglue::text("_deferred"));
}

void replace_attributes(nb::handle report, nb::handle attributes) {
    if (PyObject_GenericSetDict(report.ptr(), attributes.ptr(), nullptr) != 0) {
        throw nb::python_error();
    }
}

/// The dictionary with everything in it. It is changed for a whole one at a stroke: other threads
/// that read the report always find one or the other.
nb::object all_attributes(nb::handle report) {
    const nb::object attributes = own_attributes(report);
    const nb::object make = maker_in(attributes);
    if (make.is_none()) {
        return attributes;
    }
    const nb::object whole = make(attributes, nb::none());
    nb::object current = own_attributes(report);
    if (!current.is(attributes)) { // another thread was faster
        return current;
    }
    replace_attributes(report, whole);
    return whole;
}

/// Whether a report has an attribute only where its run kept an account.
bool is_of_an_account(nb::handle name) {
    const std::string_view text = nb::cast<std::string_view>(name);
    return text == "account" || text == "bookings" || text == "fx";
}

/// Called for what the usual look-up does not find; that look-up also words the refusal.
nb::object get_attribute(const Call& call) {
    const nb::object attributes = own_attributes(call.self());
    const nb::object make = maker_in(attributes);
    if (!make.is_none()) {
        make(attributes, call[1]);
    }
    auto found = nb::steal<nb::object>(PyObject_GenericGetAttr(call.self().ptr(), call[1].ptr()));
    if (!found.is_valid()) {
        nb::python_error error; // clears it
        if (error.matches(PyExc_AttributeError) && is_of_an_account(call[1])) {
            return nb::none();
        }
        throw error;
    }
    return found;
}

nb::object get_dictionary(const Call& call) { return all_attributes(call.self()); }

nb::object set_dictionary(const Call& call) {
    replace_attributes(call.self(), call[1]);
    return nb::none();
}

nb::object get_state(const Call& call) {
    all_attributes(call.self());
    return pyglue::builtin("object").attr("__getstate__")(call.self());
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kName[] = {{"self"}, {"name"}};
constexpr Parameter kValue[] = {{"self"}, {"value"}};

const FunctionSpec kGetDictionary{"__dict__", kSelf, get_dictionary, "The report's attributes."};
const FunctionSpec kSetDictionary{"__dict__", kValue, set_dictionary};
const FunctionSpec kMethods[] = {
    {"__getattr__", kName, get_attribute},
    {"__getstate__", kSelf, get_state},
};

} // namespace

nb::object deferred_fact(nb::handle report, const char* name) {
    const nb::object attributes = own_attributes(report);
    const nb::object make = maker_in(attributes);
    const nb::object fact = pyglue::attribute_or(make, "fact", nb::none());
    return fact.is_none() ? nb::none() : fact(attributes, pyglue::text(name));
}

void add_deferred_attributes(pyglue::ClassBuilder& builder) {
    builder.methods(kMethods);
    builder.member("__dict__", pyglue::builtin("property")(builder.function(kGetDictionary),
                                                           builder.function(kSetDictionary)));
}

} // namespace corvex::report
