#pragma once

namespace corvex::pyglue {

/// Turns the C++ exception in flight into the pending Python error. Call it from a catch (...) at
/// each place where the interpreter calls into C++: no exception may cross the C boundary.
void translate_current_exception() noexcept;

} // namespace corvex::pyglue
