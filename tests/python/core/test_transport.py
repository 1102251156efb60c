"""Wire names and what the upload asks of its helpers."""

import sys
import types

import pandas as pd
import pytest

from corvex.core.trade_columns import to_wire_trades
from corvex.core.upload import (
    interpret_legacy_upload_response,
    post_legacy_upload_pyodide_no_cors,
    resolve_upload_name,
)


def test_wire_trades_rename_without_losing_columns_or_dates():
    names = {
        "symbol": "symbol",
        "entry_date": "entryDate",
        "trade_price@entry_date": "tradePrice@entryDate",
        "pe_ratio@entry_sig_date": "peRatio@entrySigDate",
        "RSI_14": "RSI_14",
        "entryDate": "entryDate_2",  # taken: numbered, or else under its own name
        "myKey": "myKey",
        "my_key": "my_key",
    }
    trades = pd.DataFrame({name: [at] for at, name in enumerate(names)})
    wire = to_wire_trades(trades)
    assert list(trades) == list(names)
    assert wire.iloc[0].to_dict() == {name: at for at, name in enumerate(names.values())}
    assert to_wire_trades(pd.DataFrame()).to_json(orient="records") == "[]"
    assert list(to_wire_trades(trades.iloc[:0]).columns) == list(wire.columns)


@pytest.mark.parametrize(
    ("name", "forced", "expected"),
    [
        (" mine ", "  ", "mine"),
        ("mine", "theirs", "theirs"),
        ("\t", None, "未命名"),
    ],
)
def test_resolve_upload_name_is_never_empty(name, forced, expected):
    environ = {} if forced is None else {"CORVEX_FORCED_STRATEGY_NAME": forced}
    assert resolve_upload_name(name, environ) == expected
    with pytest.raises(TypeError, match="must be text or None, got int"):
        resolve_upload_name(3, environ)


@pytest.mark.parametrize(
    ("status", "text", "message"),
    [
        (200, "ok", None),
        (204, "", None),
        (200, '{"status": "success", "error": null}', None),
        (200, '{"status": "ERROR", "message": "no such user"}', "no such user"),
        (200, '{"success": false}', "HTTP 200"),
        (403, '{"error": {"code": 403, "message": "denied"}}', "denied"),
        (502, "<html>\n bad  gateway</html>", "<html> bad gateway</html>"),
        (500, "", "HTTP 500"),
        (200, '{"status": "denied", "message": "over quota"}', "over quota"),
        (200, "log in \x1b[2J", "something else than the service answered: log in  [2J"),
        (200, '{"status": "succ', 'something else than the service answered: {"status": "succ'),
        (
            302,
            "[]",
            "the service redirects elsewhere (HTTP 302); nothing was sent there, so "
            "nothing is published",
        ),
        (500, "x" * 9999, "x" * 499 + "…"),
    ],
)
def test_interpret_legacy_upload_response(status, text, message):
    result = interpret_legacy_upload_response(status, text)
    expected = {"status": "error", "message": message, "status_code": status}
    assert result == (None if message is None else expected)


def test_the_browser_post_sends_only_inside_a_browser(monkeypatch):
    sent = []
    js = types.SimpleNamespace(
        fetch=lambda url, options: sent.append((url, options)),
        Object=types.SimpleNamespace(fromEntries=dict),
    )
    ffi = types.SimpleNamespace(to_js=lambda value, dict_converter: dict_converter(value.items()))
    monkeypatch.setitem(sys.modules, "js", js)
    monkeypatch.setitem(sys.modules, "pyodide", types.ModuleType("pyodide"))
    monkeypatch.setitem(sys.modules, "pyodide.ffi", ffi)
    url, form = "https://host.example/write", {"data": "策略&", "collection": "strategies"}
    assert not post_legacy_upload_pyodide_no_cors(url, form)
    assert not sent
    monkeypatch.setattr(sys, "platform", "emscripten")
    assert post_legacy_upload_pyodide_no_cors(url, form)
    [(address, options)] = sent
    assert address == url
    assert options["mode"] == "no-cors"
    assert options["body"] == "data=%E7%AD%96%E7%95%A5%26&collection=strategies"
