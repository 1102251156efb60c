#pragma once

#include "corvex/pyglue/class_builder.hpp"

namespace corvex::report {

/// Attributes of a report that are made when first read.
///
/// Whoever builds a report may leave attributes out and put a callable `_deferred` into its
/// dictionary. A missing attribute is asked of it: `_deferred(attributes, name)` puts the attribute
/// into the dictionary, or leaves it missing. Before the dictionary itself is seen (by `vars`, a
/// copy or a pickle) `_deferred(attributes, None)` returns a dictionary with all of them, in their
/// order and without itself: to a reader the report is one that always had them.
///
/// What only counts something of such an attribute may ask for that first, as a fact.
void add_deferred_attributes(pyglue::ClassBuilder& builder);

/// A fact about an attribute of a report that is not made yet, by its name; None where there is no
/// such fact, or a reader may have seen and changed the attribute: then it has to be looked at.
nanobind::object deferred_fact(nanobind::handle report, const char* name);

} // namespace corvex::report
