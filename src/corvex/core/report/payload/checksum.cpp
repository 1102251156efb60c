#include "corvex/core/report/payload/checksum.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <algorithm>
#include <string_view>

namespace corvex::report {

namespace {

using pyglue::integer;
using pyglue::text;

// The trailer: 8 bytes length (little endian), 16 bytes checksum, 16 bytes mark. None of the mark's
// bytes is the ".", with which a pickle ends.
constexpr std::string_view kMark = "corvex checksum\n";
constexpr Py_ssize_t kLengthBytes = 8;
constexpr Py_ssize_t kDigestBytes = 16;
constexpr Py_ssize_t kTrailerBytes =
    kLengthBytes + kDigestBytes + static_cast<Py_ssize_t>(kMark.size());
constexpr Py_ssize_t kChunk = Py_ssize_t{1} << 20;
constexpr Py_ssize_t kFromEnd = 2;

nb::bytes mark() { return nb::bytes(kMark.data(), kMark.size()); }

nb::object new_digest() {
    return pyglue::import_module("hashlib").attr("blake2b")(
        nb::arg("digest_size") = integer(kDigestBytes),
        nb::arg("usedforsecurity") = nb::borrow<nb::object>(Py_False));
}

nb::object trailer(Py_ssize_t size, nb::handle digest) {
    return integer(size).attr("to_bytes")(integer(kLengthBytes), text("little")) +
           digest.attr("digest")() + mark();
}

nb::object digest_of_start(nb::handle file, Py_ssize_t size) {
    const nb::object digest = new_digest();
    file.attr("seek")(integer(0));
    while (size > 0) {
        const nb::object part = file.attr("read")(integer(std::min(size, kChunk)));
        const Py_ssize_t got = pyglue::length(part);
        if (got == 0) {
            break;
        }
        digest.attr("update")(part);
        size -= got;
    }
    return digest;
}

nb::object bytes_at(nb::handle file, Py_ssize_t position, Py_ssize_t count) {
    file.attr("seek")(integer(position));
    return file.attr("read")(integer(count));
}

bool is_damaged(nb::handle file, Py_ssize_t size) {
    const Py_ssize_t start = std::max<Py_ssize_t>(0, size - kTrailerBytes);
    const nb::object end = bytes_at(file, start, kTrailerBytes);
    if (pyglue::is_true(end.attr("endswith")(mark()))) {
        return !pyglue::equals(end, trailer(start, digest_of_start(file, start)));
    }
    // A pickle without a trailer, of an older version or of plain `pickle.dump`, ends with its last
    // instruction. One that ends otherwise has lost its end.
    const bool starts_as_pickle = pyglue::equals(bytes_at(file, 0, 1), nb::bytes("\x80", 1));
    return starts_as_pickle && !pyglue::is_true(end.attr("endswith")(nb::bytes(".", 1)));
}

} // namespace

nb::object checksum_trailer(nb::handle content) {
    const nb::object digest = new_digest();
    digest.attr("update")(content);
    return trailer(pyglue::length(content), digest);
}

nb::object checked_content(nb::handle file) {
    const nb::object content =
        pyglue::is_true(file.attr("seekable")())
            ? nb::borrow<nb::object>(file)
            : pyglue::import_module("io").attr("BytesIO")(file.attr("read")());
    const nb::object size = content.attr("seek")(integer(0), integer(kFromEnd));
    if (is_damaged(content, nb::cast<Py_ssize_t>(size))) {
        const nb::object name = pyglue::attribute_or(file, "name", text("the file"));
        pyglue::raise(global("pickle").attr("UnpicklingError"),
                      pyglue::concat({pyglue::to_text(name),
                                      text(" is damaged: it is not what was saved (its checksum "
                                           "or its end does not fit)")}));
    }
    content.attr("seek")(integer(0));
    return content;
}

} // namespace corvex::report
