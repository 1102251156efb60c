#pragma once

#include "corvex/pyglue/objects.hpp"

#include <functional>

namespace corvex::report {

namespace nb = nanobind;

enum class FileKind { kBinary, kUtf8Text };

/// Lets `write` fill the file of a path: the whole content appears there, or the file that was
/// there stays. A regular file is written as a draft beside it, flushed to disk and renamed; pipes,
/// devices and file descriptors are written to directly. Errors name the caller's path.
void write_whole_file(nb::handle path, FileKind kind,
                      const std::function<void(const nb::object& file)>& write);

} // namespace corvex::report
