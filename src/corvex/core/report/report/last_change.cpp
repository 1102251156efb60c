#include "corvex/core/report/report/last_change.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/numpy_api.hpp"

#include <optional>

namespace corvex::report {

namespace {

bool is_all_float64(nb::handle position) {
    const nb::object types = position.attr("dtypes").attr("to_numpy")();
    for (const nb::handle type : types) {
        if (!PyArray_DescrCheck(type.ptr()) ||
            reinterpret_cast<PyArray_Descr*>(type.ptr())->type_num != NPY_FLOAT64) {
            return false;
        }
    }
    return true;
}

bool rows_differ(PyArrayObject* weights, npy_intp row) {
    for (npy_intp column = 0; column < PyArray_DIM(weights, 1); ++column) {
        const double before =
            *static_cast<const double*>(PyArray_GETPTR2(weights, row - 1, column));
        const double after = *static_cast<const double*>(PyArray_GETPTR2(weights, row, column));
        // Ordered and unequal: false where either is missing.
        if (before < after || before > after) {
            return true;
        }
    }
    return false;
}

/// From the end backwards: a strategy mostly traded not long ago.
std::optional<npy_intp> last_differing_row(PyArrayObject* weights) {
    for (npy_intp row = PyArray_DIM(weights, 0) - 1; row > 0; --row) {
        if (rows_differ(weights, row)) {
            return row;
        }
    }
    return std::nullopt;
}

/// The same in pandas, for tables of other kinds than plain numbers.
nb::object last_change_by_pandas(nb::handle position) {
    const nb::object turnover =
        position.attr("diff")().attr("abs")().attr("sum")(nb::arg("axis") = pyglue::integer(1));
    const nb::object changed = pyglue::compare(turnover, Py_NE, pyglue::integer(0));
    return pyglue::is_true(changed.attr("sum")()) ? nb::object(turnover[changed].attr("index")[-1])
                                                  : nb::none();
}

} // namespace

nb::object last_change(nb::handle position) {
    if (!pyglue::is_instance(position, global("pd").attr("DataFrame")) ||
        !is_all_float64(position)) {
        return last_change_by_pandas(position);
    }
    const nb::object values = position.attr("to_numpy")();
    auto* const weights = reinterpret_cast<PyArrayObject*>(values.ptr());
    if (!PyArray_Check(values.ptr()) || PyArray_TYPE(weights) != NPY_FLOAT64 ||
        PyArray_NDIM(weights) != 2 || !PyArray_ISBEHAVED_RO(weights)) {
        return last_change_by_pandas(position);
    }
    const std::optional<npy_intp> row = last_differing_row(weights);
    return row ? nb::object(position.attr("index")[pyglue::integer(*row)]) : nb::none();
}

} // namespace corvex::report
