#pragma once

#include "corvex/pyglue/objects.hpp"

#include <array>
#include <cstddef>
#include <span>
#include <variant>

namespace corvex::pyglue {

/// A default value as it stands in a table of parameters; std::monostate marks a required one.
using DefaultValue = std::variant<std::monostate, std::nullptr_t, bool, long, double, const char*>;

struct Parameter {
    const char* name;
    DefaultValue default_value{};

    [[nodiscard]] constexpr bool required() const {
        return std::holds_alternative<std::monostate>(default_value);
    }
};

inline constexpr std::size_t kMaxParameters = 16;

/// The arguments of one call, bound to the parameters of the function. All borrowed: they live as
/// long as the call.
class Call {
  public:
    using Arguments = std::array<nb::handle, kMaxParameters>;

    Call(const Arguments& arguments, nb::object keywords, nb::handle owner)
        : arguments_(arguments), keywords_(std::move(keywords)), owner_(owner) {}

    nb::handle operator[](std::size_t position) const { return arguments_[position]; }

    /// The instance (or the class, in a class method).
    [[nodiscard]] nb::handle self() const { return arguments_[0]; }

    /// What `**kwargs` caught: a fresh dict, empty where nothing was caught.
    [[nodiscard]] nb::dict keywords() const { return as_dict(keywords_); }

    /// `super()` as inside the class statement that defined the function.
    [[nodiscard]] nb::object super() const;

  private:
    const Arguments& arguments_;
    nb::object keywords_;
    nb::handle owner_;
};

using Body = nb::object (*)(const Call&);

enum class Binding { kFunction, kStaticMethod, kClassMethod };

/// Declares one Python-visible function. All texts must outlive the module.
struct FunctionSpec {
    const char* name;
    std::span<const Parameter> parameters;
    Body body;
    const char* doc = nullptr;
    Binding binding = Binding::kFunction;
    const char* var_keywords = nullptr; ///< name of the `**` parameter, if there is one
};

} // namespace corvex::pyglue
