#include "corvex/pyglue/code_object.hpp"

#include "corvex/pyglue/cpython.hpp"

namespace corvex::pyglue {

nb::object make_code_object(const FunctionSpec& spec, const nb::tuple& names, nb::handle module,
                            nb::handle qualname) {
    const auto empty = nb::steal<nb::object>(cpython::empty_code(spec.name));
    if (!empty.is_valid()) {
        throw nb::python_error();
    }
    nb::list variables(names);
    long flags = CO_OPTIMIZED | CO_NEWLOCALS;
    if (spec.var_keywords != nullptr) {
        variables.append(text(spec.var_keywords));
        flags |= CO_VARKEYWORDS;
    }
    const nb::object file = concat({text("<"), to_text(module), text(">")});
    return empty.attr("replace")(
        nb::arg("co_argcount") = integer(static_cast<Py_ssize_t>(names.size())),
        nb::arg("co_nlocals") = integer(length(variables)),
        nb::arg("co_varnames") = nb::tuple(variables), nb::arg("co_flags") = integer(flags),
        nb::arg("co_filename") = file, nb::arg("co_qualname") = qualname);
}

} // namespace corvex::pyglue
