#include "corvex/core/report/common/asset_label.hpp"

namespace corvex::report {

namespace nb = nanobind;

std::pair<nb::object, nb::object> split_label(nb::handle label) {
    const nb::object parts = pyglue::to_text(label).attr("partition")(pyglue::text(" "));
    return {parts[0], parts[2]};
}

nb::object join_label(nb::handle asset_id, nb::handle asset_name) {
    return pyglue::concat(
               {pyglue::to_text(asset_id), pyglue::text(" "), pyglue::to_text(asset_name)})
        .attr("strip")();
}

} // namespace corvex::report
