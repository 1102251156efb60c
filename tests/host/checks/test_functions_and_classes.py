"""Compiled functions and classes behave as ones written in Python do."""

import copy
import functools
import gc
import inspect
import pickle
import warnings
import weakref
from unittest import mock

import pytest


def test_wrong_counts_are_told_as_the_interpreter_tells_them(module, make_report):
    report = make_report()
    exactly, many = "takes exactly {} positional", "positional arguments"
    to_text, execution, division = report.to_text, module.ReportExecution, module.safe_division
    cases = [
        (lambda: module.Report(1), rf"__init__\(\) {exactly.format(8)} arguments \(2 given\)"),
        (lambda: division(1), rf"{exactly.format(2)} arguments \(1 given\)"),
        (lambda: module.check_environment(1), rf"{exactly.format(0)} arguments \(1 given\)"),
        (lambda: report.get_trades(1), rf"{exactly.format(1)} argument \(2 given\)"),
        (lambda: to_text(1, 2), rf"to_text\(\) takes at most 2 {many} \(3 given\)"),
        (lambda: report.add_trade_info("x"), rf"takes at least 3 {many} \(2 given\)"),
        (lambda: execution(weights=0), rf"takes at least 11 {many} \(2 given\)"),
        (lambda: to_text(title="x"), r"to_text\(\) got an unexpected keyword argument 'title'"),
        (lambda: to_text("x", name=0), r"to_text\(\) got multiple values for argument 'name'"),
        (lambda: division(**{1: 2}), "keywords must be strings"),
    ]
    for call, message in cases:
        with pytest.raises(TypeError, match=message):
            call()


def test_arguments_bind_by_position_and_by_keyword(module):
    # A name made at run time is not interned: it must be found by its text.
    denominator = "".join(["d"])
    assert module.safe_division(n=6, d=3) == 2
    assert module.safe_division(6, **{denominator: 4}) == 1.5
    assert module.Report.get_ndays_return.__defaults__ is None
    assert module.Report.to_terminal.__defaults__ == (12, 80, True, True)


def test_function_attributes_are_those_of_a_python_function(module):
    function = module.Report.to_text
    assert (function.__name__, function.__qualname__) == ("to_text", "Report.to_text")
    assert function.__module__ == module.__name__ == module.Report.__module__
    assert function.__globals__ is vars(module)
    assert module.daily_return.__name__ == module.calc_cagr.__name__ == "<lambda>"
    assert repr(function).startswith("<function Report.to_text at 0x")
    function.note = "kept"
    try:
        assert function.__dict__ == {"note": "kept"}
    finally:
        del function.note
    with pytest.raises(TypeError, match="must be set to a str object"):
        function.__name__ = 1
    wrapped = functools.wraps(module.safe_division)(lambda n, d: None)
    assert wrapped.__name__ == "safe_division"
    assert weakref.ref(function)() is function
    assert gc.is_tracked(function)
    with pytest.raises(TypeError, match="cannot create"):
        type(function)()


def test_functions_methods_and_classes_pickle_by_name(module, make_report):
    for value in (module.safe_division, module.Report.to_text, module.Report):
        assert pickle.loads(pickle.dumps(value)) is value
        assert copy.copy(value) is copy.deepcopy(value) is value
    bound = pickle.loads(pickle.dumps(make_report().to_text))
    assert bound.__func__ is module.Report.to_text


def test_classes_are_ordinary(module, make_report):
    report = make_report()
    assert type(module.Report) is type(module.ReportExecution) is type
    assert module.Report.__mro__ == (module.Report, object)
    assert hash(report) == object.__hash__(report)
    assert weakref.ref(report)() is report
    bare = module.Report.__new__(module.Report)
    with pytest.raises(AttributeError, match="has no attribute 'creturn'"):
        bare.to_terminal()
    bare.anything = 1
    shallow = copy.copy(report)
    assert vars(shallow) == vars(report)
    assert vars(shallow) is not vars(report)


def test_subclasses_override_and_call_up(module, make_report):
    class Named(module.Report):
        def __init__(self, *args, label):
            super().__init__(*args)
            self.label = label

        def get_stats(self, **settings):
            return super().get_stats(**settings) | {"start": "overridden"}

        @functools.cache  # noqa: B019 - hashable by identity
        def slow(self):
            return object()

    plain = make_report()
    named = Named(plain.creturn, plain.position, 0, 0, "close", None, plain.market, label="mine")
    assert named.label == "mine"
    assert "回測期間: overridden ~ 2024-01-10\n" in named.to_text()
    assert named.slow() is named.slow()

    class Deep(module.CustomEncoder):
        def default(self, obj):
            return "seen" if obj is Ellipsis else super().default(obj)

    assert Deep().encode([...]) == '["seen"]'


def test_endless_recursion_is_an_error_not_a_crash(module):
    class Circle(module.Report):
        get_trades = module.Report.get_trades
        trades = property(get_trades)

    with pytest.raises(RecursionError):
        Circle.__new__(Circle).get_trades()


def test_patches_of_module_names_and_of_methods_take_effect(module, make_report, monkeypatch):
    report = make_report()
    monkeypatch.setattr(module, "safe_division", lambda n, d: 0)
    assert module.calc_cagr(report.creturn) == 0
    with mock.patch.object(
        module.Report, "get_stats", lambda self: {"win_ratio": len(self.trades)}
    ):
        assert "回測期間: N/A ~ N/A" in report.to_text()
    monkeypatch.setattr(module, "sum", lambda values: 3, raising=False)
    report.trades = report.trades.assign(**{"return": [1.0]})
    assert report.get_stats(riskfree_rate=0.5)["win_ratio"] == 3


RESAMPLE = (
    "report.get_stats(resample=...) has no effect and will be removed; stats are always computed "
    "on daily returns (see the daily_*, monthly_* and yearly_* keys)."
)
EXPIRY = "report.next_data_expiry() is deprecated, use report.next_future_expiry() instead"


@pytest.mark.parametrize(
    ("ask", "settings", "message"),
    [
        ("get_stats", {"resample": "M"}, RESAMPLE),
        ("get_stats", {"resample": False}, RESAMPLE),
        ("next_data_expiry", {}, EXPIRY),
    ],
)
def test_warnings_point_at_the_callers_line(make_report, ask, settings, message):
    report = make_report()
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        line = inspect.currentframe().f_lineno + 1
        getattr(report, ask)(**settings)
        getattr(report, ask)(**settings)
    assert [(w.category, w.filename, w.lineno) for w in caught] == [
        (DeprecationWarning, __file__, line),
        (DeprecationWarning, __file__, line + 1),
    ]
    assert str(caught[0].message) == message
