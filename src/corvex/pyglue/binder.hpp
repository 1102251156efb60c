#pragma once

#include "corvex/pyglue/call.hpp"

namespace corvex::pyglue {

/// The interpreter-facing form of a function's parameters: interned names and default objects.
class Signature {
  public:
    /// @throws std::invalid_argument when there are more than kMaxParameters, or when a required
    ///         parameter follows one with a default.
    explicit Signature(const FunctionSpec& spec);

    /// Binds a vectorcall. Borrowed references are written to `bound`.
    /// @return the dict for `**kwargs`, or an empty object where the function takes none.
    /// @throws nb::python_error (TypeError) in the interpreter's own words.
    nb::object bind(PyObject* const* args, Py_ssize_t count, PyObject* keyword_names,
                    Call::Arguments& bound) const;

    [[nodiscard]] const nb::tuple& names() const { return names_; }
    /// The defaults of the trailing parameters, None when there are none.
    [[nodiscard]] nb::object defaults() const;
    [[nodiscard]] std::size_t parameter_count() const { return spec_.parameters.size(); }

    int traverse(visitproc visit, void* arg) const;

  private:
    [[nodiscard]] std::size_t find(PyObject* keyword) const;
    void bind_keyword(PyObject* name, PyObject* value, std::size_t positional, nb::object& extra,
                      Call::Arguments& bound) const;
    void fill_defaults(Call::Arguments& bound) const;
    /// `given`: the arguments passed, or those before the first missing one.
    [[noreturn]] void raise_wrong_count(std::size_t given) const;

    const FunctionSpec& spec_;
    std::size_t required_;
    nb::tuple names_;
    nb::tuple defaults_;
};

} // namespace corvex::pyglue
