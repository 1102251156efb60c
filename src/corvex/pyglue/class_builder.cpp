#include "corvex/pyglue/class_builder.hpp"

#include <string>

namespace corvex::pyglue {

namespace {

nb::object type_object(PyTypeObject& type) {
    return nb::borrow<nb::object>(reinterpret_cast<PyObject*>(&type));
}

nb::object wrapped(Binding binding, const nb::object& function) {
    switch (binding) {
    case Binding::kStaticMethod:
        return type_object(PyStaticMethod_Type)(function);
    case Binding::kClassMethod:
        return type_object(PyClassMethod_Type)(function);
    case Binding::kFunction:
        break;
    }
    return function;
}

} // namespace

ClassBuilder::ClassBuilder(const char* name, const char* doc, nb::dict globals)
    : name_(name), globals_(std::move(globals)) {
    namespace_["__module__"] = globals_["__name__"];
    namespace_["__qualname__"] = text(name);
    if (doc != nullptr) {
        namespace_["__doc__"] = text(doc);
    }
}

ClassBuilder& ClassBuilder::base(nb::object type) {
    bases_.append(type);
    return *this;
}

nb::object ClassBuilder::function(const FunctionSpec& spec) const {
    return make_function(spec, globals_, (std::string(name_) + ".").c_str());
}

ClassBuilder& ClassBuilder::methods(std::span<const FunctionSpec> specs) {
    for (const FunctionSpec& spec : specs) {
        member(spec.name, wrapped(spec.binding, function(spec)));
    }
    return *this;
}

ClassBuilder& ClassBuilder::member(const char* name, nb::handle value) {
    namespace_[name] = value;
    return *this;
}

nb::object ClassBuilder::build() {
    const nb::object built = type_object(PyType_Type)(text(name_), nb::tuple(bases_), namespace_);
    for_each(namespace_.values(), [&](const nb::object& value) {
        set_owner(value, built);
        return true;
    });
    return built;
}

} // namespace corvex::pyglue
