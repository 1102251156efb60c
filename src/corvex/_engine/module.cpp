// The second extension: the engine's kernels as functions on numpy arrays.
#include <nanobind/nanobind.h>

namespace nb = nanobind;

NB_MODULE(_engine, module) {
    module.doc() = "Kernels of the corvex engine: arrays in, arrays out.";
}
