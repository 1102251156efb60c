#include <nanobind/nanobind.h>
NB_MODULE(report, module) { module.doc() = "report"; }
