#pragma once

#include "corvex/pyglue/call.hpp"

#include <span>

namespace corvex::report {

namespace nb = nanobind;

/// `query_data_int64` and `query_data_int32`.
std::span<const pyglue::FunctionSpec> lookup_kernels();

/// `kernel(table, rows, columns)` as a new column of a table of pandas: a list, or the array that
/// pandas would make of it. An array is made without the list where the kernel is still that of
/// this module, so that 100,000 numbers are not boxed only to be unboxed.
nb::object column_of_cells(nb::handle kernel, nb::handle table, nb::handle rows,
                           nb::handle columns);

} // namespace corvex::report
