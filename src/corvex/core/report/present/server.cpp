#include "corvex/core/report/present/server.hpp"

#include "corvex/core/report/module_globals.hpp"
#include "corvex/pyglue/class_builder.hpp"
#include "corvex/pyglue/function.hpp"

#include <array>
#include <utility>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;

constexpr double kPatience = 5.0; ///< seconds for a connection to ask for something
constexpr Py_ssize_t kMisdirected = 421;

constexpr std::array<std::pair<const char*, const char*>, 4> kFrontEnds{{
    {"COLAB_GPU", "Google Colab"},
    {"VSCODE_PID", "VSCode"},
    {"JUPYTERHUB_SERVICE_PREFIX", "Jupyter Lab"},
    {"JPY_PARENT_PID", "Jupyter Notebook"},
}};

nb::object check_environment(const Call& /*call*/) {
    const nb::object environment = global("os").attr("environ");
    for (const auto& [variable, front_end] : kFrontEnds) {
        if (pyglue::contains(environment, variable)) {
            return pyglue::text(front_end);
        }
    }
    return nb::none();
}

/// A page elsewhere can have its name point to this machine, and would then read the answers; the
/// browser still says which name was asked for.
bool is_for_this_machine(nb::handle handler) {
    const nb::object host = handler.attr("headers").attr("get")(pyglue::text("Host"));
    if (host.is_none()) { // no browser
        return true;
    }
    const nb::object port = handler.attr("server").attr("server_address")[1];
    const nb::object end = pyglue::concat({pyglue::text(":"), pyglue::to_text(port)});
    const nb::object asked = host.attr("lower")();
    return pyglue::equals(asked, pyglue::concat({pyglue::text("127.0.0.1"), end})) ||
           pyglue::equals(asked, pyglue::concat({pyglue::text("localhost"), end}));
}

nb::object parse_request(const Call& call) {
    if (!pyglue::is_true(call.super().attr("parse_request")())) {
        return nb::borrow<nb::object>(Py_False);
    }
    const nb::handle self = call.self();
    if (is_for_this_machine(self)) {
        return nb::borrow<nb::object>(Py_True);
    }
    self.attr("close_connection") = true;
    self.attr("send_error")(pyglue::integer(kMisdirected));
    return nb::borrow<nb::object>(Py_False);
}

constexpr Parameter kSelf[] = {{"self"}};

const FunctionSpec kHandlerMethods[] = {
    {"parse_request", kSelf, parse_request,
     "Read a request; one that was meant for another machine is refused."},
};

/// Serves one connection after the other, so none may stay open without asking for something.
nb::object make_handler_class() {
    return pyglue::ClassBuilder("PreviewRequestHandler", "Serves the temporary folder.",
                                module_globals())
        .base(pyglue::import_module("http.server").attr("SimpleHTTPRequestHandler"))
        .methods(kHandlerMethods)
        .member("timeout", pyglue::number(kPatience))
        .build();
}

nb::object run_server(const Call& /*call*/) {
    global("os").attr("chdir")(global("get_tmp_dir")());
    const nb::object handler = make_handler_class();
    const nb::object address = nb::make_tuple(pyglue::text("127.0.0.1"), global("server_port"));
    const nb::object server_type = pyglue::import_module("socketserver").attr("TCPServer");
    return pyglue::with(server_type(address, handler), [](const nb::object& server) {
        server.attr("serve_forever")();
        return nb::none();
    });
}

const FunctionSpec kRunServer{"run_server", {}, run_server};

/// The system gives a free port to whoever binds to port 0.
nb::object free_port() {
    const nb::object socket = global("socket");
    return pyglue::with(socket.attr("socket")(socket.attr("AF_INET"), socket.attr("SOCK_STREAM")),
                        [](const nb::object& probe) {
                            probe.attr("bind")(
                                nb::make_tuple(pyglue::text(""), pyglue::integer(0)));
                            return nb::object(probe.attr("getsockname")()[1]);
                        });
}

nb::object start_server(const Call& /*call*/) {
    module_globals()["server_port"] = free_port();
    const nb::object serve =
        pyglue::make_function(kRunServer, module_globals(), "start_server.<locals>.");
    const nb::object thread =
        pyglue::import_module("threading").attr("Thread")(nb::arg("target") = serve);
    thread.attr("start")();
    return nb::none();
}

const FunctionSpec kFunctions[] = {
    {"start_server",
     {},
     start_server,
     "Serve the library's temporary folder on 127.0.0.1, from a thread of its own, until the "
     "process\n"
     "ends. The port is then in `server_port`; the working directory becomes that folder."},
    {"check_environment",
     {},
     check_environment,
     "The front end that runs this process: \"Google Colab\", \"VSCode\", \"Jupyter Lab\",\n"
     "\"Jupyter Notebook\" or None."},
};

} // namespace

std::span<const FunctionSpec> server_functions() { return kFunctions; }

} // namespace corvex::report
