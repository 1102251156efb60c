#include "corvex/core/report/execution/execution_class.hpp"

#include "corvex/core/report/execution/deserialise.hpp"
#include "corvex/core/report/execution/from_cloud.hpp"
#include "corvex/core/report/execution/from_report.hpp"
#include "corvex/core/report/execution/policy.hpp"
#include "corvex/core/report/execution/record.hpp"
#include "corvex/core/report/execution/serialise.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

nb::object make_execution_class(const nb::dict& globals) {
    return pyglue::ClassBuilder("ReportExecution",
                                "Execution state derived from a report and used by portfolio sync.",
                                globals)
        .member("SCHEMA_VERSION", global("REPORT_EXECUTION_SCHEMA_VERSION"))
        .methods(record_methods())
        .methods(from_report_methods())
        .methods(policy_methods())
        .methods(serialise_methods())
        .methods(deserialise_methods())
        .methods(from_cloud_methods())
        .build();
}

} // namespace corvex::report
