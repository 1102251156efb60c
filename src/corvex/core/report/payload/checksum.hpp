#pragma once

#include "corvex/pyglue/objects.hpp"

namespace corvex::report {

namespace nb = nanobind;

/// What stands behind a pickle's end, where every unpickler stops reading: length and checksum.
nb::object checksum_trailer(nb::handle content);

/// A saved report's open file, at its start and found to be as it was written, or its content in
/// memory where a file cannot be read twice. Files of versions without a checksum, and whatever is
/// no pickle at all, are left to the unpickler. Raises pickle.UnpicklingError for a damaged one.
nb::object checked_content(nb::handle file);

} // namespace corvex::report
