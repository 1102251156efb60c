#include "corvex/pyglue/errors.hpp"

#include "corvex/pyglue/objects.hpp"

#include <exception>
#include <new>
#include <stdexcept>
#include <typeinfo>

namespace corvex::pyglue {

void translate_current_exception() noexcept {
    try {
        throw;
    } catch (nb::python_error& error) {
        error.restore();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::bad_cast& error) {
        PyErr_SetString(PyExc_TypeError, error.what());
    } catch (const std::out_of_range& error) {
        PyErr_SetString(PyExc_IndexError, error.what());
    } catch (const std::invalid_argument& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
    } catch (const std::domain_error& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
    } catch (...) {
        PyErr_SetString(PyExc_SystemError, "unknown exception in compiled code");
    }
}

} // namespace corvex::pyglue
