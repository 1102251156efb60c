#pragma once

// numpy's C API lives in a table of pointers shared by all files of the module; only numpy_api.cpp
// defines it.
#define NPY_NO_DEPRECATED_API NPY_2_0_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL corvex_report_array_api
#ifndef CORVEX_DEFINE_ARRAY_API
#define NO_IMPORT_ARRAY
#endif

#include "corvex/pyglue/objects.hpp"

#include <numpy/arrayobject.h>

namespace corvex::report {

/// Fills the table. Raises ImportError with a fixed text when numpy's core cannot be imported.
void load_numpy_api();

} // namespace corvex::report
