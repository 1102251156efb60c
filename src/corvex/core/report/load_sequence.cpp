#include "corvex/core/report/load_sequence.hpp"

#include "corvex/core/report/constants.hpp"
#include "corvex/core/report/dates.hpp"
#include "corvex/core/report/execution/execution_class.hpp"
#include "corvex/core/report/helpers.hpp"
#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/json_encoder.hpp"
#include "corvex/core/report/lookup_kernels.hpp"
#include "corvex/core/report/numpy_api.hpp"
#include "corvex/core/report/payload/unpickler.hpp"
#include "corvex/core/report/present/server.hpp"
#include "corvex/core/report/report/report_class.hpp"
#include "corvex/pyglue/function.hpp"

namespace corvex::report {

namespace {

void import_libraries(nb::dict& globals) {
    import_names(globals, "collections.abc", {"Iterable"});
    import_names(globals, "pkgutil", {"iter_modules"});
    import_names(globals, "functools", {"cached_property", "lru_cache"});
    import_as(globals, "pandas", "pd");
    import_as(globals, "numpy", "np");
    for (const char* name : {"importlib", "datetime", "string", "random", "base64", "socket",
                             "html", "time", "math", "json", "gzip", "sys", "re", "os"}) {
        import_as(globals, name, name);
    }
}

void import_siblings(nb::dict& globals) {
    import_as(globals, "corvex", "corvex");
    import_names(globals, "corvex", {"get_token", "data", "ffn_core"});
    import_names(globals, "corvex.utils", {"logger", "requests"});
    import_names(globals, "corvex.market", {"Market"});
    import_names(globals, "corvex.markets", {"get_market_by_name"});
    import_names(globals, "corvex.markets.tw", {"TWMarket"});
    import_names(globals, "corvex.utils", {"get_tmp_dir"});
    import_names(globals, "corvex.core.dashboard", {"default_serialize", "generate_html"});
    import_names(globals, "corvex.core.metrics", {"Metrics"});
    import_names(globals, "corvex.core.trade_columns", {"to_wire_trades"});
    import_names(globals, "corvex.core", {"firestore_rest"});
    import_names(globals, "corvex.core.upload",
                 {"interpret_legacy_upload_response", "post_legacy_upload_pyodide_no_cors",
                  "resolve_upload_name"});
}

void bind_functions(nb::dict& globals, std::span<const pyglue::FunctionSpec> specs) {
    for (const pyglue::FunctionSpec& spec : specs) {
        globals[spec.name] = pyglue::make_function(spec, globals);
    }
}

} // namespace

void run_load_sequence(nb::dict globals) {
    import_libraries(globals);
    import_siblings(globals);

    import_as(globals, "pickle", "pickle");
    import_as(globals, "copy", "copy");
    globals["CustomUnpickler"] = make_unpickler_class(globals);

    load_numpy_api();
    bind_functions(globals, lookup_kernels());

    globals["CustomEncoder"] = make_encoder_class(globals);
    bind_helpers(globals);
    bind_constants(globals);
    bind_functions(globals, date_functions());

    globals["ReportExecution"] = make_execution_class(globals);
    bind_functions(globals, server_functions());
    globals["Report"] = make_report_class(globals);
}

} // namespace corvex::report
