"""What tab completion and `help` show: public names alone, every parameter told."""

import importlib
import inspect
import re
import subprocess
import sys

import pytest

import corvex

FACES = ("analysis", "data", "ffn_core", "market", "markets", "rebalance", "schemas", "terminal")
MADE_BY_OTHERS = {"Report", "ReportExecution"}  # whose attributes their own docstrings tell


def faces():
    yield corvex
    for name in FACES:
        yield importlib.import_module(f"corvex.{name}")


@pytest.mark.parametrize("face", list(faces()), ids=lambda module: module.__name__)
def test_completion_shows_public_names_alone(face):
    shown = set(dir(face)) - {"__version__"}
    assert shown >= set(face.__all__) - {"__version__"}
    assert not [name for name in shown if name.startswith("_") or not hasattr(face, name)]
    if face is corvex:
        assert shown == set(corvex.__all__) - {"__version__"} | set(FACES)
    else:
        assert shown == set(face.__all__)


def test_completion_loads_nothing():
    code = "import corvex, sys; print(len(dir(corvex)), 'pandas' in sys.modules)"
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert out.stdout.split() == [str(len(dir(corvex))), "False"]


def functions():
    for face in faces():
        for name in face.__all__:
            found = getattr(face, name)
            if inspect.isfunction(found) or (inspect.isclass(found) and name not in MADE_BY_OTHERS):
                yield pytest.param(found, id=f"{face.__name__}.{name}")


@pytest.mark.parametrize("function", list(functions()))
def test_help_tells_of_every_parameter(function):
    text = inspect.getdoc(function) or ""
    summary, _, rest = text.partition("\n")
    assert 0 < len(summary) <= 99, "a line that says what it does"
    assert not rest.strip() or rest.startswith("\n"), "with a blank line below"
    if inspect.isclass(function) and "__init__" not in vars(function):
        return
    signature = inspect.signature(function)
    untold = [name for name in signature.parameters if name not in text]
    assert untold in ([], ["args", "kwargs"])
    if inspect.isfunction(function):
        assert signature.return_annotation is not inspect.Signature.empty


def test_the_topics_of_simulate_name_each_argument_once():
    topics = inspect.getdoc(corvex.simulate).split("============  ")[1]
    named = [word for line in topics.splitlines()[1:] for word in re.findall(r"\w+", line[13:])]
    arguments = list(inspect.signature(corvex.simulate).parameters)
    assert sorted(name for name in named if name in arguments) == sorted(arguments)
