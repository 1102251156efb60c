#include "corvex/core/report/position_buffer.hpp"

#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace corvex::report {

namespace {

namespace nb = nanobind;

constexpr std::array<std::pair<char, const char*>, 15> kElementNames{{
    {'?', "bool"},
    {'b', "signed char"},
    {'B', "unsigned char"},
    {'h', "short"},
    {'H', "unsigned short"},
    {'i', "int"},
    {'I', "unsigned int"},
    {'l', "long"},
    {'L', "unsigned long"},
    {'q', "long long"},
    {'Q', "unsigned long long"},
    {'f', "float"},
    {'d', "double"},
    {'g', "long double"},
    {'O', "Python object"},
}};

std::string element_name(std::string_view format) {
    for (const auto& [code, name] : kElementNames) {
        if (format.size() == 1 && format.front() == code) {
            return "'" + std::string(name) + "'";
        }
    }
    return "format '" + std::string(format) + "'";
}

/// Native byte order only: '>' marks swapped bytes, a longer format a record.
std::string_view element_format(const Py_buffer& view) {
    std::string_view format = view.format != nullptr ? view.format : "B";
    if (format.size() > 1 &&
        (format.front() == '@' || format.front() == '=' || format.front() == '<')) {
        format.remove_prefix(1);
    }
    return format;
}

bool holds_signed_integers(const Py_buffer& view, std::size_t width) {
    const std::string_view format = element_format(view);
    constexpr std::string_view kSignedCodes = "bhilq";
    return format.size() == 1 && kSignedCodes.find(format.front()) != std::string_view::npos &&
           static_cast<std::size_t>(view.itemsize) == width;
}

[[noreturn]] void raise_mismatch(const Py_buffer& view, const char* dimension,
                                 const char* expected) {
    std::string got = element_name(element_format(view));
    if (view.ndim != 1) {
        got = std::to_string(view.ndim) + "-dimensional " + got;
    }
    PyErr_Format(PyExc_ValueError, "Buffer dtype mismatch, expected %s%s%s but got %s", dimension,
                 expected, "'", got.c_str());
    throw nb::python_error();
}

} // namespace

template <typename Integer>
    requires std::is_signed_v<Integer>
PositionBuffer<Integer>::PositionBuffer(nb::handle array) {
    if (PyObject_GetBuffer(array.ptr(), &view_, PyBUF_FORMAT | PyBUF_STRIDES) != 0) {
        throw nb::python_error();
    }
    const char* const expected = sizeof(Integer) == sizeof(std::int64_t) ? "int64_t" : "int32_t";
    const bool flat = view_.ndim == 1;
    if (!flat || !holds_signed_integers(view_, sizeof(Integer))) {
        // The destructor does not run for an object whose constructor throws.
        try {
            raise_mismatch(view_, flat ? "'" : "1-dimensional '", expected);
        } catch (...) {
            PyBuffer_Release(&view_);
            throw;
        }
    }
}

template class PositionBuffer<std::int64_t>;
template class PositionBuffer<std::int32_t>;

} // namespace corvex::report
