#include "corvex/core/report/json_encoder.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

nb::object encode_default(const Call& call) {
    const nb::handle value = call[1];
    if (pyglue::is_instance(value, global("np").attr("int64"))) {
        return global("int")(value);
    }
    return call.super().attr("default")(value);
}

constexpr Parameter kDefault[] = {{"self"}, {"obj"}};

const FunctionSpec kMethods[] = {
    {"default", kDefault, encode_default,
     "An int for a numpy int64; anything else as the base class does."},
};

} // namespace

nb::object make_encoder_class(const nb::dict& globals) {
    return pyglue::ClassBuilder("CustomEncoder",
                                "Deprecated: prefer default_serialize from dashboard module.",
                                globals)
        .base(global("json").attr("JSONEncoder"))
        .methods(kMethods)
        .build();
}

} // namespace corvex::report
