#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

/// An asset's id: its label up to the first blank.
nanobind::object label_id(nanobind::handle label);

/// The items of an index or array as a list, which is many times quicker to walk; of anything else
/// the thing itself.
nanobind::object plain_list(nanobind::handle labels);

/// Where labels stand among those of another table, an int64 array with -1 where one is not found.
///
/// The same label counts first, of repeated ones the first. A label that is not there is looked up
/// by its id, and only where a single asset there has this id, which is not itself among `labels`.
/// `corvex.tables.asset_labels` has the same rule for the packages around this module.
nanobind::object label_positions(nanobind::handle labels, nanobind::handle known);

} // namespace corvex::report
