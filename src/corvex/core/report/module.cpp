// The module's entry: one load per process, and a load that fails leaves no trace.
#include "corvex/core/report/load_sequence.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/cpython.hpp"
#include "corvex/pyglue/errors.hpp"

namespace corvex::report {

namespace {

enum class State { kUnloaded, kLoaded };

State state = State::kUnloaded;

/// nanobind wants a module to hang its own bookkeeping on. It gets a private one, so that ours
/// holds no foreign names, and that one is never released: functions may run late at shutdown.
bool start_nanobind() {
    PyObject* const anchor = PyModule_New("corvex_report_runtime");
    return anchor != nullptr && nb::register_module(anchor);
}

int refuse_second_load() {
    PyErr_SetString(PyExc_RuntimeError,
                    "Module 'report' has already been imported. Re-initialisation is "
                    "not supported.");
    return -1;
}

int execute(PyObject* module) {
    PyObject* const globals = PyModule_GetDict(module);
    if (state == State::kLoaded) {
        // importlib.reload() hands over the very same module: nothing to do.
        return module_globals().ptr() == globals ? 0 : refuse_second_load();
    }
    if (!start_nanobind()) {
        return -1;
    }
    try {
        set_module_globals(globals);
        run_load_sequence(pyglue::as_dict(globals));
        state = State::kLoaded;
        return 0;
    } catch (...) {
        set_module_globals(nb::handle());
        pyglue::translate_current_exception();
        return -1;
    }
}

auto slots = pyglue::cpython::module_slots(execute);

PyModuleDef definition = {
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "report",
    .m_doc = "Backtest reports: what a simulation gave, to read, show, save and trade on.",
    .m_size = 0,
    .m_methods = nullptr,
    .m_slots = slots.data(),
    .m_traverse = nullptr,
    .m_clear = nullptr,
    .m_free = nullptr,
};

} // namespace

} // namespace corvex::report

PyMODINIT_FUNC PyInit_report() { return PyModuleDef_Init(&corvex::report::definition); }
