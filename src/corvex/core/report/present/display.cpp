#include "corvex/core/report/present/display.hpp"

#include "corvex/core/report/imports.hpp"
#include "corvex/core/report/module_globals.hpp"
#include "corvex/core/report/present/older_view.hpp"
#include "corvex/core/report/whole_file.hpp"

#include <optional>

namespace corvex::report {

namespace {

using pyglue::Call;
using pyglue::FunctionSpec;
using pyglue::Parameter;
using pyglue::text;

constexpr const char* kNoNotebook = "IPython is not installed, so the interactive report cannot be "
                                    "shown; printed a text summary instead. "
                                    "Install it with `pip install ipython`, or save the report "
                                    "with report.to_html(\"report.html\"). "
                                    "未安裝 IPython，已改印文字摘要；可 pip install ipython，或用 "
                                    "report.to_html(\"report.html\") 輸出網頁報告。";

void warn(const char* message) { global("logger").attr("warning")(text(message)); }

nb::object to_html(const Call& call) {
    const nb::object page = global("generate_html")(call.self(), nb::arg("with_iframe") = false,
                                                    nb::arg("title") = call[2]);
    write_whole_file(call[1], FileKind::kUtf8Text,
                     [&](const nb::object& file) { file.attr("write")(page); });
    return nb::none();
}

nb::object notebook_page(nb::handle report) {
    return global("generate_html")(report, nb::arg("with_iframe") = true);
}

nb::object repr_html(const Call& call) { return notebook_page(call.self()); }

/// Colab scrolls within a cell; the report is to take the height it needs.
void cancel_cell_scrolling() {
    try {
        imported("google.colab", "output").attr("no_vertical_scroll")();
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_Exception)) {
            throw;
        }
        warn("Cannot cancel cell scrolling");
    }
}

struct Notebook {
    nb::object html;
    nb::object display;
};

/// Nothing where IPython is missing: then the text summary is printed instead.
std::optional<Notebook> notebook_or_text(nb::handle report) {
    try {
        return Notebook{imported("IPython.display", "HTML"),
                        imported("IPython.display", "display")};
    } catch (const nb::python_error& error) {
        if (!error.matches(PyExc_ImportError)) {
            throw;
        }
    }
    global("print")(report.attr("to_text")());
    warn(kNoNotebook);
    return std::nullopt;
}

void show_current_view(nb::handle report) {
    const auto notebook = notebook_or_text(report);
    if (!notebook) {
        return;
    }
    const nb::object page = notebook_page(report);
    if (pyglue::is_text_equal(global("check_environment")(), "Google Colab")) {
        cancel_cell_scrolling();
    }
    notebook->display(notebook->html(page));
}

nb::object display(const Call& call) {
    const nb::handle self = call.self();
    const nb::handle path = call[2];
    if (!pyglue::is_true(call[1])) {
        if (!path.is_none()) {
            self.attr("to_html")(path);
        }
        show_current_view(self);
        return nb::none();
    }
    if (!path.is_none()) {
        warn("save_report_path is not supported in lagacy mode.");
    }
    warn("lagacy mode will be deprecated");
    if (const auto notebook = notebook_or_text(self)) {
        show_older_view(self, notebook->display);
    }
    return nb::none();
}

constexpr Parameter kSelf[] = {{"self"}};
constexpr Parameter kToHtml[] = {{"self"}, {"path"}, {"title", nullptr}};
constexpr Parameter kDisplay[] = {{"self"}, {"lagacy", false}, {"save_report_path", nullptr}};

const FunctionSpec kMethods[] = {
    {"display", kDisplay, display,
     "Displays the given data.\n\nArgs:\n"
     "    lagacy (bool): If True, the report will be displayed in the old way.\n"
     "    save_report_path (str): The path to save the report. If None, the report will not be "
     "saved.\n"},
    {"to_html", kToHtml, to_html,
     "Export the report to a standalone HTML file.\n\nArgs:\n    path (str): The file to write.\n"
     "    title (str): Optional browser tab title. Defaults to ``Corvex Report``.\n"},
    {"_repr_html_", kSelf, repr_html, "The report's HTML for rich notebook display."},
};

} // namespace

std::span<const FunctionSpec> display_methods() { return kMethods; }

} // namespace corvex::report
