#include "corvex/core/report/lookup_kernels.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/numpy_api.hpp"
#include "corvex/core/report/position_buffer.hpp"
#include "corvex/pyglue/function.hpp"

#include <cstring>
#include <limits>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

constexpr Py_ssize_t kMissing = -1;
constexpr int kAhead = 16; // cells whose fetching overlaps

PyArrayObject* require_array(nb::handle table) {
    if (!PyArray_Check(table.ptr())) {
        PyErr_Format(PyExc_TypeError,
                     "Argument '%.200s' has incorrect type (expected %.200s, got %.200s)", "df",
                     "numpy.ndarray", Py_TYPE(table.ptr())->tp_name);
        throw nb::python_error();
    }
    return reinterpret_cast<PyArrayObject*>(table.ptr());
}

bool has_dtype(PyArrayObject* table, int type_number) {
    const auto wanted =
        nb::steal<nb::object>(reinterpret_cast<PyObject*>(PyArray_DescrFromType(type_number)));
    return PyArray_EquivTypes(PyArray_DESCR(table),
                              reinterpret_cast<PyArray_Descr*>(wanted.ptr())) != 0;
}

/// What stands for "no such column" in a table of this dtype.
nb::object fill_value(PyArrayObject* table) {
    if (has_dtype(table, NPY_FLOAT64)) {
        return global("np").attr("nan");
    }
    if (has_dtype(table, NPY_INT64) || has_dtype(table, NPY_INT8)) {
        return pyglue::integer(-1);
    }
    if (has_dtype(table, NPY_BOOL)) {
        return nb::borrow<nb::object>(Py_False);
    }
    if (has_dtype(table, NPY_OBJECT)) {
        return nb::none();
    }
    pyglue::raise(PyExc_ValueError, "Unsupported dtype");
}

/// `table[row, column]`, whatever kind of array it is, with numpy's own errors.
nb::object generic_cell(PyArrayObject* table, Py_ssize_t row, Py_ssize_t column) {
    const nb::object key = nb::make_tuple(pyglue::integer(row), pyglue::integer(column));
    PyObject* const cell = PyObject_GetItem(reinterpret_cast<PyObject*>(table), key.ptr());
    if (cell == nullptr) {
        throw nb::python_error();
    }
    return nb::steal<nb::object>(cell);
}

/// Reads cells of a plain two-dimensional array straight from its memory and leaves everything else
/// (subclasses, other dimensions, positions out of range) to numpy: the results are the same.
class CellReader {
  public:
    explicit CellReader(PyArrayObject* table)
        : table_(table), direct_(PyArray_CheckExact(reinterpret_cast<PyObject*>(table)) &&
                                 PyArray_NDIM(table) == 2),
          is_object_(PyArray_TYPE(table) == NPY_OBJECT) {}

    /// Where a cell lies; null where numpy is to answer.
    [[nodiscard]] char* address_of(Py_ssize_t row, Py_ssize_t column) const {
        const Py_ssize_t r = direct_ ? wrapped(row, 0) : kMissing;
        const Py_ssize_t c = direct_ ? wrapped(column, 1) : kMissing;
        if (r < 0 || c < 0) {
            return nullptr;
        }
        return PyArray_BYTES(table_) + r * PyArray_STRIDE(table_, 0) +
               c * PyArray_STRIDE(table_, 1);
    }

    /// Has the processor fetch a cell that is read soon: cells lie far apart in a large table, so
    /// that waiting for each in turn would take most of the time.
    void announce(Py_ssize_t row, Py_ssize_t column) const {
        if (const char* const address = address_of(row, column)) {
            __builtin_prefetch(address);
        }
    }

    [[nodiscard]] nb::object operator()(Py_ssize_t row, Py_ssize_t column) const {
        char* const address = address_of(row, column);
        if (address == nullptr) {
            return generic_cell(table_, row, column);
        }
        PyObject* const cell = is_object_ ? PyArray_GETITEM(table_, address)
                                          : PyArray_Scalar(address, PyArray_DESCR(table_),
                                                           reinterpret_cast<PyObject*>(table_));
        if (cell == nullptr) {
            throw nb::python_error();
        }
        return nb::steal<nb::object>(cell);
    }

  private:
    /// A position counted from the end where negative; -1 when out of range.
    [[nodiscard]] Py_ssize_t wrapped(Py_ssize_t position, int axis) const {
        const Py_ssize_t size = PyArray_DIM(table_, axis);
        const Py_ssize_t from_start = position < 0 ? position + size : position;
        return from_start >= 0 && from_start < size ? from_start : kMissing;
    }

    PyArrayObject* table_;
    bool direct_;
    bool is_object_;
};

/// The pairs of positions of one call, checked.
template <typename Integer>
class PositionPairs {
  public:
    PositionPairs(nb::handle rows, nb::handle columns) : rows_(rows), columns_(columns) {
        if (columns_.size() < rows_.size()) {
            pyglue::raise(PyExc_ValueError, "idx_s must be at least as long as idx_d");
        }
        if (rows_.size() > std::numeric_limits<int>::max()) {
            pyglue::raise(PyExc_ValueError, "idx_d must have at most 2147483647 positions");
        }
    }

    [[nodiscard]] int size() const { return static_cast<int>(rows_.size()); }

    /// Calls `visit(i, row, column)` for each pair; stops early when `visit` returns false.
    template <typename Visit>
    bool visit_all(const CellReader& cells, Visit&& visit) const {
        for (int i = 0; i < size(); ++i) {
            if (size() - i > kAhead) {
                cells.announce(rows_[i + kAhead], columns_[i + kAhead]);
            }
            if (!visit(i, static_cast<Py_ssize_t>(rows_[i]),
                       static_cast<Py_ssize_t>(columns_[i]))) {
                return false;
            }
        }
        return true;
    }

  private:
    PositionBuffer<Integer> rows_;
    PositionBuffer<Integer> columns_;
};

template <typename Integer>
nb::object query(const Call& call) {
    PyArrayObject* const table = require_array(call[0]);
    const PositionPairs<Integer> pairs(call[1], call[2]);
    const auto cells = nb::steal<nb::object>(PyList_New(pairs.size()));
    if (!cells.is_valid()) {
        throw nb::python_error();
    }
    const nb::object fill = fill_value(table);
    const CellReader cell_at(table);
    pairs.visit_all(cell_at, [&](int i, Py_ssize_t row, Py_ssize_t column) {
        nb::object cell = column == kMissing ? fill : cell_at(row, column);
        PyList_SET_ITEM(cells.ptr(), i, cell.release().ptr());
        return true;
    });
    return cells;
}

constexpr Parameter kParameters[] = {{"df"}, {"idx_d"}, {"idx_s"}};

const FunctionSpec kFunctions[] = {
    {"query_data_int64", kParameters, query<std::int64_t>,
     "The cells of a two-dimensional array at pairs of row and column positions (int64), as a "
     "list.\n\n"
     "A column position of -1 gives the fill value of the dtype: nan (float64), -1 (int64, int8),\n"
     "False (bool) or None (object). Raises ValueError for any other dtype."},
    {"query_data_int32", kParameters, query<std::int32_t>,
     "As query_data_int64, with int32 positions."},
};

/// A one-dimensional array of the cells; invalid where one of them is numpy's to answer for.
template <typename Element>
nb::object array_of_cells(PyArrayObject* table, int type_number,
                          const PositionPairs<std::int64_t>& pairs, Element missing) {
    npy_intp size = pairs.size();
    auto array = nb::steal<nb::object>(PyArray_SimpleNew(1, &size, type_number));
    if (!array.is_valid()) {
        throw nb::python_error();
    }
    auto* const target =
        static_cast<Element*>(PyArray_DATA(reinterpret_cast<PyArrayObject*>(array.ptr())));
    const CellReader cells(table);
    const bool complete = pairs.visit_all(cells, [&](int i, Py_ssize_t row, Py_ssize_t column) {
        if (column == kMissing) {
            target[i] = missing;
            return true;
        }
        const char* const address = cells.address_of(row, column);
        if (address != nullptr) {
            std::memcpy(&target[i], address, sizeof(Element));
        }
        return address != nullptr;
    });
    return complete ? array : nb::object();
}

/// The cells of a table whose list pandas would turn into an array of the same type; else invalid.
/// An empty list becomes a column of objects.
nb::object native_cells(nb::handle values, nb::handle rows, nb::handle columns) {
    if (!PyArray_Check(values.ptr()) || pyglue::length(rows) == 0) {
        return {};
    }
    auto* const table = reinterpret_cast<PyArrayObject*>(values.ptr());
    const PositionPairs<std::int64_t> pairs(rows, columns);
    if (has_dtype(table, NPY_FLOAT64)) {
        return array_of_cells(table, NPY_FLOAT64, pairs, std::numeric_limits<double>::quiet_NaN());
    }
    if (has_dtype(table, NPY_INT64)) {
        return array_of_cells(table, NPY_INT64, pairs, npy_int64{-1});
    }
    if (has_dtype(table, NPY_BOOL)) {
        return array_of_cells(table, NPY_BOOL, pairs, npy_bool{0});
    }
    return {};
}

} // namespace

std::span<const FunctionSpec> lookup_kernels() { return kFunctions; }

nb::object column_of_cells(nb::handle kernel, nb::handle table, nb::handle rows,
                           nb::handle columns) {
    nb::object cells;
    if (pyglue::is_function(kernel, kFunctions[0])) {
        cells = native_cells(table, rows, columns);
    }
    return cells.is_valid() ? cells : kernel(table, rows, columns);
}

} // namespace corvex::report
