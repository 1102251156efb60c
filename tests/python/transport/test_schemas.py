"""Every dictionary that is written follows its schema, and comes back."""

import json
from pathlib import Path

import jsonschema
import pandas as pd
import pytest

from corvex import schemas
from corvex.core.report import Report, ReportExecution
from corvex.core.trade_columns import decode_trades

from .reports import KINDS, report

DOCS = Path(__file__).parents[3] / "docs" / "transport.md"


@pytest.mark.parametrize("kind", KINDS)
def test_what_a_report_writes_follows_its_schemas_and_comes_back(kind):
    source = report(kind)
    payload = source.to_payload_dict()
    received = json.loads(json.dumps(payload))
    assert schemas.problems(payload, "report.payload.v1") == []
    assert schemas.problems(received, "report.payload.v1") == []
    for part in Report.from_payload_dict(received)["report"], source.to_json():
        assert schemas.problems(part, "report.v1") == []
        assert unlisted(part, "report.v1") == []
    assert unlisted(received["holdings"], "report.holdings.v1") == []

    trades = decode_trades(received["report"]["trades"], tz=zone(source.trades))
    pd.testing.assert_frame_equal(
        trades, dates_as_ns(source.trades), check_dtype=False, rtol=1e-9, check_names=False
    )  # fmt: skip
    back = ReportExecution.from_dict_collection(received["execution"])
    again = ReportExecution.to_dict_collection(back)
    assert timeless(again) == timeless(received["execution"])


def test_a_table_without_trades_has_the_usual_columns():
    empty = decode_trades(report("plain").to_report_dict(trades_limit=0)["trades"])
    assert set(report("plain").trades.columns) == set(empty.columns)
    assert len(empty) == 0


def timeless(record):
    """A record without what its moment and its market's tables say; no limit is an infinite one."""
    if isinstance(record, dict):
        left = record.keys() - {"rebalanceTiming", "dataFreq"}
        return {key: timeless(record[key]) for key in left}
    if isinstance(record, list):
        return [timeless(member) for member in record]
    return None if record == float("inf") else record


def zone(trades):
    return getattr(trades["entry_date"].dtype, "tz", None) and "UTC"


def dates_as_ns(trades):
    trades = trades.reset_index(drop=True)
    for column in trades.columns[trades.dtypes.map(lambda dtype: dtype.kind == "M")]:
        trades[column] = trades[column].dt.as_unit("ns")
    return trades


def unlisted(value, name):
    """What a dictionary holds that its schema does not name."""

    def closed(schema):
        if isinstance(schema, list):
            return [closed(part) for part in schema]
        if not isinstance(schema, dict):
            return schema
        shut = {"additionalProperties": False} if "properties" in schema else {}
        return shut | {key: closed(part) for key, part in schema.items()}

    validator = jsonschema.Draft202012Validator(closed(schemas.load(name)))
    return [error.message for error in validator.iter_errors(value)]


@pytest.mark.parametrize("name", schemas.names())
def test_a_schema_is_sound_self_contained_and_explained(name):
    schema = schemas.load(name)
    jsonschema.Draft202012Validator.check_schema(schema)
    schema.clear()
    schema = schemas.load(name)  # a copy was handed out
    guide = DOCS.read_text(encoding="utf-8")
    assert schema["$schema"].endswith("2020-12/schema")
    assert [key for key in keys(schema) if f"`{key}`" not in guide] == []


def keys(schema):
    """Every key that a schema names."""
    if isinstance(schema, dict):
        listed = schema.get("properties")
        own = set(listed) if isinstance(listed, dict) else set()
        return sorted(own.union(*(keys(part) for part in schema.values())))
    return []


@pytest.mark.parametrize(
    ("name", "path", "value"),
    [
        ("report.v1", "schema", "report.v2"),
        ("report.v1", "strategy", [1.0, "2"]),
        ("report.v1", "isTradable", 1),
        ("report.execution.v1", "config.rebalanceTiming.status", "perhaps"),
        ("report.execution.v1", "config.totalWeight", None),
        ("report.holdings.v1", "positionConfig.sl", "0.1"),
        ("report.holdings.v1", "positions", None),
        ("report.payload.v1", "execution.config.market", 3),
        ("report.payload.v1", "holdings.positions", [{}]),
        ("report.payload.v1", "execution", {"mine": {}}),
    ],
)
def test_faults_are_found(name, path, value):
    payload = json.loads(json.dumps(report("plain").to_payload_dict()))
    own = name.removesuffix(".v1").split(".")[-1]  # its key in the payload
    part = payload.get(own, payload)
    *parents, last = path.split(".")
    holder = part
    for parent in parents:
        holder = holder[parent]
    assert last in holder
    holder[last] = value
    found = schemas.problems(part, name)
    assert found
    assert found[0].startswith(f"$.{path}")


def test_an_unknown_schema_is_told():
    message = r"no schema named 'report.v2' \(did you mean 'report.v1'\?\); there are: report.v1, "
    with pytest.raises(ValueError, match=message):
        schemas.load("report.v2")
    with pytest.raises(ValueError, match="no schema named \\[\\]"):
        schemas.load([])
