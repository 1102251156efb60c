#pragma once

#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

/// Attributes of a report that are made when first read.
///
/// Whoever builds a report may leave attributes out and put a callable `_deferred` into its
/// dictionary. A missing attribute is asked of it: `_deferred(attributes, name)` puts the attribute
/// into the dictionary, or leaves it missing. Before the dictionary itself is seen (by `vars`, a
/// copy or a pickle) `_deferred(attributes, None)` puts in all of them, in their order, and takes
/// itself out: to a reader the report is one that always had them.
void add_deferred_attributes(pyglue::ClassBuilder& builder);

} // namespace corvex::report
