// The second extension: the engine's kernels as functions on numpy arrays.
#include <nanobind/nanobind.h>

namespace nb = nanobind;

namespace corvex::bindings {

// One for each folder of the engine.
void bind_batch(nb::module_& module);
void bind_calendar(nb::module_& module);
void bind_confidence(nb::module_& module);
void bind_drawdown(nb::module_& module);
void bind_metrics(nb::module_& module);
void bind_portfolio(nb::module_& module);
void bind_series(nb::module_& module);
void bind_statistics(nb::module_& module);
void bind_trades(nb::module_& module);

} // namespace corvex::bindings

NB_MODULE(_engine, module) {
    module.doc() = "Kernels of the corvex engine: arrays in, arrays out.";
    corvex::bindings::bind_calendar(module);
    corvex::bindings::bind_confidence(module);
    corvex::bindings::bind_drawdown(module);
    corvex::bindings::bind_metrics(module);
    corvex::bindings::bind_portfolio(module);
    corvex::bindings::bind_batch(module);
    corvex::bindings::bind_series(module);
    corvex::bindings::bind_statistics(module);
    corvex::bindings::bind_trades(module);
}
