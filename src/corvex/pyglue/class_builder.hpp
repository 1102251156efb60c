#pragma once

#include "corvex/pyglue/function.hpp"

#include <span>

namespace corvex::pyglue {

/// Makes a class as a `class` statement does: by calling `type(name, bases, namespace)`. Instances
/// hold no C state, so subclassing, copying and pickling need no help from us.
class ClassBuilder {
  public:
    ClassBuilder(const char* name, const char* doc, nb::dict globals);

    ClassBuilder& base(nb::object type);
    ClassBuilder& methods(std::span<const FunctionSpec> specs);

    /// One function for this class, not yet put into its namespace: to be wrapped in a property, a
    /// cache and the like.
    [[nodiscard]] nb::object function(const FunctionSpec& spec) const;
    ClassBuilder& member(const char* name, nb::handle value);

    nb::object build();

  private:
    const char* name_;
    nb::dict globals_;
    nb::dict namespace_;
    nb::list bases_;
};

} // namespace corvex::pyglue
