#include "corvex/core/report/strategy_name.hpp"

#include "corvex/core/report/module_globals.hpp"

#include <string_view>

namespace corvex::report {

namespace {

using pyglue::text;

constexpr const char* kLatinLetter = "[\\u0041-\\u005a|\\u0061-\\u007a]";
constexpr const char* kChinese = "[一-龥]";
constexpr std::string_view kForbidden = "()[]+|!@#$~%^={}&*.";
constexpr const char* kNameError = "Strategy Name Error: 名稱如包含中文，需以中文當開頭。";

bool matches(const char* pattern, nb::handle string) {
    return pyglue::length(global("re").attr("findall")(text(pattern), string)) > 0;
}

} // namespace

nb::object cleaned_strategy_name(nb::handle name) {
    if (matches(kLatinLetter, name[0]) && matches(kChinese, name)) {
        pyglue::raise(PyExc_Exception, kNameError);
    }
    nb::object cleaned = nb::borrow<nb::object>(name);
    for (const char forbidden : kForbidden) {
        const char character[] = {forbidden, '\0'};
        cleaned = cleaned.attr("replace")(text(character), text("_"));
    }
    return cleaned;
}

} // namespace corvex::report
