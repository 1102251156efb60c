"""The stub file names what the module has, with the module's own parameters and defaults."""

import ast
import functools
import inspect
from pathlib import Path

import pytest

import corvex.core
from corvex.core import report

STUB = ast.parse((Path(corvex.core.__file__).parent / "report.pyi").read_text("utf-8"))
CLASSES = {node.name: node for node in STUB.body if isinstance(node, ast.ClassDef)}


def stub_signature(node: ast.FunctionDef) -> list[tuple[str, str]]:
    """Names and defaults, as `inspect` shows them."""
    arguments = node.args
    defaults = [ast.unparse(value) for value in arguments.defaults]
    padding = [""] * (len(arguments.args) - len(defaults))
    pairs = [(a.arg, d) for a, d in zip(arguments.args, padding + defaults, strict=True)]
    return pairs + ([("**" + arguments.kwarg.arg, "")] if arguments.kwarg else [])


def real_signature(function) -> list[tuple[str, str]]:
    pairs = []
    for name, parameter in inspect.signature(function).parameters.items():
        stars = "**" if parameter.kind is parameter.VAR_KEYWORD else ""
        default = "" if parameter.default is parameter.empty else repr(parameter.default)
        pairs.append((stars + name, default))
    return pairs


def underlying(member):
    """The function behind a property, a cache, a static or a class method."""
    if isinstance(member, property):
        return member.fget
    if isinstance(member, functools.cached_property):
        return member.func
    return getattr(member, "__wrapped__", getattr(member, "__func__", member))


def stub_functions(body):
    return {
        node.name: node
        for node in body
        if isinstance(node, ast.FunctionDef)
        and not any(ast.unparse(d).endswith(".setter") for d in node.decorator_list)
    }


@pytest.mark.parametrize("name", CLASSES)
def test_classes_have_the_methods_of_the_stub_and_no_others(name):
    functions = stub_functions(CLASSES[name].body)
    members = {
        key: value
        for key, value in vars(getattr(report, name)).items()
        if not key.startswith("__") or key == "__init__"
    }
    members = {k: v for k, v in members.items() if not isinstance(v, str)} | {"__init__": None}
    assert set(functions) | {"__init__"} == set(members)
    for key, node in functions.items():
        real = underlying(vars(getattr(report, name))[key])
        assert real_signature(real) == stub_signature(node), key
        if key != "__init__":
            assert real.__qualname__ == f"{name}.{key}"


def test_module_has_the_functions_and_constants_of_the_stub():
    for key, node in stub_functions(STUB.body).items():
        assert real_signature(getattr(report, key)) == stub_signature(node), key
    annotated = {n.target.id for n in STUB.body if isinstance(n, ast.AnnAssign)}
    assert {key for key in annotated if not key.startswith("_") or key in vars(report)} <= set(
        vars(report)
    )


def test_every_public_member_is_documented():
    for class_name in ("Report", "ReportExecution"):
        for key, member in vars(getattr(report, class_name)).items():
            if not key.startswith("_") and key != "SCHEMA_VERSION":
                assert underlying(member).__doc__, key
