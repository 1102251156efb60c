#include "corvex/core/report/whole_file.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <cerrno>
#include <optional>

namespace corvex::report {

namespace {

using pyglue::concat;
using pyglue::text;
using Write = std::function<void(const nb::object&)>;

nb::object os_path() { return global("os").attr("path"); }

nb::object open_file(nb::handle path, const char* mode, FileKind kind) {
    const nb::object open = global("open");
    if (kind == FileKind::kBinary) {
        return open(path, concat({text(mode), text("b")}));
    }
    return open(path, text(mode), nb::arg("encoding") = text("utf-8"));
}

void write_directly(nb::handle path, FileKind kind, const Write& write) {
    pyglue::with(open_file(path, "w", kind), [&](const nb::object& file) {
        write(file);
        return nb::none();
    });
}

/// What the system says of the draft, or of the disk without a name, is told of the path.
void name_path(const nb::python_error& error, nb::handle draft, nb::handle path) {
    if (!error.matches(PyExc_OSError)) {
        return;
    }
    const nb::object named = error.value().attr("filename");
    if (named.is_none() || pyglue::equals(named, draft)) {
        error.value().attr("filename") = path;
        error.value().attr("filename2") = nb::none();
    }
}

/// The status of what a path leads to; nothing where there is nothing.
std::optional<nb::object> status_of(nb::handle path) {
    try {
        return global("os").attr("stat")(path);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_OSError)) {
            throw;
        }
    }
    return std::nullopt;
}

/// Names below these stand for what a process has open: `/dev/stdout` may be a plain file, which
/// somebody else goes on writing to.
bool is_kept_by_the_system(nb::handle path) {
    const nb::object whole = os_path().attr("abspath")(path);
    const auto starts = [&](const char* start) {
        return pyglue::is_true(whole.attr("startswith")(text(start)));
    };
    return (starts("/dev/") && !starts("/dev/shm/")) || starts("/proc/");
}

bool is_regular(const nb::object& status) {
    return pyglue::is_true(pyglue::import_module("stat").attr("S_ISREG")(status.attr("st_mode")));
}

nb::object draft_beside(nb::handle target) {
    const nb::object random = global("os").attr("urandom")(pyglue::integer(6)).attr("hex")();
    return os_path().attr("join")(os_path().attr("dirname")(target),
                                  concat({text(".corvex-"), random, text(".tmp")}));
}

/// A rename lasts only once its folder is on disk too; some systems cannot be asked for that.
void flush_folder(nb::handle target) {
    const nb::object os = global("os");
    try {
        const nb::object folder =
            os.attr("open")(os_path().attr("dirname")(target), os.attr("O_RDONLY"));
        try {
            os.attr("fsync")(folder);
        } catch (const nb::python_error& error) {
            os.attr("close")(folder);
            throw;
        }
        os.attr("close")(folder);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_OSError)) {
            throw;
        }
    }
}

void remove_quietly(nb::handle draft) {
    try {
        global("os").attr("unlink")(draft);
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_OSError)) {
            throw;
        }
    }
}

void fill_draft(const nb::object& opened, nb::handle draft, const std::optional<nb::object>& old,
                const Write& write) {
    const nb::object os = global("os");
    pyglue::with(opened, [&](const nb::object& file) {
        if (old) { // who may read the file does not change by saving it again
            os.attr("chmod")(draft,
                             pyglue::import_module("stat").attr("S_IMODE")(old->attr("st_mode")));
        }
        write(file);
        file.attr("flush")();
        os.attr("fsync")(file.attr("fileno")());
        return nb::none();
    });
}

/// An empty object where the folder takes no new file.
nb::object open_draft(nb::handle draft, FileKind kind) {
    try {
        return open_file(draft, "x", kind);
    } catch (const nb::python_error& error) {
        const bool read_only = error.matches(PyExc_OSError) &&
                               pyglue::equals(error.value().attr("errno"), pyglue::integer(EROFS));
        if (!read_only && !error.matches(PyExc_PermissionError)) {
            throw;
        }
    }
    return {};
}

void write_by_draft(const nb::object& path, const std::optional<nb::object>& old, FileKind kind,
                    const Write& write) {
    const nb::object os = global("os");
    // A link goes on leading where it led: what it leads to is replaced.
    const nb::object target = os_path().attr("realpath")(path);
    const nb::object draft = draft_beside(target);
    const bool writable = !old || pyglue::is_true(os.attr("access")(target, os.attr("W_OK")));
    try {
        const nb::object opened = writable ? open_draft(draft, kind) : nb::object();
        if (!opened.is_valid()) {
            return write_directly(path, kind, write);
        }
        try {
            fill_draft(opened, draft, old, write);
            os.attr("replace")(draft, target);
        } catch (...) {
            remove_quietly(draft);
            throw;
        }
    } catch (const nb::python_error& error) {
        name_path(error, draft, path);
        throw;
    }
    flush_folder(target);
}

} // namespace

void write_whole_file(nb::handle path, FileKind kind, const Write& write) {
    if (PyLong_Check(path.ptr())) {
        return write_directly(path, kind, write);
    }
    const nb::object name = global("os").attr("fsdecode")(path);
    const std::optional<nb::object> old = status_of(name);
    const bool names_a_file = pyglue::is_true(os_path().attr("basename")(name));
    if (!names_a_file || is_kept_by_the_system(name) || (old && !is_regular(*old))) {
        return write_directly(path, kind, write);
    }
    write_by_draft(name, old, kind, write);
}

} // namespace corvex::report
