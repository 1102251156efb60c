#pragma once

#include "corvex/engine/portfolio/options.hpp"
#include "corvex/engine/portfolio/price_set.hpp"

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>

#include <array>
#include <string_view>

namespace corvex::bindings {

/// Two-dimensional, row by row. Bound with noconvert: a large table is never copied in silence.
using InputTable = nanobind::ndarray<const double, nanobind::ndim<2>, nanobind::c_contig,
                                     nanobind::device::cpu, nanobind::numpy>;

/// None comes as a table that is not valid.
engine::PriceTable as_table(const InputTable& table);

/// A price set and the arrays that it looks at.
class SharedPrices {
  public:
    SharedPrices(InputTable close, std::string_view fill_at, InputTable fill, InputTable open,
                 InputTable high, InputTable low);

    [[nodiscard]] const engine::PriceSet& prices() const { return prices_; }

  private:
    std::array<InputTable, 4> arrays_;
    InputTable close_;
    engine::PriceSet prices_;
};

/// Reads the options by their names from an object that has them as attributes; None = defaults.
engine::Options read_options(nanobind::handle given);

} // namespace corvex::bindings
