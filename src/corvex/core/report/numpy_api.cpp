#define CORVEX_DEFINE_ARRAY_API
#include "corvex/core/report/numpy_api.hpp"

namespace corvex::report {

void load_numpy_api() {
    if (PyArray_ImportNumPyAPI() < 0) {
        PyErr_Clear();
        pyglue::raise(PyExc_ImportError, "numpy._core.multiarray failed to import");
    }
}

} // namespace corvex::report
