#include "corvex/pyglue/call.hpp"

namespace corvex::pyglue {

nb::object Call::super() const {
    return nb::borrow<nb::object>(reinterpret_cast<PyObject*>(&PySuper_Type))(owner_, self());
}

} // namespace corvex::pyglue
