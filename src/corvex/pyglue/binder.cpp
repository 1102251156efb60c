#include "corvex/pyglue/binder.hpp"

#include <algorithm>
#include <stdexcept>

namespace corvex::pyglue {

namespace {

struct DefaultToObject {
    nb::object operator()(std::monostate) const { return {}; }
    nb::object operator()(std::nullptr_t) const { return nb::none(); }
    nb::object operator()(bool value) const {
        return nb::borrow<nb::object>(value ? Py_True : Py_False);
    }
    nb::object operator()(long value) const { return integer(value); }
    nb::object operator()(double value) const { return number(value); }
    nb::object operator()(const char* value) const { return text(value); }
};

std::size_t count_required(const FunctionSpec& spec) {
    const auto first_default = std::ranges::find_if(
        spec.parameters, [](const Parameter& parameter) { return !parameter.required(); });
    const bool ordered =
        std::none_of(first_default, spec.parameters.end(),
                     [](const Parameter& parameter) { return parameter.required(); });
    if (spec.parameters.size() > kMaxParameters || !ordered) {
        throw std::invalid_argument("malformed parameter table");
    }
    return static_cast<std::size_t>(first_default - spec.parameters.begin());
}

nb::tuple make_names(const FunctionSpec& spec) {
    nb::list names;
    for (const Parameter& parameter : spec.parameters) {
        names.append(nb::steal<nb::object>(PyUnicode_InternFromString(parameter.name)));
    }
    return nb::tuple(names);
}

nb::tuple make_defaults(const FunctionSpec& spec, std::size_t required) {
    nb::list defaults;
    for (const Parameter& parameter : spec.parameters.subspan(required)) {
        defaults.append(std::visit(DefaultToObject{}, parameter.default_value));
    }
    return nb::tuple(defaults);
}

} // namespace

Signature::Signature(const FunctionSpec& spec)
    : spec_(spec), required_(count_required(spec)), names_(make_names(spec)),
      defaults_(make_defaults(spec, required_)) {}

nb::object Signature::bind(PyObject* const* args, Py_ssize_t count, PyObject* keyword_names,
                           Call::Arguments& bound) const {
    const auto positional = static_cast<std::size_t>(count);
    if (positional > parameter_count()) {
        raise_wrong_count(positional);
    }
    std::copy_n(args, positional, bound.begin());
    nb::object extra;
    if (spec_.var_keywords != nullptr) {
        extra = nb::dict();
    }
    if (keyword_names != nullptr) {
        const Py_ssize_t keywords = PyTuple_GET_SIZE(keyword_names);
        for (Py_ssize_t i = 0; i < keywords; ++i) {
            bind_keyword(PyTuple_GET_ITEM(keyword_names, i), args[count + i], positional, extra,
                         bound);
        }
    }
    fill_defaults(bound);
    return extra;
}

nb::object Signature::defaults() const {
    return defaults_.empty() ? nb::none() : nb::borrow<nb::object>(defaults_);
}

int Signature::traverse(visitproc visit, void* arg) const {
    Py_VISIT(names_.ptr());
    Py_VISIT(defaults_.ptr());
    return 0;
}

std::size_t Signature::find(PyObject* keyword) const {
    const std::size_t total = parameter_count();
    // Keywords of a call site are interned as our names are: identity nearly always decides.
    for (std::size_t i = 0; i < total; ++i) {
        if (PyTuple_GET_ITEM(names_.ptr(), static_cast<Py_ssize_t>(i)) == keyword) {
            return i;
        }
    }
    for (std::size_t i = 0; i < total; ++i) {
        if (PyUnicode_Compare(PyTuple_GET_ITEM(names_.ptr(), static_cast<Py_ssize_t>(i)),
                              keyword) == 0) {
            return i;
        }
    }
    return total;
}

void Signature::bind_keyword(PyObject* name, PyObject* value, std::size_t positional,
                             nb::object& extra, Call::Arguments& bound) const {
    const std::size_t position = find(name);
    if (position == parameter_count()) {
        if (!extra.is_valid()) {
            PyErr_Format(PyExc_TypeError, "%.200s() got an unexpected keyword argument '%U'",
                         spec_.name, name);
            throw nb::python_error();
        }
        extra[nb::handle(name)] = nb::handle(value);
        return;
    }
    if (position < positional) {
        PyErr_Format(PyExc_TypeError, "%.200s() got multiple values for argument '%U'", spec_.name,
                     name);
        throw nb::python_error();
    }
    bound[position] = value;
}

void Signature::fill_defaults(Call::Arguments& bound) const {
    for (std::size_t i = 0; i < parameter_count(); ++i) {
        if (bound[i].is_valid()) {
            continue;
        }
        if (i < required_) {
            raise_wrong_count(i);
        }
        bound[i] = PyTuple_GET_ITEM(defaults_.ptr(), static_cast<Py_ssize_t>(i - required_));
    }
}

void Signature::raise_wrong_count(std::size_t given) const {
    const bool exact = required_ == parameter_count();
    const bool too_few = given < required_;
    const std::size_t expected = too_few ? required_ : parameter_count();
    const char* const bound = exact ? "exactly" : (too_few ? "at least" : "at most");
    PyErr_Format(PyExc_TypeError, "%.200s() takes %.8s %zd positional argument%.1s (%zd given)",
                 spec_.name, bound, expected, expected == 1 ? "" : "s", given);
    throw nb::python_error();
}

} // namespace corvex::pyglue
