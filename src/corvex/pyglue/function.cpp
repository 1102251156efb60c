#include "corvex/pyglue/function.hpp"

#include "corvex/pyglue/binder.hpp"
#include "corvex/pyglue/code_object.hpp"
#include "corvex/pyglue/errors.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace corvex::pyglue {

namespace {

/// What the interpreter reaches by offset; the C++ part follows behind it.
struct FunctionHead {
    PyObject_HEAD vectorcallfunc vectorcall;
    PyObject* dict;
    PyObject* weak_references;
};

struct FunctionState {
    FunctionState(const FunctionSpec& function_spec, nb::dict module_globals, const char* scope)
        : spec(function_spec), signature(function_spec), globals(std::move(module_globals)),
          name(text(function_spec.name)),
          qualname(text((std::string(scope) + function_spec.name).c_str())),
          module(globals["__name__"]),
          doc(function_spec.doc != nullptr ? text(function_spec.doc) : nb::none()),
          annotations(nb::dict()) {}

    const FunctionSpec& spec;
    Signature signature;
    nb::dict globals;
    nb::object name;
    nb::object qualname;
    nb::object module;
    nb::object doc;
    nb::object annotations;
    nb::object code; ///< made when first asked for: most functions never are
    nb::object owner;
};

struct FunctionObject : FunctionHead {
    FunctionState state;
};

FunctionObject& as_function(PyObject* self) {
    return *static_cast<FunctionObject*>(reinterpret_cast<FunctionHead*>(self));
}

nb::object invoke(const FunctionState& state, PyObject* const* args, std::size_t flags,
                  PyObject* keyword_names) {
    Call::Arguments bound{};
    nb::object keywords =
        state.signature.bind(args, PyVectorcall_NARGS(flags), keyword_names, bound);
    return state.spec.body(Call(bound, std::move(keywords), state.owner));
}

PyObject* function_vectorcall(PyObject* self, PyObject* const* args, std::size_t flags,
                              PyObject* keyword_names) noexcept {
    // A Python override that calls back here may recurse without end: that is to be a
    // RecursionError, not an overflow of the C stack.
    if (Py_EnterRecursiveCall(" while calling a Python object") != 0) {
        return nullptr;
    }
    PyObject* result = nullptr;
    try {
        result = invoke(as_function(self).state, args, flags, keyword_names).release().ptr();
    } catch (...) {
        translate_current_exception();
    }
    Py_LeaveRecursiveCall();
    return result;
}

PyObject* function_bind(PyObject* self, PyObject* instance, PyObject* /*type*/) {
    if (instance == nullptr || instance == Py_None) {
        return Py_NewRef(self);
    }
    return PyMethod_New(self, instance);
}

PyObject* function_repr(PyObject* self) {
    return PyUnicode_FromFormat("<function %U at %p>", as_function(self).state.qualname.ptr(),
                                self);
}

/// Pickle and copy take the text as "look this name up", as for functions written in Python.
PyObject* function_reduce(PyObject* self, PyObject* /*unused*/) {
    return Py_NewRef(as_function(self).state.qualname.ptr());
}

int function_traverse(PyObject* self, visitproc visit, void* arg) {
    const FunctionObject& function = as_function(self);
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(function.dict);
    Py_VISIT(function.state.globals.ptr());
    Py_VISIT(function.state.annotations.ptr());
    Py_VISIT(function.state.doc.ptr());
    Py_VISIT(function.state.module.ptr());
    Py_VISIT(function.state.owner.ptr());
    return function.state.signature.traverse(visit, arg);
}

/// Only what can be part of a cycle is dropped; a call that comes later still finds its names.
int function_clear(PyObject* self) {
    FunctionObject& function = as_function(self);
    Py_CLEAR(function.dict);
    function.state.owner.reset();
    return 0;
}

void function_dealloc(PyObject* self) {
    PyTypeObject* const type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    FunctionObject& function = as_function(self);
    if (function.weak_references != nullptr) {
        PyObject_ClearWeakRefs(self);
    }
    Py_CLEAR(function.dict);
    std::destroy_at(&function.state);
    type->tp_free(self);
    Py_DECREF(type);
}

// --- attributes
// -----------------------------------------------------------------------------------

using Field = nb::object FunctionState::*;

/// One attribute kept in a field of the state: which field, and the type that may be assigned.
struct Attribute {
    Field field;
    PyTypeObject* required_type; ///< nullptr: anything
};

PyObject* get_field(PyObject* self, void* closure) {
    const auto& attribute = *static_cast<const Attribute*>(closure);
    return Py_NewRef((as_function(self).state.*attribute.field).ptr());
}

int set_field(PyObject* self, PyObject* value, void* closure) {
    const auto& attribute = *static_cast<const Attribute*>(closure);
    if (value == nullptr) {
        value = Py_None;
    }
    if (attribute.required_type != nullptr &&
        PyObject_TypeCheck(value, attribute.required_type) == 0) {
        PyErr_Format(PyExc_TypeError, "the attribute must be set to a %s object, not %.200s",
                     attribute.required_type->tp_name, Py_TYPE(value)->tp_name);
        return -1;
    }
    as_function(self).state.*attribute.field = nb::borrow<nb::object>(value);
    return 0;
}

PyObject* get_globals(PyObject* self, void* /*closure*/) {
    return Py_NewRef(as_function(self).state.globals.ptr());
}

PyObject* get_defaults(PyObject* self, void* /*closure*/) {
    return as_function(self).state.signature.defaults().release().ptr();
}

PyObject* get_none(PyObject* /*self*/, void* /*closure*/) { return Py_NewRef(Py_None); }

PyObject* get_code(PyObject* self, void* /*closure*/) {
    try {
        FunctionState& state = as_function(self).state;
        if (!state.code.is_valid()) {
            state.code =
                make_code_object(state.spec, state.signature.names(), state.module, state.qualname);
        }
        return Py_NewRef(state.code.ptr());
    } catch (...) {
        translate_current_exception();
        return nullptr;
    }
}

PyTypeObject* make_function_type() {
    static Attribute name{&FunctionState::name, &PyUnicode_Type};
    static Attribute qualname{&FunctionState::qualname, &PyUnicode_Type};
    static Attribute module{&FunctionState::module, nullptr};
    static Attribute doc{&FunctionState::doc, nullptr};
    static Attribute annotations{&FunctionState::annotations, &PyDict_Type};
    static PyGetSetDef attributes[] = {
        {"__name__", get_field, set_field, nullptr, &name},
        {"__qualname__", get_field, set_field, nullptr, &qualname},
        {"__module__", get_field, set_field, nullptr, &module},
        {"__doc__", get_field, set_field, nullptr, &doc},
        {"__annotations__", get_field, set_field, nullptr, &annotations},
        {"__globals__", get_globals, nullptr, nullptr, nullptr},
        {"__defaults__", get_defaults, nullptr, nullptr, nullptr},
        {"__kwdefaults__", get_none, nullptr, nullptr, nullptr},
        {"__closure__", get_none, nullptr, nullptr, nullptr},
        {"__code__", get_code, nullptr, nullptr, nullptr},
        {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
        {}};
    static PyMethodDef methods[] = {{"__reduce__", function_reduce, METH_NOARGS, nullptr}, {}};
    static PyMemberDef members[] = {
        {"__vectorcalloffset__", Py_T_PYSSIZET, offsetof(FunctionHead, vectorcall), Py_READONLY,
         nullptr},
        {"__dictoffset__", Py_T_PYSSIZET, offsetof(FunctionHead, dict), Py_READONLY, nullptr},
        {"__weaklistoffset__", Py_T_PYSSIZET, offsetof(FunctionHead, weak_references), Py_READONLY,
         nullptr},
        {}};
    static PyType_Slot slots[] = {{Py_tp_call, reinterpret_cast<void*>(PyVectorcall_Call)},
                                  {Py_tp_descr_get, reinterpret_cast<void*>(function_bind)},
                                  {Py_tp_repr, reinterpret_cast<void*>(function_repr)},
                                  {Py_tp_traverse, reinterpret_cast<void*>(function_traverse)},
                                  {Py_tp_clear, reinterpret_cast<void*>(function_clear)},
                                  {Py_tp_dealloc, reinterpret_cast<void*>(function_dealloc)},
                                  {Py_tp_getset, attributes},
                                  {Py_tp_methods, methods},
                                  {Py_tp_members, members},
                                  {0, nullptr}};
    static PyType_Spec spec{
        .name = "corvex.core.report.function",
        .basicsize = static_cast<int>(sizeof(FunctionObject)),
        .itemsize = 0,
        .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL |
                 Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_DISALLOW_INSTANTIATION,
        .slots = slots,
    };
    PyObject* const type = PyType_FromSpec(&spec);
    if (type == nullptr) {
        throw nb::python_error();
    }
    return reinterpret_cast<PyTypeObject*>(type);
}

/// One type for the process: instances outlive the module at shutdown, so it is never released.
PyTypeObject* function_type() {
    static PyTypeObject* const type = make_function_type();
    return type;
}

} // namespace

nb::object make_function(const FunctionSpec& spec, nb::dict globals, const char* scope) {
    PyTypeObject* const type = function_type();
    FunctionState state(spec, std::move(globals), scope);
    const auto allocated = nb::steal<nb::object>(type->tp_alloc(type, 0));
    if (!allocated.is_valid()) {
        throw nb::python_error();
    }
    FunctionObject& function = as_function(allocated.ptr());
    PyObject_GC_UnTrack(allocated.ptr());
    std::construct_at(&function.state, std::move(state));
    function.vectorcall = function_vectorcall;
    PyObject_GC_Track(allocated.ptr());
    return allocated;
}

bool is_function(nb::handle value, const FunctionSpec& spec) {
    return Py_IS_TYPE(value.ptr(), function_type()) &&
           &as_function(value.ptr()).state.spec == &spec;
}

void set_owner(nb::handle function, nb::handle owner) {
    if (Py_IS_TYPE(function.ptr(), function_type())) {
        as_function(function.ptr()).state.owner = nb::borrow<nb::object>(owner);
    }
}

} // namespace corvex::pyglue
