import datetime
import json

import numpy as np
import pandas as pd
import pytest

from corvex.core.dashboard import default_serialize

STAMP = pd.Timestamp("2024-01-02 03:04", tz="UTC")


class WithDict:
    def to_dict(self):
        return {"weight": np.float64("nan"), "when": STAMP}


@pytest.mark.parametrize(
    ("value", "expected"),
    [
        (np.int32(3), 3),
        (np.bool_(True), True),
        (np.float32("inf"), None),
        (np.float64(0.5), 0.5),
        (pd.NaT, None),
        (pd.NA, None),
        (np.datetime64("NaT", "ns"), None),
        (np.datetime64("2024-01-02T03:04:05", "s"), "2024-01-02T03:04:05"),
        (STAMP, "2024-01-02T03:04:00+00:00"),
        (datetime.date(2024, 1, 2), "2024-01-02"),
        (datetime.timedelta(days=1), "P1DT0H0M0S"),
        (pd.Period("2024-03", "M"), "2024-03"),
        (np.array([[1.5, np.nan], [np.inf, 2.0]]), [[1.5, None], [None, 2.0]]),
        (np.array(["2024-01-02"], dtype="M8[ns]"), ["2024-01-02T00:00:00"]),
        (np.array(7), 7),
        (pd.DatetimeIndex(["2024-01-02", None]), ["2024-01-02T00:00:00", None]),
        (pd.Series([1.0, np.nan], index=["a", 2]), {"a": 1.0, "2": None}),
        (pd.DataFrame({"x": [1, 2]}), [{"x": 1}, {"x": 2}]),
        (
            pd.DataFrame({"x": [np.nan]}, index=pd.DatetimeIndex(["2024-01-02"], name="date")),
            [{"date": "2024-01-02T00:00:00", "x": None}],
        ),
        ({3, 1, 2}, [1, 2, 3]),
        (frozenset({"a", 1}), [1, "a"]),
        (WithDict(), {"weight": None, "when": "2024-01-02T03:04:00+00:00"}),
    ],
    ids=lambda value: type(value).__name__,
)
def test_default_serialize_gives_strict_json(value, expected):
    plain = default_serialize(value)
    assert plain == expected
    assert json.loads(json.dumps(plain, allow_nan=False)) == expected
    assert json.loads(json.dumps([value], default=default_serialize)) == [expected]


def test_default_serialize_refuses_what_it_does_not_know():
    with pytest.raises(TypeError, match="cannot write object as JSON"):
        json.dumps({"x": object()}, default=default_serialize)
    with pytest.raises(ValueError, match="the label '1' occurs more than once"):
        default_serialize(pd.Series([1, 2], index=[1, "1"]))
