#include "portfolio_arrays.hpp"

#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace nb = nanobind;

namespace corvex::bindings {

using engine::FillAt;
using engine::Options;
using engine::PriceTable;

namespace {

FillAt parse_fill_at(std::string_view name) {
    if (name == "close") {
        return FillAt::kClose;
    }
    if (name == "open") {
        return FillAt::kOpen;
    }
    if (name == "other") {
        return FillAt::kOther;
    }
    throw std::invalid_argument("fill_at must be 'close', 'open' or 'other', got '" +
                                std::string{name} + "'");
}

template <class Value>
constexpr const char* kAccepted = "a number";
template <>
constexpr const char* kAccepted<bool> = "True or False";
template <>
constexpr const char* kAccepted<int> = "a whole number";

/// An option as the engine takes it. Raises TypeError, with its name, for one of another type.
template <class Value>
Value read_option(const char* name, nb::handle given) {
    Value value{};
    if (!nb::try_cast<Value>(given, value)) {
        throw nb::type_error((std::string{name} + " must be " + kAccepted<Value> + ", got " +
                              nb::cast<std::string>(nb::repr(given)))
                                 .c_str());
    }
    return value;
}

} // namespace

PriceTable as_table(const InputTable& table) {
    if (!table.is_valid()) {
        return {};
    }
    return {{table.data(), table.shape(0) * table.shape(1)}, table.shape(1)};
}

SharedPrices::SharedPrices(InputTable close, std::string_view fill_at, InputTable fill,
                           InputTable open, InputTable high, InputTable low)
    : arrays_{std::move(fill), std::move(open), std::move(high), std::move(low)},
      close_{std::move(close)},
      prices_{{as_table(close_), parse_fill_at(fill_at), as_table(arrays_[0]), as_table(arrays_[1]),
               as_table(arrays_[2]), as_table(arrays_[3])}} {}

Options read_options(nb::handle given) {
    Options options;
    if (!given.is_none()) {
        engine::for_each_option(options, [&](const char* name, auto& value) {
            value = read_option<std::remove_reference_t<decltype(value)>>(name, given.attr(name));
        });
    }
    return options;
}

} // namespace corvex::bindings
